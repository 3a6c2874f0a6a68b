#include "midiserver/errors/ErrorOutput.h"

#include <gtest/gtest.h>

#include <string>

namespace MidiServer {
namespace {

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

TEST(ErrorOutputTest, WritesLinesAsTheyAreWithoutABlock) {
    CaptureStderr();
    ErrorOutput::Write("one\n");
    ErrorOutput::EraseBlock();
    ErrorOutput::Write("two\nthree\n");
    EXPECT_EQ(GetCapturedStderr(), "one\ntwo\nthree\n");
}

TEST(ErrorOutputTest, WritesLinesAboveTheBlock) {
    CaptureStderr();
    ErrorOutput::ShowBlock({"a", "b"});
    ErrorOutput::Write("line\n");
    ErrorOutput::EraseBlock();
    ErrorOutput::Write("end\n");
    EXPECT_EQ(GetCapturedStderr(), "a\nb\n\x1b[2F\x1b[Jline\na\nb\n\x1b[2F\x1b[Jend\n");
}

TEST(ErrorOutputTest, ErasesAsManyLinesAsTheBlockHadWhenItIsRefreshed) {
    CaptureStderr();
    ErrorOutput::ShowBlock({"a", "b", "c"});
    ErrorOutput::ShowBlock({"d"});
    ErrorOutput::EraseBlock();
    EXPECT_EQ(GetCapturedStderr(), "a\nb\nc\n\x1b[3F\x1b[Jd\n\x1b[1F\x1b[J");
}

TEST(ErrorOutputTest, CutsTheBlocksLinesSoThatNoneWraps) {
    CaptureStderr();
    ErrorOutput::ShowBlock({std::string(500, 'x')});
    ErrorOutput::EraseBlock();
    // Standard error is a file here, which has no width of its own.
    EXPECT_EQ(GetCapturedStderr(), std::string(79, 'x') + "\n\x1b[1F\x1b[J");
}

} // namespace
} // namespace MidiServer
