#include "midiserver/replay/session/CaptureWriter.h"

#include "midiserver/replay/session/CaptureFile.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <vector>

namespace MidiServer {
namespace {

class CaptureWriterTest : public testing::Test {
protected:
    std::string Add(std::uint64_t time, std::initializer_list<std::uint8_t> bytes) {
        return mWriter.Add(time, std::vector<std::uint8_t>(bytes));
    }

    CaptureWriter mWriter;
};

TEST_F(CaptureWriterTest, WritesALineForEachMessage) {
    EXPECT_EQ(Add(0, {0x90, 0x00, 0x7F}), "0 90 00 7F\n");
    EXPECT_EQ(Add(1'234'567, {0xC0, 0x05}), "1234567 C0 05\n");
    EXPECT_EQ(Add(2'000'000, {0xF0, 0x01, 0xF7}), "2000000 F0 01 F7\n");
    EXPECT_EQ(mWriter.Lines(), 3U);
    EXPECT_EQ(mWriter.LeftOut(), 0U);
}

TEST_F(CaptureWriterTest, JoinsThePiecesOfSystemExclusive) {
    EXPECT_EQ(Add(10, {0xF0, 0x01}), "");
    EXPECT_EQ(Add(20, {0x02, 0x03}), "");
    EXPECT_EQ(Add(30, {0xF8}), "30 F8\n");
    EXPECT_EQ(Add(40, {0xF7}), "10 F0 01 02 03 F7\n");
    EXPECT_EQ(Add(50, {0xF0}), "");
    EXPECT_EQ(Add(60, {0x04, 0xF7}), "50 F0 04 F7\n");
    EXPECT_EQ(mWriter.LeftOut(), 0U);
}

TEST_F(CaptureWriterTest, LeavesOutWhatIsNotWhole) {
    EXPECT_EQ(Add(0, {0xF0, 0x01}), "");
    EXPECT_EQ(Add(1, {0x90, 0x01, 0x02}), "1 90 01 02\n");
    EXPECT_EQ(mWriter.LeftOut(), 1U);
    EXPECT_EQ(Add(2, {0x05, 0xF7}), "");
    EXPECT_EQ(mWriter.LeftOut(), 2U);
    EXPECT_EQ(Add(3, {0xF0, 0x01}), "");
    EXPECT_EQ(Add(4, {0xF0, 0x02, 0xF7}), "4 F0 02 F7\n");
    EXPECT_EQ(mWriter.LeftOut(), 3U);
    EXPECT_EQ(Add(5, {}), "");
    EXPECT_EQ(mWriter.Lines(), 2U);
}

TEST_F(CaptureWriterTest, WritesWhatTheReaderReads) {
    std::string text = Add(0, {0xF0, 0x01});
    text += Add(1, {0x02, 0xF7});
    text += Add(7, {0x90, 1, 2});
    const RecordedSession session = ReadCaptureFile(text, "capture");

    EXPECT_EQ(session.MessageCount(), 2U);
    EXPECT_EQ(session.ByteCount(), 7U);
}

} // namespace
} // namespace MidiServer
