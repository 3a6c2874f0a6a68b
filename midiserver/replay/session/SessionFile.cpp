#include "midiserver/replay/session/SessionFile.h"

#include "midiserver/errors/Errors.h"
#include "midiserver/replay/session/CaptureFile.h"
#include "midiserver/replay/session/StandardMidiFile.h"
#include "platform/support/FileDescriptor.h"
#include "platform/support/FileReading.h"

#include <fmt/format.h>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace MidiServer {

namespace {

constexpr std::size_t kLargestFile = 256U << 20;

[[noreturn]] void Fail(const std::string& name, int error) {
    throw InputError(fmt::format("{}: {}", name, std::generic_category().message(error)));
}

std::string ReadAll(const std::string& path, const std::string& name) {
    FileDescriptor file;
    if (path != "-") {
        file = FileDescriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
        if (!file) {
            Fail(name, errno);
        }
    }
    std::string content;
    const FileFailure failure = ReadToEnd(file ? file.Get() : STDIN_FILENO, kLargestFile, content);
    if (failure.error == EFBIG) {
        throw InputError(fmt::format("{}: larger than 256 MiB, which is no MIDI session", name));
    }
    if (failure) {
        Fail(name, failure.error);
    }
    return content;
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
