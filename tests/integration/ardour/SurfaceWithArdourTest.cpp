// The control surface in a terminal, played with a real DAW through the running service.
#include "tests/integration/ardour/ArdourFixture.h"
#include "tests/integration/surface/TerminalScreen.h"
#include "tests/support/WaitUntil.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <sstream>

namespace ArdourTest {
namespace {

using SurfaceTest::TerminalScreen;
using TestSupport::WaitUntil;

struct Device {
    const char* protocol; // the port's
    const char* ardours;  // what Ardour takes it for
    const char* head;     // of the picture
};

class SurfaceWithArdourTest : public ArdourFixture, public testing::WithParamInterface<Device> {
protected:
    SurfaceWithArdourTest() : ArdourFixture(GetParam().protocol) {}

    void SetUp() override {
        if (const std::string missing = TerminalScreen::Missing(); !missing.empty()) {
            GTEST_SKIP() << missing << " is not installed";
        }
        StartService();
        if (!IsSkipped()) {
            mScreen = std::make_unique<TerminalScreen>(
                std::vector<std::string>{SURFACE_PROGRAM, "--port", "1"}, 80, 24,
                mService.Environment());
            ASSERT_TRUE(Shows("\n jack "));
        }
    }

    void TearDown() override {
        if (HasFailure() && mScreen) {
            std::cerr << mScreen->Text();
        }
        ArdourFixture::TearDown();
    }

    bool IsOnScreen(const std::string& text) const {
        return mScreen->Text().find(text) != std::string::npos;
    }

    testing::AssertionResult Shows(const std::string& text) const {
        return WaitUntil("it shows " + text, [&] { return IsOnScreen(text); });
    }

    testing::AssertionResult ShowsAtLast(const std::string& text) {
        return HappensAtLast("it shows " + text, [&] { return IsOnScreen(text); });
    }

    // The time code's digits.
    std::string Time() const {
        std::istringstream rows(mScreen->Text());
        std::string row;
        std::getline(rows, row);
        std::getline(rows, row);
        return row.size() < 50 ? "" : row.substr(30, 20);
    }

    double Gain() {
        return std::strtod(mArdour->Ask("gain('Still 3'):get_value()").c_str(), nullptr);
    }

    // The third track's fader, by keys and then by the DAW.
    void ExpectFaderMoves() {
        mScreen->Type({"3", "End"});
        EXPECT_TRUE(WaitUntil("the track is silent", [this] { return Gain() == 0; }));
        EXPECT_TRUE(Shows(">    -∞<"));
        mScreen->Type({"Home"});
        EXPECT_TRUE(
            WaitUntil("it is as loud as recorded", [this] { return std::abs(Gain() - 1) < 0.01; }));
        EXPECT_TRUE(Shows(">   0.0<"));
        // The DAW moves no fader that is touched, as this one is for a while.
        EXPECT_TRUE(WaitUntil("the DAW moves the fader", [this] {
            for (const char* gain : {"0.25", "0.5"}) {
                mArdour->Ask(std::string("gain('Still 3'):set_value(") + gain +
                             ", PBD.GroupControlDisposition.NoGroup)");
            }
            return IsOnScreen(">  -6.0<");
        }));
    }

    void ExpectTransportRuns() {
        const std::string isRolling = "session:transport_rolling()";
        EXPECT_EQ(mArdour->Ask(isRolling), "false");
        const std::string before = Time();
        mScreen->Type({"p"});
        EXPECT_TRUE(WaitUntil("it plays", [&] { return mArdour->Ask(isRolling) == "true"; }));
        EXPECT_TRUE(Shows(" stop PLAY "));
        EXPECT_TRUE(WaitUntil("the time runs", [&] { return Time() != before; }));
        mScreen->Type({"x"});
        EXPECT_TRUE(WaitUntil("it stops", [&] { return mArdour->Ask(isRolling) == "false"; }));
        EXPECT_TRUE(Shows(" STOP play "));
    }

    std::unique_ptr<TerminalScreen> mScreen;
};

TEST_P(SurfaceWithArdourTest, PlaysAndIsBackAfterRestartsOfTheDawAndOfTheService) {
    const std::string names = "\nMoving  │Still2  │Still3  │Still4  │Still5  │Still6  │";
    EXPECT_TRUE(Shows(GetParam().head));
    StartArdour(GetParam().ardours);
    WithArdour("connect");
    ASSERT_TRUE(ShowsAtLast(names));
    ExpectFaderMoves();
    ExpectTransportRuns();

    mArdour->End();
    ASSERT_TRUE(WaitUntil("the DAW's names are gone", [&] { return !IsOnScreen(names); }));
    mArdour->Start();
    ASSERT_TRUE(ShowsAtLast(names));
    ExpectFaderMoves();
    ExpectTransportRuns();

    mService.End();
    ASSERT_TRUE(Shows("no service runs in "));
    mArdour->Ask("session:route_by_name('Still 2'):set_name('Anew')");
    mService.Start();
    ASSERT_TRUE(ShowsAtLast("\nMoving  │Anew    │Still3  │"));
    ExpectFaderMoves();
    ExpectTransportRuns();
    EXPECT_GE(mService.Port(1)["answeredPings"], 1);
}

INSTANTIATE_TEST_SUITE_P(All, SurfaceWithArdourTest,
                         testing::Values(Device{"MackieControl", Ardour::kMackieControl,
                                                " Mackie Control "},
                                         Device{"HUI", Ardour::kHui, " HUI "}),
                         [](const auto& test) { return std::string(test.param.protocol); });

} // namespace
} // namespace ArdourTest
