#include "midiserver/replay/ReplayStatistics.h"

#include <gtest/gtest.h>

#include <random>

namespace MidiServer {
namespace {

using Bytes = std::vector<std::uint8_t>;
using namespace std::chrono_literals;

const Bytes kFader = {0xE0, 0x10, 0x20};
const Bytes kMeter = {0xD0, 0x05};
const Bytes kNote = {0x90, 0x3C, 0x7F};
const Bytes kHuiPing = {0x90, 0x00, 0x00};
const Bytes kHuiReply = {0x90, 0x00, 0x7F};

class ReplayStatisticsTest : public testing::Test {
protected:
    using Duration = std::chrono::nanoseconds;

    static ReplayStatistics::TimePoint At(Duration time) {
        return ReplayStatistics::TimePoint(1h + time);
    }
    void Send(Duration time, const ReplayStatistics::Packets& packets) {
        mStatistics.ListSent(At(time), packets);
    }
    void Arrive(Duration time, const ReplayStatistics::Packets& packets, unsigned port = 1) {
        mStatistics.Forwarded(port, At(time), packets);
    }

    ReplayStatistics mStatistics{1, 4, Protocol::kHui};
};

TEST_F(ReplayStatisticsTest, IsCleanWhenEverythingArrivedAsSent) {
    Send(0ms, {kFader, kMeter});
    Send(1ms, {kNote});
    EXPECT_EQ(mStatistics.BytesInFlight(), 4U + 13 + 12 + 4 + 13);
    EXPECT_EQ(mStatistics.DataBytesInFlight(), 8U);
    Arrive(2ms, {kFader, kMeter});
    Arrive(3ms, {kNote});

    const ReplayFindings findings = mStatistics.Findings();
    EXPECT_TRUE(findings.Clean());
    EXPECT_EQ(findings.forwarded, 3U);
    EXPECT_EQ(findings.items, 2U);
    EXPECT_EQ(findings.ports[1].messagesIn, 3U);
    EXPECT_EQ(findings.ports[1].bytesIn, 8U);
    EXPECT_EQ(findings.ports[1].messagesOut, 3U);
    EXPECT_EQ(findings.ports[1].bytesOut, 8U);
    EXPECT_EQ(findings.ports[0].messagesOut, 0U);
    EXPECT_EQ(findings.forwarding.count, 3U);
    EXPECT_EQ(findings.forwarding.max, 2ms);
    EXPECT_EQ(mStatistics.BytesInFlight(), 0U);
    EXPECT_EQ(mStatistics.DataBytesInFlight(), 0U);
}

TEST_F(ReplayStatisticsTest, CountsWhatNeverArrivedAsLost) {
    Send(0ms, {kFader});
    Send(0ms, {kMeter});
    Send(0ms, {kNote});
    Arrive(1ms, {kFader});
    Arrive(1ms, {kNote});

    const ReplayFindings findings = mStatistics.Findings();
    EXPECT_EQ(findings.lost, 1U);
    EXPECT_EQ(findings.reordered, 0U);
    EXPECT_EQ(findings.forwarded, 2U);
    EXPECT_FALSE(findings.Clean());
    EXPECT_EQ(mStatistics.BytesInFlight(), 0U) << "what was passed over holds nothing back";
}

TEST_F(ReplayStatisticsTest, CountsWhatArrivedLateAsReorderedAndNotAsLost) {
    Send(0ms, {kFader});
    Send(0ms, {kMeter});
    Arrive(1ms, {kMeter});
    Arrive(1ms, {kFader});

    const ReplayFindings findings = mStatistics.Findings();
    EXPECT_EQ(findings.lost, 0U);
    EXPECT_EQ(findings.reordered, 1U);
    EXPECT_FALSE(findings.Clean());
}

TEST_F(ReplayStatisticsTest, CountsOtherBytesAsAltered) {
    Send(0ms, {kFader});
    Send(0ms, {kNote});
    Arrive(1ms, {Bytes{0xE0, 0x10, 0x21}});
    Arrive(1ms, {kNote});

    const ReplayFindings findings = mStatistics.Findings();
    EXPECT_EQ(findings.altered, 1U);
    EXPECT_EQ(findings.lost, 0U);
    EXPECT_EQ(findings.forwarded, 1U);
    EXPECT_FALSE(findings.Clean());
}

TEST_F(ReplayStatisticsTest, CountsWhatWasNotSentAndWhatComesOutOfAnotherPortAsSurplus) {
    Arrive(1ms, {kNote});
    Arrive(1ms, {kNote}, 2);

    const ReplayFindings findings = mStatistics.Findings();
    EXPECT_EQ(findings.surplus, 2U);
    EXPECT_EQ(findings.ports[2].messagesOut, 1U);
    EXPECT_FALSE(findings.Clean());
}

TEST_F(ReplayStatisticsTest, CountsOtherBytesAtTheEndAsAlteredToo) {
    Send(0ms, {kFader});
    Arrive(1ms, {kNote});
    Arrive(1ms, {kMeter});

    const ReplayFindings findings = mStatistics.Findings();
    EXPECT_EQ(findings.altered, 1U);
    EXPECT_EQ(findings.surplus, 1U);
    EXPECT_EQ(findings.lost, 0U);
}

TEST_F(ReplayStatisticsTest, DoesNotTakeARepeatedMessageForTheNextOne) {
    Send(0ms, {kFader});
    Send(0ms, {kNote});
    Send(0ms, {kMeter});
    Arrive(1ms, {kFader});
    Arrive(1ms, {kFader});
    Arrive(1ms, {kNote});
    Arrive(1ms, {kMeter});

    const ReplayFindings findings = mStatistics.Findings();
    EXPECT_EQ(findings.surplus, 1U);
    EXPECT_EQ(findings.altered, 0U);
    EXPECT_EQ(findings.forwarded, 3U);
}

TEST_F(ReplayStatisticsTest, CountsTheSecondOfTwoArrivalsAsSurplus) {
    Send(0ms, {kNote});
    Arrive(1ms, {kNote});
    Arrive(1ms, {kNote});

    EXPECT_EQ(mStatistics.Findings().surplus, 1U);
}

TEST_F(ReplayStatisticsTest, MatchesRepliesToPings) {
    Send(0ms, {kHuiPing, kNote, kHuiPing});
    EXPECT_EQ(mStatistics.PingsOutstanding(), 2U);
    mStatistics.Replied(1, At(3ms), {kHuiReply});
    EXPECT_FALSE(mStatistics.Findings().Clean());
    mStatistics.Replied(1, At(4ms), {kHuiReply});
    Arrive(5ms, {kHuiPing, kNote, kHuiPing});

    const ReplayFindings findings = mStatistics.Findings();
    EXPECT_TRUE(findings.Clean());
    EXPECT_EQ(findings.pings, 2U);
    EXPECT_EQ(findings.answered, 2U);
    EXPECT_EQ(findings.replies.max, 4ms);
    EXPECT_EQ(findings.ports[1].repliesOut, 2U);
    EXPECT_EQ(findings.ports[1].replyBytesOut, 6U);
}

TEST_F(ReplayStatisticsTest, CountsRepliesThatAreNotDueDifferOrComeFromAnotherPort) {
    mStatistics.Replied(1, At(0ms), {kHuiReply});
    EXPECT_EQ(mStatistics.Findings().surplusReplies, 1U);
    Send(0ms, {kHuiPing});
    mStatistics.Replied(0, At(1ms), {kHuiReply});
    mStatistics.Replied(1, At(1ms), {kHuiPing});

    const ReplayFindings findings = mStatistics.Findings();
    EXPECT_EQ(findings.surplusReplies, 3U);
    EXPECT_EQ(findings.answered, 0U);
    EXPECT_FALSE(findings.Clean());
}

TEST_F(ReplayStatisticsTest, TakesBackAListThatWasRefused) {
    Send(0ms, {kNote});
    Send(0ms, {kHuiPing, kFader});
    mStatistics.LastListRefused();
    Arrive(1ms, {kNote});

    const ReplayFindings findings = mStatistics.Findings();
    EXPECT_EQ(findings.lost, 0U);
    EXPECT_EQ(findings.pings, 0U);
    EXPECT_EQ(findings.refused, 1U);
    EXPECT_EQ(findings.ports[1].messagesIn, 1U);
    EXPECT_EQ(mStatistics.BytesInFlight(), 0U);
    EXPECT_FALSE(findings.Clean());
}

TEST_F(ReplayStatisticsTest, CountsAnArrivalExactlyOneSecondOldInTheWindow) {
    const Bytes big(6000, 0x01);
    for (Duration time : {Duration(0ms), Duration(1000ms), Duration(2001ms)}) {
        Send(time, {big});
        Arrive(time, {big});
    }

    EXPECT_EQ(mStatistics.Findings().worstWindowBytes, 12000U);
}

TEST_F(ReplayStatisticsTest, CountsItemsThatTheThrottleHeldAndThoseBehindThem) {
    const Bytes big(7168, 0x01);
    Send(0ms, {big});
    Arrive(0ms, {big});
    Send(10ms, {big}); // fills the window exactly
    Arrive(10ms, {big});
    Send(20ms, {kNote});  // held until the first has left the window
    Send(30ms, {kMeter}); // behind it, with room of its own
    Arrive(1001ms, {kNote});
    Arrive(1001ms, {kMeter});
    Send(1100ms, {kFader}); // free again, though slow
    Arrive(1150ms, {kFader});

    const ReplayFindings findings = mStatistics.Findings();
    EXPECT_EQ(findings.throttled.count, 2U);
    EXPECT_EQ(findings.throttled.max, 981ms);
    EXPECT_EQ(findings.throttled.total, 981ms + 971ms);
    EXPECT_EQ(findings.worstWindowBytes, 14336U);
}

TEST_F(ReplayStatisticsTest, FindsExactlyTheLossesOfARandomStream) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    // Every message is unlike every other, so that what is missing is beyond doubt.
    std::vector<Bytes> messages;
    for (unsigned i = 0; i < 2000; ++i) {
        messages.push_back(
            {0xF0, static_cast<std::uint8_t>(i & 0x7F), static_cast<std::uint8_t>(i >> 7), 0xF7});
    }
    std::uint64_t lost = 0;
    for (std::size_t i = 0; i < messages.size(); ++i) {
        Send(Duration(1ms) * i, {messages[i]});
        if (random() % 10 == 0) {
            ++lost;
        } else {
            Arrive(Duration(1ms) * i, {messages[i]});
        }
    }

    const ReplayFindings findings = mStatistics.Findings();
    EXPECT_EQ(findings.lost, lost);
    EXPECT_EQ(findings.forwarded, messages.size() - lost);
    EXPECT_EQ(findings.reordered + findings.altered + findings.surplus, 0U);
}

} // namespace
} // namespace MidiServer
