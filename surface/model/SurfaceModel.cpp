#include "surface/model/SurfaceModel.h"

#include <algorithm>
#include <span>
#include <utility>

namespace Surface {

namespace {

constexpr std::size_t kLineCells = CellsOf(TextDisplay::kStrips) / SurfaceModel::kLines;
constexpr std::size_t kNameCells = CellsOf(TextDisplay::kStripNames) / kStripCount;
constexpr auto kNeverFalls = SurfaceModel::Time::max();

// Returns digits from left to right.
std::string TextOfDigits(std::span<const Digit> digits) {
    std::string text;
    for (auto digit = digits.rbegin(); digit != digits.rend(); ++digit) {
        text += digit->character;
        if (digit->point) {
            text += '.';
        }
    }
    return text;
}

// Puts text into cells and calls `note` with the number of each cell that changes.
template <class Note>
void Put(std::span<char> cells, std::size_t first, std::string_view text, const Note& note) {
    for (std::size_t at = 0; at < text.size() && first + at < cells.size(); ++at) {
        const char character = IsPrintable(text[at]) ? text[at] : ' ';
        if (cells[first + at] != character) {
            cells[first + at] = character;
            note(first + at);
        }
    }
}

} // namespace

struct SurfaceModel::ApplyEvent {
    SurfaceModel& model;

    void operator()(const TextWritten& event) const {
        model.Write(event.display, event.first, event.text);
    }
    void operator()(const ZonesWritten& event) const {
        for (auto zones = event.zones; !zones.empty();
             zones = zones.subspan(ZonesWritten::kBytes)) {
            model.Write(TextDisplay::kMain, zones[0] * ZonesWritten::kCells,
                        {reinterpret_cast<const char*>(zones.data()) + 1, ZonesWritten::kCells});
        }
    }
    void operator()(const FaderMoved& event) const { model.SetFader(event.fader, event.position); }
    void operator()(const PotRingSet& event) const {
        if (model.Assign(model.mRings.at(event.pot), event.ring)) {
            if (event.pot < kStripCount) {
                model.mChanges.Note(StripPart::kRing, event.pot);
            } else {
                model.mChanges.Note(SharedPart::kMainDisplay);
            }
        }
    }
    void operator()(const MeterSet& event) const {
        const auto side = static_cast<std::size_t>(event.side);
        Meter meter = model.mMeters.at(event.strip).at(side);
        if (event.level) {
            meter.level = *event.level;
            model.mNextFall.at(event.strip).at(side) =
                event.falls ? model.mNow + kMeterStep : kNeverFalls;
        }
        meter.overload = event.overload.value_or(meter.overload);
        if (model.Assign(model.mMeters.at(event.strip).at(side), meter)) {
            model.mChanges.Note(StripPart::kMeter, event.strip);
        }
    }
    void operator()(const LightSet& event) const { model.SetLight(event.button, event.state); }
    void operator()(const DigitsSet& event) const {
        const bool timecode = event.display == DigitDisplay::kTimecode;
        const std::span<Digit> digits =
            timecode ? std::span<Digit>(model.mTimecode) : std::span<Digit>(model.mAssignment);
        bool changes = !timecode && model.Assign(model.mAssignmentIsText, false);
        for (std::size_t digit = 0; digit < event.count; ++digit) {
            changes |= model.Assign(digits[event.first + digit], event.digits[digit]);
        }
        if (changes) {
            model.mChanges.Note(timecode ? SharedPart::kTimecode : SharedPart::kAssignment);
        }
    }
    void operator()(const MeterModeSet& event) const {
        if (model.Assign(model.mMeterModes.at(event.strip),
                         MeterMode{event.signalLight, event.peakHold, event.onDisplay})) {
            model.mChanges.Note(StripPart::kMeter, event.strip);
        }
    }
    void operator()(const MeterDirectionSet& event) const {
        if (model.Assign(model.mMetersVertical, event.vertical)) {
            for (std::size_t strip = 0; strip < kStripCount; ++strip) {
                model.mChanges.Note(StripPart::kMeter, strip);
            }
        }
    }
    void operator()(const ResetReceived& event) const { model.Reset(event.kind); }

