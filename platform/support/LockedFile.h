#pragma once

#include "platform/support/FileDescriptor.h"
#include "platform/support/FileFailure.h"

#include <string>
#include <string_view>

// A LockedFile keeps the other writers of a file's folder, in this process and in others, from
// replacing the file as long as the object exists. The file need not exist. If the path is a
// symbolic link, the file that the link leads to is locked, so that writers by either name keep
// each other out. The constructor makes the folder if it is missing, and waits for the lock.
//
//     LockedFile file(path);
//     if (const FileFailure failure = file.Replace(bytes)) { ... }
class LockedFile {
public:
    explicit LockedFile(const std::string& path);

    // Tells why the file could not be locked, if so. The functions below then fail with this
    // failure.
    const FileFailure& Failure() const { return mFailure; }

    // Writes the bytes to a temporary file beside the file, flushes them to the disk, and puts them
    // in the file's place with its owner and mode (0644 for a new file). Every reader therefore
    // sees the old or the new file whole. If this fails, or the owner cannot be kept, the old file
    // is as it was. Also removes a temporary file that a writer left behind when it was killed.
    FileFailure Replace(std::string_view bytes);

    // Renames the file to the first free name of "FILE.broken", "FILE.broken-2", ... and sets
    // `newPath` to it.
    FileFailure MoveAside(std::string& newPath);

private:
    std::string mFolderPath;
    FileDescriptor mFolder; // carries the lock, since Replace puts another file in the file's place
    std::string mName;
    FileFailure mFailure;
};
