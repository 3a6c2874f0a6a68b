#include "surface/mackie/MackieEncoder.h"

#include "surface/mackie/MackieButtons.h"

#include <algorithm>

namespace Surface::Mackie {

namespace {

constexpr std::uint8_t kFirstPot = 0x10;
constexpr std::uint8_t kJogWheel = 0x3C;
constexpr std::uint8_t kBackward = 0x40; // the bit of counter-clockwise turns

struct EncodeAction {
    ShortMessages operator()(const ButtonMoved& action) const {
        const auto note = NoteOfButton(action.button);
        if (!note) {
            return {};
        }
        return {{0x90, *note, static_cast<std::uint8_t>(action.pressed ? 0x7F : 0x00)}};
    }
    ShortMessages operator()(const FaderTouched& action) const {
        return (*this)(ButtonMoved{{Button::kFaderTouch, action.fader}, action.touched});
    }
    ShortMessages operator()(const FaderPushed& action) const {
        if (action.fader >= kFaderCount) {
            return {};
        }
        const std::uint16_t position = std::min(action.position, kHighestFader);
        return {{static_cast<std::uint8_t>(0xE0 + action.fader),
                 static_cast<std::uint8_t>(position & 0x7FU),
                 static_cast<std::uint8_t>(position >> 7U)}};
    }
    ShortMessages operator()(const PotTurned& action) const {
        if (action.pot >= kStripCount) {
            return {};
        }
        return TurnMessages(static_cast<std::uint8_t>(kFirstPot + action.pot), action.steps, 0,
                            kBackward);
    }
    ShortMessages operator()(const JogTurned& action) const {
        return TurnMessages(kJogWheel, action.steps, 0, kBackward);
    }
};

std::vector<std::uint8_t> Exclusive(std::uint8_t identity, std::uint8_t command,
                                    std::span<const std::uint8_t> data) {
    const std::array<std::uint8_t, 6> header = {0xF0, 0x00, 0x00, 0x66, identity, command};
    std::vector<std::uint8_t> message(header.size() + data.size() + 1);
    std::copy(data.begin(), data.end(), std::copy(header.begin(), header.end(), message.begin()));
    message.back() = 0xF7;
    return message;
}

} // namespace

ShortMessages Encode(const UserAction& action) {
    return std::visit(EncodeAction(), action);
}

std::optional<std::vector<std::uint8_t>> AnswerTo(const SurfaceEvent& event,
                                                  std::string_view version) {
    constexpr std::uint8_t kConfirmation = 0x03;
    constexpr std::uint8_t kVersionReply = 0x14;
    if (const auto* replied = std::get_if<HostConnectionReplied>(&event)) {
        return Exclusive(replied->identity, kConfirmation, replied->serialNumber);
    }
    if (const auto* requested = std::get_if<VersionRequested>(&event)) {
        std::array<std::uint8_t, 5> characters{};
        characters.fill(' ');
        std::transform(
            version.begin(), version.begin() + std::min(version.size(), characters.size()),
            characters.begin(), [](char character) {
                return static_cast<std::uint8_t>(IsPrintable(character) ? character : ' ');
            });
        return Exclusive(requested->identity, kVersionReply, characters);
    }
    return std::nullopt;
}

} // namespace Surface::Mackie
