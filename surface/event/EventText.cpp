#include "surface/event/EventText.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

namespace Surface {

namespace {

constexpr std::size_t kShownBytes = 16;

std::string Quoted(std::string_view text) {
    std::string quoted = "\"";
    std::transform(text.begin(), text.end(), std::back_inserter(quoted),
                   [](char character) { return IsPrintable(character) ? character : '?'; });
    return quoted + '"';
}

std::string_view DisplayName(TextDisplay display) {
    switch (display) {
    case TextDisplay::kStrips:
        return "text";
    case TextDisplay::kStripNames:
        return "name";
    case TextDisplay::kMain:
        return "main text";
    case TextDisplay::kAssignment:
        return "assignment text";
    }
    return "";
}

std::string_view RingModeName(RingMode mode) {
    switch (mode) {
    case RingMode::kSingle:
        return "single";
    case RingMode::kBoostCut:
        return "boost/cut";
    case RingMode::kWrap:
        return "wrap";
    case RingMode::kSpread:
        return "spread";
    }
    return "";
}

std::string_view LightName(LightState state) {
    switch (state) {
    case LightState::kOff:
        return "off";
    case LightState::kFlashing:
        return "flashing";
    case LightState::kOn:
        return "on";
    }
    return "";
}

std::string_view ResetName(ResetKind kind) {
    switch (kind) {
    case ResetKind::kAll:
        return "reset";
    case ResetKind::kOffline:
        return "offline";
    case ResetKind::kFadersDown:
        return "faders down";
    case ResetKind::kLightsOff:
        return "lights off";
    }
    return "";
}

std::string_view OnOff(bool on) {
    return on ? "on" : "off";
}

struct Describe {
    std::string operator()(const TextWritten& event) const {
        return fmt::format("{} at {}: {}", DisplayName(event.display), event.first,
                           Quoted(event.text));
    }
    std::string operator()(const ZonesWritten& event) const {
        std::string text;
        for (auto zones = event.zones; !zones.empty();
             zones = zones.subspan(ZonesWritten::kBytes)) {
            const auto characters = zones.subspan(1, ZonesWritten::kCells);
            text += fmt::format(
                "{}main text at {}: {}", text.empty() ? "" : ", ", zones[0] * ZonesWritten::kCells,
                Quoted({reinterpret_cast<const char*>(characters.data()), characters.size()}));
        }
        return text;
    }
    std::string operator()(const FaderMoved& event) const {
        return fmt::format("fader {} at {}", FaderName(event.fader), event.position);
    }
    std::string operator()(const FaderHalfReceived& event) const {
        return fmt::format("fader {}, high half", FaderName(event.fader));
    }
    std::string operator()(const PotRingSet& event) const {
        return fmt::format("ring {} {} {}{}", event.pot + 1, RingModeName(event.ring.mode),
                           event.ring.value, event.ring.centre ? ", centre" : "");
    }
    std::string operator()(const MeterSet& event) const {
        std::string text = fmt::format("meter {}{}", event.strip + 1,
                                       event.falls                      ? ""
                                       : event.side == MeterSide::kLeft ? " left"
                                                                        : " right");
        if (event.level) {
            text += fmt::format(" at {}", *event.level);
        }
        if (event.overload) {
            text += fmt::format("{} overload {}", event.level ? "," : "", OnOff(*event.overload));
        }
        return text;
    }
    std::string operator()(const LightSet& event) const {
        return fmt::format("light {} {}", ButtonText(event.button), LightName(event.state));
    }
    std::string operator()(const ZoneSelected& event) const {
        return fmt::format("zone {:02X}", event.zone);
    }
    std::string operator()(const DigitsSet& event) const {
        std::string text;
        for (std::size_t digit = event.count; digit-- > 0;) {
            text += event.digits[digit].character;
            text += event.digits[digit].point ? "." : "";
        }
        return fmt::format("{} digit{} from {}: {}",
                           event.display == DigitDisplay::kTimecode ? "timecode" : "assignment",
                           event.count == 1 ? "" : "s", event.first, Quoted(text));
    }
    std::string operator()(const MeterModeSet& event) const {
        return fmt::format("meter mode {}: signal light {}, peak hold {}, on display {}",
                           event.strip + 1, OnOff(event.signalLight), OnOff(event.peakHold),
                           OnOff(event.onDisplay));
    }
    std::string operator()(const MeterDirectionSet& event) const {
        return fmt::format("meters {}", event.vertical ? "vertical" : "horizontal");
    }
    std::string operator()(const DeviceQueried& event) const {
        return fmt::format("{} of {:02X}", event.serialNumber ? "serial number query" : "query",
                           event.identity);
    }
    std::string operator()(const HostConnectionReplied& event) const {
        return fmt::format("connection reply to {:02X}, serial number {:02X}", event.identity,
                           fmt::join(event.serialNumber, " "));
    }
    std::string operator()(const VersionRequested& event) const {
        return fmt::format("version request to {:02X}", event.identity);
    }
    std::string operator()(const ResetReceived& event) const {
        return std::string(ResetName(event.kind));
    }
    std::string operator()(const SettingChanged& event) const {
        switch (event.setting) {
        case Setting::kTransportClick:
            return fmt::format("transport click {}", OnOff(event.value != 0));
        case Setting::kBacklight:
            return fmt::format("backlight for {} min", event.value);
        case Setting::kTouchlessFaders:
            return fmt::format("touchless faders {}", OnOff(event.value != 0));
        case Setting::kTouchSensitivity:
            return fmt::format("touch sensitivity of {}: {}", FaderName(event.fader), event.value);
        }
        return {};
    }
    std::string operator()(const PingReceived& /*event*/) const { return "ping"; }
    std::string operator()(const ForeignExclusive& event) const {
        return fmt::format("foreign system exclusive, {} bytes", event.size);
    }
    std::string operator()(const UnknownMessage& event) const {
        const auto shown = event.bytes.first(std::min(event.bytes.size(), kShownBytes));
        return fmt::format("unknown: {:02X}{}", fmt::join(shown, " "),
                           shown.size() < event.bytes.size() ? " ..." : "");
    }
};

} // namespace

std::string EventText(const SurfaceEvent& event) {
    return std::visit(Describe(), event);
}

} // namespace Surface
