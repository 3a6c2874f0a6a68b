#include "platform/support/FileReplace.h"

#include "platform/support/FileDescriptor.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

namespace {

std::string LastCause(const char* action) {
    return std::string(action) + ": " + std::generic_category().message(errno);
}

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

// The file that a path leads to over symbolic links, there or not.
bool FollowLinks(std::filesystem::path path, std::filesystem::path& file) {
    constexpr int kMostLinks = 40; // as many as the system follows
    std::error_code error;
    for (int links = 0; std::filesystem::is_symlink(path, error); ++links) {
        if (links == kMostLinks) {
            errno = ELOOP;
            return false;
        }
        const std::filesystem::path target = std::filesystem::read_symlink(path, error);
        if (error) {
            errno = error.value();
            return false;
        }
        path = path.parent_path() / target; // which is the target alone when that is absolute
    }
    file = std::move(path);
    return true;
}

// Gives the open file the owner and mode of the one with the name, or 0644 when there is none.
bool TakeOwnerAndMode(int descriptor, int folder, const std::string& name) {
    struct stat old {};
    struct stat made {};
    if (fstatat(folder, name.c_str(), &old, 0) != 0) {
        return fchmod(descriptor, 0644) == 0;
    }
    if (fstat(descriptor, &made) != 0) {
        return false;
    }
    // The mode last: a change of the owner takes bits of it away.
    const bool owned = old.st_uid == made.st_uid && old.st_gid == made.st_gid;
    return (owned || fchown(descriptor, old.st_uid, old.st_gid) == 0) &&
           fchmod(descriptor, old.st_mode & 07777) == 0;
}

} // namespace

ReadResult ReadWholeFile(const std::string& path, size_t limit, std::string& bytes,
                         std::string& cause) {
    // Not blocking, so that a pipe in the file's place does not hold the caller up.
    const FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!file) {
        cause = LastCause("cannot be opened");
        return errno == ENOENT ? ReadResult::kMissing : ReadResult::kFailed;
    }
    struct stat status {};
    if (fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        cause = "not a regular file";
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
            cause = "too large";
            return ReadResult::kFailed;
        }
    }
}

LockedFile::LockedFile(const std::string& path) {
    std::filesystem::path file;
    if (!FollowLinks(path, file)) {
        mCause = LastCause("its symbolic link cannot be followed");
        return;
    }
    mName = file.filename();
    const std::string folder = file.has_parent_path() ? file.parent_path().string() : ".";
    if (!MakeFolders(folder)) {
        mCause = LastCause("the folder cannot be made");
        return;
    }
    mFolder = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (mFolder < 0) {
        mCause = LastCause("the folder cannot be opened");
        return;
    }
    int result = 0;
    do {
        result = flock(mFolder, LOCK_EX);
    } while (result != 0 && errno == EINTR);
    if (result != 0) {
        mCause = LastCause("the folder cannot be locked");
    }
}

LockedFile::~LockedFile() {
    if (mFolder >= 0) {
        close(mFolder); // gives the lock up
    }
}

bool LockedFile::Replace(const std::string& bytes, std::string& cause) {
    if (!mCause.empty()) {
        cause = mCause;
        return false;
    }
    // One name per file, since the lock keeps other writers out: what a crash leaves is taken over
    // by the next writer and does not pile up.
    const std::string temporary = "." + mName + ".new";
    unlinkat(mFolder, temporary.c_str(), 0);
    const FileDescriptor file(openat(mFolder, temporary.c_str(),
                                     O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!file) {
        cause = LastCause("cannot be written");
        return false;
    }
    if (!TakeOwnerAndMode(file.Get(), mFolder, mName)) {
        cause = LastCause("cannot be written with the owner that it has");
    } else if (!WriteAll(file.Get(), bytes) || fsync(file.Get()) != 0 ||
               renameat(mFolder, temporary.c_str(), mFolder, mName.c_str()) != 0) {
        cause = LastCause("cannot be written");
    } else if (fsync(mFolder) != 0) { // the new name too has to be on the disk
        cause = LastCause("cannot be flushed");
        return false;
    } else {
        return true;
    }
    unlinkat(mFolder, temporary.c_str(), 0);
    return false;
}
