#include "midiserver/backends/alsa/Patience.h"

#include <gtest/gtest.h>

#include <chrono>

namespace MidiServer {
namespace {

using namespace std::chrono_literals;
using Time = Patience::Time;

// Tries every millisecond, and returns after how many the receiver is given up.
template <typename FreeCells>
int TriesUntilGivenUp(Patience& patience, Time& now, FreeCells freeCells) {
    for (int tries = 1; tries < 100000; ++tries) {
        if (!patience.Waits(now, freeCells(tries))) {
            return tries;
        }
        now += 1ms;
    }
    return 0;
}

const Time kStart{std::chrono::hours(1)};

TEST(Patience, GivesUpAReceiverThatMakesNoRoom) {
    Patience patience;
    Time now = kStart;
    EXPECT_EQ(TriesUntilGivenUp(patience, now, [](int) { return 3U; }), 101);
    EXPECT_FALSE(patience.Waits(now + 1h, 3));
}

TEST(Patience, WaitsAgainForAReceiverThatHasHadRoom) {
    Patience patience;
    Time now = kStart;
    TriesUntilGivenUp(patience, now, [](int) { return 3U; });
    patience.HasRoom();
    EXPECT_TRUE(patience.Waits(now, 3));
}

TEST(Patience, LetsAReceiverThatGoesOnMakingRoomUseTheWholeAllowance) {
    Patience patience;
    Time now = kStart;
    const int tries =
        TriesUntilGivenUp(patience, now, [](int i) { return static_cast<unsigned>(i / 50); });
    EXPECT_EQ(tries, 1001);
}

TEST(Patience, CountsAStandstillOfTheMachineAsOneTry) {
    Patience patience;
    Time now = kStart;
    EXPECT_TRUE(patience.Waits(now, 3));
    EXPECT_TRUE(patience.Waits(now + 10s, 3));
}

TEST(Patience, GivesTheAllowanceBackAtATwentiethOfTheTime) {
    Patience patience;
    Time now = kStart;
    const auto slow = [](int i) { return static_cast<unsigned>(i); };
    EXPECT_EQ(TriesUntilGivenUp(patience, now, slow), 1001);
    patience.HasRoom();
    EXPECT_FALSE(patience.Waits(now, 3)) << "nothing is left of it";
    patience.HasRoom();
    now += 2s;
    EXPECT_EQ(TriesUntilGivenUp(patience, now, slow), 101);
    patience.HasRoom();
    now += 1h;
    EXPECT_EQ(TriesUntilGivenUp(patience, now, slow), 1001) << "never more than all of it";
}

} // namespace
} // namespace MidiServer
