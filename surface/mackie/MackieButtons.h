#pragma once

#include "surface/event/Button.h"

#include <cstdint>
#include <optional>
#include <span>

namespace Surface::Mackie {

// The notes of Mackie Control's buttons and lights. A button and its light share one.

// Notes in a row: that of the button, or one for each strip of a strip's button.
struct NoteRange {
    std::uint8_t first;
    std::uint8_t count;
    Button button;
};

// All notes that mean something, in ascending order.
std::span<const NoteRange> NoteRanges();

// Returns the button of a note, or nothing if it has none.
std::optional<ButtonId> ButtonOfNote(std::uint8_t note);

// Returns the note of a button, or nothing if Mackie Control has no such button.
std::optional<std::uint8_t> NoteOfButton(ButtonId id);

} // namespace Surface::Mackie
