// Whole files, read and replaced in one step.
#pragma once

#include <cstddef>
#include <string>

enum class ReadResult { kRead, kMissing, kFailed };

// All bytes of a regular file of at most `limit` bytes. `cause` says why it failed.
ReadResult ReadWholeFile(const std::string& path, size_t limit, std::string& bytes,
                         std::string& cause);

// A folder, made if it is missing, and locked against other writers of its files (of this process
// too) for as long as this exists. The constructor waits for the lock.
class LockedFolder {
public:
    explicit LockedFolder(const std::string& path);
    ~LockedFolder();
    LockedFolder(const LockedFolder&) = delete;
    LockedFolder& operator=(const LockedFolder&) = delete;

    // Empty when the folder is there and locked, else why not.
    const std::string& Cause() const { return mCause; }

    // Writes the bytes beside the file, flushes them to the disk, and puts them in its place (mode
    // 0644 for a new file, else as it was), so that every reader sees the old or the new file
    // whole. False with a cause; the old file is then as it was.
    bool Replace(const std::string& name, const std::string& bytes, std::string& cause);

private:
    int mDescriptor = -1;
    std::string mCause;
};
