#include "platform/CoreMIDI/src/base/SetupFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <new>
#include <system_error>
#include <vector>

namespace CoreMIDI {

namespace {

constexpr std::size_t kMaximumBytes = std::size_t{16} << 20;

class FileDescriptor {
public:
    explicit FileDescriptor(int descriptor) : mDescriptor(descriptor) {}
    ~FileDescriptor() {
        if (mDescriptor >= 0) {
            close(mDescriptor);
        }
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    int Get() const { return mDescriptor; }

private:
    const int mDescriptor;
};

std::string FolderOf(const std::string& path) {
    const std::string folder = std::filesystem::path(path).parent_path().string();
    return folder.empty() ? "." : folder;
}

int WriteAll(int descriptor, const UInt8* bytes, std::size_t size) {
    while (size != 0) {
        const ssize_t written = write(descriptor, bytes, size);
        if (written < 0) {
            if (errno == EINTR) {
                continue;
            }
            return errno;
        }
        bytes += written;
        size -= static_cast<std::size_t>(written);
    }
    return 0;
}

// Puts the folder's entries on the disk, so that a rename outlasts a crash.
int SyncFolder(const std::string& folder) {
    const FileDescriptor file(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return file.Get() < 0 || fsync(file.Get()) != 0 ? errno : 0;
}

} // namespace

int ReadWholeFile(const std::string& path, CFOwned<CFDataRef>& contents) {
    // Not blocking: the path may be a pipe.
    const FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status {};
    if (file.Get() < 0 || fstat(file.Get(), &status) != 0) {
        return errno;
    }
    if (!S_ISREG(status.st_mode)) {
        return S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    }
    std::vector<UInt8> bytes;
    std::vector<UInt8> chunk(65536);
    for (;;) {
        const ssize_t got = read(file.Get(), chunk.data(), chunk.size());
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0) {
            return errno;
        }
        if (got == 0) {
            break;
        }
        bytes.insert(bytes.end(), chunk.begin(), chunk.begin() + got);
        if (bytes.size() > kMaximumBytes) {
            return EFBIG;
        }
    }
    contents =
        CFOwned<CFDataRef>(CFDataCreate(nullptr, bytes.data(), static_cast<CFIndex>(bytes.size())));
    return contents ? 0 : ENOMEM;
}

int WriteFileAtomically(const std::string& path, CFDataRef contents) {
    const std::string folder = FolderOf(path);
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error) {
        return error.value();
    }
    std::string temporary = path + ".XXXXXX";
    const FileDescriptor file(mkostemp(temporary.data(), O_CLOEXEC));
    if (file.Get() < 0) {
        return errno;
    }
    int result = WriteAll(file.Get(), CFDataGetBytePtr(contents),
                          static_cast<std::size_t>(CFDataGetLength(contents)));
    constexpr mode_t kReadableByAll = 0644;
    if (result == 0 && (fchmod(file.Get(), kReadableByAll) != 0 || fsync(file.Get()) != 0 ||
                        rename(temporary.c_str(), path.c_str()) != 0)) {
        result = errno;
    }
    if (result != 0) {
        unlink(temporary.c_str());
        return result;
    }
    return SyncFolder(folder);
}

int MoveFileAside(const std::string& path, std::string& newPath) {
    constexpr int kMostNames = 10000;
    for (int number = 1; number <= kMostNames; ++number) {
        newPath = path + ".broken";
        if (number > 1) {
            newPath += "-" + std::to_string(number);
        }
        // A link fails where there is a file already, unlike a rename.
        if (link(path.c_str(), newPath.c_str()) == 0) {
            return unlink(path.c_str()) == 0 ? 0 : errno;
        }
        if (errno != EEXIST) {
            return errno;
        }
    }
    return EEXIST;
}

} // namespace CoreMIDI
