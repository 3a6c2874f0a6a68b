#include "surface/screen/Controls.h"

#include "surface/model/FaderScale.h"

#include <gtest/gtest.h>

#include <string>

namespace Surface {
namespace {

using MidiServer::Protocol;
using namespace std::chrono_literals;

// What the user did, in words.
std::string Words(const std::vector<Controls::Done>& all) {
    std::string text;
    for (const Controls::Done& done : all) {
        text += (text.empty() ? "" : ", ") + std::to_string(done.port) + ":";
        if (const auto* button = std::get_if<ButtonMoved>(&done.action)) {
            text += ButtonText(button->button) + (button->pressed ? " pressed" : " let go");
        } else if (const auto* touched = std::get_if<FaderTouched>(&done.action)) {
            text += std::to_string(touched->fader) + (touched->touched ? " touched" : " free");
        } else if (const auto* pushed = std::get_if<FaderPushed>(&done.action)) {
            text += std::to_string(pushed->fader) + " at " + std::to_string(pushed->position);
        } else if (const auto* pot = std::get_if<PotTurned>(&done.action)) {
            text += "pot " + std::to_string(pot->pot) + " by " + std::to_string(pot->steps);
        } else if (const auto* jog = std::get_if<JogTurned>(&done.action)) {
            text += "jog by " + std::to_string(jog->steps);
        }
    }
    return text;
}

class ControlsTest : public testing::Test {
protected:
    ControlsTest() {
        Scene scene;
        for (std::size_t i = 0; i < mPorts.size(); ++i) {
            scene.ports.push_back({i + 1, &mPorts[i]});
        }
        mTargets = DrawPicture(24, 160, scene).targets;
    }

    std::string Perform(const std::vector<Controls::Done>& all) {
        for (const Controls::Done& done : all) {
            mPorts[done.port].Perform(done.action);
        }
        return Words(all);
    }
    std::string Key(char32_t character) {
        UserInput input;
        input.character = character;
        return Perform(mControls.Take(input, mTargets, mPorts, mNow));
    }
    std::string Key(SpecialKey key) {
        UserInput input;
        input.key = key;
        return Perform(mControls.Take(input, mTargets, mPorts, mNow));
    }
    std::string Mouse(MouseAction action, int row, int column) {
        UserInput input;
        input.kind = UserInput::Kind::kMouse;
        input.mouse = action;
        input.row = row;
        input.column = column;
        return Perform(mControls.Take(input, mTargets, mPorts, mNow));
    }
    std::string After(std::chrono::milliseconds time) {
        mNow += time;
        return Perform(mControls.Advance(mNow));
    }

