#include "midiserver/routing/StallWatch.h"

#include <gtest/gtest.h>

namespace MidiServer {
namespace {

using namespace std::chrono_literals;
using TimePoint = StallWatch::TimePoint;

constexpr TimePoint kStart{1h};

TEST(StallWatchTest, ExpectsNothingOfADriverThatWasSentNothing) {
    EXPECT_EQ(StallWatch(10s).Deadline(), TimePoint::max());
}

TEST(StallWatchTest, CountsFromTheFirstListThatIsOutstanding) {
    StallWatch watch(10s);
    watch.Sent(kStart);
    watch.Sent(kStart + 5s);
    EXPECT_EQ(watch.Deadline(), kStart + 10s);
}

TEST(StallWatchTest, CountsAnewFromEveryListThatComesOut) {
    StallWatch watch(10s);
    watch.Sent(kStart);
    watch.Sent(kStart);
    watch.Done(kStart + 7s, 1);
    EXPECT_EQ(watch.Deadline(), kStart + 17s);
    watch.Done(kStart + 8s, 1);
    EXPECT_EQ(watch.Deadline(), TimePoint::max());
    watch.Sent(kStart + 60s);
    EXPECT_EQ(watch.Deadline(), kStart + 70s);
}

} // namespace
} // namespace MidiServer
