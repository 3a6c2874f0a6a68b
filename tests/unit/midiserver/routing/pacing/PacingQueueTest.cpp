#include "midiserver/routing/pacing/PacingQueue.h"

#include "tests/support/TestSeed.h"

#include <gmock/gmock.h>

#include <random>

namespace MidiServer {
namespace {

using Bytes = std::vector<std::uint8_t>;
using testing::ElementsAre;

constexpr PacingQueue::TimePoint kTime{};
const Bytes kNote = {0x90, 0x3C, 0x40};
const Bytes kPing = {0x90, 0x00, 0x00};

// Takes the next message out whole.
Bytes TakeOne(PacingQueue& queue) {
    const PacingQueue::Front front = queue.Next();
    Bytes message(front.rest.begin(), front.rest.end());
    EXPECT_TRUE(queue.Advance(message.size()));
    return message;
}

std::vector<Bytes> TakeAll(PacingQueue& queue) {
    std::vector<Bytes> messages;
    while (!queue.Empty()) {
        messages.push_back(TakeOne(queue));
    }
    return messages;
}

std::vector<Bytes> Through(Protocol protocol, const std::vector<Bytes>& messages) {
    PacingQueue queue;
    queue.Configure(protocol, true);
    for (const Bytes& message : messages) {
        EXPECT_TRUE(queue.Add(message, kTime));
    }
    std::size_t bytes = 0;
    const std::size_t counted = queue.Bytes();
    std::vector<Bytes> left = TakeAll(queue);
    for (const Bytes& message : left) {
        bytes += message.size();
    }
    EXPECT_EQ(counted, bytes);
    EXPECT_EQ(queue.Coalesced(), messages.size() - left.size());
    return left;
}

Bytes MackieText(std::uint8_t offset, const std::string& text) {
    Bytes message = {0xF0, 0x00, 0x00, 0x66, 0x14, 0x12, offset};
    message.insert(message.end(), text.begin(), text.end());
    message.push_back(0xF7);
    return message;
}

TEST(PacingQueueTest, RefusesWhatDoesNotFitWhole) {
    PacingQueue queue;
    EXPECT_TRUE(queue.Add(Bytes(PacingQueue::kCapacity - 2, 0x11), kTime));
    EXPECT_EQ(queue.Room(), 2U);
    EXPECT_FALSE(queue.Add(kNote, kTime));
    EXPECT_TRUE(queue.Add(Bytes{0xC0, 1}, kTime));
    EXPECT_EQ(queue.Room(), 0U);
    EXPECT_EQ(queue.Messages(), 2U);
}

TEST(PacingQueueTest, TakesOneMessageOfAnyLengthWhenItIsEmpty) {
    PacingQueue queue;
    EXPECT_TRUE(queue.Add(Bytes(1U << 20U, 0x11), kTime));
    EXPECT_EQ(queue.Room(), 0U);
    EXPECT_FALSE(queue.Add(kNote, kTime));
    EXPECT_EQ(TakeOne(queue).size(), 1U << 20U);
    EXPECT_TRUE(queue.Add(kNote, kTime));
}

TEST(PacingQueueTest, LetsPingsOvertakeWhenAsked) {
    PacingQueue queue;
    queue.Configure(Protocol::kHui, false);
    queue.Add(kNote, kTime);
    EXPECT_FALSE(queue.HasOvertakingPing());
    for (int i = 0; i < 3; ++i) {
        queue.Add(kPing, kTime);
    }
    queue.Add(kNote, kTime);
    EXPECT_FALSE(queue.Next().isPing);
    for (int i = 0; i < 2; ++i) {
        ASSERT_TRUE(queue.HasOvertakingPing());
        EXPECT_TRUE(queue.NextPing().isPing);
        queue.TakePing();
    }
    EXPECT_EQ(queue.Messages(), 3U);
    EXPECT_EQ(queue.Bytes(), 9U);
    EXPECT_EQ(TakeOne(queue), kNote);
    EXPECT_TRUE(queue.Next().isPing) << "the one that has not overtaken keeps its place";
    queue.TakePing();
    EXPECT_FALSE(queue.HasOvertakingPing());
    EXPECT_THAT(TakeAll(queue), ElementsAre(kNote));
    EXPECT_EQ(queue.Messages(), 0U);
}

TEST(PacingQueueTest, KeepsTheOrderIfNothingOvertakes) {
    PacingQueue queue;
    queue.Configure(Protocol::kHui, false);
    queue.Add(kNote, kTime);
    queue.Add(kPing, kTime);
    queue.Add(kNote, kTime);
    EXPECT_THAT(TakeAll(queue), ElementsAre(kNote, kPing, kNote));
}

TEST(PacingQueueTest, LetsNoPingIntoAMessageThatHasBegunToGoOut) {
    PacingQueue queue;
    queue.Configure(Protocol::kHui, false);
    queue.Add(Bytes{0xF0, 1, 2, 3, 0xF7}, kTime);
    EXPECT_FALSE(queue.Advance(2));
    queue.Add(kPing, kTime);
    EXPECT_FALSE(queue.HasOvertakingPing());
    EXPECT_EQ(queue.Next().rest.size(), 3U);
    EXPECT_TRUE(queue.Advance(3));
    EXPECT_TRUE(queue.HasOvertakingPing());
}

TEST(PacingQueueTest, TakesAFewPingsWhenItIsFull) {
    PacingQueue queue;
    queue.Configure(Protocol::kHui, false);
    queue.Add(Bytes(PacingQueue::kCapacity, 0x11), kTime);
    for (std::size_t i = 0; i < PacingQueue::kMostOvertaking; ++i) {
        EXPECT_TRUE(queue.Add(kPing, kTime));
    }
    EXPECT_FALSE(queue.Add(kPing, kTime));
    EXPECT_FALSE(queue.Add(kNote, kTime));
}

TEST(PacingQueueTest, CountsMessagesThatHadToWait) {
    PacingQueue queue;
    queue.Add(kNote, kTime);
    queue.Add(kNote, kTime);
    queue.NoteDelay();
    queue.Add(kNote, kTime);
    TakeAll(queue);
    EXPECT_EQ(queue.Delayed(), 2U);
}

TEST(PacingQueueTest, CoalescesNothingUnlessAsked) {
    PacingQueue queue;
    queue.Configure(Protocol::kMackieControl, false);
    queue.Add(Bytes{0xE0, 1, 1}, kTime);
    queue.Add(Bytes{0xE0, 2, 2}, kTime);
    EXPECT_EQ(queue.Messages(), 2U);
    EXPECT_EQ(queue.Coalesced(), 0U);
}

TEST(PacingQueueTest, ReplacesMackieFadersAndPotRingsAtTheirPlace) {
    EXPECT_THAT(
        Through(Protocol::kMackieControl, {{0xE0, 1, 1},
                                           {0xB0, 0x30, 1},
                                           kNote,
                                           {0xE0, 2, 2},
                                           {0xE1, 3, 3},
                                           kNote,
                                           {0xB0, 0x30, 2}}),
        ElementsAre(Bytes{0xE0, 2, 2}, Bytes{0xB0, 0x30, 2}, kNote, Bytes{0xE1, 3, 3}, kNote));
}

TEST(PacingQueueTest, ReplacesTextForTheSameCellsOnly) {
    const Bytes full = MackieText(0, "0123456789");
    const Bytes part = MackieText(3, "abc");
    const Bytes laterPart = MackieText(3, "ABC");
    const Bytes elsewhere = MackieText(10, "xyz");
    EXPECT_THAT(Through(Protocol::kMackieControl, {full, part, elsewhere, laterPart}),
                ElementsAre(full, laterPart, elsewhere));
    // The full line lies between: with the part replaced at its place, it would show the old text.
    EXPECT_THAT(Through(Protocol::kMackieControl, {part, full, laterPart}),
                ElementsAre(part, full, laterPart));
}

TEST(PacingQueueTest, ReplacesBothHalvesOfAHuiFaderTogether) {
    const Bytes high1 = {0xB0, 0x03, 1};
    const Bytes low1 = {0xB0, 0x23, 2};
    const Bytes high2 = {0xB0, 0x03, 3};
    const Bytes low2 = {0xB0, 0x23, 4};
    EXPECT_THAT(Through(Protocol::kHui, {high1, low1, kNote, high2, low2}),
                ElementsAre(high2, low2, kNote));
    // Something stands between the halves, so they stay as they are, and so does what is before.
    EXPECT_THAT(Through(Protocol::kHui, {high1, low1, high2, kNote, low2, high1, low1}),
                ElementsAre(high1, low1, high2, kNote, low2, high1, low1));
}

TEST(PacingQueueTest, ReplacesNothingThatHasGoneOut) {
    PacingQueue queue;
    queue.Configure(Protocol::kMackieControl, true);
    queue.Add(Bytes{0xE0, 1, 1}, kTime);
    TakeOne(queue);
    queue.Add(Bytes{0xE0, 2, 2}, kTime);
    EXPECT_THAT(TakeAll(queue), ElementsAre(Bytes{0xE0, 2, 2}));
}

// What a surface shows after all messages.
struct Shown {
    std::map<std::uint32_t, Bytes> values;
    std::map<std::uint32_t, std::uint8_t> cells;
    std::map<std::uint32_t, std::uint8_t> high; // of HUI faders, before the low half comes
    std::vector<Bytes> others;                  // each of these counts

