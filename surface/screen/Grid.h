#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Surface {

enum class Colour : std::uint8_t { kPlain, kGrey, kRed, kGreen, kYellow, kBlue, kCyan };

// How a character looks. A terminal shows of it what it can, so nothing may be told by it alone.
struct Style {
    Colour colour = Colour::kPlain;
    bool isBold = false;
    bool isReversed = false; // the colour behind the character
    bool isBlinking = false;

    bool operator==(const Style&) const = default;
};

struct Cell {
    char32_t character = U' ';
    Style style;

    bool operator==(const Cell&) const = default;
};

// A Grid is a picture made of characters, each as wide as one column: what a terminal shows, what
// the SVG picture is made of and what tests read. Rows and columns count from 0 at the top left.
//
//     Grid grid(24, 80);
//     grid.Put(0, 2, U"fader", {.isBold = true});
//     grid.Text(); // for people and tests
//
// Whatever lies outside the grid is left out. Not synchronised.
class Grid {
public:
    Grid(int rows, int columns);

    int Rows() const { return mRows; }
    int Columns() const { return mColumns; }

    // The cell must lie in the grid.
    const Cell& At(int row, int column) const { return mCells[Index(row, column)]; }

    // Write a text from this cell to the right. The second takes UTF-8; what is none, and what
    // would move a terminal's cursor, becomes a '?'.
    void Put(int row, int column, std::u32string_view text, Style style = {});
    void Put(int row, int column, std::string_view text, Style style = {});

    // A row in UTF-8, without the spaces at its end, and all rows, each ended by a newline.
    std::string Row(int row) const;
    std::string Text() const;

    bool operator==(const Grid&) const = default;

private:
    std::size_t Index(int row, int column) const {
        return static_cast<std::size_t>(row) * static_cast<std::size_t>(mColumns) +
               static_cast<std::size_t>(column);
    }

    int mRows;
    int mColumns;
    std::vector<Cell> mCells;
};

// Adds a character to a text in UTF-8.
void AppendUtf8(std::string& text, char32_t character);

} // namespace Surface