    std::vector<SurfacePort> mPorts{SurfacePort(Protocol::kMackieControl),
                                    SurfacePort(Protocol::kMackieControl)};
    std::vector<Target> mTargets;
    Controls mControls{2};
    Controls::Time mNow{};
};

TEST_F(ControlsTest, PressesButtonsAndLetsThemGo) {
    EXPECT_EQ(Key(U'm'), "0:mute 1 pressed, 0:mute 1 let go");
    EXPECT_EQ(Key(U'4'), "");
    UserInput function;
    function.key = SpecialKey::kFunction;
    function.character = 3;
    EXPECT_EQ(Words(mControls.Take(function, mTargets, mPorts, mNow)), "0:f3 pressed, 0:f3 let go");
    EXPECT_FALSE(mControls.EndIsWanted());
    EXPECT_EQ(Key(U'r'), "0:record ready 4 pressed, 0:record ready 4 let go");
    EXPECT_EQ(Key(U'.'), "0:bank right pressed, 0:bank right let go");
    EXPECT_EQ(Key(SpecialKey::kEnter), "0:" + ButtonText({Button::kPotPush, 3}) + " pressed, 0:" +
                                           ButtonText({Button::kPotPush, 3}) + " let go");
}

TEST_F(ControlsTest, TouchesAFaderMovesItAndLetsItGoAfterAPause) {
    EXPECT_EQ(Key(SpecialKey::kUp), "0:0 touched, 0:0 at 256");
    EXPECT_EQ(mControls.Touched(0), 1U);
    EXPECT_EQ(After(Controls::kTouch - 1ms), "");
    EXPECT_EQ(Key(SpecialKey::kPageUp), "0:0 at 2304") << "the pause begins anew";
    EXPECT_EQ(After(Controls::kTouch - 1ms), "");
    EXPECT_EQ(After(1ms), "0:0 free");
    EXPECT_EQ(After(10s), "");
    EXPECT_EQ(mControls.Touched(0), 0U);
}

TEST_F(ControlsTest, LetsOneFaderGoBeforeItMovesAnother) {
    Key(SpecialKey::kUp);
    Key(U'9');
    EXPECT_EQ(Key(SpecialKey::kHome),
              "0:0 free, 0:8 touched, 0:8 at " + std::to_string(FaderPosition(0.0)));
    EXPECT_EQ(Key(SpecialKey::kEnd), "0:8 at 0");
}

TEST_F(ControlsTest, KeepsFadersWithinTheirEnds) {
    EXPECT_EQ(Key(SpecialKey::kDown), "0:0 touched, 0:0 at 0");
    for (int i = 0; i < 10; ++i) {
        Key(SpecialKey::kPageUp);
    }
    EXPECT_EQ(mPorts[0].Model().Fader(0), kHighestFader);
}

TEST_F(ControlsTest, GoesRoundTheStripsAndThePorts) {
    Key(SpecialKey::kLeft);
    EXPECT_EQ(mControls.ChosenFader(), kMasterFader);
    EXPECT_EQ(Key(U'm'), "") << "the master has no such button";
    EXPECT_EQ(Key(U'+'), "");
    Key(SpecialKey::kRight);
    EXPECT_EQ(mControls.ChosenFader(), 0);
    Key(SpecialKey::kBackTab);
    EXPECT_EQ(mControls.ChosenPort(), 1U);
    EXPECT_EQ(Key(U'+'), "1:pot 0 by 1");
    EXPECT_EQ(Key(U'j'), "1:jog by -1");
    Key(SpecialKey::kTab);
    EXPECT_EQ(mControls.ChosenPort(), 0U);
}

TEST_F(ControlsTest, StopsWhileTheLightOfPlayIsLit) {
    EXPECT_EQ(Key(U' '), "0:play pressed, 0:play let go");
    mPorts[0].Model().Apply(LightSet{{Button::kPlay}, LightState::kOn}, SurfaceModel::Time(0));
    EXPECT_EQ(Key(U' '), "0:stop pressed, 0:stop let go");
}

TEST_F(ControlsTest, HoldsSomeButtonsUntilTheNextPress) {
    EXPECT_EQ(Key(U'!'), "0:shift pressed");
    EXPECT_EQ(Key(U'x'), "0:stop pressed, 0:stop let go");
    EXPECT_EQ(Key(U'!'), "0:shift let go");
    EXPECT_EQ(Key(U'#'), "0:control pressed");
    Key(SpecialKey::kUp);
    EXPECT_EQ(Perform(mControls.LetGo()), "0:0 free, 0:control let go");
    EXPECT_EQ(Perform(mControls.LetGo()), "");
}

TEST_F(ControlsTest, DragsAFaderWithTheMouse) {
    // The fader of the third strip: rows 7 to 20.
    EXPECT_EQ(Mouse(MouseAction::kPress, 20, 22), "0:2 touched, 0:2 at 0");
    EXPECT_EQ(Mouse(MouseAction::kDrag, 7, 40), "0:2 at 16383") << "wherever the mouse is by now";
    EXPECT_EQ(Mouse(MouseAction::kDrag, 0, 22), "0:2 at 16383");
    EXPECT_EQ(After(10s), "") << "the mouse still holds it";
    EXPECT_EQ(Mouse(MouseAction::kRelease, 3, 3), "0:2 free");
    EXPECT_EQ(Mouse(MouseAction::kDrag, 7, 22), "");
    EXPECT_EQ(mControls.ChosenFader(), 2);
}

TEST_F(ControlsTest, TurnsFadersAndPotsWithTheWheel) {
    EXPECT_EQ(Mouse(MouseAction::kWheelUp, 10, 4), "0:0 touched, 0:0 at 256");
    EXPECT_EQ(Mouse(MouseAction::kWheelDown, 10, 4), "0:0 at 0");
    EXPECT_EQ(After(Controls::kTouch), "0:0 free");
    EXPECT_EQ(Mouse(MouseAction::kWheelDown, 4, 12), "0:pot 1 by -1");
}

TEST_F(ControlsTest, PressesWhatTheMousePressesAsLong) {
    EXPECT_EQ(Mouse(MouseAction::kPress, 6, 82), "1:mute 1 pressed");
    EXPECT_EQ(mControls.ChosenPort(), 1U);
    EXPECT_EQ(Mouse(MouseAction::kPress, 6, 2), "") << "one at a time";
    EXPECT_EQ(Mouse(MouseAction::kRelease, 20, 20), "1:mute 1 let go");
    EXPECT_EQ(Mouse(MouseAction::kPress, 1, 14), "0:play pressed");
    EXPECT_EQ(Perform(mControls.LetGo()), "0:play let go");
    EXPECT_EQ(Mouse(MouseAction::kPress, 0, 0), "") << "nothing is there";
}

TEST_F(ControlsTest, ShowsHelpUntilAKeyAndEndsByKey) {
    Key(U'?');
    EXPECT_TRUE(mControls.ShowsHelp());
    EXPECT_EQ(Mouse(MouseAction::kPress, 6, 2), "") << "it is not to be seen";
    EXPECT_EQ(Key(U'm'), "");
    EXPECT_FALSE(mControls.ShowsHelp());
    EXPECT_FALSE(mControls.EndIsWanted());
    Key(U'?');
    Key(U'q');
    EXPECT_TRUE(mControls.EndIsWanted());
}

} // namespace
} // namespace Surface
