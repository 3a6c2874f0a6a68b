#pragma once

#include "platform/support/FileDescriptor.h"
#include "platform/support/FileFailure.h"

#include <string>
#include <string_view>

// A file, there or not, that no other writer of its folder (in this process or another) can replace
// for as long as this exists. Where the path is a symbolic link, all is about the file that it
// leads to, so that writers by either name keep each other out. The constructor makes the folder if
// it is missing, and waits for the lock.
//
//     LockedFile file(path);
//     if (const FileFailure failure = file.Replace(bytes)) { ... }
class LockedFile {
public:
    explicit LockedFile(const std::string& path);

    // Why the file is not locked, if it is not: then nothing can be done with it, and what is tried
    // fails with this.
    const FileFailure& Failure() const { return mFailure; }

    // Writes the bytes beside the file, flushes them to the disk, and puts them in its place with
    // the owner and mode that it has (0644 when it is new), so that every reader sees the old or
    // the new file whole. When that fails or the owner cannot be kept the old file is as it was.
    // What a writer that was killed left beside the file is gone then.
    FileFailure Replace(std::string_view bytes);

    // Renames the file to the first name of "FILE.broken", "FILE.broken-2", ... that is free, and
    // says where it is now.
    FileFailure MoveAside(std::string& newPath);

private:
    std::string mFolderPath;
    FileDescriptor mFolder; // which is what is locked: the file itself is going to be another
    std::string mName;
    FileFailure mFailure;
};
