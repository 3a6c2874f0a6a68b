#include "midiserver/errors/ErrorOutput.h"
#include "midiserver/errors/Errors.h"
#include "surface/event/EventText.h"
#include "surface/program/EndSignals.h"
#include "surface/program/Modes.h"

#include <fmt/format.h>

#include <csignal>
#include <cstdio>

namespace Surface {

namespace {

constexpr std::chrono::milliseconds kLongestWait(50);

} // namespace

void RunLog(Feed& feed, FedPorts& ports) {
    const EndSignals signals;
    // A reader that has gone is noticed as an error of the output, after which the feed is closed
    // in order.
    std::signal(SIGPIPE, SIG_IGN);
    std::string said;
    bool isAtEnd = false;
    while (!isAtEnd && !EndSignals::Came() && std::ferror(stdout) == 0) {
        const FeedState state = feed.State();
        if (!state.isThere && state.detail != said) {
            MidiServer::ErrorOutput::Write(
                fmt::format("quorvel-surface: {}\n", MidiServer::OneLine(state.detail)));
        }
        said = state.isThere ? std::string() : state.detail;
        ports.Take([&](std::size_t index, SurfaceModel::Time time, const SurfaceEvent& event) {
            fmt::print("{}.{:06} {} {}\n", time.count() / 1'000'000, time.count() % 1'000'000,
                       ports.NumberOf(index), EventText(event));
        });
        std::fflush(stdout);
        isAtEnd = feed.State().isAtEnd;
        if (!isAtEnd) {
            feed.Wait(kLongestWait);
        }
    }
}

} // namespace Surface
