#include "midiserver/midi/MessageAssembler.h"

#include "midiserver/midi/MidiMessage.h"
#include "tests/support/TestSeed.h"

#include <gmock/gmock.h>

#include <random>

namespace MidiServer {
namespace {

using Bytes = std::vector<std::uint8_t>;
using testing::ElementsAre;
using testing::IsEmpty;

class MessageAssemblerTest : public testing::Test {
protected:
    // Returns the messages that the bytes complete.
    std::vector<Bytes> Add(std::span<const std::uint8_t> bytes) {
        std::vector<Bytes> messages;
        mAssembler.Add(bytes, [&](std::span<const std::uint8_t> message) {
            messages.emplace_back(message.begin(), message.end());
        });
        return messages;
    }
    std::vector<Bytes> Add(const Bytes& bytes) { return Add(std::span(bytes)); }

    MessageAssembler mAssembler;
};

TEST_F(MessageAssemblerTest, SplitsAnEventIntoItsMessages) {
    EXPECT_THAT(Add({0x90, 1, 2, 0xC0, 3, 0xF2, 4, 5, 0xF6, 0xF0, 6, 0xF7}),
                ElementsAre(Bytes{0x90, 1, 2}, Bytes{0xC0, 3}, Bytes{0xF2, 4, 5}, Bytes{0xF6},
                            Bytes{0xF0, 6, 0xF7}));
}

TEST_F(MessageAssemblerTest, JoinsThePiecesOfSystemExclusive) {
    EXPECT_THAT(Add({0xF0, 1}), IsEmpty());
    EXPECT_EQ(mAssembler.PendingBytes(), 2U);
    EXPECT_THAT(Add({2, 3}), IsEmpty());
    EXPECT_THAT(Add({0xF7}), ElementsAre(Bytes{0xF0, 1, 2, 3, 0xF7}));
    EXPECT_EQ(mAssembler.PendingBytes(), 0U);
}

TEST_F(MessageAssemblerTest, LetsRealTimeMessagesOutAtOnce) {
    EXPECT_THAT(Add({0xF0, 1, 0xF8, 2, 0x90}), ElementsAre(Bytes{0xF8}));
    EXPECT_THAT(Add({1, 0xFE, 2}), ElementsAre(Bytes{0xFE}, Bytes{0x90, 1, 2}));
}

TEST_F(MessageAssemblerTest, GivesEveryMessageItsStatusByte) {
    EXPECT_THAT(Add({0xB0, 1, 2, 3, 4}), ElementsAre(Bytes{0xB0, 1, 2}, Bytes{0xB0, 3, 4}));
    EXPECT_THAT(Add({5, 0xF8, 6}), ElementsAre(Bytes{0xF8}, Bytes{0xB0, 5, 6}));
    EXPECT_THAT(Add({0xF6, 7}), ElementsAre(Bytes{0xF6})) << "system messages end running status";
    EXPECT_EQ(mAssembler.TakeDropped().malformed, 1U);
}

TEST_F(MessageAssemblerTest, CountsWhatAnotherMessageCutsOff) {
    EXPECT_THAT(Add({0xF0, 1, 2, 0x90, 3, 4}), ElementsAre(Bytes{0x90, 3, 4}));
    EXPECT_THAT(Add({0x90, 3, 0xC0, 5}), ElementsAre(Bytes{0xC0, 5}));
    EXPECT_EQ(mAssembler.TakeDropped().incomplete, 2U);
}

TEST_F(MessageAssemblerTest, CountsARunOfStrayBytesOnce) {
    EXPECT_THAT(Add({1, 2, 3}), IsEmpty());
    EXPECT_THAT(Add({4, 0xF7}), IsEmpty());
    EXPECT_EQ(mAssembler.TakeDropped().malformed, 1U);
    EXPECT_EQ(mAssembler.TakeDropped().Total(), 0U) << "that is told";
    EXPECT_THAT(Add({0xF7}), IsEmpty());
    EXPECT_EQ(mAssembler.TakeDropped().malformed, 1U);
}

TEST_F(MessageAssemblerTest, JoinsNothingOverALoss) {
    Add({0xF0, 1});
    mAssembler.NoteLoss();
    EXPECT_THAT(Add({2, 0xF7, 0x90, 1, 2}), ElementsAre(Bytes{0x90, 1, 2}));
    mAssembler.NoteLoss();
    EXPECT_THAT(Add({3, 4}), IsEmpty()) << "the status byte may be another one by now";
    const MessageAssembler::Dropped dropped = mAssembler.TakeDropped();
    EXPECT_EQ(dropped.incomplete, 1U);
    EXPECT_EQ(dropped.Total(), 1U);
}

TEST_F(MessageAssemblerTest, TakesTheLongestMessageAndDropsALongerOneWhole) {
    Bytes message(MessageAssembler::kLongestMessage, 0x11);
    message.front() = 0xF0;
    message.back() = 0xF7;
    EXPECT_EQ(Add(message), std::vector<Bytes>{message});

    message.insert(message.begin() + 1, 0x11);
    EXPECT_THAT(Add(message), IsEmpty());
    const MessageAssembler::Dropped dropped = mAssembler.TakeDropped();
    EXPECT_EQ(dropped.tooLong, 1U);
    EXPECT_EQ(dropped.Total(), 1U);
    EXPECT_EQ(mAssembler.PendingBytes(), 0U);
    EXPECT_THAT(Add({0x90, 1, 2}), ElementsAre(Bytes{0x90, 1, 2}));
}

TEST_F(MessageAssemblerTest, MakesTheSameMessagesHoweverTheBytesAreCut) {
    const std::uint64_t seed = TestSeed();
    SCOPED_TRACE(DescribeSeed(seed));
    std::mt19937_64 random(seed);
    std::vector<Bytes> sent;
    Bytes stream;
    for (int i = 0; i < 2000; ++i) {
        Bytes message = {static_cast<std::uint8_t>(0x80 + random() % 0x77)};
        const std::optional<std::size_t> length = MidiMessageLength(message[0]);
        message.resize(length.value_or(2 + random() % 50));
        for (std::size_t j = 1; j < message.size(); ++j) {
            message[j] = static_cast<std::uint8_t>(random() % 0x80);
        }
        if (!length) {
            message.back() = 0xF7;
        }
        stream.insert(stream.end(), message.begin(), message.end());
        sent.push_back(std::move(message));
    }
    std::vector<Bytes> received;
    for (std::span<const std::uint8_t> rest = stream; !rest.empty();) {
        const std::size_t piece = std::min<std::size_t>(random() % 12, rest.size());
        for (Bytes& message : Add(rest.first(piece))) {
            received.push_back(std::move(message));
        }
        rest = rest.subspan(piece);
    }
    EXPECT_EQ(received, sent);
}

} // namespace
} // namespace MidiServer
