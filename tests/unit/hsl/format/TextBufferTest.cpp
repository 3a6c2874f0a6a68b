#include "hsl/format/TextBuffer.h"

#include <gtest/gtest.h>

#include <string>

namespace HSL {
namespace {

TEST(TextBufferTest, IsEmptyAtFirst) {
    CTextBuffer buffer;
    EXPECT_EQ(buffer.Size(), 0u);
    EXPECT_EQ(buffer.View(), "");
    EXPECT_STREQ(buffer.CString(), "");
}

TEST(TextBufferTest, AppendsAndGrowsPastAnySize) {
    CTextBuffer buffer;
    std::string expected;
    for (std::size_t i = 0; i < 3000; ++i) {
        const std::string text(i % 100, 'x');
        buffer.Append(text);
        buffer.Append('y');
        buffer.Append(i % 3, 'z');
        expected += text + "y" + std::string(i % 3, 'z');
        ASSERT_EQ(buffer.Size(), expected.size());
    }
    EXPECT_EQ(buffer.View(), expected);
    EXPECT_EQ(buffer.CString(), expected);
    EXPECT_EQ(buffer.Size(), expected.size()) << "the terminator is not of the text";
}

TEST(TextBufferTest, TakesWhatIsWrittenToItsRoom) {
    CTextBuffer buffer;
    buffer.Append("a");
    char* const end = buffer.Room(100000);
    end[0] = 'b';
    end[1] = 'c';
    buffer.SetEnd(end + 2);
    EXPECT_EQ(buffer.View(), "abc");
}

TEST(TextBufferTest, IsCutAndCleared) {
    CTextBuffer buffer;
    buffer.Append("abcdef");
    buffer.CutTo(3);
    EXPECT_EQ(buffer.View(), "abc");
    buffer.Clear();
    EXPECT_EQ(buffer.View(), "");
    buffer.Append("g");
    EXPECT_STREQ(buffer.CString(), "g");
}

} // namespace
} // namespace HSL