    void Take(Protocol protocol, const Bytes& message) {
        if (const auto half = HighHalfPlace(protocol, message)) {
            high[half->group] = message[2];
        } else if (const auto whole = LowHalfPlace(protocol, message)) {
            values[whole->group] = {high[whole->group], message[2]};
        } else if (const auto place = PlaceOf(protocol, message)) {
            if (protocol == Protocol::kMackieControl && message[0] == 0xF0) {
                for (std::size_t i = 7; i + 1 < message.size(); ++i) {
                    cells[message[6] + static_cast<std::uint32_t>(i) - 7] = message[i];
                }
            } else {
                values[place->group * 0x1000 + place->first] = message;
            }
        } else {
            others.push_back(message);
        }
    }
    bool operator==(const Shown&) const = default;
};

Bytes RandomMessage(std::mt19937_64& random, Protocol protocol) {
    const auto value = [&random](unsigned limit) {
        return static_cast<std::uint8_t>(random() % limit);
    };
    if (protocol == Protocol::kHui) {
        switch (random() % 5) {
        case 0:
            return {0xB0, value(3), value(128)};
        case 1:
            return {0xB0, static_cast<std::uint8_t>(0x20 + value(3)), value(128)};
        case 2:
            return {0xB0, static_cast<std::uint8_t>(0x10 + value(3)), value(128)};
        case 3:
            return {0xF0, 0x00, 0x00, 0x66, 0x05, 0x00, 0x10, value(3), 1, 2, 3, value(128), 0xF7};
        default:
            return {0x90, value(3), value(128)};
        }
    }
    switch (random() % 4) {
    case 0:
        return {static_cast<std::uint8_t>(0xE0 + value(3)), value(128), value(128)};
    case 1:
        return {0xB0, static_cast<std::uint8_t>(0x30 + value(3)), value(128)};
    case 2:
        return MackieText(value(6), std::string(1 + value(5), static_cast<char>('a' + value(26))));
    default:
        return {0x90, value(3), value(128)};
    }
}

TEST(PacingQueueTest, ShowsTheSameInTheEndWithCoalescingAsWithout) {
    const std::uint64_t seed = TestSeed();
    SCOPED_TRACE(DescribeSeed(seed));
    std::mt19937_64 random(seed);
    for (const Protocol protocol : {Protocol::kHui, Protocol::kMackieControl}) {
        for (int round = 0; round < 200; ++round) {
            PacingQueue queue;
            queue.Configure(protocol, true);
            Shown sent;
            Shown shown;
            std::uint64_t count = 0;
            std::uint64_t taken = 0;
            for (int i = 0; i < 150; ++i) {
                const Bytes message = RandomMessage(random, protocol);
                if (!IsPing(protocol, message)) {
                    sent.Take(protocol, message);
                    ASSERT_TRUE(queue.Add(message, kTime));
                    ++count;
                }
                if (!queue.Empty() && random() % 3 == 0) {
                    shown.Take(protocol, TakeOne(queue));
                    ++taken;
                }
            }
            for (const Bytes& message : TakeAll(queue)) {
                shown.Take(protocol, message);
                ++taken;
            }
            ASSERT_EQ(shown, sent);
            ASSERT_EQ(taken + queue.Coalesced(), count);
        }
    }
}

} // namespace
} // namespace MidiServer
