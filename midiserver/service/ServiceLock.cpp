#include "midiserver/service/ServiceLock.h"

#include "midiserver/errors/Errors.h"
#include "midiserver/service/RuntimeFolder.h"

#include <fmt/format.h>

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <string>
#include <system_error>

namespace MidiServer {

namespace {

constexpr const char* kFileName = "service.lock";

} // namespace

ServiceLock::ServiceLock() {
    const std::string path = RuntimeFolder() + "/" + kFileName;
    mFile = FileDescriptor(
        ::open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR));
    while (mFile) {
        // A record lock, because the system tells whose it is. It belongs to the process, and ends
        // as soon as the process closes the file by any descriptor: nothing else opens it.
        struct flock lock {};
        lock.l_type = F_WRLCK;
        if (::fcntl(mFile.Get(), F_SETLK, &lock) == 0) {
            return;
        }
        if (errno != EAGAIN && errno != EACCES) {
            break;
        }
        if (::fcntl(mFile.Get(), F_GETLK, &lock) != 0) {
            break;
        }
        if (lock.l_type != F_UNLCK) { // otherwise it ended meanwhile
            throw ServiceStateError(
                fmt::format("another service (process {}) runs already in {}; end that one, or set "
                            "QUORVEL_RUNTIME_DIR to another folder",
                            lock.l_pid, path.substr(0, path.rfind('/'))));
        }
    }
    throw HostError(fmt::format("{}: {}", path, std::generic_category().message(errno)));
}

} // namespace MidiServer
