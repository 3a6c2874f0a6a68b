#include "midiserver/service/ScreenText.h"

#include <fmt/format.h>

#include <vector>

namespace MidiServer {

std::string ScreenText(std::string_view text, std::size_t rows, std::size_t columns) {
    std::vector<std::string> lines;
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        lines.emplace_back(text.substr(0, end).substr(0, columns));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
    // The cursor stands below the last line, and must not make the terminal scroll.
    const std::size_t room = rows - 1;
    if (lines.size() > room) {
        const std::size_t missing = lines.size() - room + 1;
        lines.resize(room);
        lines.back() = fmt::format("and {} more lines", missing).substr(0, columns);
    }
    std::string screen = "\x1b[H"; // to the upper left corner
    for (const std::string& line : lines) {
        screen += line + "\x1b[K\n"; // erases the rest of the old line
    }
    return screen + "\x1b[J"; // and what is below
}

} // namespace MidiServer
