#include "surface/screen/Grid.h"

#include <gtest/gtest.h>

namespace Surface {
namespace {

TEST(GridTest, KeepsWhatIsPutAndLeavesOutWhatLiesOutside) {
    Grid grid(2, 5);
    grid.Put(0, 1, U"ab", {.isBold = true});
    grid.Put(1, 3, U"xyz");
    grid.Put(0, -1, U"-+");
    grid.Put(2, 0, U"below");
    grid.Put(-1, 0, U"above");

    EXPECT_EQ(grid.Text(), "+ab\n   xy\n");
    EXPECT_TRUE(grid.At(0, 1).style.isBold);
    EXPECT_FALSE(grid.At(1, 3).style.isBold);
}

TEST(GridTest, WritesAndReadsUtf8) {
    Grid grid(1, 8);
    grid.Put(0, 0, "-∞ é♪");
    EXPECT_EQ(grid.At(0, 1).character, U'∞');
    EXPECT_EQ(grid.Row(0), "-∞ é♪");

    std::string text;
    for (const char32_t character : {U'A', U'é', U'█', U'\U0001F3B5'}) {
        AppendUtf8(text, character);
    }
    EXPECT_EQ(text, "Aé█\U0001F3B5");
}

TEST(GridTest, ShowsAQuestionMarkForWhatIsNoText) {
    for (const char* const text : {"\x1b", "\n", "\x7f", "\x80", "\xff", "\xc3", "\xe2\x88",
                                   "\xc2\x9b"}) { // the last one begins a control sequence
        Grid grid(1, 1);
        grid.Put(0, 0, std::string_view(text));
        EXPECT_EQ(grid.Row(0), "?") << static_cast<int>(text[0]);
    }
}

TEST(GridTest, MayBeEmpty) {
    Grid grid(0, -3);
    grid.Put(0, 0, U"x");
    EXPECT_EQ(grid.Text(), "");
}

} // namespace
} // namespace Surface
