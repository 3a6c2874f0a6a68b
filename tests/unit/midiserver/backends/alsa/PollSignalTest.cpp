#include "midiserver/backends/alsa/PollSignal.h"

#include <gtest/gtest.h>

#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <thread>

namespace MidiServer {
namespace {

using Clock = std::chrono::steady_clock;

constexpr Clock::time_point kForever = Clock::time_point::max();

// Each of these hangs until ctest's time-out if a wait does not end.

TEST(PollSignalTest, EndsTheNextWaitOnceForAllSignalsBeforeIt) {
    const PollSignal signal;
    signal.Raise();
    signal.Raise();
    signal.WaitUntil(kForever, {-1, -1});
    const Clock::time_point due = Clock::now() + std::chrono::milliseconds(20);
    signal.WaitUntil(due, {-1, -1});
    EXPECT_GE(Clock::now(), due);
}

TEST(PollSignalTest, EndsTheWaitOfAnotherThread) {
    const PollSignal signal;
    std::atomic<int> rounds{0};
    std::thread waiting([&] {
        while (rounds < 100) {
            signal.WaitUntil(kForever, {-1, -1});
            ++rounds;
        }
    });
    while (rounds < 100) {
        signal.Raise();
    }
    signal.Raise();
    waiting.join();
}

TEST(PollSignalTest, EndsWhenADescriptorCanBeRead) {
    const PollSignal signal;
    for (const std::size_t place : {0U, 1U}) {
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        std::array<int, 2> descriptors = {-1, -1};
        descriptors[place] = ends[0];
        ASSERT_EQ(write(ends[1], "x", 1), 1);
        signal.WaitUntil(kForever, descriptors);
        pollfd state{ends[0], POLLIN, 0};
        EXPECT_EQ(poll(&state, 1, 0), 1) << "it is left to the caller";
        close(ends[0]);
        close(ends[1]);
    }
}

} // namespace
} // namespace MidiServer
