#include "midiserver/routing/pacing/PacingQueue.h"

#include "midiserver/routing/pacing/ValuePlace.h"
#include "surface/model/SurfacePort.h"
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

Bytes MackieText(std::uint8_t offset, const std::string& text, std::uint8_t device = 0x14) {
    Bytes message = {0xF0, 0x00, 0x00, 0x66, device, 0x12, offset};
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

TEST(PacingQueueTest, QueuesADigitAgainThatComesInALongerMessage) {
    const Bytes alone = {0xB0, 0x40, 0x31};
    const Bytes later = {0xB0, 0x40, 0x33};
    const Bytes longer = {0xF0, 0x00, 0x00, 0x66, 0x14, 0x10, 0x32, 0xF7};
    EXPECT_THAT(Through(Protocol::kMackieControl, {alone, longer}), ElementsAre(alone, longer));
    EXPECT_THAT(Through(Protocol::kMackieControl, {alone, later}), ElementsAre(later));
    EXPECT_THAT(Through(Protocol::kMackieControl, {alone, longer, later}),
                ElementsAre(alone, longer, later));
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
    explicit Shown(Protocol ofPort) : protocol(ofPort), port(ofPort) {}

    Protocol protocol;
    Surface::SurfacePort port;
    std::vector<Bytes> others; // each of these counts

    void Take(const Bytes& message) {
        port.Receive(message, {});
        if (!HighHalfPlace(protocol, message) && !LowHalfPlace(protocol, message) &&
            !PlaceOf(protocol, message)) {
            others.push_back(message);
        }
    }
    // Everything that has a place.
    std::string Text() const {
        const Surface::SurfaceModel& model = port.Model();
        std::string text = model.Line(0) + model.Line(1) + std::string(model.MainLine(0)) +
                           std::string(model.MainLine(1)) + model.TimecodeText() + '|' +
                           model.AssignmentText();
        for (std::size_t fader = 0; fader < Surface::kFaderCount; ++fader) {
            text += ' ' + std::to_string(model.Fader(fader));
        }
        for (std::size_t pot = 0; pot < Surface::kPotCount; ++pot) {
            const Surface::PotRing& ring = model.Ring(pot);
            text += ' ' + std::to_string(ring.value) + (ring.centre ? "c" : "") +
                    std::to_string(static_cast<int>(ring.mode));
        }
        return text;
    }
};

Bytes RandomMessage(std::mt19937_64& random, Protocol protocol) {
    const auto value = [&random](unsigned limit) {
        return static_cast<std::uint8_t>(random() % limit);
    };
    if (protocol == Protocol::kHui) {
        switch (random() % 7) {
        case 0:
            return {0xB0, value(3), value(128)};
        case 1:
            return {0xB0, static_cast<std::uint8_t>(0x20 + value(3)), value(128)};
        case 2:
            return {0xB0, static_cast<std::uint8_t>(0x10 + value(3)), value(128)};
        case 3:
            return {0xF0,     0x00, 0x00, 0x66,       0x05, 0x00, 0x10,
                    value(3), 'a',  'b',  value(128), 'c',  0xF7};
        case 4: {
            Bytes digits = {0xF0, 0x00, 0x00, 0x66, 0x05, 0x00, 0x11};
            digits.resize(digits.size() + 1 + value(3), value(32));
            digits.push_back(0xF7);
            return digits;
        }
        case 5: {
            Bytes zones = {0xF0, 0x00, 0x00, 0x66, 0x05, 0x00, 0x12};
            for (unsigned count = 1 + value(2); count > 0; --count) {
                zones.push_back(value(3));
                zones.resize(zones.size() + 10, value(128));
            }
            zones.push_back(0xF7);
            return zones;
        }
        default:
            return {0x90, value(3), value(128)};
        }
    }
    switch (random() % 6) {
    case 0:
        return {static_cast<std::uint8_t>(0xE0 + value(3)), value(128), value(128)};
    case 1:
        return {0xB0, static_cast<std::uint8_t>(0x30 + value(3)), value(128)};
    case 2:
        // Some DAWs change the device in mid-session; the display is the same one.
        return MackieText(static_cast<std::uint8_t>((random() % 2 == 0 ? 0 : 106) + value(6)),
                          std::string(1 + value(5), static_cast<char>('a' + value(26))),
                          static_cast<std::uint8_t>(0x14 + value(2)));
    case 3:
        return {0xB0, static_cast<std::uint8_t>(0x40 + value(3)), value(128)};
    case 4: {
        Bytes digits = {0xF0, 0x00, 0x00, 0x66, 0x14, 0x10};
        digits.resize(digits.size() + 1 + value(3), value(128));
        digits.push_back(0xF7);
        return digits;
    }
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
            Shown sent(protocol);
            Shown shown(protocol);
            std::uint64_t count = 0;
            std::uint64_t taken = 0;
            for (int i = 0; i < 150; ++i) {
                const Bytes message = RandomMessage(random, protocol);
                if (!IsPing(protocol, message)) {
                    sent.Take(message);
                    ASSERT_TRUE(queue.Add(message, kTime));
                    ++count;
                }
                if (!queue.Empty() && random() % 3 == 0) {
                    shown.Take(TakeOne(queue));
                    ++taken;
                }
            }
            for (const Bytes& message : TakeAll(queue)) {
                shown.Take(message);
                ++taken;
            }
            ASSERT_EQ(shown.Text(), sent.Text());
            ASSERT_EQ(shown.others, sent.others);
            ASSERT_EQ(taken + queue.Coalesced(), count);
        }
    }
}

} // namespace
} // namespace MidiServer
