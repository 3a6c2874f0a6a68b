#include "midiserver/backends/alsa/EventEncoder.h"

#include "midiserver/backends/alsa/EventDecoder.h"

#include <gmock/gmock.h>

#include <cstdint>
#include <vector>

namespace MidiServer {
namespace {

using Bytes = std::vector<std::uint8_t>;

class EventEncoderTest : public testing::Test {
protected:
    // Returns what the bytes are after their way through the sequencer.
    Bytes ThereAndBack(const Bytes& bytes) {
        snd_seq_event_t event;
        if (!mEncoder.Encode(bytes, event)) {
            return {};
        }
        const auto decoded = mDecoder.Decode(event);
        return {decoded.begin(), decoded.end()};
    }

    EventEncoder mEncoder;
    EventDecoder mDecoder;
};

TEST_F(EventEncoderTest, CarriesEveryKindOfMessageUnchanged) {
    for (const Bytes& message : std::vector<Bytes>{{0x80, 60, 64},
                                                   {0x90, 60, 100},
                                                   {0x90, 0, 0},
                                                   {0xAF, 127, 1},
                                                   {0xB0, 0, 127},
                                                   {0xC3, 5},
                                                   {0xD4, 127},
                                                   {0xE0, 0, 0},
                                                   {0xE8, 127, 127},
                                                   {0xF1, 0x35},
                                                   {0xF2, 1, 2},
                                                   {0xF3, 7},
                                                   {0xF6},
                                                   {0xF8},
                                                   {0xFA},
                                                   {0xFB},
                                                   {0xFC},
                                                   {0xFE},
                                                   {0xFF}}) {
        EXPECT_EQ(ThereAndBack(message), message);
    }
}

TEST_F(EventEncoderTest, KeepsANoteOnOfVelocityZero) {
    snd_seq_event_t event;
    ASSERT_TRUE(mEncoder.Encode(Bytes{0x90, 0, 0}, event));
    EXPECT_EQ(event.type, SND_SEQ_EVENT_NOTEON);
    EXPECT_EQ(event.data.note.velocity, 0);
}

TEST_F(EventEncoderTest, GivesEachOfEqualMessagesItsStatusByte) {
    EXPECT_EQ(ThereAndBack({0xB0, 16, 1}), (Bytes{0xB0, 16, 1}));
    EXPECT_EQ(ThereAndBack({0xB0, 16, 2}), (Bytes{0xB0, 16, 2}));
}

TEST_F(EventEncoderTest, MakesSystemExclusiveOfEveryPiece) {
    for (const Bytes& piece :
         std::vector<Bytes>{{0xF0}, {0xF0, 1, 0xF7}, {1, 2, 3}, {3, 0xF7}, {0xF7}}) {
        snd_seq_event_t event;
        ASSERT_TRUE(mEncoder.Encode(piece, event));
        EXPECT_EQ(event.type, SND_SEQ_EVENT_SYSEX);
        EXPECT_EQ(ThereAndBack(piece), piece);
    }
}

TEST_F(EventEncoderTest, RefusesWhatIsNoMessage) {
    EXPECT_EQ(ThereAndBack({}), Bytes());
    EXPECT_EQ(ThereAndBack({0x90, 60}), Bytes()) << "half a note";
    EXPECT_EQ(ThereAndBack({0x90, 60, 0}), (Bytes{0x90, 60, 0})) << "and nothing is left of it";
}

TEST(EventDecoder, WritesA14BitParameterAsWholeControlChanges) {
    snd_seq_event_t event;
    snd_seq_ev_clear(&event);
    event.type = SND_SEQ_EVENT_NONREGPARAM;
    snd_seq_ev_set_fixed(&event);
    event.data.control.channel = 2;
    event.data.control.param = 0x81;
    event.data.control.value = 0x102;
    EventDecoder decoder;
    EXPECT_THAT(decoder.Decode(event),
                testing::ElementsAre(0xB2, 99, 1, 0xB2, 98, 1, 0xB2, 6, 2, 0xB2, 38, 2));
}

TEST(EventDecoder, HasNothingForEventsThatAreNoMidi) {
    snd_seq_event_t event;
    snd_seq_ev_clear(&event);
    event.type = SND_SEQ_EVENT_ECHO;
    EventDecoder decoder;
    EXPECT_TRUE(decoder.Decode(event).empty());
}

} // namespace
} // namespace MidiServer
