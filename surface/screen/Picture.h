#pragma once

#include "surface/event/Button.h"
#include "surface/model/SurfacePort.h"
#include "surface/screen/Grid.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Surface {

// The smallest screen that a picture fits on. A larger one has longer faders, and shows as many
// ports side by side as have room with this width each.
inline constexpr int kLeastRows = 24;
inline constexpr int kPortColumns = 80;

// A port as a picture shows it.
struct ShownPort {
    std::size_t number; // from 1
    const SurfacePort* port;
    std::uint16_t touched = 0; // a bit for each fader that the user holds, the first as bit 0
};

// What a picture shows.
struct Scene {
    std::vector<ShownPort> ports; // at least one
    std::size_t chosenPort = 0;   // of these
    std::uint8_t chosenFader = 0; // which the keys move; 0 to 7, kMasterFader
    std::string status;           // for the last line, at the left
    std::string hint;             // likewise, at the right
};

// A place in a picture that the mouse works on.
struct Target {
    enum class Kind : std::uint8_t { kFader, kPot, kButton, kStrip };

    Kind kind;
    int row;
    int column;
    int rows;
    int columns;
    std::size_t port;       // of the scene's
    std::uint8_t fader = 0; // kFader, kStrip: 0 to 7, kMasterFader; kPot: the pot
    ButtonId button{};      // kButton

    bool Holds(int atRow, int atColumn) const {
        return atRow >= row && atRow < row + rows && atColumn >= column &&
               atColumn < column + columns;
    }
    // kFader: the position for a row, the highest in the first row and 0 in the last.
    std::uint16_t PositionAt(int atRow) const;
};

struct Picture {
    Grid grid;
    std::vector<Target> targets; // where they overlap, the first counts
};

// Draws a scene. All that it tells can be read off the characters alone: what is lit is in capital
// letters. On a screen that is too small, it says so.
Picture DrawPicture(int rows, int columns, const Scene& scene);

} // namespace Surface
