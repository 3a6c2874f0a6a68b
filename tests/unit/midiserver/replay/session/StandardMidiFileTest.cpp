#include "midiserver/replay/session/StandardMidiFile.h"

#include "midiserver/errors/Errors.h"
#include "tests/unit/midiserver/replay/session/RecordedMessages.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

namespace MidiServer {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

std::string Raw(std::initializer_list<int> bytes) {
    std::string text;
    for (int byte : bytes) {
        text += static_cast<char>(byte);
    }
    return text;
}

std::string Number(std::size_t value, int bytes) {
    std::string text;
    for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8) {
        text += static_cast<char>(value >> shift & 0xFF);
    }
    return text;
}

std::string Header(unsigned format, unsigned tracks, unsigned division) {
    return "MThd" + Number(6, 4) + Number(format, 2) + Number(tracks, 2) + Number(division, 2);
}

const std::string kEndOfTrack = Raw({0x00, 0xFF, 0x2F, 0x00});

std::string Track(const std::string& events) {
    return "MTrk" + Number(events.size() + kEndOfTrack.size(), 4) + events + kEndOfTrack;
}

RecordedSession Read(const std::string& content) {
    return ReadStandardMidiFile(content, "song.mid");
}

std::string FailureOf(const std::string& content) {
    try {
        Read(content);
    } catch (const InputError& error) {
        return error.what();
    }
    return "no failure";
}

// The header is 14 bytes and the chunk head 8, so a lone track's first event is at byte 22.

TEST(StandardMidiFileTest, IsRecognisedByItsFirstBytes) {
    EXPECT_TRUE(IsStandardMidiFile("MThd"));
    EXPECT_FALSE(IsStandardMidiFile("MTrk"));
    EXPECT_FALSE(IsStandardMidiFile("0 90 00 00"));
    EXPECT_FALSE(IsStandardMidiFile(""));
}

