#include "midiserver/commands/Record.h"

#include "midiserver/errors/ErrorOutput.h"
#include "midiserver/errors/HostError.h"
#include "midiserver/errors/InputError.h"
#include "midiserver/host/Interrupt.h"
#include "midiserver/replay/session/CaptureWriter.h"
#include "midiserver/service/control/ControlClient.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <system_error>
#include <thread>
#include <vector>

namespace MidiServer {

namespace {

using Json = nlohmann::ordered_json;

// How often the service is asked for what it has recorded.
constexpr std::chrono::milliseconds kInterval(100);

// The file that a recording goes to: a new one, or standard output.
class CaptureOutput {
public:
    explicit CaptureOutput(const std::string& path) : mPath(path) {
        if (path == "-") {
            return;
        }
        // Only a new one: a recording cannot be made again.
        const int descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (descriptor < 0) {
            throw InputError(fmt::format("{}: {}", path, std::generic_category().message(errno)));
        }
        mFile.reset(::fdopen(descriptor, "w"));
        if (!mFile) {
            ::close(descriptor);
            throw std::bad_alloc();
        }
    }

    // Throws HostError if the text cannot be written, for instance to a full disk.
    void Write(const std::string& text) {
        std::FILE* const file = mFile ? mFile.get() : stdout;
        if (std::fwrite(text.data(), 1, text.size(), file) != text.size() ||
            std::fflush(file) != 0) {
            throw HostError(fmt::format("{}: {}", mPath, std::generic_category().message(errno)));
        }
    }

private:
    struct Close {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };

    std::string mPath;
    std::unique_ptr<std::FILE, Close> mFile; // null for standard output
};

std::vector<std::uint8_t> Bytes(const std::string& hex) {
    std::vector<std::uint8_t> bytes;
    for (std::size_t at = 0; at + 1 < hex.size(); at += 3) {
        bytes.push_back(static_cast<std::uint8_t>(std::stoul(hex.substr(at, 2), nullptr, 16)));
    }
    return bytes;
}

// Returns whether there was anything to write.
bool WriteMessages(const Json& reply, CaptureWriter& writer, CaptureOutput& output) {
    std::string text;
    for (const Json& message : reply.at("messages")) {
        text +=
            writer.Add(message.at(0).get<std::uint64_t>(), Bytes(message.at(1).get<std::string>()));
    }
    output.Write(text);
    return !reply.at("messages").empty();
}

} // namespace

RecordCommand::RecordCommand(CLI::App& program)
    : Command(program, "record",
              "Record what DAWs send to a port of the service, until interrupted") {
    mCommand->add_option("PORT", mPort, "Port of the service, by name or number")->required();
    mCommand
        ->add_option("FILE", mFile,
                     "New file for the capture, which \"replay\" reads; - writes standard output")
        ->required();
}

int RecordCommand::Run() {
    const ControlClient service;
    const Json start = service.Ask(ControlRequest::kStartRecording, {{"port", mPort}});
    const Json recording = {{"recording", start.at("recording")}};
    const std::string port = OneLine(start.at("port").get<std::string>());
    CaptureOutput output(mFile);
    const Interrupt interrupt;
    ErrorOutput::Write(fmt::format("midiserver: recording {}; end it with Ctrl-C\n", port));
    CaptureWriter writer;
    // Once it is interrupted it takes what there is; a second interrupt ends that too.
    for (bool more = true; Interrupt::Count() == 0 || (more && Interrupt::Count() == 1);) {
        more = WriteMessages(service.Ask(ControlRequest::kTakeRecorded, recording), writer, output);
        if (!more && Interrupt::Count() == 0) {
            std::this_thread::sleep_for(kInterval);
            more = true;
        }
    }
    const Json end = service.Ask(ControlRequest::kEndRecording, recording);
    const std::uint64_t lost = end.at("lost").get<std::uint64_t>() + writer.LeftOut();
    ErrorOutput::Write(
        fmt::format("midiserver: {} messages of {} recorded\n", writer.Lines(), port));
    if (lost > 0) {
        throw HostError(fmt::format("{}: {} more messages of {} are missing in it, because they "
                                    "came too fast or were cut off",
                                    mFile, lost, port));
    }
    return EXIT_SUCCESS;
}

} // namespace MidiServer
