#include "surface/screen/Picture.h"

#include "surface/model/FaderScale.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <string_view>

namespace Surface {

namespace {

// A strip is eight columns wide, with a line between it and the next.
constexpr int kStripColumns = 8;
constexpr int kStripPitch = kStripColumns + 1;
// Places in a strip, from its left.
constexpr int kKnobAt = 3;
constexpr int kTrackAt = 4;
constexpr int kKnobColumns = 3;
constexpr int kMeterAt = 7;
constexpr int kRingColumns = 7;

constexpr Style kGrey{.colour = Colour::kGrey};

struct NamedButton {
    Button button;
    const char* name;
    Colour colour;
};

// Those of a strip that have their place there: one letter each, and a word.
constexpr std::array<NamedButton, 4> kStripButtons = {{{Button::kRecordReady, "r", Colour::kRed},
                                                       {Button::kSolo, "s", Colour::kYellow},
                                                       {Button::kMute, "m", Colour::kBlue},
                                                       {Button::kSelect, "sel", Colour::kGreen}}};
constexpr std::array<int, kStripButtons.size()> kStripButtonsAt = {0, 1, 2, 4};

constexpr std::array<NamedButton, 6> kTransport = {{{Button::kRewind, "rew", Colour::kCyan},
                                                    {Button::kForward, "ffw", Colour::kCyan},
                                                    {Button::kStop, "stop", Colour::kYellow},
                                                    {Button::kPlay, "play", Colour::kGreen},
                                                    {Button::kRecord, "rec", Colour::kRed},
                                                    {Button::kCycle, "cycle", Colour::kCyan}}};

constexpr std::array<NamedButton, 3> kTimeLights = {
    {{Button::kLightTimecode, "smpte", Colour::kCyan},
     {Button::kLightBeats, "beats", Colour::kCyan},
     {Button::kLightSolo, "solo", Colour::kRed}}};

constexpr int kTimecodeAt = 30;
constexpr int kTimecodeColumns = 20;
constexpr int kTimeLightsAt = 52;
constexpr int kAssignmentAt = 73;

template <std::size_t count>
bool Holds(const std::array<NamedButton, count>& buttons, Button button) {
    return std::any_of(buttons.begin(), buttons.end(),
                       [button](const NamedButton& each) { return each.button == button; });
}

std::string Capital(std::string text) {
    for (char& c : text) {
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    return text;
}

// Draws one port's part of the picture, from its left column on.
class PortDrawing {
public:
    PortDrawing(Picture& picture, const Scene& scene, std::size_t index, int left)
        : mGrid(picture.grid),
          mTargets(picture.targets),
          mScene(scene),
          mIndex(index),
          mShown(scene.ports[index]),
          mModel(mShown.port->Model()),
          mLeft(left) {}

    void Draw() {
        DrawHead();
        DrawTransport();
        DrawDisplays();
        for (std::size_t strip = 0; strip < kFaderCount; ++strip) {
            if (strip < kMasterFader || HasMaster()) {
                DrawStrip(static_cast<std::uint8_t>(strip));
            }
        }
        DrawLights();
    }

private:
    int StripAt(std::size_t strip) const { return mLeft + static_cast<int>(strip) * kStripPitch; }

    bool IsHui() const { return mShown.port->Protocol() == MidiServer::Protocol::kHui; }
    bool HasMaster() const { return !IsHui() || mModel.Fader(kMasterFader) != 0; }

    void DrawHead() {
        const bool chosen = mIndex == mScene.chosenPort;
        const std::string name = fmt::format(" Quorvel Port {}   {} ", mShown.number,
                                             IsHui() ? "HUI" : "Mackie Control");
        mGrid.Put(0, mLeft, std::string(kPortColumns - 1, ' '), {.isReversed = chosen});
        mGrid.Put(0, mLeft, name, {.isBold = true, .isReversed = chosen});
        const MessageCounts& counts = mShown.port->Counts();
        const std::string text =
            fmt::format("{} messages, {} foreign, {} unknown ", counts.messages,
                        counts.foreignExclusive, counts.unknown);
        mGrid.Put(0, mLeft + kPortColumns - 1 - static_cast<int>(text.size()), text,
                  {.isReversed = chosen});
    }

    // Writes a light's name, in capital letters if it is lit.
    int PutLight(int row, int column, const NamedButton& light, std::uint8_t strip = 0) {
        const LightState state = mModel.Light({light.button, strip});
        const std::string name = light.name;
        if (state == LightState::kOff) {
            mGrid.Put(row, column, name, kGrey);
        } else {
            mGrid.Put(row, column, Capital(name),
                      {.colour = light.colour,
                       .isBold = true,
                       .isReversed = state == LightState::kOn,
                       .isBlinking = state == LightState::kFlashing});
        }
        return static_cast<int>(name.size());
    }

    void AddTarget(Target target) {
        target.port = mIndex;
        mTargets.push_back(target);
    }

    void AddButton(int row, int column, int columns, ButtonId button) {
        AddTarget({.kind = Target::Kind::kButton,
                   .row = row,
                   .column = column,
                   .rows = 1,
                   .columns = columns,
                   .port = mIndex,
                   .button = button});
    }

    void DrawTransport() {
        constexpr int kRow = 1;
        int column = mLeft + 1;
        for (const NamedButton& button : kTransport) {
            const int columns = PutLight(kRow, column, button);
            AddButton(kRow, column, columns, {button.button});
            column += columns + 1;
        }
        const std::string time = mModel.TimecodeText();
        mGrid.Put(kRow,
                  mLeft + kTimecodeAt +
                      std::max(kTimecodeColumns - static_cast<int>(time.size()), 0),
                  time, {.colour = Colour::kRed, .isBold = true});
        column = mLeft + kTimeLightsAt;
        for (const NamedButton& light : kTimeLights) {
            column += PutLight(kRow, column, light) + 1;
        }
        const std::string assignment = fmt::format("[{}]", mModel.AssignmentText());
        mGrid.Put(kRow, mLeft + kAssignmentAt, assignment, {.colour = Colour::kRed});
    }

    // The lines above the strips. HUI's main display comes before them, with the pots beside it.
    void DrawDisplays() {
        if (mModel.HasMainDisplay()) {
            for (std::size_t line = 0; line < SurfaceModel::kLines; ++line) {
                mGrid.Put(mRow, mLeft + 1, mModel.MainLine(line), {.colour = Colour::kCyan});
                std::string pots;
                for (std::size_t pot = kStripCount + 2 * line; pot < kStripCount + 2 * line + 2;
                     ++pot) {
                    pots += fmt::format("pot {:>2} at {:>2}   ", pot + 1, mModel.Ring(pot).value);
                }
                mGrid.Put(mRow++, mLeft + 44, pots, kGrey);
            }
        }
        mDisplayRow = mRow;
        mRow += static_cast<int>(SurfaceModel::kLines);
    }

    void DrawStrip(std::uint8_t strip) {
        const int left = StripAt(strip);
        const int ringRow = mDisplayRow + static_cast<int>(SurfaceModel::kLines);
        const int buttonRow = ringRow + 2;
        const int faderRow = buttonRow + 1;
        const int textRow = mGrid.Rows() - 3;
        if (strip < kMasterFader) {
            for (std::size_t line = 0; line < SurfaceModel::kLines; ++line) {
                mGrid.Put(mDisplayRow + static_cast<int>(line), left, mModel.StripText(strip, line),
                          {.colour = Colour::kCyan});
            }
            DrawRing(ringRow, left, strip);
            DrawStripButtons(buttonRow, left, strip);
            for (int row = mDisplayRow; row <= textRow; ++row) {
                mGrid.Put(row, left + kStripColumns, U"│", kGrey);
            }
        } else {
            mGrid.Put(mDisplayRow, left, "Master", {.colour = Colour::kCyan});
        }
        DrawFader(faderRow, left, textRow - faderRow, strip);
        if (strip < kMasterFader) {
            DrawMeter(faderRow, left, textRow - faderRow, strip);
        }
        DrawFaderText(textRow, left, strip);
        AddTarget({.kind = Target::Kind::kStrip,
                   .row = mDisplayRow,
                   .column = left,
                   .rows = textRow + 1 - mDisplayRow,
                   .columns = kStripColumns,
                   .port = mIndex,
                   .fader = strip});
    }

    // The eleven lights run round the pot from its lower left to its lower right.
    void DrawRing(int row, int left, std::uint8_t strip) {
        const PotRing& ring = mModel.Ring(strip);
        const auto lit = LitRingLights(ring);
        const auto put = [&](int atRow, int column, std::size_t light) {
            mGrid.Put(atRow, column, lit[light] ? U"●" : U"·",
                      lit[light] ? Style{.colour = Colour::kYellow} : kGrey);
        };
        for (std::size_t light = 2; light <= 8; ++light) {
            put(row, left + static_cast<int>(light) - 2, light);
        }
        put(row + 1, left + 1, 0);
        put(row + 1, left, 1);
        put(row + 1, left + 6, 9);
        put(row + 1, left + 5, 10);
        mGrid.Put(row + 1, left + 3, ring.centre ? U"●" : U"○",
                  ring.centre ? Style{.colour = Colour::kYellow} : kGrey);
        AddTarget({.kind = Target::Kind::kPot,
                   .row = row,
                   .column = left,
                   .rows = 2,
                   .columns = kRingColumns,
                   .port = mIndex,
                   .fader = strip});
    }

    void DrawStripButtons(int row, int left, std::uint8_t strip) {
        for (std::size_t i = 0; i < kStripButtons.size(); ++i) {
            const int column = left + kStripButtonsAt[i];
            const int columns = PutLight(row, column, kStripButtons[i], strip);
            AddButton(row, column, columns, {kStripButtons[i].button, strip});
        }
    }

    static int RowOfPosition(std::uint16_t position, int rows) {
        const double part = static_cast<double>(position) / kHighestFader;
        return static_cast<int>(std::lround((1.0 - part) * (rows - 1)));
    }

    void DrawFader(int top, int left, int rows, std::uint8_t strip) {
        for (int row = 0; row < rows; ++row) {
            mGrid.Put(top + row, left + kTrackAt, U"│", kGrey);
        }
        const auto mark = [&](int row, std::string_view label, int columns) {
            mGrid.Put(top + row, left + kKnobAt - columns, label, kGrey);
            mGrid.Put(top + row, left + kTrackAt, U"┼", kGrey);
        };
        int next = 0; // where there is room for a mark
        for (const FaderMark& each : FaderMarks()) {
            const int row = RowOfPosition(FaderPosition(each.decibels), rows);
            if (row >= next && row < rows - 1) {
                mark(row, each.label, static_cast<int>(std::string_view(each.label).size()));
                next = row + 1;
            }
        }
        mark(rows - 1, "-∞", 2);
        const bool touched = ((mShown.touched >> strip) & 1U) != 0;
        mGrid.Put(top + RowOfPosition(mModel.Fader(strip), rows), left + kKnobAt,
                  touched ? U"<=>" : U"[=]", {.isBold = true, .isReversed = touched});
        AddTarget({.kind = Target::Kind::kFader,
                   .row = top,
                   .column = left + kKnobAt - 1,
                   .rows = rows,
                   .columns = kKnobColumns + 2,
                   .port = mIndex,
                   .fader = strip});
    }

    void DrawMeter(int top, int left, int rows, std::uint8_t strip) {
        DrawMeterBar(top, left + kMeterAt, rows, mModel.MeterOf(strip, MeterSide::kLeft));
        // Mackie Control has one meter for each strip.
        const SurfaceModel::Meter& right = mModel.MeterOf(strip, MeterSide::kRight);
        if (IsHui() && !(right == SurfaceModel::Meter{})) {
            DrawMeterBar(top, left + kMeterAt - 1, rows, mModel.MeterOf(strip, MeterSide::kLeft));
            DrawMeterBar(top, left + kMeterAt, rows, right);
        }
    }

    // The overload light is above the bar.
    void DrawMeterBar(int top, int column, int rows, const SurfaceModel::Meter& meter) {
        mGrid.Put(top, column, meter.overload ? U"!" : U" ",
                  {.colour = Colour::kRed, .isBold = true, .isReversed = meter.overload});
        constexpr int kEighths = 8;
        const int height = rows - 1;
        const int filled = meter.level * height * kEighths / kHighestMeter;
        for (int row = 0; row < height; ++row) {
            const int below = (height - 1 - row) * kEighths;
            const int here = std::clamp(filled - below, 0, kEighths);
            const int level = below * kHighestMeter / (height * kEighths);
            const Colour colour = level >= 10  ? Colour::kRed
                                  : level >= 8 ? Colour::kYellow
                                               : Colour::kGreen;
            constexpr std::u32string_view kBars = U" ▁▂▃▄▅▆▇█";
            mGrid.Put(top + 1 + row, column, kBars.substr(static_cast<std::size_t>(here), 1),
                      {.colour = colour});
        }
    }

    void DrawFaderText(int row, int left, std::uint8_t strip) {
        const bool chosen = mIndex == mScene.chosenPort && strip == mScene.chosenFader;
        const Style style{.isBold = chosen, .isReversed = chosen};
        mGrid.Put(row, left, chosen ? ">      <" : "        ", style);
        const std::string text = DecibelText(mModel.Fader(strip));
        const auto columns = std::count_if(text.begin(), text.end(), [](char c) {
            return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
        });
        mGrid.Put(row, left + 7 - static_cast<int>(columns), text, style);
    }

    // The names of all other lights that are lit.
    void DrawLights() {
        std::string text;
        for (std::size_t i = 0; i < kButtonCount; ++i) {
            const auto button = static_cast<Button>(i);
            if (Holds(kStripButtons, button) || Holds(kTransport, button) ||
                Holds(kTimeLights, button)) {
                continue;
            }
            const std::uint8_t strips = IsStripButton(button) ? kStripCount : 1;
            for (std::uint8_t strip = 0; strip < strips; ++strip) {
                const LightState state = mModel.Light({button, strip});
                if (state != LightState::kOff) {
                    text += (text.empty() ? "" : ", ") + Capital(ButtonText({button, strip})) +
                            (state == LightState::kFlashing ? "*" : "");
                }
            }
        }
        constexpr std::size_t kMost = kPortColumns - 2;
        if (text.size() > kMost) {
            text.resize(kMost - 3);
            text += "...";
        }
        mGrid.Put(mGrid.Rows() - 2, mLeft + 1, text, {.colour = Colour::kYellow});
    }

    Grid& mGrid;
    std::vector<Target>& mTargets;
    const Scene& mScene;
    std::size_t mIndex;
    const ShownPort& mShown;
    const SurfaceModel& mModel;
    int mLeft;
    int mRow = 2; // the next that is free
    int mDisplayRow = 2;
};

} // namespace

std::uint16_t Target::PositionAt(int atRow) const {
    const int below = std::clamp(row + rows - 1 - atRow, 0, rows - 1);
    return static_cast<std::uint16_t>(below * kHighestFader / std::max(rows - 1, 1));
}

Picture DrawPicture(int rows, int columns, const Scene& scene) {
    Picture picture{Grid(rows, columns), {}};
    if (rows < kLeastRows || columns < kPortColumns) {
        picture.grid.Put(0, 0,
                         fmt::format("{} x {} is too small, {} x {} are needed", columns, rows,
                                     kPortColumns, kLeastRows));
        return picture;
    }
    const auto panels = static_cast<std::size_t>(columns / kPortColumns);
    const std::size_t first = scene.chosenPort / panels * panels;
    for (std::size_t i = first; i < std::min(first + panels, scene.ports.size()); ++i) {
        PortDrawing(picture, scene, i, static_cast<int>(i - first) * kPortColumns).Draw();
    }
    const int hintColumns = static_cast<int>(scene.hint.size());
    picture.grid.Put(rows - 1, 1, scene.status, kGrey);
    picture.grid.Put(rows - 1, columns - hintColumns - 3, "  " + scene.hint + " ", kGrey);
    return picture;
}

} // namespace Surface
