#include "surface/screen/Picture.h"

#include "surface/screen/HelpPage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

namespace Surface {
namespace {

using MidiServer::Protocol;
using testing::HasSubstr;
using testing::Not;

constexpr SurfaceModel::Time kNow{0};

class PictureTest : public testing::Test {
protected:
    SurfaceModel& Model() { return mPort.Model(); }

    Picture Draw(int rows = kLeastRows, int columns = kPortColumns) const {
        return DrawPicture(rows, columns, SceneOf({{1, &mPort}}));
    }

    static Scene SceneOf(std::vector<ShownPort> ports) {
        Scene scene;
        scene.ports = std::move(ports);
        return scene;
    }

    // What of a row belongs to a strip.
    static std::string Strip(const Picture& picture, int row, int strip) {
        std::string text;
        for (int column = 9 * strip; column < 9 * strip + 8; ++column) {
            AppendUtf8(text, picture.grid.At(row, column).character);
        }
        return text;
    }

    static int RowOfKnob(const Picture& picture, int strip) {
        for (int row = 0; row < picture.grid.Rows(); ++row) {
            if (Strip(picture, row, strip).find("[=]") != std::string::npos ||
                Strip(picture, row, strip).find("<=>") != std::string::npos) {
                return row;
            }
        }
        return -1;
    }

    static const Target& FaderTarget(const Picture& picture, std::uint8_t fader) {
        return *std::find_if(
            picture.targets.begin(), picture.targets.end(), [fader](const Target& target) {
                return target.kind == Target::Kind::kFader && target.fader == fader;
            });
    }

