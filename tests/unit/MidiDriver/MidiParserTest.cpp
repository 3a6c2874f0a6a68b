#include "MidiDriver/MidiParser.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <ostream>
#include <random>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;
using testing::ElementsAre;
using testing::IsEmpty;

struct Message {
    unsigned int port;
    unsigned long long timestamp;
    Bytes bytes;
    bool operator==(const Message&) const = default;
};

void PrintTo(const Message& message, std::ostream* out) {
    *out << "port " << message.port << ", time " << message.timestamp << ", bytes "
         << testing::PrintToString(message.bytes);
}

// Notes what the parser emits.
class RecordingParser final : public MIDIParser {
public:
    using MIDIParser::MIDIParser;

    void EmitPacketList(unsigned char port, const MIDIPacketList& list) override {
        ASSERT_EQ(list.numPackets, 1U);
        const auto* const data = reinterpret_cast<const unsigned char*>(&list) + 14;
        const MIDIPacket& packet = list.packet[0];
        messages.push_back({port, packet.timeStamp, Bytes(data, data + packet.length)});
    }

    void Feed(unsigned long long timestamp, Bytes bytes) {
        FeedBytes(timestamp, bytes.data(), static_cast<int>(bytes.size()));
    }

    std::vector<Bytes> EmittedBytes() const {
        std::vector<Bytes> all;
        for (const Message& message : messages) {
            all.push_back(message.bytes);
        }
        return all;
    }

    std::vector<Message> messages;
};

std::vector<Bytes> Parse(const Bytes& bytes) {
    RecordingParser parser(false);
    parser.Feed(0, bytes);
    return parser.EmittedBytes();
}

// `count` data bytes 00 01 02 ... 7F 00 01 ...
Bytes DataBytes(std::size_t count) {
    Bytes bytes(count);
    for (std::size_t i = 0; i < count; i++) {
        bytes[i] = static_cast<unsigned char>(i % 128);
    }
    return bytes;
}

