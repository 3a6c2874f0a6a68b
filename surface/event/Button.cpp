#include "surface/event/Button.h"

#include <array>

namespace Surface {

namespace {

// In the order of the enumeration.
constexpr auto kNames = std::to_array<std::string_view>({
    "record ready",
    "solo",
    "mute",
    "select",
    "pot",
    "touch",
    "auto",
    "insert",

    "rewind",
    "forward",
    "stop",
    "play",
    "record",
    "cycle",
    "return to zero",
    "go to end",
    "on line",
    "quick punch",
    "talkback",
    "scrub",
    "shuttle",

    "bank left",
    "bank right",
    "channel left",
    "channel right",
    "up",
    "down",
    "left",
    "right",
    "zoom",
    "cursor mode",

    "assign track",
    "assign send",
    "assign pan",
    "assign plug-in",
    "assign equalizer",
    "assign instrument",
    "assign output",
    "assign input",
    "send a",
    "send b",
    "send c",
    "send d",
    "send e",
    "assign",
    "default",
    "suspend",
    "assign shift",
    "assign mute",
    "bypass",
    "record ready all",

    "flip",
    "global view",
    "name/value",
    "time format",
    "view midi tracks",
    "view inputs",
    "view audio tracks",
    "view instruments",
    "view aux",
    "view busses",
    "view outputs",
    "view user",
    "window mix",
    "window edit",
    "window transport",
    "window memory",
    "window status",
    "window alternate",

    "f1",
    "f2",
    "f3",
    "f4",
    "f5",
    "f6",
    "f7",
    "f8",
    "shift",
    "option",
    "control",
    "alt",

    "read",
    "write",
    "trim",
    "touch mode",
    "latch",
    "automation off",
    "enable plug-in",
    "enable pan",
    "enable fader",
    "enable send mute",
    "enable send",
    "enable mute",

    "group",
    "phase",
    "monitor",
    "group auto",
    "group suspend",
    "group create",

    "save",
    "undo",
    "cancel",
    "enter",
    "marker",
    "nudge",
    "drop",
    "replace",
    "click",
    "solo mode",
    "edit mode",
    "edit tool",
    "paste",
    "cut",
    "capture",
    "delete",
    "copy",
    "separate",
    "audition",
    "pre-roll",
    "punch in",
    "punch out",
    "post-roll",

    "parameter insert",
    "parameter assign",
    "parameter select 1",
    "parameter select 2",
    "parameter select 3",
    "parameter select 4",
    "parameter bypass",
    "parameter compare",

    "room input 1",
    "room input 2",
    "room input 3",
    "room mute",
    "discrete",
    "room output 1",
    "room output 2",
    "room output 3",
    "dim",
    "mono",

    "number 0",
    "number 1",
    "number 2",
    "number 3",
    "number 4",
    "number 5",
    "number 6",
    "number 7",
    "number 8",
    "number 9",
    "point",
    "plus",
    "minus",
    "times",
    "divide",
    "equals",
    "clear",

    "user a",
    "user b",
    "timecode light",
    "feet light",
    "beats light",
    "solo light",
    "relay click",
    "relay 1",
    "relay 2",
    "beep",
});
static_assert(kNames.size() == kButtonCount);

} // namespace

std::string_view ButtonName(Button button) {
    return kNames.at(static_cast<std::size_t>(button));
}

std::string ButtonText(ButtonId id) {
    std::string text(ButtonName(id.button));
    if (IsStripButton(id.button)) {
        text += ' ';
        text += FaderName(id.strip);
    }
    return text;
}

std::string FaderName(std::uint8_t fader) {
    return fader == kMasterFader ? "master" : std::to_string(fader + 1);
}

} // namespace Surface
