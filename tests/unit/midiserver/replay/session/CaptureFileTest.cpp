#include "midiserver/replay/session/CaptureFile.h"

#include "midiserver/errors/Errors.h"
#include "tests/unit/midiserver/replay/session/RecordedMessages.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

namespace MidiServer {
namespace {

using testing::ElementsAre;

std::string FailureOf(std::string_view content) {
    try {
        ReadCaptureFile(content, "session.txt");
    } catch (const InputError& error) {
        return error.what();
    }
    return "no failure";
}

TEST(CaptureFileTest, ReadsTimesAndBytesInOrder) {
    const RecordedSession session =
        ReadCaptureFile("0 90 3C 7F\n1500 f0 00 0a F7\n1500 C0 05\n", "session.txt");

    ASSERT_EQ(session.MessageCount(), 3U);
    EXPECT_EQ(session.ByteCount(), 9U);
    EXPECT_EQ(MessageAt(session, 0).microseconds, 0U);
    EXPECT_EQ(MessageAt(session, 1).microseconds, 1500U);
    EXPECT_THAT(MessageAt(session, 0).bytes, ElementsAre(0x90, 0x3C, 0x7F));
    EXPECT_THAT(MessageAt(session, 1).bytes, ElementsAre(0xF0, 0x00, 0x0A, 0xF7));
    EXPECT_THAT(MessageAt(session, 2).bytes, ElementsAre(0xC0, 0x05));
}

TEST(CaptureFileTest, SkipsCommentsEmptyLinesAndCarriageReturns) {
    const RecordedSession session =
        ReadCaptureFile("# a session\r\n\r\n  \t\r\n10 F8 # clock\r\n20\tFA", "session.txt");

    ASSERT_EQ(session.MessageCount(), 2U);
    EXPECT_THAT(MessageAt(session, 1).bytes, ElementsAre(0xFA));
}

TEST(CaptureFileTest, AcceptsAByteOrderMarkInFrontAndNowhereElse) {
    const std::string mark = "\xEF\xBB\xBF";
    EXPECT_EQ(ReadCaptureFile(mark + "0 F8\n", "session.txt").MessageCount(), 1U);
    EXPECT_EQ(ReadCaptureFile(mark + "# comment\n0 F8\n", "session.txt").MessageCount(), 1U);
    EXPECT_EQ(FailureOf(mark), "session.txt: holds no MIDI message");
    EXPECT_THAT(FailureOf(mark + mark + "0 F8\n"),
                testing::StartsWith("session.txt:1: not a line"));
    EXPECT_THAT(FailureOf("0 F8\n" + mark + "1 F8\n"),
                testing::StartsWith("session.txt:2: not a line"));
}

TEST(CaptureFileTest, NamesFileAndLineOfTextThatIsNoCapture) {
    EXPECT_EQ(FailureOf("# fine\nhello world\n"),
              "session.txt:2: not a line of a capture, which is \"<microseconds> <hex bytes>\": "
              "\"hello\" is not a time");
}

TEST(CaptureFileTest, KeepsControlCharactersOfABinaryFileOutOfItsMessage) {
    const std::string failure = FailureOf(std::string_view("\x7f\x1b[2J\0ELF\n", 9));

    EXPECT_EQ(failure.find('\x1b'), std::string::npos) << failure;
    EXPECT_THAT(failure, testing::StartsWith("session.txt:1: "));
}

TEST(CaptureFileTest, NamesTheLineAtWhichAFileWasCutInsideAMessage) {
    EXPECT_THAT(FailureOf("0 90 3C 7F\n5 F0 00 00 66"),
                testing::StartsWith("session.txt:2: the System Exclusive message does not end"));
    EXPECT_THAT(FailureOf("0 90 3C 7F\n5 90 3C"),
                testing::StartsWith("session.txt:2: a message with status 90 has 3 bytes, here are "
                                    "2: the file is cut off"));
    EXPECT_THAT(FailureOf("0 90 3C 7F\n5 90 3C 7"),
                testing::StartsWith("session.txt:2: \"7\" is not a byte"));
    EXPECT_THAT(FailureOf("0 90 3C 7F\n5"), testing::StartsWith("session.txt:2: no bytes after"));
}

TEST(CaptureFileTest, RefusesWhatIsNotOneWholeMessage) {
    EXPECT_THAT(FailureOf("0 3C 7F"), testing::HasSubstr("3C, which is no status byte"));
    EXPECT_THAT(FailureOf("0 F7"), testing::HasSubstr("no status byte"));
    EXPECT_THAT(FailureOf("0 90 3C 7F 00"), testing::HasSubstr("has 3 bytes, here are 4"));
    EXPECT_THAT(FailureOf("0 90 3C 90"), testing::HasSubstr("data byte below 80"));
    EXPECT_THAT(FailureOf("0 F0 00 F8 F7"), testing::HasSubstr("data byte below 80"));
    EXPECT_THAT(FailureOf("0 F0"), testing::HasSubstr("does not end with F7"));
    EXPECT_THAT(FailureOf("0 9Z 00 00"), testing::HasSubstr("\"9Z\" is not a byte"));
    EXPECT_THAT(FailureOf("0 +9 00 00"), testing::HasSubstr("\"+9\" is not a byte"));
    EXPECT_THAT(FailureOf("0 0x90 00 00"), testing::HasSubstr("is not a byte"));
}

TEST(CaptureFileTest, KeepsTheOrderOfLinesWhoseTimesRunBackwards) {
    const RecordedSession session = ReadCaptureFile("5 F8\n4 FA\n6 FB\n", "session.txt");

    EXPECT_THAT(MessageAt(session, 1).bytes, ElementsAre(0xFA));
    EXPECT_EQ(MessageAt(session, 1).microseconds, 5U);
    EXPECT_EQ(MessageAt(session, 2).microseconds, 6U);
}

TEST(CaptureFileTest, RefusesTimesThatAreNone) {
    EXPECT_THAT(FailureOf("-1 F8"), testing::HasSubstr("is not a time"));
    EXPECT_THAT(FailureOf("1.5 F8"), testing::HasSubstr("is not a time"));
    EXPECT_THAT(FailureOf("99999999999999999999999 F8"), testing::HasSubstr("is not a time"));
    EXPECT_THAT(FailureOf("999999999999 F8"), testing::HasSubstr("more than 7 days"));
}

TEST(CaptureFileTest, SaysThatAFileHoldsNoMessage) {
    EXPECT_EQ(FailureOf(""), "session.txt: holds no MIDI message");
    EXPECT_EQ(FailureOf("# nothing\n\n"), "session.txt: holds no MIDI message");
}

TEST(CaptureFileTest, SurvivesRandomBytesAndRandomEdits) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    const std::string valid = "# c\n0 90 3C 7F\n10 F0 00 00 66 14 00 F7\n20 D0 10\n30 F8\n";
    for (int round = 0; round < 3000; ++round) {
        std::string content = valid;
        const std::size_t edits = 1 + random() % 6;
        for (std::size_t i = 0; i < edits; ++i) {
            const std::size_t at = random() % content.size();
            switch (random() % 3) {
            case 0:
                content[at] = static_cast<char>(random());
                break;
            case 1:
                content.insert(at, 1, static_cast<char>(random()));
                break;
            default:
                content.erase(at, 1 + random() % 4);
                content += ' ';
            }
        }
        try {
            const RecordedSession session = ReadCaptureFile(content, "random");
            std::uint64_t time = 0;
            for (const RecordedMessage& message : session) {
                ASSERT_GE(message.microseconds, time);
                ASSERT_FALSE(message.bytes.empty());
                ASSERT_GE(message.bytes.front(), 0x80);
                time = message.microseconds;
            }
        } catch (const InputError& error) {
            ASSERT_EQ(std::string(error.what()).find('\n'), std::string::npos);
            ASSERT_THAT(error.what(), testing::StartsWith("random:"));
        }
    }
}

} // namespace
} // namespace MidiServer