Bytes Joined(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

TEST(MidiParser, BuildsTheSecondNoteFromRunningStatus) {
    EXPECT_THAT(Parse({0x90, 0x3C, 0x7F, 0x3E, 0x00}),
                ElementsAre(Bytes{0x90, 0x3C, 0x7F}, Bytes{0x90, 0x3E, 0x00}));
}

TEST(MidiParser, GivesTwoProgramChangesOfLengthTwo) {
    EXPECT_THAT(Parse({0xC0, 0x05, 0x06}), ElementsAre(Bytes{0xC0, 0x05}, Bytes{0xC0, 0x06}));
}

TEST(MidiParser, TakesAsManyDataBytesAsEachChannelStatusHas) {
    for (int status = 0x80; status <= 0xEF; status++) {
        const auto byte = static_cast<unsigned char>(status);
        const bool oneByte = (status >= 0xC0 && status <= 0xDF);
        const Bytes first = oneByte ? Bytes{byte, 1} : Bytes{byte, 1, 2};
        const Bytes second = oneByte ? Bytes{byte, 2} : Bytes{byte, 3, 4};
        if (oneByte) {
            EXPECT_THAT(Parse({byte, 1, 2}), ElementsAre(first, second)) << status;
        } else {
            EXPECT_THAT(Parse({byte, 1, 2, 3, 4}), ElementsAre(first, second)) << status;
        }
    }
}

TEST(MidiParser, LetsAClockThroughInTheMidstOfANote) {
    RecordingParser parser(false);
    parser.Feed(7, {0x90, 0x3C, 0xF8, 0x7F});
    EXPECT_THAT(parser.messages, ElementsAre(Message{0, 7, {0xF8}}, //
                                             Message{0, 7, {0x90, 0x3C, 0x7F}}));
}

TEST(MidiParser, EmitsRealTimeOnPortZeroWhateverPortIsSelected) {
    RecordingParser parser(true);
    parser.Feed(1, {0xF5, 0x03, 0x90, 0x3C, 0xFA, 0x7F});
    EXPECT_THAT(parser.messages, ElementsAre(Message{0, 1, {0xFA}}, //
                                             Message{3, 1, {0x90, 0x3C, 0x7F}}));
}

TEST(MidiParser, PassesFiveRealTimeStatusesAndDropsTheOtherThree) {
    EXPECT_THAT(Parse({0xF8, 0xF9, 0xFA, 0xFB, 0xFC, 0xFD, 0xFE, 0xFF}),
                ElementsAre(Bytes{0xF8}, Bytes{0xFA}, Bytes{0xFB}, Bytes{0xFC}, Bytes{0xFF}));
}

TEST(MidiParser, DropsActiveSensing) {
    EXPECT_THAT(Parse({0xFE}), IsEmpty());
}

TEST(MidiParser, DropsActiveSensingWithoutDisturbingTheMessageInProgress) {
    EXPECT_THAT(Parse({0x90, 0xFE, 0x3C, 0xFE, 0x7F}), ElementsAre(Bytes{0x90, 0x3C, 0x7F}));
}

TEST(MidiParser, KeepsRealTimeOutOfAnOpenSystemExclusive) {
    EXPECT_THAT(Parse({0xF0, 0x01, 0xF8, 0x02, 0xF7}),
                ElementsAre(Bytes{0xF8}, Bytes{0xF0, 0x01, 0x02, 0xF7}));
}

TEST(MidiParser, EmitsALongSystemExclusiveInChunks) {
    const Bytes data = DataBytes(600);
    const auto at = [&data](std::ptrdiff_t index) { return data.begin() + index; };
    EXPECT_THAT(Parse(Joined({{0xF0}, data, {0xF7}})),
                ElementsAre(Joined({{0xF0}, Bytes(at(0), at(256))}), //
                            Bytes(at(256), at(513)),                 //
                            Joined({Bytes(at(513), at(600)), {0xF7}})));
}

TEST(MidiParser, KeepsASystemExclusiveOf256BytesBeforeItsEndInOneChunk) {
    const Bytes whole = Joined({{0xF0}, DataBytes(255), {0xF7}});
    EXPECT_THAT(Parse(whole), ElementsAre(whole));
}

TEST(MidiParser, EmitsTheEndAloneWhenTheLastChunkWasJustFull) {
    RecordingParser parser(false);
    parser.Feed(1, Joined({{0xF0}, DataBytes(256)}));
    parser.Feed(2, {0xF7});
    // The lone end has no data byte to take a time from and keeps that of the chunk before.
    EXPECT_THAT(parser.messages, ElementsAre(Message{0, 1, Joined({{0xF0}, DataBytes(256)})},
                                             Message{0, 1, {0xF7}}));
}

TEST(MidiParser, StampsAContinuationChunkWithTheTimeOfItsFirstByte) {
    RecordingParser parser(false);
    parser.Feed(1, Joined({{0xF0}, DataBytes(255)}));
    parser.Feed(2, {0x11});
    parser.Feed(3, {0x22});
    parser.Feed(4, {0x33, 0xF7});
    EXPECT_THAT(parser.messages,
                ElementsAre(Message{0, 1, Joined({{0xF0}, DataBytes(255), {0x11}})},
                            Message{0, 3, {0x22, 0x33, 0xF7}}));
}

TEST(MidiParser, DropsTheRestOfTheCallAfterTheEndOfASystemExclusive) {
    EXPECT_THAT(Parse({0xF0, 0x01, 0xF7, 0x90, 0x3C, 0x7F}), ElementsAre(Bytes{0xF0, 0x01, 0xF7}));
}

TEST(MidiParser, ParsesOnInTheCallThatFollowsTheEndOfASystemExclusive) {
    RecordingParser parser(false);
    parser.Feed(1, {0xF0, 0x01, 0xF7});
    parser.Feed(2, {0x05, 0x90, 0x3C, 0x7F});
    EXPECT_THAT(parser.messages, ElementsAre(Message{0, 1, {0xF0, 0x01, 0xF7}}, //
                                             Message{0, 2, {0x90, 0x3C, 0x7F}}));
}

TEST(MidiParser, ClosesAnOpenSystemExclusiveBeforeAnotherStatus) {
    RecordingParser parser(false);
    parser.Feed(1, {0xF0, 0x01});
    parser.Feed(2, {0x90, 0x3C, 0x7F});
    EXPECT_THAT(parser.messages, ElementsAre(Message{0, 1, {0xF0, 0x01, 0xF7}}, //
                                             Message{0, 2, {0x90, 0x3C, 0x7F}}));
}

TEST(MidiParser, ClosesAnOpenSystemExclusiveBeforeTheNextOne) {
    EXPECT_THAT(Parse({0xF0, 0x01, 0xF0, 0x02, 0xF7}),
                ElementsAre(Bytes{0xF0, 0x01, 0xF7}, Bytes{0xF0, 0x02, 0xF7}));
}

TEST(MidiParser, EndsRunningStatusAtEverySystemCommonStatus) {
    EXPECT_THAT(Parse({0x90, 0x3C, 0x7F, 0xF6, 0x3E, 0x00}),
                ElementsAre(Bytes{0x90, 0x3C, 0x7F}, Bytes{0xF6}));
}

TEST(MidiParser, ParsesSystemCommonMessages) {
    EXPECT_THAT(
        Parse({0xF1, 0x11, 0xF2, 0x22, 0x23, 0xF3, 0x33, 0xF6}),
        ElementsAre(Bytes{0xF1, 0x11}, Bytes{0xF2, 0x22, 0x23}, Bytes{0xF3, 0x33}, Bytes{0xF6}));
}

TEST(MidiParser, DiscardsDataBytesWithoutAStatus) {
    EXPECT_THAT(Parse({0x01, 0x02, 0x7F}), IsEmpty());
}

TEST(MidiParser, SelectsThePortForLaterMessagesWhenHonoured) {
    RecordingParser parser(true);
    parser.Feed(1, {0xF5, 0x03});
    EXPECT_THAT(parser.messages, IsEmpty());
    parser.Feed(2, {0x90, 0x3C, 0x7F, 0xF0, 0x01, 0xF7});
    EXPECT_THAT(parser.messages, ElementsAre(Message{3, 2, {0x90, 0x3C, 0x7F}}, //
                                             Message{3, 2, {0xF0, 0x01, 0xF7}}));
}

TEST(MidiParser, IgnoresPortSelectWithItsDataByteWhenNotHonoured) {
    RecordingParser parser(false);
    parser.Feed(1, {0xF5, 0x03, 0x90, 0x3C, 0x7F});
    EXPECT_THAT(parser.messages, ElementsAre(Message{0, 1, {0x90, 0x3C, 0x7F}}));
}

TEST(MidiParser, LetsAnUndefinedStatusTakeOverWhatTheOpenMessageLacked) {
    EXPECT_THAT(Parse({0x90, 0xF4, 0x01, 0x02, 0x03}), ElementsAre(Bytes{0xF4, 0x01, 0x02}));
    EXPECT_THAT(Parse({0x90, 0x01, 0xF7, 0x02, 0x03}), ElementsAre(Bytes{0xF7, 0x02}));
    EXPECT_THAT(Parse({0xF4, 0x01, 0xF7, 0x02}), IsEmpty());
}

TEST(MidiParser, SelectsAPortByAnUnhonouredSelectThatCutsOffAnotherMessage) {
    RecordingParser parser(false);
    parser.Feed(1, {0xC0, 0xF5, 0x04, 0x90, 0x3C, 0x7F});
    EXPECT_THAT(parser.messages, ElementsAre(Message{4, 1, {0x90, 0x3C, 0x7F}}));
}

TEST(MidiParser, KeepsAMessageOpenBetweenCallsAndStampsItWithItsStart) {
    RecordingParser parser(false);
    parser.Feed(1, {0x90});
    parser.Feed(2, {0x3C});
    parser.Feed(3, {0x7F});
    parser.Feed(4, {0x3E});
    parser.Feed(5, {0x00});
    EXPECT_THAT(parser.messages, ElementsAre(Message{0, 1, {0x90, 0x3C, 0x7F}}, //
                                             Message{0, 4, {0x90, 0x3E, 0x00}}));
}

TEST(MidiParser, CutsOffAnUnfinishedChannelMessage) {
    EXPECT_THAT(Parse({0x90, 0x3C, 0xB0, 0x07, 0x40}), ElementsAre(Bytes{0xB0, 0x07, 0x40}));
}

TEST(MidiParser, FeedsNothingForANullPointerOrACountBelowOne) {
    RecordingParser parser(false);
    Bytes bytes{0xF8, 0xF8};
    parser.FeedBytes(1, nullptr, 2);
    parser.FeedBytes(1, bytes.data(), 0);
    parser.FeedBytes(1, bytes.data(), -1);
    parser.FeedBytes(1, bytes.data(), INT32_MIN);
    EXPECT_THAT(parser.messages, IsEmpty());
    parser.FeedBytes(1, bytes.data(), 2);
    EXPECT_EQ(parser.messages.size(), 2U);
}

TEST(MidiParser, LeavesTheBytesThatItIsFedAsTheyAre) {
    const Bytes original = Joined({{0xF0}, DataBytes(300), {0x90, 0x3C, 0x7F, 0xF8, 0x3E}});
    Bytes bytes = original;
    RecordingParser parser(false);
    parser.FeedBytes(1, bytes.data(), static_cast<int>(bytes.size()));
    EXPECT_EQ(bytes, original);
}

// A second reading of the rules, one byte at a time and without a care for speed.
class ReferenceParser {
public:
    explicit ReferenceParser(bool honourPortSelect) : mHonour(honourPortSelect) {}

    void Feed(unsigned long long now, const Bytes& bytes) {
        for (const unsigned char byte : bytes) {
            if (byte >= 0xF8) {
                const std::string passed{"\xF8\xFA\xFB\xFC\xFF"};
                if (passed.find(static_cast<char>(byte)) != std::string::npos) {
                    messages.push_back({0, now, {byte}});
                }
            } else if (byte >= 0x80) {
                if (mExclusive) {
                    mOpen.push_back(0xF7);
                    Complete();
                    mExclusive = false;
                    if (byte == 0xF7) {
                        return;
                    }
                }
                Status(now, byte);
            } else {
                Data(now, byte);
            }
        }
    }

    std::vector<Message> messages;

private:
    void Status(unsigned long long now, unsigned char byte) {
        mOpen = {byte};
        mTime = now;
        mRunning = byte < 0xF0 ? byte : 0;
        switch (byte < 0xF0 ? byte & 0xF0 : byte) {
        case 0xF1:
        case 0xF3:
        case 0xC0:
        case 0xD0:
            mMissing = 1;
            break;
        case 0x80:
        case 0x90:
        case 0xA0:
        case 0xB0:
        case 0xE0:
        case 0xF2:
            mMissing = 2;
            break;
        case 0xF0:
            mMissing = 0;
            mExclusive = true;
            break;
        case 0xF5:
            mMissing = mHonour ? 1 : mMissing;
            break;
        case 0xF6:
            mMissing = 0;
            Complete();
            break;
        default:
            break;
        }
    }

    void Data(unsigned long long now, unsigned char byte) {
        if (mExclusive) {
            if (mOpen.empty()) {
                mTime = now;
            }
            mOpen.push_back(byte);
            if (mOpen.size() == 257) {
                Complete();
                mOpen.clear();
            }
            return;
        }
        if (mMissing == 0) {
            if (mRunning == 0) {
                return;
            }
            Status(now, mRunning);
        }
        mOpen.push_back(byte);
        if (--mMissing == 0) {
            Complete();
        }
    }

    void Complete() {
        if (mOpen[0] == 0xF5) {
            mPort = mOpen[1];
        } else {
            messages.push_back({mPort, mTime, mOpen});
        }
    }

    bool mHonour;
    bool mExclusive = false;
    unsigned int mPort = 0;
    unsigned char mRunning = 0;
    int mMissing = 0;
    unsigned long long mTime = 0;
    Bytes mOpen;
};

unsigned int FreshSeed() {
    return std::random_device{}();
}

// Statuses and data as mixed as can be, with long runs of data so that chunks fill.
Bytes RandomStream(std::mt19937& random, std::size_t length) {
    Bytes bytes;
    while (bytes.size() < length) {
        const auto kind = random() % 100;
        if (kind < 2) {
            const Bytes exclusive = Joined({{0xF0}, DataBytes(random() % 900)});
            bytes.insert(bytes.end(), exclusive.begin(), exclusive.end());
        } else if (kind < 40) {
            bytes.push_back(static_cast<unsigned char>(0x80 | (random() & 0x7F)));
        } else {
            bytes.push_back(static_cast<unsigned char>(random() & 0x7F));
        }
    }
    return bytes;
}

TEST(MidiParser, AgreesWithASimpleModelOnRandomStreamsCutAnywhere) {
    const unsigned int seed = FreshSeed();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    for (int round = 0; round < 400; round++) {
        const bool honour = random() % 2 == 0;
        RecordingParser parser(honour);
        ReferenceParser model(honour);
        const Bytes stream = RandomStream(random, 2000);
        unsigned long long now = 0;
        for (std::size_t from = 0; from < stream.size();) {
            const std::size_t most = random() % 2 == 0 ? 8 : 700;
            const std::size_t to = std::min(stream.size(), from + 1 + random() % most);
            const Bytes chunk(stream.begin() + static_cast<std::ptrdiff_t>(from),
                              stream.begin() + static_cast<std::ptrdiff_t>(to));
            now++;
            parser.Feed(now, chunk);
            model.Feed(now, chunk);
            from = to;
        }
        ASSERT_EQ(parser.messages, model.messages) << "round " << round;
        ASSERT_FALSE(parser.messages.empty());
    }
}

TEST(MidiParser, GivesTheSameMessagesHoweverAStreamIsCut) {
    const unsigned int seed = FreshSeed();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    for (int round = 0; round < 200; round++) {
        const Bytes stream = RandomStream(random, 2000);
        RecordingParser byteByByte(true);
        RecordingParser inPieces(true);
        for (const unsigned char byte : stream) {
            byteByByte.Feed(1, {byte});
        }
        // Cut behind every 0xF7 as well, since what follows it in the same call is dropped.
        Bytes piece;
        for (const unsigned char byte : stream) {
            piece.push_back(byte);
            if (byte == 0xF7 || random() % 50 == 0) {
                inPieces.Feed(1, piece);
                piece.clear();
            }
        }
        inPieces.Feed(1, piece);
        ASSERT_EQ(inPieces.messages, byteByByte.messages) << "round " << round;
    }
}

} // namespace