TEST(StandardMidiFileTest, ReadsChannelMessagesWithRunningStatus) {
    const RecordedSession session =
        Read(Header(0, 1, 480) + Track(Raw({0x00, 0x90, 0x3C, 0x7F, 0x83, 0x60, 0x3C, 0x00, 0x00,
                                            0xC5, 0x07, 0x00, 0x08, 0x00, 0xE0, 0x01, 0x02})));

    ASSERT_EQ(session.MessageCount(), 5U);
    EXPECT_THAT(MessageAt(session, 0).bytes, ElementsAre(0x90, 0x3C, 0x7F));
    EXPECT_THAT(MessageAt(session, 1).bytes, ElementsAre(0x90, 0x3C, 0x00));
    EXPECT_EQ(MessageAt(session, 1).microseconds, 500'000U); // 480 ticks at 120 beats a minute
    EXPECT_THAT(MessageAt(session, 2).bytes, ElementsAre(0xC5, 0x07));
    EXPECT_THAT(MessageAt(session, 3).bytes, ElementsAre(0xC5, 0x08));
    EXPECT_THAT(MessageAt(session, 4).bytes, ElementsAre(0xE0, 0x01, 0x02));
}

TEST(StandardMidiFileTest, KeepsRunningStatusAcrossMetaEvents) {
    const RecordedSession session = Read(
        Header(0, 1, 96) +
        Track(Raw({0x00, 0x90, 0x3C, 0x7F, 0x00, 0xFF, 0x01, 0x02, 'h', 'i', 0x00, 0x3D, 0x01})));

    ASSERT_EQ(session.MessageCount(), 2U);
    EXPECT_THAT(MessageAt(session, 1).bytes, ElementsAre(0x90, 0x3D, 0x01));
}

TEST(StandardMidiFileTest, FollowsTheTempoMapOfTheFirstTrackInTheOthers) {
    const std::string tempos = Raw({0x00, 0xFF, 0x51, 0x03, 0x0F, 0x42, 0x40,   // 1 s a beat
                                    0x60, 0xFF, 0x51, 0x03, 0x03, 0xD0, 0x90}); // 0.25 s a beat
    const std::string notes = Raw({0x30, 0x90, 0x01, 0x01, 0x60, 0x90, 0x02, 0x01});
    const RecordedSession session = Read(Header(1, 2, 96) + Track(tempos) + Track(notes));

    ASSERT_EQ(session.MessageCount(), 2U);
    EXPECT_EQ(MessageAt(session, 0).microseconds, 500'000U);   // half a beat of 1 s
    EXPECT_EQ(MessageAt(session, 1).microseconds, 1'125'000U); // a beat, and half of one of 0.25 s
}

TEST(StandardMidiFileTest, AddsUpTicksWithoutRounding) {
    std::string events;
    for (int i = 0; i < 3000; ++i) {
        events += Raw({0x01, 0x90, 0x01, 0x01});
    }
    const RecordedSession session = Read(Header(0, 1, 3) + Track(events));

    EXPECT_EQ(MessageAt(session, 2999).microseconds, 500'000'000U); // 3000 thirds of 0.5 s
}

TEST(StandardMidiFileTest, FollowsTheFramesOfASmpteDivisionWhateverTheTempo) {
    const std::string events = Raw({0x00, 0xFF, 0x51, 0x03, 0x0F, 0x42, 0x40, //
                                    0x87, 0x68, 0x90, 0x01, 0x01});           // 1000 ticks
    EXPECT_EQ(Read(Header(0, 1, 0xE728) + Track(events)).begin()->microseconds,
              1'000'000U); // 25 x 40
    EXPECT_EQ(Read(Header(0, 1, 0xE80A) + Track(events)).begin()->microseconds,
              4'166'666U); // 24 x 10
    EXPECT_EQ(Read(Header(0, 1, 0xE364) + Track(events)).begin()->microseconds, 333'666U); // 29.97
}

TEST(StandardMidiFileTest, MergesTracksByTimeAndThenByTheirPlace) {
    const RecordedSession session =
        Read(Header(1, 3, 96) + Track(Raw({0x10, 0x90, 0x01, 0x01})) +
             Track(Raw({0x10, 0x91, 0x01, 0x01, 0x10, 0x91, 0x02, 0x01})) +
             Track(Raw({0x08, 0x92, 0x01, 0x01, 0x08, 0x92, 0x02, 0x01})));

    ASSERT_EQ(session.MessageCount(), 5U);
    EXPECT_THAT(MessageAt(session, 0).bytes, ElementsAre(0x92, 0x01, 0x01));
    EXPECT_THAT(MessageAt(session, 1).bytes, ElementsAre(0x90, 0x01, 0x01));
    EXPECT_THAT(MessageAt(session, 2).bytes, ElementsAre(0x91, 0x01, 0x01));
    EXPECT_THAT(MessageAt(session, 3).bytes, ElementsAre(0x92, 0x02, 0x01));
    EXPECT_THAT(MessageAt(session, 4).bytes, ElementsAre(0x91, 0x02, 0x01));
}

TEST(StandardMidiFileTest, JoinsSystemExclusiveThatIsSplitIntoSeveralEvents) {
    const RecordedSession session =
        Read(Header(0, 1, 96) + Track(Raw({0x00, 0xF0, 0x02, 0x43, 0x12,     //
                                           0x10, 0xF7, 0x01, 0x01,           //
                                           0x10, 0xF7, 0x02, 0x02, 0xF7,     //
                                           0x00, 0xF0, 0x02, 0x7E, 0xF7}))); // a whole one

    ASSERT_EQ(session.MessageCount(), 2U);
    EXPECT_THAT(MessageAt(session, 0).bytes, ElementsAre(0xF0, 0x43, 0x12, 0x01, 0x02, 0xF7));
    EXPECT_EQ(MessageAt(session, 0).microseconds, 166'666U); // the time of its last part
    EXPECT_THAT(MessageAt(session, 1).bytes, ElementsAre(0xF0, 0x7E, 0xF7));
}

TEST(StandardMidiFileTest, SendsTheMessagesOfAnEscape) {
    const RecordedSession session =
        Read(Header(0, 1, 96) + Track(Raw({0x60, 0xF7, 0x02, 0xF3, 0x01,             //
                                           0x00, 0xF7, 0x00,                         //
                                           0x00, 0xF7, 0x0A, 0xF8, 0xF0, 0x43, 0xF7, //
                                           0x90, 0x01, 0x02, 0xF2, 0x03, 0x04})));

    ASSERT_EQ(session.MessageCount(), 5U);
    EXPECT_THAT(MessageAt(session, 0).bytes, ElementsAre(0xF3, 0x01));
    EXPECT_THAT(MessageAt(session, 1).bytes, ElementsAre(0xF8));
    EXPECT_THAT(MessageAt(session, 2).bytes, ElementsAre(0xF0, 0x43, 0xF7));
    EXPECT_THAT(MessageAt(session, 3).bytes, ElementsAre(0x90, 0x01, 0x02));
    EXPECT_THAT(MessageAt(session, 4).bytes, ElementsAre(0xF2, 0x03, 0x04));
    EXPECT_EQ(MessageAt(session, 4).microseconds, 500'000U);
}

TEST(StandardMidiFileTest, RefusesAnEscapeThatHoldsNoWholeMessagesWithItsOffset) {
    const auto failure = [](std::initializer_list<int> events) {
        return FailureOf(Header(0, 1, 96) + Track(Raw(events)));
    };
    EXPECT_EQ(failure({0x00, 0xF7, 0x02, 0x01, 0x02}),
              "song.mid: byte 25: 01 stands in an escape where a message starts");
    EXPECT_EQ(failure({0x00, 0xF7, 0x01, 0xF7}),
              "song.mid: byte 25: F7 stands in an escape where a message starts");
    EXPECT_EQ(failure({0x00, 0xF7, 0x03, 0xF8, 0x90, 0x01}),
              "song.mid: byte 26: a message with status 90 has 3 bytes, in this escape it has 2");
    EXPECT_EQ(failure({0x00, 0xF7, 0x03, 0x90, 0x01, 0xF8}),
              "song.mid: byte 25: a message with status 90 has 3 bytes, in this escape it has 2");
    EXPECT_EQ(failure({0x00, 0xF7, 0x03, 0xF3, 0x01, 0x02}),
              "song.mid: byte 27: 02 stands in an escape where a message starts");
    EXPECT_EQ(failure({0x00, 0xF7, 0x02, 0xF0, 0x01}),
              "song.mid: byte 25: the System Exclusive message that starts here is not ended in "
              "its escape");
    EXPECT_EQ(failure({0x00, 0xF7, 0x04, 0xF0, 0x01, 0xF8, 0xF7}),
              "song.mid: byte 25: the System Exclusive message that starts here is not ended in "
              "its escape");
    EXPECT_THAT(failure({0x00, 0xF7, 0x7F, 0xF8}), HasSubstr("cut off in the System Exclusive"));
}

TEST(StandardMidiFileTest, RefusesDamageInEveryPartOfASplitMessage) {
    const auto failure = [](std::initializer_list<int> events) {
        return FailureOf(Header(0, 1, 96) + Track(Raw(events)));
    };
    EXPECT_EQ(failure({0x00, 0xF0, 0x02, 0x43, 0xF8, 0x00, 0xF7, 0x01, 0xF7}),
              "song.mid: byte 26: F8 inside a System Exclusive message");
    EXPECT_EQ(failure({0x00, 0xF0, 0x01, 0x43, 0x00, 0xF7, 0x03, 0x01, 0xF7, 0xF7}),
              "song.mid: byte 30: F7 inside a System Exclusive message");
    // Ended by the part before, so that the next one is an escape.
    EXPECT_EQ(failure({0x00, 0xF0, 0x02, 0x43, 0xF7, 0x00, 0xF7, 0x02, 0x01, 0xF7}),
              "song.mid: byte 30: 01 stands in an escape where a message starts");
}

TEST(StandardMidiFileTest, JoinsSystemExclusiveAcrossMetaEventsAndOtherTracks) {
    const RecordedSession session =
        Read(Header(1, 2, 96) + Track(Raw({0x00, 0xF0, 0x00, // a start without data
                                           0x10, 0xFF, 0x51, 0x03, 0x0F, 0x42, 0x40, //
                                           0x10, 0xF7, 0x00, // and a part without
                                           0x00, 0xF7, 0x02, 0x01, 0x02, 0x10, 0xF7, 0x01, 0xF7})) +
             Track(Raw({0x18, 0x90, 0x05, 0x06})));

    ASSERT_EQ(session.MessageCount(), 2U);
    EXPECT_THAT(MessageAt(session, 0).bytes, ElementsAre(0x90, 0x05, 0x06));
    EXPECT_THAT(MessageAt(session, 1).bytes, ElementsAre(0xF0, 0x01, 0x02, 0xF7));
}

TEST(StandardMidiFileTest, MergesAsManyTracksAsAFileCanHave) {
    std::string content = Header(1, 65535, 96);
    for (int track = 0; track < 65535; ++track) {
        content += Track(Raw({(65535 - track) & 0x7F, 0x90 | (track & 0x0F), 0x01, 0x01}));
    }
    const RecordedSession session = Read(content);

    EXPECT_EQ(session.MessageCount(), 65535U);
    std::uint64_t time = 0;
    for (const RecordedMessage& message : session) {
        EXPECT_GE(message.microseconds, time);
        time = message.microseconds;
    }
}

TEST(StandardMidiFileTest, SkipsUnknownChunksAndALongerHeader) {
    const std::string header =
        "MThd" + Number(8, 4) + Number(0, 2) + Number(1, 2) + Number(96, 2) + "xy";
    const RecordedSession session = Read(header + "XFIH" + Number(3, 4) + "abc" +
                                         Track(Raw({0x00, 0x90, 0x01, 0x01})) + "trailing");

    EXPECT_EQ(session.MessageCount(), 1U);
}

TEST(StandardMidiFileTest, NamesTheByteAtWhichAFileWasCut) {
    const std::string whole = Header(0, 1, 96) + Track(Raw({0x00, 0x90, 0x01, 0x01}));
    for (std::size_t length = 4; length < whole.size(); ++length) {
        const std::string failure = FailureOf(whole.substr(0, length));
        EXPECT_THAT(failure, testing::StartsWith("song.mid: byte ")) << length;
        EXPECT_TRUE(failure.find("cut off") != std::string::npos ||
                    failure.find("the file ends after 0 of 1 tracks") != std::string::npos)
            << length << ": " << failure;
    }
    EXPECT_EQ(FailureOf(whole.substr(0, 26)),
              "song.mid: byte 22: cut off in the track: 8 bytes are due, 4 are left");
    EXPECT_EQ(FailureOf(Header(1, 2, 96) + Track(Raw({0x00, 0x90, 0x01, 0x01}))),
              "song.mid: byte 30: the file ends after 1 of 2 tracks");
}

TEST(StandardMidiFileTest, RefusesHeadersThatMakeNoSense) {
    const std::string track = Track(Raw({0x00, 0x90, 0x01, 0x01}));
    EXPECT_EQ(FailureOf(Header(2, 1, 96) + track),
              "song.mid: byte 8: format 2 is not supported, only 0 and 1 are");
    EXPECT_EQ(FailureOf(Header(0, 2, 96) + track + track),
              "song.mid: byte 10: a file of format 0 with 2 tracks");
    EXPECT_THAT(FailureOf(Header(1, 0, 96)), HasSubstr("with 0 tracks"));
    EXPECT_THAT(FailureOf(Header(0, 1, 0) + track), HasSubstr("0 ticks per quarter note"));
    EXPECT_THAT(FailureOf(Header(0, 1, 0xE700) + track), HasSubstr("is not defined"));
    EXPECT_THAT(FailureOf(Header(0, 1, 0xFF28) + track), HasSubstr("is not defined"));
    EXPECT_THAT(FailureOf("MThd" + Number(5, 4) + "12345"), HasSubstr("at least 6 are due"));
}

TEST(StandardMidiFileTest, RefusesDamagedEventsWithTheirOffset) {
    const auto failure = [](std::initializer_list<int> events) {
        return FailureOf(Header(0, 1, 96) + Track(Raw(events)));
    };
    EXPECT_EQ(failure({0x00, 0x3C, 0x01}), "song.mid: byte 23: the data byte 3C without a status");
    EXPECT_EQ(failure({0x00, 0x90, 0x3C, 0x80}),
              "song.mid: byte 25: 80 stands where a data byte below 80 is due");
    EXPECT_EQ(failure({0x80, 0x80, 0x80, 0x80, 0x00}),
              "song.mid: byte 22: the time of an event is longer than 4 bytes");
    EXPECT_EQ(failure({0x00, 0xF8}), "song.mid: byte 23: F8 is no event of a MIDI file");
    EXPECT_THAT(failure({0x00, 0xFF, 0x51, 0x02, 0x01, 0x01}), HasSubstr("a tempo of 2 bytes"));
    EXPECT_THAT(failure({0x00, 0xFF, 0x51, 0x03, 0, 0, 0}), HasSubstr("a tempo of 0 micro"));
    EXPECT_THAT(failure({0x00, 0xFF, 0x01, 0x7F, 'x'}), HasSubstr("cut off in the meta event"));
    EXPECT_THAT(failure({0x00, 0xF0, 0x7F, 0x01}), HasSubstr("cut off in the System Exclusive"));
    EXPECT_EQ(failure({0x00, 0xF0, 0x01, 0x43, 0x00, 0x90, 0x01, 0x01}),
              "song.mid: byte 23: the System Exclusive message that starts here is not ended");
    EXPECT_THAT(failure({0x00, 0xF0, 0x01, 0x43, 0x00, 0xF0, 0x02, 0x43, 0xF7}),
                HasSubstr("byte 23: the System Exclusive message that starts here is not ended"));
    EXPECT_THAT(failure({0x00, 0xF0, 0x01, 0x43}), HasSubstr("is not ended"));
    EXPECT_THAT(failure({0x00, 0xF0, 0x03, 0x43, 0x90, 0xF7}),
                HasSubstr("90 inside a System Exclusive"));
    EXPECT_THAT(FailureOf(Header(0, 1, 96) + "MTrk" + Number(4, 4) + Raw({0, 0x90, 1, 1})),
                HasSubstr("byte 26: the track stops without its End of Track"));
}

TEST(StandardMidiFileTest, RefusesMoreThanSevenDays) {
    std::string events;
    for (int i = 0; i < 3000; ++i) {
        events += Raw({0xFF, 0xFF, 0xFF, 0x7F, 0x90, 0x01, 0x01});
    }
    EXPECT_THAT(FailureOf(Header(0, 1, 1) + Track(events)), HasSubstr("more than 7 days"));
}

TEST(StandardMidiFileTest, SaysThatAFileHoldsNoMessage) {
    EXPECT_EQ(FailureOf(Header(0, 1, 96) + Track("")), "song.mid: holds no MIDI message");
}

TEST(StandardMidiFileTest, SurvivesRandomEditsOfAFile) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    const std::string valid =
        Header(1, 2, 96) +
        Track(Raw({0x00, 0xFF, 0x51, 0x03, 0x0F, 0x42, 0x40, 0x60, 0xF0, 0x02, 0x43, 0x12, 0x10,
                   0xF7, 0x02, 0x02, 0xF7})) +
        Track(Raw({0x10, 0x91, 0x01, 0x01, 0x10, 0x02, 0x01, 0x83, 0x60, 0xC1, 0x05}));
    for (int round = 0; round < 20000; ++round) {
        std::string content = valid;
        const std::size_t edits = 1 + random() % 5;
        for (std::size_t i = 0; i < edits; ++i) {
            const std::size_t at = 4 + random() % (content.size() - 4);
            if (random() % 4 == 0) {
                content.resize(at + 1);
            }
            content[at] = static_cast<char>(random());
        }
        try {
            const RecordedSession session = Read(content);
            ASSERT_GT(session.MessageCount(), 0U);
            ASSERT_LE(session.ByteCount(), 2 * content.size());
            std::uint64_t time = 0;
            for (const RecordedMessage& message : session) {
                ASSERT_GE(message.microseconds, time);
                time = message.microseconds;
            }
        } catch (const InputError& error) {
            ASSERT_THAT(error.what(), testing::StartsWith("song.mid: "));
        }
    }
}

} // namespace
} // namespace MidiServer
