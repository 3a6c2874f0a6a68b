#include "midiserver/replay/SessionFile.h"

#include "midiserver/errors/InputError.h"
#include "midiserver/replay/CaptureFile.h"
#include "midiserver/replay/StandardMidiFile.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace MidiServer {

namespace {

constexpr std::size_t kLargestFile = 256U << 20;

class FileDescriptor {
public:
    explicit FileDescriptor(int descriptor) : mDescriptor(descriptor) {}
    ~FileDescriptor() {
        if (mDescriptor > STDERR_FILENO) {
            ::close(mDescriptor);
        }
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    int Get() const { return mDescriptor; }

private:
    int mDescriptor;
};

[[noreturn]] void FailWithErrno(const std::string& name) {
    throw InputError(fmt::format("{}: {}", name, std::generic_category().message(errno)));
}

std::string ReadAll(const std::string& path, const std::string& name) {
    const FileDescriptor file(path == "-" ? STDIN_FILENO
                                          : ::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (file.Get() < 0) {
        FailWithErrno(name);
    }
    std::string content;
    struct stat status {};
    if (::fstat(file.Get(), &status) == 0 && S_ISREG(status.st_mode)) {
        content.reserve(std::min(static_cast<std::size_t>(status.st_size), kLargestFile));
    }
    std::vector<char> block(1U << 16);
    for (;;) {
        const ssize_t count = ::read(file.Get(), block.data(), block.size());
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            FailWithErrno(name);
        }
        if (count == 0) {
            content.shrink_to_fit(); // what a pipe brought is in a string that grew
            return content;
        }
        content.append(block.data(), static_cast<std::size_t>(count));
        if (content.size() > kLargestFile) {
            throw InputError(
                fmt::format("{}: larger than 256 MiB, which is no MIDI session", name));
        }
    }
}

} // namespace

RecordedSession ReadSessionFile(const std::string& path) {
    const std::string name = path == "-" ? "standard input" : path;
    const std::string content = ReadAll(path, name);
    if (IsStandardMidiFile(content)) {
        return ReadStandardMidiFile(content, name);
    }
    return ReadCaptureFile(content, name);
}

} // namespace MidiServer
