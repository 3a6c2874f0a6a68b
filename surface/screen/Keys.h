#pragma once

#include "surface/event/Button.h"
#include "surface/screen/UserInput.h"

#include <optional>
#include <span>
#include <string>
#include <vector>

namespace Surface {

// What a key does.
struct Command {
    enum class Kind {
        kEnd,
        kHelp,
        kOtherPort,    // `amount` ports on
        kChooseFader,  // number `amount`, from 0
        kOtherFader,   // `amount` faders on
        kStripButton,  // `button` of the chosen strip, pressed and let go
        kButton,       // `button`, pressed and let go
        kHoldButton,   // `button`, pressed or let go in turn
        kPlayOrStop,   // stops if the light of play is lit
        kMoveFader,    // the chosen one by `amount`
        kFaderToUnity, // the chosen one to 0 dB
        kFaderToOff,
        kTurnPot, // of the chosen strip by `amount` steps
        kTurnJog,
    };

    Kind kind;
    Button button = Button::kPlay;
    int amount = 0;
};

struct KeyBinding {
    SpecialKey key;     // or kNone, for a character
    char32_t character; // also a function key's number
    const char* name;   // for people
    Command command;
    const char* meaning; // neighbours in the list with the same meaning belong together
};

// All keys that do something.
std::span<const KeyBinding> KeyBindings();

// Returns what a key does, if anything.
std::optional<Command> CommandOf(const UserInput& key);

// What people are told: keys that belong together, and their meaning.
struct KeyLine {
    std::string keys; // "1 ... 8"
    std::string meaning;
};
std::vector<KeyLine> KeyLines();

} // namespace Surface