    // What shows nothing.
    void operator()(const FaderHalfReceived& /*event*/) const {}
    void operator()(const ZoneSelected& /*event*/) const {}
    void operator()(const DeviceQueried& /*event*/) const {}
    void operator()(const HostConnectionReplied& /*event*/) const {}
    void operator()(const VersionRequested& /*event*/) const {}
    void operator()(const SettingChanged& /*event*/) const {}
    void operator()(const PingReceived& /*event*/) const {}
    void operator()(const ForeignExclusive& /*event*/) const {}
    void operator()(const UnknownMessage& /*event*/) const {}
};

SurfaceModel::SurfaceModel() {
    mStrips.fill(' ');
    mMain.fill(' ');
    mAssignmentText.fill(' ');
    mChanges.NoteAll();
}

void SurfaceModel::Apply(const SurfaceEvent& event, Time now) {
    // What the meters have fallen until now comes before what sets them.
    Advance(now);
    std::visit(ApplyEvent{*this}, event);
}

void SurfaceModel::Advance(Time now) {
    // The next fall must be a time, too.
    mNow = std::max(mNow, std::min(now, kNeverFalls - kMeterStep));
    for (std::size_t strip = 0; strip < kStripCount; ++strip) {
        for (std::size_t side = 0; side < mMeters[strip].size(); ++side) {
            Meter& meter = mMeters[strip][side];
            Time& next = mNextFall[strip][side];
            if (meter.level == 0 || next > mNow) {
                continue;
            }
            const auto steps = std::min<Time::rep>(1 + (mNow - next) / kMeterStep, meter.level);
            meter.level = static_cast<std::uint8_t>(meter.level - steps);
            next += steps * kMeterStep;
            mChanges.Note(StripPart::kMeter, strip);
        }
    }
}

void SurfaceModel::SetFader(std::uint8_t fader, std::uint16_t position) {
    if (Assign(mFaders.at(fader), std::min(position, kHighestFader))) {
        if (fader < kStripCount) {
            mChanges.Note(StripPart::kFader, fader);
        } else {
            mChanges.Note(SharedPart::kMaster);
        }
    }
}

void SurfaceModel::Write(TextDisplay display, std::size_t first, std::string_view text) {
    switch (display) {
    case TextDisplay::kStrips:
        Put(mStrips, first, text, [this](std::size_t cell) {
            mChanges.Note(StripPart::kText, cell % kLineCells / kStripCells);
        });
        break;
    case TextDisplay::kStripNames:
        for (std::size_t at = 0; at < text.size(); ++at) {
            const std::size_t strip = (first + at) / kNameCells;
            Put(mStrips, strip * kStripCells + (first + at) % kNameCells, text.substr(at, 1),
                [this, strip](std::size_t /*cell*/) { mChanges.Note(StripPart::kText, strip); });
        }
        break;
    case TextDisplay::kMain:
        if (Assign(mMainDisplayUsed, true)) {
            mChanges.Note(SharedPart::kMainDisplay);
        }
        Put(mMain, first, text,
            [this](std::size_t /*cell*/) { mChanges.Note(SharedPart::kMainDisplay); });
        break;
    case TextDisplay::kAssignment:
        if (Assign(mAssignmentIsText, true)) {
            mChanges.Note(SharedPart::kAssignment);
        }
        Put(mAssignmentText, first, text,
            [this](std::size_t /*cell*/) { mChanges.Note(SharedPart::kAssignment); });
        break;
    }
}

void SurfaceModel::SetLight(ButtonId button, LightState state) {
    LightState& light = mLights.at(static_cast<std::size_t>(button.button)).at(button.strip);
    if (!Assign(light, state)) {
        return;
    }
    if (!IsStripButton(button.button)) {
        mChanges.Note(SharedPart::kLights);
    } else if (button.strip < kStripCount) {
        mChanges.Note(StripPart::kLights, button.strip);
    } else {
        mChanges.Note(SharedPart::kMaster);
    }
}

void SurfaceModel::Reset(ResetKind kind) {
    switch (kind) {
    case ResetKind::kFadersDown:
        for (std::uint8_t fader = 0; fader < kFaderCount; ++fader) {
            SetFader(fader, 0);
        }
        return;
    case ResetKind::kLightsOff:
        for (std::size_t button = 0; button < kButtonCount; ++button) {
            for (std::uint8_t strip = 0; strip < kFaderCount; ++strip) {
                SetLight({static_cast<Button>(button), strip}, LightState::kOff);
            }
        }
        return;
    case ResetKind::kAll:
    case ResetKind::kOffline:
        break;
    }
    const Time now = mNow;
    *this = SurfaceModel();
    mNow = now;
}

SurfaceChanges SurfaceModel::TakeChanges() {
    return std::exchange(mChanges, {});
}

std::string SurfaceModel::StripText(std::size_t strip, std::size_t line) const {
    return Line(line).substr(strip * kStripCells, kStripCells);
}

std::string SurfaceModel::Line(std::size_t line) const {
    return {mStrips.data() + line * kLineCells, kLineCells};
}

std::string_view SurfaceModel::MainLine(std::size_t line) const {
    return {mMain.data() + line * kMainCells, kMainCells};
}

std::string SurfaceModel::TimecodeText() const {
    return TextOfDigits(mTimecode);
}

std::string SurfaceModel::AssignmentText() const {
    return mAssignmentIsText ? std::string(mAssignmentText.data(), mAssignmentText.size())
                             : TextOfDigits(mAssignment);
}

} // namespace Surface
