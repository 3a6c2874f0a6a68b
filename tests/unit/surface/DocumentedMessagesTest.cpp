// The tables of messages in docs/surface.md against what the code does.
#include "surface/event/EventText.h"
#include "surface/hui/HuiButtons.h"
#include "surface/hui/HuiDecoder.h"
#include "surface/hui/HuiEncoder.h"
#include "surface/mackie/MackieButtons.h"
#include "surface/mackie/MackieDecoder.h"
#include "surface/mackie/MackieEncoder.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gmock/gmock.h>

#include <fstream>
#include <functional>
#include <map>
#include <set>
#include <sstream>

namespace Surface {
namespace {

using Cells = std::vector<std::string>;

// Returns the rows of the table below a heading, without the table's own two.
std::vector<Cells> Rows(const std::string& heading) {
    std::ifstream page(SURFACE_PAGE);
    EXPECT_TRUE(page);
    std::vector<Cells> rows;
    std::string line;
    while (std::getline(page, line) && line != heading) {
    }
    while (std::getline(page, line) && !line.starts_with('#')) {
        if (!line.starts_with('|')) {
            continue;
        }
        Cells cells;
        std::istringstream rest(line.substr(1));
        for (std::string cell; std::getline(rest, cell, '|');) {
            const std::size_t first = cell.find_first_not_of(' ');
            const std::size_t last = cell.find_last_not_of(' ');
            cells.push_back(first == std::string::npos ? "" : cell.substr(first, last - first + 1));
        }
        rows.push_back(cells);
    }
    EXPECT_GT(rows.size(), 2U) << heading;
    rows.erase(rows.begin(), rows.begin() + std::min<std::ptrdiff_t>(2, std::ssize(rows)));
    return rows;
}

// Returns what stands between backticks.
std::string Code(const std::string& cell) {
    EXPECT_TRUE(cell.size() > 2 && cell.front() == '`' && cell.back() == '`') << cell;
    return cell.size() > 2 ? cell.substr(1, cell.size() - 2) : "";
}

std::vector<std::uint8_t> BytesOf(const std::string& hexadecimal) {
    std::vector<std::uint8_t> bytes;
    std::istringstream text(hexadecimal);
    for (std::string byte; text >> byte;) {
        bytes.push_back(static_cast<std::uint8_t>(std::stoul(byte, nullptr, 16)));
    }
    return bytes;
}

// Checks each row's example and adds the kinds of its events.
void CheckExamples(const std::string& heading,
                   const std::function<SurfaceEvent(std::span<const std::uint8_t>)>& decode,
                   std::set<std::size_t>& kinds) {
    for (const Cells& row : Rows(heading)) {
        ASSERT_EQ(row.size(), 4U) << row[0];
        const std::vector<std::uint8_t> bytes = BytesOf(Code(row[2]));
        const SurfaceEvent event = decode(bytes);
        EXPECT_EQ(EventText(event), Code(row[3])) << row[0];
        EXPECT_EQ(std::holds_alternative<UnknownMessage>(event), row[0] == "anything else");
        kinds.insert(event.index());
    }
}

TEST(DocumentedMessagesTest, AreLoggedAsThePageSaysAndLackNoKind) {
    std::set<std::size_t> kinds;
    CheckExamples("### From the DAW: Mackie Control", Mackie::Decode, kinds);
    Hui::HuiDecoder decoder;
    CheckExamples(
        "### From the DAW: HUI",
        [&decoder](std::span<const std::uint8_t> message) { return decoder.Decode(message); },
        kinds);
    EXPECT_EQ(kinds.size(), std::variant_size_v<SurfaceEvent>);
}

std::string CodeOf(const ShortMessages& messages) {
    std::vector<std::string> codes;
    for (const auto& message : messages) {
        codes.push_back(fmt::format("`{:02X}`", fmt::join(message, " ")));
    }
    return fmt::format("{}", fmt::join(codes, ", "));
}

TEST(DocumentedMessagesTest, AreSentAsThePageSays) {
    const std::map<std::string, UserAction> actions = {
        {"play pressed", ButtonMoved{{Button::kPlay}, true}},
        {"play let go", ButtonMoved{{Button::kPlay}, false}},
        {"mute 3 pressed", ButtonMoved{{Button::kMute, 2}, true}},
        {"fader 3 touched", FaderTouched{2, true}},
        {"fader 3 to 10944", FaderPushed{2, 10944}},
        {"fader 3 let go", FaderTouched{2, false}},
        {"master to 16383", FaderPushed{kMasterFader, 16383}},
        {"pot 1, one step clockwise", PotTurned{0, 1}},
        {"pot 1, seven steps counter-clockwise", PotTurned{0, -7}},
        {"pot 12, one step clockwise", PotTurned{11, 1}},
        {"jog wheel, one step clockwise", JogTurned{1}},
        {"jog wheel, one step counter-clockwise", JogTurned{-1}}};
    const std::vector<Cells> rows = Rows("### To the DAW");
    EXPECT_EQ(rows.size(), actions.size());
    for (const Cells& row : rows) {
        ASSERT_EQ(row.size(), 3U);
        ASSERT_TRUE(actions.contains(row[0])) << row[0];
        EXPECT_EQ(row[1], CodeOf(Mackie::Encode(actions.at(row[0])))) << row[0];
        EXPECT_EQ(row[2], CodeOf(Hui::Encode(actions.at(row[0])))) << row[0];
    }
}

TEST(DocumentedMessagesTest, ListEveryButton) {
    std::map<Button, std::string> notes;
    for (const Mackie::NoteRange& range : Mackie::NoteRanges()) {
        notes[range.button] = range.count == 1 ? fmt::format("`{:02X}`", range.first)
                                               : fmt::format("`{:02X}` to `{:02X}`", range.first,
                                                             range.first + range.count - 1);
    }
    const std::vector<Cells> rows = Rows("### Buttons and lights");
    ASSERT_EQ(rows.size(), kButtonCount);
    for (std::size_t number = 0; number < kButtonCount; ++number) {
        const auto button = static_cast<Button>(number);
        std::string place;
        if (const auto found = Hui::PlaceOfButton({button})) {
            place = fmt::format("`{:02X}`{}, {}", found->zone,
                                IsStripButton(button) ? " to `07`" : "", found->port);
        }
        EXPECT_EQ(rows[number], (Cells{std::string(ButtonName(button)), notes[button], place}));
    }
}

} // namespace
} // namespace Surface
