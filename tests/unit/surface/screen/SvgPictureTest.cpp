#include "surface/screen/SvgPicture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

namespace Surface {
namespace {

using testing::HasSubstr;
using testing::Not;

long CountOf(const std::string& document, const std::string& text) {
    long count = 0;
    for (std::size_t at = 0; (at = document.find(text, at)) != std::string::npos; ++at) {
        ++count;
    }
    return count;
}

TEST(SvgPictureTest, WritesTextAsText) {
    Grid grid(2, 20);
    grid.Put(0, 2, U"fader 3", {.colour = Colour::kGreen, .isBold = true});
    grid.Put(1, 0, U"a<b&c>", {});
    const std::string document = SvgPicture(grid, "Port <1>");

    EXPECT_THAT(document, testing::StartsWith("<svg xmlns=\"http://www.w3.org/2000/svg\" "));
    EXPECT_THAT(document, testing::EndsWith("</svg>\n"));
    EXPECT_THAT(document, HasSubstr("<title>Port &lt;1&gt;</title>"));
    EXPECT_THAT(document, HasSubstr("class=\"green bold\">fader 3</text>"));
    EXPECT_THAT(document, HasSubstr(">a&lt;b&amp;c&gt;</text>"));
}

TEST(SvgPictureTest, DrawsTheGroundOfWhatIsReversed) {
    Grid plain(1, 4);
    Grid reversed(1, 4);
    plain.Put(0, 0, U"on");
    reversed.Put(0, 0, U"on", {.colour = Colour::kRed, .isReversed = true});

    EXPECT_EQ(CountOf(SvgPicture(plain, ""), "<rect"), 1) << "the screen";
    const std::string document = SvgPicture(reversed, "");
    EXPECT_EQ(CountOf(document, "<rect"), 2);
    EXPECT_THAT(document, HasSubstr("class=\"red\"/>"));
    EXPECT_THAT(document, HasSubstr("class=\"on\">on</text>"));
}

TEST(SvgPictureTest, PartsWhatLooksDifferentAndLeavesBlanksOut) {
    Grid grid(3, 30);
    grid.Put(0, 0, U"one two");
    grid.Put(0, 20, U"three");
    grid.Put(1, 0, U"ab", {.colour = Colour::kRed});
    grid.Put(1, 2, U"cd", {.colour = Colour::kBlue});
    const std::string document = SvgPicture(grid, "");

    EXPECT_EQ(CountOf(document, "<text"), 4);
    EXPECT_THAT(document, HasSubstr(">one two</text>"));
    EXPECT_THAT(document, Not(HasSubstr("> ")));
}

TEST(SvgPictureTest, IsTheSameForTheSameGrid) {
    Grid grid(5, 40);
    grid.Put(3, 3, U"█▄ ●", {.colour = Colour::kYellow});
    EXPECT_EQ(SvgPicture(grid, "title"), SvgPicture(grid, "title"));
}

} // namespace
} // namespace Surface
