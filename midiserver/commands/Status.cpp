#include "midiserver/commands/Commands.h"
#include "midiserver/errors/Errors.h"
#include "midiserver/host/Interrupt.h"
#include "midiserver/json/Json.h"
#include "midiserver/service/ScreenText.h"
#include "midiserver/service/StatusReport.h"
#include "midiserver/service/control/ControlClient.h"

#include <fmt/format.h>

#include <sys/ioctl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

namespace MidiServer {

namespace {

constexpr std::chrono::seconds kInterval(1);
// The longest time that a wait goes on without looking at the interrupt count.
constexpr std::chrono::milliseconds kLookout(50);

Json AskForStatus() {
    return ControlClient().Ask(ControlRequest::kStatus, Json::object()).at("status");
}

// A service that is being restarted comes back, so its absence does not end the display.
std::string TrafficOrWhyNot() {
    try {
        return TrafficText(AskForStatus());
    } catch (const ServiceStateError& error) {
        return std::string(error.what()) + '\n';
    }
}

void WatchStatus() {
    const bool terminal = ::isatty(STDOUT_FILENO) == 1;
    const Interrupt interrupt;
    auto next = std::chrono::steady_clock::now();
    while (Interrupt::Count() == 0 && std::ferror(stdout) == 0) {
        const std::string text = TrafficOrWhyNot();
        struct winsize size {};
        if (!terminal) {
            fmt::print("{}\n", text);
        } else if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 1) {
            fmt::print("{}", ScreenText(text, size.ws_row, size.ws_col));
        } else {
            fmt::print("{}", ScreenText(text, 24, 80));
        }
        std::fflush(stdout);
        next += kInterval;
        while (Interrupt::Count() == 0 && std::chrono::steady_clock::now() < next) {
            std::this_thread::sleep_for(kLookout);
        }
    }
}

// The command `midiserver status` shows what the service that runs does, once or until it is
// interrupted.
class StatusCommand : public Command {
public:
    explicit StatusCommand(CLI::App& program)
        : Command(program, "status", "Show what the service that runs does") {
        CLI::Option* json = mCommand->add_flag("--json", mJson, "Print one JSON document");
        mCommand
            ->add_flag("--watch", mWatch, "Show the traffic anew every second until interrupted")
            ->excludes(json);
    }

    int Run() override {
        if (mWatch) {
            WatchStatus();
        } else {
            const Json status = AskForStatus();
            fmt::print("{}", mJson ? JsonText(status) : StatusText(status));
        }
        return EXIT_SUCCESS;
    }

private:
    bool mJson = false;
    bool mWatch = false;
};

} // namespace

std::unique_ptr<Command> MakeStatusCommand(CLI::App& program) {
    return std::make_unique<StatusCommand>(program);
}

} // namespace MidiServer
