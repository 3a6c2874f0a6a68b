#include "tests/integration/jack/Playback.h"

#include "tests/support/Program.h"

#include <algorithm>
#include <cstdint>
#include <ios>
#include <sstream>
#include <thread>
#include <utility>

namespace JackTest {

using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;

std::size_t Session::CountUntil(microseconds time) const {
    return static_cast<std::size_t>(std::upper_bound(times.begin(), times.end(), time) -
                                    times.begin());
}

Session ReadCapture(const std::string& file) {
    Session session;
    std::istringstream lines(QuorvelTest::ContentOf(file));
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        microseconds::rep time = 0;
        words >> time >> std::hex;
        Bytes message;
        for (unsigned int byte = 0; words >> byte;) {
            message.push_back(static_cast<std::uint8_t>(byte));
        }
        session.messages.push_back(std::move(message));
        session.times.emplace_back(time);
    }
    return session;
}

void Playback::Add(std::size_t output, std::span<const Bytes> messages, Arrived arrived,
                   std::span<const microseconds> times) {
    mTracks.push_back({output, messages, std::move(arrived), times});
}

testing::AssertionResult Playback::Play() {
    constexpr auto kPatience = std::chrono::minutes(2);
    const auto start = Clock::now();
    auto lastProgress = start;
    std::size_t before = 0;
    for (;;) {
        const auto now = Clock::now();
        std::size_t waiting = 0;
        std::size_t arrived = 0;
        for (Track& track : mTracks) {
            arrived += Step(track, now - start);
            waiting += track.bytesSent;
            waiting += track.messages.size() - track.sent;
        }
        if (waiting == arrived) {
            return testing::AssertionSuccess();
        }
        if (arrived != before) {
            before = arrived;
            lastProgress = now;
        } else if (now - lastProgress > kPatience) {
            return testing::AssertionFailure()
                   << "nothing comes any more after " << arrived << " bytes";
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

// Sends what may be sent, and returns how many bytes have arrived.
std::size_t Playback::Step(Track& track, Clock::duration played) {
    const std::size_t arrived = track.arrived();
    while (track.sent < track.messages.size() && track.bytesSent < arrived + mMostOnItsWay &&
           (track.times.empty() || track.times[track.sent] - track.times.front() <= played)) {
        const Bytes& message = track.messages[track.sent++];
        track.bytesSent += message.size();
        mDaw.Send(track.output, message);
    }
    return arrived;
}

} // namespace JackTest
