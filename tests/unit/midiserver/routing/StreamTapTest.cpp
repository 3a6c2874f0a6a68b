#include "midiserver/routing/StreamTap.h"

#include <gmock/gmock.h>

namespace MidiServer {
namespace {

using Bytes = std::vector<std::uint8_t>;
using testing::IsEmpty;
using testing::SizeIs;

constexpr std::chrono::steady_clock::time_point kTime{std::chrono::seconds(1)};

TEST(StreamTapTest, KeepsPacketsInOrderUntilTheyAreTaken) {
    StreamTap tap(10);
    tap.Add(kTime, Bytes{1, 2, 3});
    tap.Add(kTime, Bytes{4});
    const std::vector<TappedMessage> taken = tap.Take(10);
    ASSERT_THAT(taken, SizeIs(2));
    EXPECT_EQ(taken[0].time, kTime);
    EXPECT_EQ(taken[0].bytes, (Bytes{1, 2, 3}));
    EXPECT_EQ(taken[1].bytes, Bytes{4});
    EXPECT_THAT(tap.Take(10), IsEmpty());
    EXPECT_EQ(tap.Lost(), 0U);
}

TEST(StreamTapTest, CountsWhatDoesNotFitAndGoesOnWhenThereIsRoom) {
    StreamTap tap(4);
    tap.Add(kTime, Bytes{1, 2, 3});
    tap.Add(kTime, Bytes{4, 5});
    tap.Add(kTime, Bytes{6});
    EXPECT_EQ(tap.Lost(), 1U);
    EXPECT_THAT(tap.Take(100), SizeIs(2));
    tap.Add(kTime, Bytes{7, 8, 9, 10});
    EXPECT_EQ(tap.Lost(), 1U);
    EXPECT_THAT(tap.Take(100), SizeIs(1));
}

TEST(StreamTapTest, GivesAtLeastOnePacketHoweverFewBytesAreAskedFor) {
    StreamTap tap(10);
    tap.Add(kTime, Bytes{1, 2, 3});
    tap.Add(kTime, Bytes{4});
    EXPECT_THAT(tap.Take(1), SizeIs(1));
    EXPECT_THAT(tap.Take(1), SizeIs(1));
}

} // namespace
} // namespace MidiServer
