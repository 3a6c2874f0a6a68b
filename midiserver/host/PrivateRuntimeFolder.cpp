#include "midiserver/host/PrivateRuntimeFolder.h"

#include "midiserver/errors/Errors.h"
#include "midiserver/host/Environment.h"
#include "platform/support/FileDescriptor.h"

#include <fmt/format.h>

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <new>
#include <string>
#include <system_error>

namespace MidiServer {

namespace {

constexpr const char* kRuntimeFolderVariable = "QUORVEL_RUNTIME_DIR";
constexpr std::array kFatalSignals = {SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGTERM};

// The folder that a signal handler removes, the one in it that the message ports use and make, and
// whether the first exists. The flag is stored with release and loaded with acquire, because the
// handler may run on any thread. The texts are never freed, because a handler may still read them
// while the folder is being removed.
std::array<char, PATH_MAX> sPath{};
std::array<char, PATH_MAX> sInnerPath{};
std::atomic<bool> sMade = false;
static_assert(std::atomic<bool>::is_always_lock_free);

// A directory entry as getdents64 returns it.
struct DirectoryEntry {
    std::uint64_t inode;
    std::int64_t next;
    std::uint16_t length;
    std::uint8_t type;
    char name[1];
};

// How often the folders are removed, a millisecond apart, until they are gone.
constexpr int kRemovals = 200;

// Removes the files of a folder that holds no other folders.
void EmptyFlatFolder(const char* path) {
    const FileDescriptor folder(::open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder) {
        return;
    }
    alignas(DirectoryEntry) char entries[2048];
    for (;;) {
        const long size = ::syscall(SYS_getdents64, folder.Get(), entries, sizeof entries);
        if (size <= 0) {
            break;
        }
        for (long at = 0; at < size;) {
            const auto* entry = reinterpret_cast<const DirectoryEntry*>(entries + at);
            ::unlinkat(folder.Get(), entry->name, 0); // refuses "." and ".."
            at += entry->length;
        }
    }
}

// Removes the folder and the one in it. It runs in a signal handler, where nothing that allocates
// may be called. The other threads run on: one may be about to put its socket into the inner
// folder, or to make that folder anew, so both are removed until neither is there. Without the
// outer one the inner one cannot be made any more.
void RemoveFolders() {
    for (int i = 0; i < kRemovals; ++i) {
        EmptyFlatFolder(sInnerPath.data());
        ::rmdir(sInnerPath.data());
        if (::rmdir(sPath.data()) == 0 || errno != ENOTEMPTY) {
            return;
        }
        constexpr timespec kMillisecond{0, 1000000};
        ::nanosleep(&kMillisecond, nullptr);
    }
}

void RemoveAndEnd(int number) {
    const int error = errno;
    if (sMade.load(std::memory_order_acquire)) {
        RemoveFolders();
    }
    std::signal(number, SIG_DFL);
    std::raise(number); // comes when the handler returns
    errno = error;
}

void Handle(int number, void (*from)(int), void (*to)(int)) {
    struct sigaction action {};
    if (::sigaction(number, nullptr, &action) == 0 && action.sa_handler == from) {
        action = {};
        action.sa_handler = to;
        sigemptyset(&action.sa_mask);
        ::sigaction(number, &action, nullptr);
    }
}

// Blocks the signals while the folder is made or removed, when no handler could remove it.
class BlockedSignals {
public:
    BlockedSignals() {
        sigset_t signals;
        sigemptyset(&signals);
        for (const int number : kFatalSignals) {
            sigaddset(&signals, number);
        }
        ::pthread_sigmask(SIG_BLOCK, &signals, &mBefore);
    }
    ~BlockedSignals() { ::pthread_sigmask(SIG_SETMASK, &mBefore, nullptr); }
    BlockedSignals(const BlockedSignals&) = delete;
    BlockedSignals& operator=(const BlockedSignals&) = delete;

private:
    sigset_t mBefore{};
};

} // namespace

PrivateRuntimeFolder::PrivateRuntimeFolder() {
    const char* const given = std::getenv(kRuntimeFolderVariable);
    if (given != nullptr && *given != '\0') {
        return;
    }
    std::error_code error;
    const std::filesystem::path temporary = std::filesystem::temp_directory_path(error);
    std::string name = ((error ? "/tmp" : temporary) / "midiserver-XXXXXX").string();
    const BlockedSignals blocked;
    if (::mkdtemp(name.data()) == nullptr) {
        throw HostError(fmt::format("{}: no folder can be made: {}", name,
                                    std::generic_category().message(errno)));
    }
    std::string inner;
    try {
        inner = name + "/ports";
        mFolder = name;
        SetEnvironment(kRuntimeFolderVariable, inner);
    } catch (const std::bad_alloc&) {
        ::rmdir(name.c_str());
        throw;
    }
    // A longer name cannot have been made.
    sPath[name.copy(sPath.data(), sPath.size() - 1)] = '\0';
    sInnerPath[inner.copy(sInnerPath.data(), sInnerPath.size() - 1)] = '\0';
    sMade.store(true, std::memory_order_release);
    for (const int number : kFatalSignals) {
        Handle(number, SIG_DFL, RemoveAndEnd);
    }
}

PrivateRuntimeFolder::~PrivateRuntimeFolder() {
    if (!mFolder.empty()) {
        ::unsetenv(kRuntimeFolderVariable);
        {
            const BlockedSignals blocked;
            std::error_code ignored;
            std::filesystem::remove_all(mFolder, ignored);
            sMade.store(false, std::memory_order_relaxed);
        }
        for (const int number : kFatalSignals) {
            Handle(number, RemoveAndEnd, SIG_DFL);
        }
    }
}

} // namespace MidiServer