    SurfacePort mPort{Protocol::kMackieControl};
};

TEST_F(PictureTest, ShowsADeviceThatWasJustSwitchedOn) {
    EXPECT_EQ(Draw().grid.Text(),
              R"( Quorvel Port 1   Mackie Control              0 messages, 0 foreign, 0 unknown
 rew ffw stop play rec cycle                        smpte beats solo     [  ]
        │        │        │        │        │        │        │        │Master
        │        │        │        │        │        │        │        │
······· │······· │······· │······· │······· │······· │······· │······· │
·· ○ ·· │·· ○ ·· │·· ○ ·· │·· ○ ·· │·· ○ ·· │·· ○ ·· │·· ○ ·· │·· ○ ·· │
rsm sel │rsm sel │rsm sel │rsm sel │rsm sel │rsm sel │rsm sel │rsm sel │
 +6 ┼   │ +6 ┼   │ +6 ┼   │ +6 ┼   │ +6 ┼   │ +6 ┼   │ +6 ┼   │ +6 ┼   │ +6 ┼
    │   │    │   │    │   │    │   │    │   │    │   │    │   │    │   │    │
    │   │    │   │    │   │    │   │    │   │    │   │    │   │    │   │    │
  0 ┼   │  0 ┼   │  0 ┼   │  0 ┼   │  0 ┼   │  0 ┼   │  0 ┼   │  0 ┼   │  0 ┼
    │   │    │   │    │   │    │   │    │   │    │   │    │   │    │   │    │
 -5 ┼   │ -5 ┼   │ -5 ┼   │ -5 ┼   │ -5 ┼   │ -5 ┼   │ -5 ┼   │ -5 ┼   │ -5 ┼
-10 ┼   │-10 ┼   │-10 ┼   │-10 ┼   │-10 ┼   │-10 ┼   │-10 ┼   │-10 ┼   │-10 ┼
    │   │    │   │    │   │    │   │    │   │    │   │    │   │    │   │    │
    │   │    │   │    │   │    │   │    │   │    │   │    │   │    │   │    │
-20 ┼   │-20 ┼   │-20 ┼   │-20 ┼   │-20 ┼   │-20 ┼   │-20 ┼   │-20 ┼   │-20 ┼
-30 ┼   │-30 ┼   │-30 ┼   │-30 ┼   │-30 ┼   │-30 ┼   │-30 ┼   │-30 ┼   │-30 ┼
-40 ┼   │-40 ┼   │-40 ┼   │-40 ┼   │-40 ┼   │-40 ┼   │-40 ┼   │-40 ┼   │-40 ┼
-60 ┼   │-60 ┼   │-60 ┼   │-60 ┼   │-60 ┼   │-60 ┼   │-60 ┼   │-60 ┼   │-60 ┼
 -∞[=]  │ -∞[=]  │ -∞[=]  │ -∞[=]  │ -∞[=]  │ -∞[=]  │ -∞[=]  │ -∞[=]  │ -∞[=]
>    -∞<│     -∞ │     -∞ │     -∞ │     -∞ │     -∞ │     -∞ │     -∞ │     -∞


)");
}

TEST_F(PictureTest, WritesWhatIsLitInCapitalLetters) {
    Model().Apply(LightSet{{Button::kMute, 2}, LightState::kOn}, kNow);
    Model().Apply(LightSet{{Button::kSelect, 2}, LightState::kFlashing}, kNow);
    Model().Apply(LightSet{{Button::kPlay}, LightState::kOn}, kNow);
    Model().Apply(LightSet{{Button::kLightBeats}, LightState::kOn}, kNow);
    Model().Apply(LightSet{{Button::kClick}, LightState::kFlashing}, kNow);
    const Picture picture = Draw();

    EXPECT_EQ(Strip(picture, 6, 2), "rsM SEL ");
    EXPECT_EQ(Strip(picture, 6, 3), "rsm sel ");
    EXPECT_THAT(picture.grid.Row(1), HasSubstr(" rew ffw stop PLAY rec cycle "));
    EXPECT_THAT(picture.grid.Row(1), HasSubstr(" smpte BEATS solo "));
    EXPECT_EQ(picture.grid.Row(22), " CLICK*");
    EXPECT_TRUE(picture.grid.At(6, 20).style.isReversed);
    EXPECT_TRUE(picture.grid.At(6, 22).style.isBlinking);
}

TEST_F(PictureTest, ShowsFadersAsHighAsTheyAreAndWhatIsTouched) {
    Model().SetFader(0, kHighestFader);
    Model().SetFader(1, kHighestFader / 2);
    Model().SetFader(kMasterFader, kHighestFader);
    const Picture picture = DrawPicture(kLeastRows, kPortColumns, SceneOf({{1, &mPort, 1U << 1U}}));

    EXPECT_EQ(RowOfKnob(picture, 0), 7);
    EXPECT_EQ(RowOfKnob(picture, 1), 14);
    EXPECT_EQ(RowOfKnob(picture, 2), 20);
    EXPECT_EQ(RowOfKnob(picture, kMasterFader), 7);
    EXPECT_THAT(Strip(picture, 14, 1), HasSubstr("<=>"));
    EXPECT_EQ(Strip(picture, 21, 0), ">  +6.0<");
    EXPECT_EQ(Strip(picture, 21, 2), "     -∞ ");
}

// Where the mouse points at a knob, the fader stands where it is.
TEST_F(PictureTest, PutsTheKnobWhereTheMousePutsTheFader) {
    for (const int rows : {kLeastRows, 31, 60}) {
        const Target fader = FaderTarget(Draw(rows), 4);
        EXPECT_EQ(fader.PositionAt(fader.row), kHighestFader);
        EXPECT_EQ(fader.PositionAt(fader.row - 5), kHighestFader);
        EXPECT_EQ(fader.PositionAt(rows), 0);
        for (int row = fader.row; row < fader.row + fader.rows; ++row) {
            Model().SetFader(4, fader.PositionAt(row));
            EXPECT_EQ(RowOfKnob(Draw(rows), 4), row);
        }
    }
}

TEST_F(PictureTest, ShowsMetersAndTheirOverload) {
    Model().Apply(MeterSet{0, MeterSide::kLeft, kHighestMeter, true, false}, kNow);
    Model().Apply(MeterSet{1, MeterSide::kLeft, kHighestMeter / 2, std::nullopt, false}, kNow);
    const Picture picture = Draw();

    EXPECT_EQ(Strip(picture, 7, 0), " +6 ┼  !");
    EXPECT_EQ(Strip(picture, 8, 0), "    │  █");
    EXPECT_EQ(Strip(picture, 20, 0), " -∞[=] █");
    EXPECT_EQ(Strip(picture, 13, 1), "-10 ┼   ");
    EXPECT_EQ(Strip(picture, 14, 1), "    │  ▄");
    EXPECT_EQ(Strip(picture, 15, 1), "    │  █");
    EXPECT_EQ(Strip(picture, 7, 1), " +6 ┼   ");
}

TEST_F(PictureTest, ShowsDisplaysRingsAndTime) {
    Model().Apply(TextWritten{TextDisplay::kStrips, 7, "Bass   "}, kNow);
    Model().Apply(TextWritten{TextDisplay::kStrips, 56 + 7, " -12.3 "}, kNow);
    Model().Apply(PotRingSet{1, {RingMode::kWrap, 4, true}}, kNow);
    DigitsSet digits{DigitDisplay::kTimecode, 0, 3, {}};
    digits.digits[0] = {'3', false};
    digits.digits[1] = {'2', true};
    digits.digits[2] = {'1', false};
    Model().Apply(digits, kNow);
    const Picture picture = Draw();

    EXPECT_EQ(Strip(picture, 2, 1), "Bass    ");
    EXPECT_EQ(Strip(picture, 3, 1), " -12.3  ");
    EXPECT_EQ(Strip(picture, 4, 1), "●●····· ");
    EXPECT_EQ(Strip(picture, 5, 1), "●● ● ·· ");
    EXPECT_THAT(picture.grid.Row(1), HasSubstr(" 12.3 "));
}

TEST_F(PictureTest, ShowsTheMainDisplayOfHui) {
    SurfacePort hui(Protocol::kHui);
    hui.Model().Apply(TextWritten{TextDisplay::kMain, 0, "Main display"}, kNow);
    hui.Model().Apply(TextWritten{TextDisplay::kStripNames, 4, "Drum"}, kNow);
    hui.Model().Apply(MeterSet{0, MeterSide::kRight, kHighestMeter, std::nullopt, false}, kNow);
    const Picture picture = DrawPicture(kLeastRows, kPortColumns, SceneOf({{5, &hui}}));

    EXPECT_THAT(picture.grid.Row(0), testing::StartsWith(" Quorvel Port 5   HUI "));
    EXPECT_THAT(picture.grid.Row(2), testing::StartsWith(" Main display "));
    EXPECT_THAT(picture.grid.Row(2), HasSubstr("pot  9 at  0"));
    EXPECT_THAT(Strip(picture, 4, 1), testing::StartsWith("Drum"));
    EXPECT_THAT(picture.grid.Text(), Not(HasSubstr("Master")));
    EXPECT_EQ(Strip(picture, 22 - 2, 0), " -∞[=] █");
}

TEST_F(PictureTest, ShowsPortsSideBySideWhereThereIsRoom) {
    SurfacePort second(Protocol::kMackieControl);
    SurfacePort third(Protocol::kHui);
    Scene scene = SceneOf({{1, &mPort}, {2, &second}, {7, &third}});
    const std::string narrow = DrawPicture(24, 159, scene).grid.Row(0);
    EXPECT_THAT(narrow, Not(HasSubstr("Port 2")));
    const std::string wide = DrawPicture(24, 160, scene).grid.Row(0);
    EXPECT_THAT(wide, HasSubstr("Port 1 "));
    EXPECT_THAT(wide, HasSubstr("Port 2 "));
    EXPECT_THAT(wide, Not(HasSubstr("Port 7 ")));

    scene.chosenPort = 2;
    const Picture last = DrawPicture(24, 160, scene);
    EXPECT_THAT(last.grid.Row(0), HasSubstr("Port 7 "));
    EXPECT_THAT(last.grid.Row(0), Not(HasSubstr("Port 1 ")));
    EXPECT_TRUE(std::all_of(last.targets.begin(), last.targets.end(),
                            [](const Target& target) { return target.port == 2; }));
}

TEST_F(PictureTest, SaysThatAScreenIsTooSmall) {
    for (const auto& [rows, columns] : {std::pair(23, 80), std::pair(24, 79), std::pair(1, 1)}) {
        const Picture picture = Draw(rows, columns);
        EXPECT_TRUE(picture.targets.empty());
    }
    EXPECT_EQ(Draw(23, 80).grid.Row(0), "80 x 23 is too small, 80 x 24 are needed");
}

TEST_F(PictureTest, HasEveryTargetOnTheScreen) {
    const Picture picture = Draw(40, 200);
    EXPECT_GT(picture.targets.size(), 50U);
    for (const Target& target : picture.targets) {
        EXPECT_GE(target.row, 0);
        EXPECT_GE(target.column, 0);
        EXPECT_LE(target.row + target.rows, 40);
        EXPECT_LE(target.column + target.columns, kPortColumns);
    }
}

TEST_F(PictureTest, KeepsTheHelpPageWithinTheSmallestScreen) {
    const Grid small = DrawHelpPage(kLeastRows, kPortColumns);
    const Grid large = DrawHelpPage(100, 300);
    std::istringstream smallLines(small.Text());
    std::istringstream largeLines(large.Text());
    std::string line;
    for (std::string expected; std::getline(largeLines, expected);) {
        EXPECT_TRUE(std::getline(smallLines, line) || expected.empty());
        EXPECT_EQ(expected.empty() ? std::string() : line, expected);
    }
}

} // namespace
} // namespace Surface
