#include "midiserver/errors/Errors.h"
#include "surface/program/EndSignals.h"
#include "surface/program/Modes.h"
#include "surface/screen/SvgPicture.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <system_error>

namespace Surface {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kPatience(10);
constexpr std::chrono::milliseconds kLongestWait(50);

struct Close {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

void WriteFile(const std::string& path, const std::string& content) {
    if (path == "-") {
        fmt::print("{}", content);
        return;
    }
    const std::unique_ptr<std::FILE, Close> file(std::fopen(path.c_str(), "we"));
    if (!file || std::fwrite(content.data(), 1, content.size(), file.get()) != content.size() ||
        std::fflush(file.get()) != 0) {
        throw MidiServer::InputError(
            fmt::format("{}: {}", path, std::generic_category().message(errno)));
    }
}

// Returns whether it came to the end, and no signal before.
bool Listen(Feed& feed, FedPorts& ports,
            const std::optional<std::chrono::microseconds>& listening) {
    const auto deadline = Clock::now() + kPatience;
    std::optional<Clock::time_point> end;
    while (!EndSignals::Came()) {
        ports.Take();
        const FeedState state = feed.State();
        const auto now = Clock::now();
        if (state.isThere && !end) {
            end = listening ? now + *listening : Clock::time_point::max();
        }
        if (!end && now >= deadline) {
            throw MidiServer::ServiceStateError(state.detail);
        }
        if (state.isAtEnd || (end && now >= *end)) {
            return true;
        }
        feed.Wait(kLongestWait);
    }
    return false;
}

} // namespace

void RunSnapshot(Feed& feed, FedPorts& ports, const SnapshotOptions& options) {
    const EndSignals signals;
    if (!Listen(feed, ports, options.listening)) {
        return;
    }
    Scene scene;
    for (std::size_t i = 0; i < ports.Ports().size(); ++i) {
        scene.ports.push_back({ports.NumberOf(i), &ports.Ports()[i]});
    }
    const Picture picture = DrawPicture(options.rows, options.columns, scene);
    WriteFile(options.file,
              SvgPicture(picture.grid, fmt::format("Quorvel Port {}", ports.NumberOf(0))));
}

} // namespace Surface
