#include "midiserver/backends/alsa/SenderTurns.h"

#include <gmock/gmock.h>

#include <chrono>
#include <cstdint>
#include <vector>

namespace MidiServer {
namespace {

using namespace std::chrono_literals;
using Bytes = std::vector<std::uint8_t>;
using testing::ElementsAre;

constexpr PortAddress kFirst{128, 0};
constexpr PortAddress kSecond{129, 0};
constexpr PortAddress kThird{130, 0};

class SenderTurnsTest : public testing::Test {
protected:
    bool Take(PortAddress sender, const Bytes& bytes) {
        return mTurns.Take(sender, mNow, bytes, mDeliver);
    }

    SenderTurns mTurns;
    SenderTurns::Time mNow{1h};
    std::vector<Bytes> mDelivered;
    std::vector<SenderTurns::Time> mTimes;
    SenderTurns::Deliver mDeliver = [this](SenderTurns::Time time,
                                           std::span<const std::uint8_t> bytes) {
        mDelivered.emplace_back(bytes.begin(), bytes.end());
        mTimes.push_back(time);
    };
};

TEST_F(SenderTurnsTest, PassesMessagesOfSeveralSendersAtOnce) {
    Take(kFirst, {0x90, 60, 0});
    Take(kSecond, {0xF0, 1, 0xF7});
    Take(kFirst, {0x90, 61, 0});
    EXPECT_THAT(mDelivered,
                ElementsAre(Bytes{0x90, 60, 0}, Bytes{0xF0, 1, 0xF7}, Bytes{0x90, 61, 0}));
}

TEST_F(SenderTurnsTest, HoldsOthersBackWhileAMessageIsOpen) {
    Take(kFirst, {0xF0, 1});
    const SenderTurns::Time waited = mNow;
    Take(kSecond, {0x90, 60, 0});
    mNow += 1s;
    Take(kFirst, {2});
    EXPECT_THAT(mDelivered, ElementsAre(Bytes{0xF0, 1}, Bytes{2}));
    Take(kFirst, {3, 0xF7});
    EXPECT_THAT(mDelivered,
                ElementsAre(Bytes{0xF0, 1}, Bytes{2}, Bytes{3, 0xF7}, Bytes{0x90, 60, 0}));
    EXPECT_EQ(mTimes.back(), waited) << "the time of its arrival";
}

TEST_F(SenderTurnsTest, KeepsTwoMessagesInPiecesApart) {
    Take(kFirst, {0xF0, 1});
    Take(kSecond, {0xF0, 2});
    Take(kThird, {0x90, 60, 0});
    Take(kFirst, {1, 0xF7});
    EXPECT_THAT(mDelivered, ElementsAre(Bytes{0xF0, 1}, Bytes{1, 0xF7}, Bytes{0xF0, 2}));
    Take(kSecond, {2, 0xF7});
    EXPECT_THAT(mDelivered, ElementsAre(Bytes{0xF0, 1}, Bytes{1, 0xF7}, Bytes{0xF0, 2},
                                        Bytes{2, 0xF7}, Bytes{0x90, 60, 0}));
}

TEST_F(SenderTurnsTest, LetsWaitingPiecesPassInTheOrderOfTheirArrival) {
    Take(kFirst, {0xF0, 1});
    Take(kSecond, {0xF0, 2});
    Take(kThird, {0x90, 60, 0});
    Take(kSecond, {2, 0xF7});
    Take(kThird, {0x90, 61, 0});
    Take(kFirst, {0xF7});
    EXPECT_THAT(mDelivered, ElementsAre(Bytes{0xF0, 1}, Bytes{0xF7}, Bytes{0xF0, 2}, Bytes{2, 0xF7},
                                        Bytes{0x90, 60, 0}, Bytes{0x90, 61, 0}));
}

TEST_F(SenderTurnsTest, LetsRealTimeMessagesPass) {
    Take(kFirst, {0xF0, 1});
    Take(kSecond, {0xF8});
    EXPECT_THAT(mDelivered, ElementsAre(Bytes{0xF0, 1}, Bytes{0xF8}));
    Take(kSecond, {0x90, 60, 0});
    EXPECT_EQ(mDelivered.size(), 2U) << "the message is still open";
}

TEST_F(SenderTurnsTest, EndsTheTurnWithAnyOtherMessageOfTheSender) {
    Take(kFirst, {0xF0, 1});
    Take(kSecond, {0x90, 60, 0});
    Take(kFirst, {0x90, 61, 0});
    EXPECT_THAT(mDelivered, ElementsAre(Bytes{0xF0, 1}, Bytes{0x90, 61, 0}, Bytes{0x90, 60, 0}));
}

TEST_F(SenderTurnsTest, EndsTheTurnOfAClientThatLeaves) {
    Take(kFirst, {0xF0, 1});
    Take(kSecond, {0x90, 60, 0});
    mTurns.Leave(kThird.client, mDeliver);
    EXPECT_EQ(mDelivered.size(), 1U);
    mTurns.Leave(kFirst.client, mDeliver);
    EXPECT_THAT(mDelivered, ElementsAre(Bytes{0xF0, 1}, Bytes{0x90, 60, 0}));
}

TEST_F(SenderTurnsTest, EndsTheTurnOfASenderThatPausesTooLong) {
    Take(kFirst, {0xF0, 1});
    EXPECT_FALSE(mTurns.Due()) << "nobody waits";
    Take(kSecond, {0x90, 60, 0});
    ASSERT_TRUE(mTurns.Due());
    mTurns.EndOverdue(*mTurns.Due() - 1ns, mDeliver);
    EXPECT_EQ(mDelivered.size(), 1U);
    mTurns.EndOverdue(*mTurns.Due(), mDeliver);
    EXPECT_THAT(mDelivered, ElementsAre(Bytes{0xF0, 1}, Bytes{0x90, 60, 0}));
    EXPECT_FALSE(mTurns.Due());
}

TEST_F(SenderTurnsTest, RefusesWhatDoesNotFitBehindAnOpenMessage) {
    Take(kFirst, {0xF0, 1});
    EXPECT_TRUE(Take(kSecond, Bytes(SenderTurns::kMostWaiting - 3, 1)));
    EXPECT_TRUE(Take(kSecond, {0x90, 60, 0}));
    EXPECT_FALSE(Take(kThird, {0xC0, 1}));
    Take(kFirst, {0xF7});
    EXPECT_EQ(mDelivered.size(), 4U);
    Take(kFirst, {0xF0, 1});
    EXPECT_TRUE(Take(kSecond, Bytes(SenderTurns::kMostWaiting, 1))) << "the room is there again";
}

} // namespace
} // namespace MidiServer
