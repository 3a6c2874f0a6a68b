#include "surface/screen/HelpPage.h"

#include "surface/screen/Keys.h"

namespace Surface {

namespace {

constexpr int kHalf = 40;
constexpr int kMeaningAt = 15;

} // namespace

Grid DrawHelpPage(int rows, int columns) {
    Grid grid(rows, columns);
    grid.Put(0, 1, "Keys", {.isBold = true});
    grid.Put(0, kHalf + 1, "any key goes back", {.colour = Colour::kGrey});
    const std::vector<KeyLine> lines = KeyLines();
    const std::size_t half = (lines.size() + 1) / 2;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const int row = 2 + static_cast<int>(i % half);
        const int column = 1 + kHalf * static_cast<int>(i / half);
        grid.Put(row, column, lines[i].keys, {.colour = Colour::kCyan, .isBold = true});
        grid.Put(row, column + kMeaningAt, lines[i].meaning);
    }
    const int below = 3 + static_cast<int>(half);
    grid.Put(below, 1, "Mouse", {.isBold = true});
    grid.Put(below + 1, 1, "drag a fader, or turn the wheel on it or on a pot; click a button,");
    grid.Put(below + 2, 1, "a pot or a strip");
    return grid;
}

} // namespace Surface
