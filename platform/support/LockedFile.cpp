#include "platform/support/LockedFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

namespace {

bool WriteAll(int descriptor, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = write(descriptor, bytes.data(), bytes.size());
        if (count < 0 && errno != EINTR) {
            return false;
        }
        bytes.remove_prefix(count < 0 ? 0 : static_cast<std::size_t>(count));
    }
    return true;
}

// The file that a path leads to over symbolic links, there or not; the result is a value of errno.
int FollowLinks(std::filesystem::path path, std::filesystem::path& file) {
    constexpr int kMostLinks = 40; // as many as the system follows
    std::error_code error;
    for (int links = 0; std::filesystem::is_symlink(path, error); ++links) {
        if (links == kMostLinks) {
            return ELOOP;
        }
        const std::filesystem::path target = std::filesystem::read_symlink(path, error);
        if (error) {
            return error.value();
        }
        path = path.parent_path() / target; // which is the target alone when that is absolute
    }
    file = std::move(path);
    return 0;
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

LockedFile::LockedFile(const std::string& path) {
    std::filesystem::path file;
    if (const int error = FollowLinks(path, file)) {
        mFailure = LastFileFailure("its symbolic link cannot be followed", error);
        return;
    }
    mName = file.filename();
    mFolderPath = file.has_parent_path() ? file.parent_path().string() : ".";
    std::error_code error;
    std::filesystem::create_directories(mFolderPath, error);
    if (error) {
        mFailure = LastFileFailure("the folder cannot be made", error.value());
        return;
    }
    mFolder = FileDescriptor(open(mFolderPath.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!mFolder) {
        mFailure = LastFileFailure("the folder cannot be opened");
        return;
    }
    int result = 0;
    do {
        result = flock(mFolder.Get(), LOCK_EX);
    } while (result != 0 && errno == EINTR);
    if (result != 0) {
        mFailure = LastFileFailure("the folder cannot be locked");
    }
}

FileFailure LockedFile::Replace(std::string_view bytes) {
    if (mFailure) {
        return mFailure;
    }
    // One name per file, since the lock keeps other writers out: what a crash leaves is taken over
    // by the next writer and does not pile up.
    const std::string temporary = "." + mName + ".new";
    unlinkat(mFolder.Get(), temporary.c_str(), 0);
    const FileDescriptor file(openat(mFolder.Get(), temporary.c_str(),
                                     O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!file) {
        return LastFileFailure("cannot be written");
    }
    FileFailure failure;
    if (!TakeOwnerAndMode(file.Get(), mFolder.Get(), mName)) {
        failure = LastFileFailure("cannot be written with the owner that it has");
    } else if (!WriteAll(file.Get(), bytes) || fsync(file.Get()) != 0 ||
               renameat(mFolder.Get(), temporary.c_str(), mFolder.Get(), mName.c_str()) != 0) {
        failure = LastFileFailure("cannot be written");
    } else if (fsync(mFolder.Get()) != 0) { // the new name too has to be on the disk
        return LastFileFailure("cannot be flushed");
    }
    if (failure) {
        unlinkat(mFolder.Get(), temporary.c_str(), 0);
    }
    return failure;
}

FileFailure LockedFile::MoveAside(std::string& newPath) {
    if (mFailure) {
        return mFailure;
    }
    constexpr int kMostNames = 10000;
    for (int number = 1; number <= kMostNames; ++number) {
        const std::string name =
            mName + ".broken" + (number == 1 ? "" : "-" + std::to_string(number));
        newPath = mFolderPath + "/" + name;
        // A link fails where there is a file already, unlike a rename.
        if (linkat(mFolder.Get(), mName.c_str(), mFolder.Get(), name.c_str(), 0) == 0) {
            return unlinkat(mFolder.Get(), mName.c_str(), 0) == 0
                       ? FileFailure{}
                       : LastFileFailure("cannot be moved aside");
        }
        if (errno != EEXIST) {
            break;
        }
    }
    return LastFileFailure("cannot be moved aside");
}
