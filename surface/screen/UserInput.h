#pragma once

#include <cstdint>

namespace Surface {

// Keys that are no characters.
enum class SpecialKey : std::uint8_t {
    kNone,
    kUp,
    kDown,
    kLeft,
    kRight,
    kPageUp,
    kPageDown,
    kHome,
    kEnd,
    kEnter,
    kEscape,
    kTab,
    kBackTab,
    kFunction, // `character` is its number
};

enum class MouseAction : std::uint8_t { kPress, kDrag, kRelease, kWheelUp, kWheelDown };

// One thing that the user did: a key, a move of the mouse, or another size of the terminal.
struct UserInput {
    enum class Kind : std::uint8_t { kKey, kMouse, kResize };

    Kind kind = Kind::kKey;
    SpecialKey key = SpecialKey::kNone; // of kKey
    char32_t character = 0;             // of kKey, if it is no special one
    MouseAction mouse = MouseAction::kPress;
    int row = 0; // of kMouse, from 0
    int column = 0;

    bool operator==(const UserInput&) const = default;
};

} // namespace Surface
