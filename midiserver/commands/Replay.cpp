#include "midiserver/commands/Commands.h"
#include "midiserver/errors/Errors.h"
#include "midiserver/host/AddressSpace.h"
#include "midiserver/host/ControlQueue.h"
#include "midiserver/host/Host.h"
#include "midiserver/host/Interrupt.h"
#include "midiserver/host/PrivateRuntimeFolder.h"
#include "midiserver/log/LogCategories.h"
#include "midiserver/log/Logging.h"
#include "midiserver/preferences/PreferencesEditor.h"
#include "midiserver/preferences/ReadPortConfiguration.h"
#include "midiserver/replay/ProgressDisplay.h"
#include "midiserver/replay/ReplaySession.h"
#include "midiserver/replay/Report.h"
#include "midiserver/replay/ServiceReplay.h"
#include "midiserver/replay/session/SessionFile.h"

#include <fmt/format.h>

#include <cstdint>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <optional>
#include <thread>

namespace MidiServer {

namespace {

// Plays the session on a thread of its own while this thread's run loop serves the driver.
ReplayReport PlayBesideTheRunLoop(ReplaySession& session, ControlQueue& control) {
    ReplayReport report;
    std::exception_ptr failure;
    bool finished = false; // this thread's
    std::thread thread([&] {
        // The log keeps the context when the thread ends: what it logged last is still to be
        // written.
        if (HSL::CLogManager::IsInitialized()) {
            HSL::CLogManager::GetTLSContext()->SetName("Session");
        }
        try {
            report = session.Run();
        } catch (...) {
            failure = std::current_exception();
        }
        control.Post([&finished] { finished = true; });
    });
    control.ServeUntil(finished);
    thread.join();
    if (failure) {
        std::rethrow_exception(failure);
    }
    return report;
}

void LogFault(std::uint64_t count, const char* fault) {
    if (count > 0) {
        Log(kReplayLog[HSL::kError], "%s: %u", fault, count);
    }
}

void LogFindings(const ReplayReport& report) {
    const ReplayFindings& findings = report.findings;
    if (report.stalled) {
        Log(kReplayLog[HSL::kError], "the driver let nothing through any more");
    }
    LogFault(findings.lost, "messages lost");
    LogFault(findings.reordered, "messages reordered");
    LogFault(findings.altered, "messages altered");
    LogFault(findings.surplus, "messages that were not sent");
    LogFault(findings.refused, "packet lists refused");
    LogFault(findings.pings - findings.answered, "pings not answered");
    LogFault(findings.surplusReplies, "ping replies that were wrong or not due");
    if (report.Clean()) {
        Log(kReplayLog[HSL::kInfo], "messages arrived as they were sent: %u; pings answered: %u",
            findings.forwarded, findings.answered);
    }
}

// The parser's own range check lets "nan" pass.
std::string CheckSpeed(const std::string& text) {
    double speed = 0;
    return CLI::detail::lexical_cast(text, speed) && speed >= 0.001 && speed <= 1000.0
               ? std::string()
               : fmt::format("{} is no speed from 0.001 to 1000", text);
}

// The command `midiserver replay` plays a recorded session through the plug-in and reports what
// came out, or plays it to a port of the service that runs.
class ReplayCommand : public Command {
public:
    explicit ReplayCommand(CLI::App& program)
        : Command(program, "replay",
                  "Play a recorded DAW session through the plug-in, check that all of it\n"
                  "arrives, and report; or play it to a port of the service that runs") {
        mCommand
            ->add_option("FILE", mFile,
                         "Capture (\"<microseconds> <hex bytes>\" a line) or Standard MIDI File;\n"
                         "- reads standard input")
            ->required();
        CLI::Option* to = mCommand->add_option(
            "--to", mTo, "Port of the service that runs, by name or number, to play to");
        mCommand->add_option("--port", mPort, "Port to play to")
            ->capture_default_str()
            ->check(CLI::Range(1U, kMaximumPorts))
            ->excludes(to);
        CLI::Option* speed = mCommand->add_option("--speed", mSpeed, "Times the recorded speed")
                                 ->capture_default_str()
                                 ->check(CheckSpeed);
        mCommand
            ->add_flag("--as-fast-as-possible", mAsFastAsPossible, "Do not wait between messages")
            ->excludes(speed);
        mCommand->add_option("--prefs", mPreferences, "Folder of the preferences to use")
            ->excludes(to);
        mCommand->add_option("--plugin", mPlugIn, "Plug-in bundle to load")->excludes(to);
        mCommand
            ->add_option("--setup", mSetup, "File that keeps the driver's device for the next run")
            ->excludes(to);
        mCommand->add_flag("--json", mJson, "Print the summary as one JSON document");
        AddLogOptions(*mCommand, mLog);
    }

