#include "midiserver/routing/pacing/ValuePlace.h"

#include "surface/hui/HuiDecoder.h"
#include "surface/mackie/MackieDecoder.h"

#include <algorithm>

namespace MidiServer {

namespace {

// The kinds of groups, above the number of the fader, ring or display.
constexpr std::uint32_t kFader = 0x100;
constexpr std::uint32_t kRing = 0x200;
constexpr std::uint32_t kText = 0x300;
constexpr std::uint32_t kMainZones = 0x400;
constexpr std::uint32_t kDigits = 0x500;

ValuePlace Single(std::uint32_t group) {
    return {group, 0, 0};
}

// Returns the place that an event sets by itself. A HUI fader takes two messages.
struct PlaceOfEvent {
    std::optional<ValuePlace> operator()(const Surface::FaderMoved& event) const {
        return Single(kFader | event.fader);
    }
    std::optional<ValuePlace> operator()(const Surface::PotRingSet& event) const {
        return Single(kRing | event.pot);
    }
    std::optional<ValuePlace> operator()(const Surface::DigitsSet& event) const {
        return ValuePlace{kDigits | static_cast<std::uint32_t>(event.display), event.first,
                          event.first + event.count - 1U};
    }
    std::optional<ValuePlace> operator()(const Surface::TextWritten& event) const {
        const auto cells = static_cast<std::uint32_t>(event.text.size());
        return ValuePlace{kText | static_cast<std::uint32_t>(event.display), event.first,
                          event.first + cells - 1U};
    }
    std::optional<ValuePlace> operator()(const Surface::ZonesWritten& event) const {
        // Several zones need not lie side by side. So that only messages for the same ones have the
        // same place, these are in the number of the last cell; it being high, the place overlaps
        // all from the first one on.
        std::uint32_t first = Surface::ZonesWritten::kZones;
        std::uint32_t last = 0;
        std::uint32_t all = 0;
        for (std::size_t at = 0; at < event.zones.size(); at += Surface::ZonesWritten::kBytes) {
            const std::uint32_t zone = event.zones[at];
            first = std::min(first, zone);
            last = std::max(last, zone);
            all |= 1U << zone;
        }
        return ValuePlace{kMainZones, first, first == last ? last : all << 8U};
    }
    template <class Event>
    std::optional<ValuePlace> operator()(const Event& /*event*/) const {
        return std::nullopt;
    }
};

// A decoder that knows nothing of the messages before: it still tells a fader's halves apart.
Surface::SurfaceEvent HuiEvent(std::span<const std::uint8_t> message) {
    return Surface::Hui::HuiDecoder().Decode(message);
}

template <class Half>
std::optional<ValuePlace> HalfPlace(Protocol protocol, std::span<const std::uint8_t> message) {
    if (protocol == Protocol::kHui) {
        const Surface::SurfaceEvent event = HuiEvent(message);
        if (const auto* half = std::get_if<Half>(&event)) {
            return Single(kFader | half->fader);
        }
    }
    return std::nullopt;
}

} // namespace

std::optional<ValuePlace> PlaceOf(Protocol protocol, std::span<const std::uint8_t> message) {
    switch (protocol) {
    case Protocol::kMackieControl:
        return std::visit(PlaceOfEvent(), Surface::Mackie::Decode(message));
    case Protocol::kHui:
        if (!LowHalfPlace(protocol, message)) {
            return std::visit(PlaceOfEvent(), HuiEvent(message));
        }
        break;
    case Protocol::kNone:
        break;
    }
    return std::nullopt;
}

std::optional<ValuePlace> HighHalfPlace(Protocol protocol, std::span<const std::uint8_t> message) {
    return HalfPlace<Surface::FaderHalfReceived>(protocol, message);
}

std::optional<ValuePlace> LowHalfPlace(Protocol protocol, std::span<const std::uint8_t> message) {
    return HalfPlace<Surface::FaderMoved>(protocol, message);
}

} // namespace MidiServer
