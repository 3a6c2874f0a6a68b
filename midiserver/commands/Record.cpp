#include "midiserver/commands/Commands.h"
#include "midiserver/errors/ErrorOutput.h"
#include "midiserver/errors/Errors.h"
#include "midiserver/host/Interrupt.h"
#include "midiserver/midi/HexText.h"
#include "midiserver/replay/session/CaptureWriter.h"
#include "midiserver/service/control/ControlClient.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <system_error>
#include <thread>

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
        mFile.reset(std::fopen(path.c_str(), "wxe"));
        if (!mFile) {
            throw InputError(fmt::format("{}: {}", path, std::generic_category().message(errno)));
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

// Returns whether there was anything to write.
bool WriteMessages(const Json& reply, CaptureWriter& writer, CaptureOutput& output) {
    std::string text;
    for (const Json& message : reply.at("messages")) {
        text += writer.Add(message.at(0).get<std::uint64_t>(),
                           BytesOfHexText(message.at(1).get<std::string>()));
    }
    output.Write(text);
    return !reply.at("messages").empty();
}

// The command `midiserver record PORT FILE` writes what DAWs send to a port of the service that
// runs into a capture, until it is interrupted.
class RecordCommand : public Command {
public:
    explicit RecordCommand(CLI::App& program)
        : Command(program, "record",
                  "Record what DAWs send to a port of the service, until interrupted") {
        mCommand->add_option("PORT", mPort, "Port of the service, by name or number")->required();
        mCommand
            ->add_option(
                "FILE", mFile,
                "New file for the capture, which \"replay\" reads; - writes standard output")
            ->required();
    }

    // Returns 1 if messages are missing in the capture.
    int Run() override {
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
            more = WriteMessages(service.Ask(ControlRequest::kTakeRecorded, recording), writer,
                                 output);
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
            throw HostError(
                fmt::format("{}: {} more messages of {} are missing in it, because they "
                            "came too fast or were cut off",
                            mFile, lost, port));
        }
        return EXIT_SUCCESS;
    }

private:
    std::string mPort;
    std::string mFile;
};

} // namespace

std::unique_ptr<Command> MakeRecordCommand(CLI::App& program) {
    return std::make_unique<RecordCommand>(program);
}

} // namespace MidiServer