    // The main thread's run loop serves the driver. Returns 0 if everything arrived as it was sent
    // and every ping was answered, or if the service took everything; otherwise 1.
    int Run() override {
        if (mTo) {
            return PlayToService();
        }
        // The environment must be changed while this is the only thread; the log starts another
        // one.
        if (mPreferences) {
            UsePreferencesFolder(*mPreferences);
        }
        const PrivateRuntimeFolder runtimeFolder;
        ReplayReport report;
        {
            const Logging logging(mLog);
            try {
                report = Play();
            } catch (const std::exception& error) {
                // Plain lines need it no second time: the program ends with the same line.
                if (Logging::IsStructured()) {
                    Log(kReplayLog[HSL::kError], "%s", error.what());
                }
                throw;
            }
            LogFindings(report);
            if (const std::optional<std::string> warning = PingWarning(report)) {
                TellUser(kReplayLog, *warning);
            }
        }
        fmt::print("{}", mJson ? SummaryJson(report) : SummaryText(report));
        return report.Clean() ? EXIT_SUCCESS : EXIT_FAILURE;
    }

private:
    int PlayToService() const {
        const Logging logging(mLog);
        const RecordedSession recording = ReadSessionFile(mFile);
        const Interrupt interrupt;
        ServiceReplay replay(recording, *mTo,
                             mAsFastAsPossible ? std::nullopt : std::optional<double>(mSpeed));
        const ServiceReplayReport report = replay.Run();
        fmt::print("{}", mJson ? SummaryJson(mFile, report) : SummaryText(mFile, report));
        return report.sent == report.messages || report.interrupted ? EXIT_SUCCESS : EXIT_FAILURE;
    }

    ReplayReport Play() const {
        const RecordedSession recording = ReadSessionFile(mFile);
        const PortConfiguration configuration = ReadPortConfiguration(mPreferences.has_value());
        if (mPort > configuration.publishedPorts) {
            throw InputError(fmt::format("port {} is not there: the driver publishes {} ports with "
                                         "these preferences",
                                         mPort, configuration.publishedPorts));
        }
        ReplayOptions options;
        options.file = mFile;
        options.port = mPort - 1;
        options.protocol = configuration.protocols[options.port];
        if (!mAsFastAsPossible) {
            options.speed = mSpeed;
        }

        RequireAddressSpace();
        const Interrupt interrupt;
        ControlQueue control;
        std::optional<Setup> setup;
        std::optional<Host> host;
        control.Run([&] {
            setup.emplace(mSetup);
            host.emplace(mPlugIn ? std::filesystem::path(*mPlugIn) : PlugInLoader::DefaultBundle(),
                         *setup);
        });
        if (setup->Warning()) {
            TellUser(kHostLog, *setup->Warning());
        }
        control.Run([&] { host->Start(); });
        ReplaySession session(recording, options, *host);
        ReplayReport report;
        {
            const ProgressDisplay display([&session] { return session.Report(); });
            report = PlayBesideTheRunLoop(session, control);
        }
        control.Run([&] { host->Stop(); });
        return report;
    }

    std::string mFile;
    std::optional<std::string> mTo;
    unsigned mPort = 1;
    double mSpeed = 1.0;
    bool mAsFastAsPossible = false;
    std::optional<std::string> mPreferences;
    std::optional<std::string> mPlugIn;
    std::optional<std::string> mSetup;
    bool mJson = false;
    LogOptions mLog;
};

} // namespace

std::unique_ptr<Command> MakeReplayCommand(CLI::App& program) {
    return std::make_unique<ReplayCommand>(program);
}

} // namespace MidiServer
