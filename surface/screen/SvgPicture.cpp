#include "surface/screen/SvgPicture.h"

#include <fmt/format.h>

namespace Surface {

namespace {

// Of a cell, in pixels. Texts are stretched to it, whatever font the viewer has.
constexpr int kCellWidth = 8;
constexpr int kCellHeight = 17;
constexpr int kBaseline = 13;
constexpr int kMargin = 12;

const char* ClassOf(Colour colour) {
    switch (colour) {
    case Colour::kGrey:
        return "grey";
    case Colour::kRed:
        return "red";
    case Colour::kGreen:
        return "green";
    case Colour::kYellow:
        return "yellow";
    case Colour::kBlue:
        return "blue";
    case Colour::kCyan:
        return "cyan";
    case Colour::kPlain:
        break;
    }
    return "plain";
}

constexpr const char* kStyleSheet = R"(<style>
text { font-family: "DejaVu Sans Mono", "Liberation Mono", Menlo, Consolas, monospace; font-size: 13px; white-space: pre }
.plain { fill: #d6d6d2 } .grey { fill: #7d8285 } .red { fill: #f0605a } .green { fill: #6ccf6a }
.yellow { fill: #e6c95c } .blue { fill: #6fa5ea } .cyan { fill: #62cdd0 }
.screen, .on { fill: #17191b } .bold { font-weight: bold } .blinking { text-decoration: underline }
</style>
)";

std::string Escaped(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        switch (c) {
        case '&':
            escaped += "&amp;";
            break;
        case '<':
            escaped += "&lt;";
            break;
        case '>':
            escaped += "&gt;";
            break;
        default:
            escaped += c;
        }
    }
    return escaped;
}

// A part of a row whose cells look alike.
struct Run {
    int row;
    int first;
    int end;
};

void AppendRun(std::string& document, const Grid& grid, const Run& run) {
    const Style& style = grid.At(run.row, run.first).style;
    const int left = kMargin + run.first * kCellWidth;
    const int top = kMargin + run.row * kCellHeight;
    const int width = (run.end - run.first) * kCellWidth;
    std::string text;
    bool isBlank = true;
    for (int column = run.first; column < run.end; ++column) {
        const char32_t character = grid.At(run.row, column).character;
        isBlank = isBlank && character == U' ';
        AppendUtf8(text, character);
    }
    if (style.isReversed) {
        document +=
            fmt::format("<rect x=\"{}\" y=\"{}\" width=\"{}\" height=\"{}\" class=\"{}\"/>\n", left,
                        top, width, kCellHeight, ClassOf(style.colour));
    }
    if (!isBlank) {
        document += fmt::format(
            "<text x=\"{}\" y=\"{}\" textLength=\"{}\" lengthAdjust=\"spacingAndGlyphs\" "
            "class=\"{}{}{}\">{}</text>\n",
            left, top + kBaseline, width, style.isReversed ? "on" : ClassOf(style.colour),
            style.isBold ? " bold" : "", style.isBlinking ? " blinking" : "", Escaped(text));
    }
}

// The next part of the row, from `first` on: cells that look alike, without the spaces around them
// if nothing shows behind these.
Run NextRun(const Grid& grid, int row, int first) {
    const auto shows = [&](int column) {
        const Cell& cell = grid.At(row, column);
        return cell.character != U' ' || cell.style.isReversed;
    };
    while (first < grid.Columns() && !shows(first)) {
        ++first;
    }
    int end = first;
    // One space within a text belongs to it, more of them part it.
    for (int column = first; column < grid.Columns() && column <= end + 1; ++column) {
        if (shows(column)) {
            if (!(grid.At(row, column).style == grid.At(row, first).style)) {
                break;
            }
            end = column + 1;
        }
    }
    return {row, first, end};
}

} // namespace

std::string SvgPicture(const Grid& grid, const std::string& title) {
    const int width = 2 * kMargin + grid.Columns() * kCellWidth;
    const int height = 2 * kMargin + grid.Rows() * kCellHeight;
    std::string document = fmt::format(
        "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"{0}\" height=\"{1}\" viewBox=\"0 0 {0} "
        "{1}\" role=\"img\">\n<title>{2}</title>\n",
        width, height, Escaped(title));
    document += kStyleSheet;
    document += fmt::format("<rect width=\"{}\" height=\"{}\" rx=\"6\" class=\"screen\"/>\n", width,
                            height);
    for (int row = 0; row < grid.Rows(); ++row) {
        for (Run run = NextRun(grid, row, 0); run.first < grid.Columns();
             run = NextRun(grid, row, run.end)) {
            AppendRun(document, grid, run);
        }
    }
    return document + "</svg>\n";
}

} // namespace Surface
