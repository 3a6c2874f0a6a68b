#include "platform/CoreFoundation/src/FileReplace.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <system_error>

namespace {

std::string LastCause(const char* action) {
    return std::string(action) + ": " + std::generic_category().message(errno);
}

class Descriptor {
public:
    explicit Descriptor(int descriptor) : mDescriptor(descriptor) {}
    ~Descriptor() { Close(); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    bool IsOpen() const { return mDescriptor >= 0; }
    int Get() const { return mDescriptor; }
    bool Close() {
        const int descriptor = mDescriptor;
        mDescriptor = -1;
        return descriptor < 0 || close(descriptor) == 0;
    }

private:
    int mDescriptor;
};

bool WriteAll(int descriptor, const std::string& bytes) {
    for (size_t written = 0; written < bytes.size();) {
        const ssize_t count = write(descriptor, bytes.data() + written, bytes.size() - written);
        if (count < 0 && errno != EINTR) {
            return false;
        }
        written += count < 0 ? 0 : static_cast<size_t>(count);
    }
    return true;
}

// Makes the folder and those that it lies in, as far as they are missing.
bool MakeFolders(const std::string& path) {
    for (size_t end = 0; end != std::string::npos;) {
        end = path.find('/', end + 1);
        const std::string part = path.substr(0, end);
        if (mkdir(part.c_str(), 0755) != 0 && errno != EEXIST) {
            // What cannot be written to may yet be there.
            struct stat status {};
            const int cause = errno;
            if (stat(part.c_str(), &status) != 0) {
                errno = cause;
                return false;
            }
        }
    }
    return true;
}

} // namespace

ReadResult ReadWholeFile(const std::string& path, size_t limit, std::string& bytes,
                         std::string& cause) {
    // Not blocking, so that a pipe in the file's place does not hold the caller up.
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!file.IsOpen()) {
        cause = LastCause("cannot be opened");
        return errno == ENOENT ? ReadResult::kMissing : ReadResult::kFailed;
    }
    struct stat status {};
    if (fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        cause = "is not a regular file";
        return ReadResult::kFailed;
    }
    bytes.clear();
    for (;;) {
        char buffer[16384];
        const ssize_t count = read(file.Get(), buffer, sizeof(buffer));
        if (count == 0) {
            return ReadResult::kRead;
        }
        if (count < 0) {
            if (errno == EINTR) {
                continue;
            }
            cause = LastCause("cannot be read");
            return ReadResult::kFailed;
        }
        bytes.append(buffer, static_cast<size_t>(count));
        if (bytes.size() > limit) {
            cause = "is too large";
            return ReadResult::kFailed;
        }
    }
}

LockedFolder::LockedFolder(const std::string& path) {
    if (!MakeFolders(path)) {
        mCause = LastCause("the folder cannot be made");
        return;
    }
    mDescriptor = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (mDescriptor < 0) {
        mCause = LastCause("the folder cannot be opened");
        return;
    }
    int result = 0;
    do {
        result = flock(mDescriptor, LOCK_EX);
    } while (result != 0 && errno == EINTR);
    if (result != 0) {
        mCause = LastCause("the folder cannot be locked");
    }
}

LockedFolder::~LockedFolder() {
    if (mDescriptor >= 0) {
        close(mDescriptor); // gives the lock up
    }
}

bool LockedFolder::Replace(const std::string& name, const std::string& bytes, std::string& cause) {
    if (!mCause.empty()) {
        cause = mCause;
        return false;
    }
    struct stat status {};
    const mode_t mode =
        fstatat(mDescriptor, name.c_str(), &status, 0) == 0 ? status.st_mode & 07777 : 0644;
    // One name per file, since the lock keeps other writers out: what a crash leaves is taken over
    // by the next writer and does not pile up.
    const std::string temporary = "." + name + ".new";
    unlinkat(mDescriptor, temporary.c_str(), 0);
    Descriptor file(openat(mDescriptor, temporary.c_str(),
                           O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!file.IsOpen()) {
        cause = LastCause("cannot be written");
        return false;
    }
    if (!WriteAll(file.Get(), bytes) || fchmod(file.Get(), mode) != 0 || fsync(file.Get()) != 0 ||
        !file.Close() || renameat(mDescriptor, temporary.c_str(), mDescriptor, name.c_str()) != 0) {
        cause = LastCause("cannot be written");
        unlinkat(mDescriptor, temporary.c_str(), 0);
        return false;
    }
    // The new name too has to be on the disk.
    if (fsync(mDescriptor) != 0) {
        cause = LastCause("cannot be flushed");
        return false;
    }
    return true;
}
