// Whole files, read and replaced in one step.
#pragma once

#include <cstddef>
#include <string>

enum class ReadResult { kRead, kMissing, kFailed };

// All bytes of a regular file of at most `limit` bytes. `cause` says why it failed.
ReadResult ReadWholeFile(const std::string& path, size_t limit, std::string& bytes,
                         std::string& cause);

// A file, there or not, that no other writer of its folder (in this process or another) can replace
// for as long as this exists. Where the path is a symbolic link, all is about the file that it
// leads to, so that writers by either name keep each other out. The constructor makes the folder if
// it is missing, and waits for the lock.
class LockedFile {
public:
    explicit LockedFile(const std::string& path);
    ~LockedFile();
    LockedFile(const LockedFile&) = delete;
    LockedFile& operator=(const LockedFile&) = delete;

    // Empty when the file is locked, else why not.
    const std::string& Cause() const { return mCause; }

    // Writes the bytes beside the file, flushes them to the disk, and puts them in its place with
    // the owner and mode that it has (0644 when it is new), so that every reader sees the old or
    // the new file whole. False with a cause, the old file then being as it was, when that fails or
    // the owner cannot be kept.
    bool Replace(const std::string& bytes, std::string& cause);

private:
    int mFolder = -1; // which is what is locked: the file itself is going to be another
    std::string mName;
    std::string mCause;
};
