#include "surface/screen/Controls.h"

#include "surface/model/FaderScale.h"

#include <algorithm>

namespace Surface {

namespace {

constexpr int kWheelMove = 256;
constexpr char32_t kInterrupt = 3; // what Ctrl-C is where it raises no signal

} // namespace

std::vector<Controls::Done> Controls::Take(const UserInput& input, std::span<const Target> targets,
                                           std::span<const SurfacePort> ports, Time now) {
    std::vector<Done> done;
    if (input.kind == UserInput::Kind::kMouse && !mShowsHelp) {
        TakeMouse(input, targets, ports, now, done);
    } else if (input.kind == UserInput::Kind::kKey) {
        const std::optional<Command> command = CommandOf(input);
        if (input.key == SpecialKey::kNone && input.character == kInterrupt) {
            mEndIsWanted = true;
        } else if (mShowsHelp && (!command || command->kind != Command::Kind::kEnd)) {
            mShowsHelp = false; // any key but the one that ends the program
        } else if (command) {
            Obey(*command, ports, now, done);
        }
    }
    return done;
}

void Controls::Obey(const Command& command, std::span<const SurfacePort> ports, Time now,
                    std::vector<Done>& done) {
    const auto wrapped = [](std::size_t at, int by, std::size_t count) {
        return (at + count + static_cast<std::size_t>(by + static_cast<int>(count))) % count;
    };
    const bool isMaster = mChosenFader == kMasterFader;
    const Touch touch{mChosenPort, mChosenFader, now + kTouch};
    const SurfaceModel& model = ports[mChosenPort].Model();
    switch (command.kind) {
    case Command::Kind::kEnd:
        mEndIsWanted = true;
        break;
    case Command::Kind::kHelp:
        mShowsHelp = true;
        break;
    case Command::Kind::kOtherPort:
        mChosenPort = wrapped(mChosenPort, command.amount, mPorts);
        break;
    case Command::Kind::kChooseFader:
        mChosenFader = static_cast<std::uint8_t>(command.amount);
        break;
    case Command::Kind::kOtherFader:
        mChosenFader =
            static_cast<std::uint8_t>(wrapped(mChosenFader, command.amount, kFaderCount));
        break;
    case Command::Kind::kStripButton:
        if (!isMaster) {
            PressAndLetGo({command.button, mChosenFader}, done);
        }
        break;
    case Command::Kind::kButton:
        PressAndLetGo({command.button}, done);
        break;
    case Command::Kind::kHoldButton:
        Hold(command.button, done);
        break;
    case Command::Kind::kPlayOrStop:
        PressAndLetGo(
            {model.Light({Button::kPlay}) == LightState::kOff ? Button::kPlay : Button::kStop},
            done);
        break;
    case Command::Kind::kMoveFader:
        MoveFader(touch, model.Fader(mChosenFader) + command.amount, done);
        break;
    case Command::Kind::kFaderToUnity:
        MoveFader(touch, FaderPosition(0.0), done);
        break;
    case Command::Kind::kFaderToOff:
        MoveFader(touch, 0, done);
        break;
    case Command::Kind::kTurnPot:
        if (!isMaster) {
            done.push_back({mChosenPort, PotTurned{mChosenFader, command.amount}});
        }
        break;
    case Command::Kind::kTurnJog:
        done.push_back({mChosenPort, JogTurned{command.amount}});
        break;
    }
}

void Controls::TakeMouse(const UserInput& input, std::span<const Target> targets,
                         std::span<const SurfacePort> ports, Time now, std::vector<Done>& done) {
    if (input.mouse == MouseAction::kRelease) {
        if (mPressed) {
            done.push_back({mPressed->port, ButtonMoved{mPressed->button, false}});
            mPressed.reset();
        }
        if (mDragged) {
            mDragged.reset();
            LetGoOfFader(done);
        }
        return;
    }
    if (input.mouse == MouseAction::kDrag) {
        if (mDragged) {
            MoveFader({mDragged->port, mDragged->fader, std::nullopt},
                      mDragged->PositionAt(input.row), done);
        }
        return;
    }
    const auto target = std::find_if(targets.begin(), targets.end(), [&](const Target& each) {
        return each.Holds(input.row, input.column);
    });
    if (target == targets.end() || mPressed || mDragged) {
        return;
    }
    mChosenPort = target->port;
    if (target->kind != Target::Kind::kButton) {
        mChosenFader = target->fader;
    }
    const bool isPress = input.mouse == MouseAction::kPress;
    const int steps = input.mouse == MouseAction::kWheelUp ? 1 : -1;
    switch (target->kind) {
    case Target::Kind::kButton:
        if (isPress) {
            mPressed = Press{target->port, target->button};
            done.push_back({target->port, ButtonMoved{target->button, true}});
        }
        break;
    case Target::Kind::kPot:
        if (isPress) {
            mPressed = Press{target->port, {Button::kPotPush, target->fader}};
            done.push_back({target->port, ButtonMoved{mPressed->button, true}});
        } else {
            done.push_back({target->port, PotTurned{target->fader, steps}});
        }
        break;
    case Target::Kind::kFader:
        if (isPress) {
            mDragged = *target;
            MoveFader({target->port, target->fader, std::nullopt}, target->PositionAt(input.row),
                      done);
        } else {
            MoveFader({target->port, target->fader, now + kTouch},
                      ports[target->port].Model().Fader(target->fader) + steps * kWheelMove, done);
        }
        break;
    case Target::Kind::kStrip:
        break;
    }
}

void Controls::MoveFader(const Touch& touch, int position, std::vector<Done>& done) {
    if (mTouch && (mTouch->port != touch.port || mTouch->fader != touch.fader)) {
        LetGoOfFader(done);
    }
    if (!mTouch) {
        done.push_back({touch.port, FaderTouched{touch.fader, true}});
    }
    mTouch = touch;
    const int within = std::clamp<int>(position, 0, kHighestFader);
    done.push_back({touch.port, FaderPushed{touch.fader, static_cast<std::uint16_t>(within)}});
}

void Controls::LetGoOfFader(std::vector<Done>& done) {
    if (mTouch) {
        done.push_back({mTouch->port, FaderTouched{mTouch->fader, false}});
        mTouch.reset();
    }
}

void Controls::PressAndLetGo(ButtonId button, std::vector<Done>& done) const {
    done.push_back({mChosenPort, ButtonMoved{button, true}});
    done.push_back({mChosenPort, ButtonMoved{button, false}});
}

void Controls::Hold(Button button, std::vector<Done>& done) {
    const auto held = std::find_if(mHeld.begin(), mHeld.end(), [&](const Press& each) {
        return each.port == mChosenPort && each.button.button == button;
    });
    const bool press = held == mHeld.end();
    if (press) {
        mHeld.push_back({mChosenPort, {button}});
    } else {
        mHeld.erase(held);
    }
    done.push_back({mChosenPort, ButtonMoved{{button}, press}});
}

std::vector<Controls::Done> Controls::Advance(Time now) {
    std::vector<Done> done;
    if (mTouch && mTouch->end && now >= *mTouch->end) {
        LetGoOfFader(done);
    }
    return done;
}

std::vector<Controls::Done> Controls::LetGo() {
    std::vector<Done> done;
    LetGoOfFader(done);
    mDragged.reset();
    if (mPressed) {
        mHeld.push_back(*mPressed);
        mPressed.reset();
    }
    for (const Press& held : mHeld) {
        done.push_back({held.port, ButtonMoved{held.button, false}});
    }
    mHeld.clear();
    return done;
}

std::uint16_t Controls::Touched(std::size_t port) const {
    return mTouch && mTouch->port == port ? static_cast<std::uint16_t>(1U << mTouch->fader) : 0;
}

} // namespace Surface
