#include "midiserver/backends/WakeUpSignal.h"

#include <gtest/gtest.h>

#include <thread>

namespace MidiServer {
namespace {

using Clock = std::chrono::steady_clock;

TEST(WakeUpSignalTest, EndsOneWaitIfItWasRaisedBefore) {
    WakeUpSignal signal;
    signal.Raise();
    signal.Raise();
    EXPECT_TRUE(signal.WaitUntil(Clock::time_point::max()));
    EXPECT_FALSE(signal.WaitUntil(Clock::now() + std::chrono::milliseconds(1)));
    signal.Raise();
    EXPECT_TRUE(signal.WaitUntil(Clock::time_point{}));
    EXPECT_FALSE(signal.WaitUntil(Clock::time_point{}));
}

TEST(WakeUpSignalTest, ShowsTheSleeperWhatWasWrittenBefore) {
    constexpr int kRounds = 2000;
    WakeUpSignal there;
    WakeUpSignal back;
    int value = 0; // not atomic: the thread sanitizer checks that the signals order it
    std::thread other([&] {
        for (int round = 1; round <= kRounds; ++round) {
            while (!there.WaitUntil(Clock::time_point::max())) {
            }
            EXPECT_EQ(value, round);
            ++value;
            back.Raise();
        }
    });
    for (int round = 0; round < kRounds; ++round) {
        value = round + 1;
        there.Raise();
        while (!back.WaitUntil(Clock::now() + std::chrono::hours(1))) {
        }
        EXPECT_EQ(value, round + 2);
    }
    other.join();
}

} // namespace
} // namespace MidiServer
