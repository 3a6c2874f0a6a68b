#include "surface/feed/PlayedCapture.h"

#include "midiserver/replay/session/CaptureFile.h"
#include "tests/support/WaitUntil.h"

#include <gtest/gtest.h>

namespace Surface {
namespace {

using TestSupport::WaitUntil;
using namespace std::chrono_literals;

constexpr const char* kCapture = "1000 90 10 7F\n"
                                 "500000 E0 7F 7F\n"
                                 "3600000000 90 10 00\n";

PlayedCapture Play(const PlayOptions& options) {
    return {MidiServer::ReadCaptureFile(kCapture, "folder/name.txt"), "folder/name.txt", options};
}

std::vector<std::int64_t> TimesOf(PlayedCapture& feed) {
    std::vector<std::int64_t> times;
    feed.Take([&](std::size_t index, SurfaceModel::Time time, std::span<const std::uint8_t>) {
        EXPECT_EQ(index, 0U);
        times.push_back(time.count());
    });
    return times;
}

TEST(PlayedCaptureTest, PlaysAllAtOnce) {
    PlayedCapture feed = Play({.speed = std::nullopt});
    EXPECT_FALSE(feed.State().isAtEnd);
    EXPECT_EQ(TimesOf(feed), (std::vector<std::int64_t>{1000, 500000, 3600000000}));
    EXPECT_TRUE(feed.State().isAtEnd);
    EXPECT_EQ(feed.Now(), 3600s);
    EXPECT_EQ(feed.State().detail, "name.txt at 3600.0 of 3600.0 s");
    EXPECT_TRUE(TimesOf(feed).empty());
}

TEST(PlayedCaptureTest, StopsWhereItIsToldTo) {
    PlayedCapture feed = Play({.speed = std::nullopt, .at = 2s});
    EXPECT_EQ(TimesOf(feed).size(), 2U);
    EXPECT_TRUE(feed.State().isAtEnd);
    EXPECT_EQ(feed.Now(), 2s);
}

TEST(PlayedCaptureTest, PlaysInItsOwnTimeOrFaster) {
    PlayedCapture slow = Play({});
    TimesOf(slow);
    EXPECT_LT(slow.Now(), 3600s);
    EXPECT_FALSE(slow.State().isAtEnd) << "the last message is due in an hour";

    PlayedCapture fast = Play({.speed = 1'000'000.0});
    ASSERT_TRUE(WaitUntil("it has played", [&] {
        TimesOf(fast);
        return fast.State().isAtEnd;
    }));
    EXPECT_GE(fast.Now(), 3600s);
}

} // namespace
} // namespace Surface
