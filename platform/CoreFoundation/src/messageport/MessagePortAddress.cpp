#include "platform/CoreFoundation/src/messageport/MessagePortAddress.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <string_view>
#include <thread>

namespace MessagePort {

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kLockPatience = std::chrono::seconds(2);
constexpr auto kRetryInterval = std::chrono::milliseconds(2);
constexpr const char* kSuffix = ".port";

constexpr const char* kOtherFolder =
    "set QUORVEL_RUNTIME_DIR to a folder of this user's own, with mode 0700";

std::string Reason(const std::string& path, int number) {
    return path + ": " + std::strerror(number);
}

std::string FolderFault(const std::string& path, const std::string& fault) {
    return path + ": " + fault + "; " + kOtherFolder;
}

// The name of a running program; "process" when that is not to be known.
std::string ProgramName(pid_t process) {
    std::string name;
    std::getline(std::ifstream("/proc/" + std::to_string(process) + "/comm"), name);
    return name.empty() ? "process" : name;
}

// Who listens at the other end of a connection: "another midiserver (pid 123)".
std::string ServerOf(int connection) {
    ucred peer{};
    socklen_t length = sizeof peer;
    // None that this process's namespace has a number for.
    if (getsockopt(connection, SOL_SOCKET, SO_PEERCRED, &peer, &length) != 0 || peer.pid <= 0) {
        return "another process";
    }
    return "another " + ProgramName(peer.pid) + " (pid " + std::to_string(peer.pid) + ")";
}

std::optional<std::string> DirectoryName(std::string& error) {
    if (const char* own = std::getenv("QUORVEL_RUNTIME_DIR"); own != nullptr && *own != '\0') {
        if (*own != '/') {
            error = std::string("QUORVEL_RUNTIME_DIR: expected an absolute path, found \"") + own +
                    "\"";
            return std::nullopt;
        }
        return own;
    }
    // A relative one is to be ignored, says the standard that defines the variable.
    if (const char* user = std::getenv("XDG_RUNTIME_DIR"); user != nullptr && *user == '/') {
        return std::string(user) + "/quorvel";
    }
    return "/tmp/quorvel-" + std::to_string(geteuid());
}

std::string Encoded(const std::string& name) {
    constexpr std::string_view kPlain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                        "0123456789.-_";
    std::string result;
    for (const char character : name) {
        char escaped[4] = {character};
        if (kPlain.find(character) == std::string_view::npos) {
            std::snprintf(escaped, sizeof escaped, "%%%02X", static_cast<unsigned char>(character));
        }
        result += escaped;
    }
    return result;
}

// FNV-1a, 64 bits. The tilde keeps hashes apart from encoded names, which never contain one.
std::string Hashed(const std::string& name) {
    std::uint64_t hash = 0xCBF29CE484222325U;
    for (const char character : name) {
        hash ^= static_cast<unsigned char>(character);
        hash *= 0x100000001B3U;
    }
    char text[18];
    std::snprintf(text, sizeof text, "~%016" PRIx64, hash);
    return text;
}

// Calls bind or connect with a socket and the address that a path is.
int WithAddress(int (*call)(int, const sockaddr*, socklen_t), const FileDescriptor& socket,
                const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return call(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

FileDescriptor MakeSocket() {
    return FileDescriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

// Lets one process at a time find a socket dead and put its own in its place.
FileDescriptor LockDirectoryOf(const std::string& path, std::string& error) {
    const std::string lockPath = path.substr(0, path.rfind('/')) + "/.lock";
    FileDescriptor lock(
        open(lockPath.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!lock) {
        error = Reason(lockPath, errno);
        return {};
    }
    const auto deadline = Clock::now() + kLockPatience;
    while (flock(lock.Get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR) {
            error = Reason(lockPath, errno);
            return {};
        }
        if (Clock::now() >= deadline) {
            error = lockPath + ": another process keeps it locked; end that one";
            return {};
        }
        std::this_thread::sleep_for(kRetryInterval);
    }
    return lock;
}

bool RemoveDeadSocket(const std::string& path, std::string& error) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) {
        if (errno == ENOENT) {
            return true;
        }
        error = Reason(path, errno);
        return false;
    }
    if (!S_ISSOCK(status.st_mode)) {
        error = path + ": expected a socket or nothing, found another kind of file; remove it";
        return false;
    }
    const FileDescriptor probe = MakeSocket();
    const bool connected = probe && WithAddress(connect, probe, path) == 0;
    if (connected || errno == EAGAIN) {
        error = path + ": " + (connected ? ServerOf(probe.Get()) : "another process") +
                " already serves this port; end that one, or set QUORVEL_RUNTIME_DIR to another "
                "folder";
        return false;
    }
    if ((errno == ECONNREFUSED && unlink(path.c_str()) == 0) || errno == ENOENT) {
        return true;
    }
    error = Reason(path, errno);
    return false;
}

} // namespace

std::optional<std::string> Folder(std::string& error) {
    auto path = DirectoryName(error);
    if (!path) {
        return std::nullopt;
    }
    while (path->size() > 1 && path->back() == '/') {
        path->pop_back();
    }
    if (mkdir(path->c_str(), 0700) != 0 && errno != EEXIST) {
        error = FolderFault(*path, std::string("cannot be made: ") + std::strerror(errno));
        return std::nullopt;
    }
    // Not through a link: in a folder that others may write to, it could lead anywhere.
    const FileDescriptor directory(
        open(path->c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat status {};
    if (!directory || fstat(directory.Get(), &status) != 0) {
        error = FolderFault(*path, std::strerror(errno));
        return std::nullopt;
    }
    if (status.st_uid != geteuid()) {
        error = FolderFault(*path, "expected a folder of user " + std::to_string(geteuid()) +
                                       ", found one of user " + std::to_string(status.st_uid));
        return std::nullopt;
    }
    if ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        error = *path + ": other users may write to this folder; give it mode 0700";
        return std::nullopt;
    }
    return path;
}

std::optional<std::string> SocketPath(const std::string& name, std::string& error) {
    if (name.empty() || name.size() > kMaximumName || name.find('\0') != std::string::npos) {
        error = "a port's name has 1 to " + std::to_string(kMaximumName) + " bytes and no NUL";
        return std::nullopt;
    }
    const auto directory = Folder(error);
    if (!directory) {
        return std::nullopt;
    }
    std::string path = *directory + "/" + Encoded(name) + kSuffix;
    if (path.size() >= sizeof(sockaddr_un::sun_path)) {
        path = *directory + "/" + Hashed(name) + kSuffix;
    }
    if (path.size() >= sizeof(sockaddr_un::sun_path)) {
        error = FolderFault(*directory, "too long for a socket's address, which holds " +
                                            std::to_string(sizeof(sockaddr_un::sun_path) - 1) +
                                            " bytes");
        return std::nullopt;
    }
    return path;
}

std::optional<SocketIdentity> IdentityOf(const std::string& path) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0 || !S_ISSOCK(status.st_mode)) {
        return std::nullopt;
    }
    return SocketIdentity{status.st_dev, status.st_ino, status.st_mtim.tv_sec,
                          status.st_mtim.tv_nsec};
}

FileDescriptor Listen(const std::string& path, SocketIdentity& identity, std::string& error) {
    const FileDescriptor lock = LockDirectoryOf(path, error);
    if (!lock || !RemoveDeadSocket(path, error)) {
        return {};
    }
    FileDescriptor listener = MakeSocket();
    // The mode is set before the first connection is possible, on the socket and on its file: the
    // process's file-creation mask may take bits away but must not decide.
    if (!listener || fchmod(listener.Get(), S_IRUSR | S_IWUSR) != 0 ||
        WithAddress(bind, listener, path) != 0) {
        error = Reason(path, errno);
        return {};
    }
    // The time that the file system puts is the last tick's, in which a port may have been that had
    // the same number; this one is exact.
    std::array<timespec, 2> now{};
    clock_gettime(CLOCK_REALTIME, now.data());
    now[1] = now[0];
    if (chmod(path.c_str(), S_IRUSR | S_IWUSR) != 0 ||
        utimensat(AT_FDCWD, path.c_str(), now.data(), AT_SYMLINK_NOFOLLOW) != 0 ||
        listen(listener.Get(), SOMAXCONN) != 0) {
        error = Reason(path, errno);
        unlink(path.c_str());
        return {};
    }
    const auto made = IdentityOf(path);
    if (!made) {
        error = path + ": removed by another process";
        return {};
    }
    identity = *made;
    return listener;
}

ConnectResult Connect(const std::string& path, FileDescriptor& connection) {
    FileDescriptor made = MakeSocket();
    if (!made || WithAddress(connect, made, path) != 0) {
        if (errno == ECONNREFUSED || errno == ENOENT) {
            return ConnectResult::kAbsent;
        }
        return errno == EAGAIN || errno == EINTR ? ConnectResult::kBusy : ConnectResult::kRefused;
    }
    if (!PeerIsThisUser(made.Get())) {
        return ConnectResult::kRefused;
    }
    connection = std::move(made);
    return ConnectResult::kConnected;
}

bool PeerIsThisUser(int connection) {
    ucred peer{};
    socklen_t length = sizeof peer;
    return getsockopt(connection, SOL_SOCKET, SO_PEERCRED, &peer, &length) == 0 &&
           length == sizeof peer && peer.uid == geteuid();
}

} // namespace MessagePort
