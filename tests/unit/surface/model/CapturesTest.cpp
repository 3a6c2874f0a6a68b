// What a surface shows after recorded sessions of a DAW, as text in tests/data/surface. Where a
// picture differs, the one of this run is in the test's message.
#include "midiserver/replay/session/CaptureFile.h"
#include "surface/event/EventText.h"
#include "surface/model/FaderScale.h"
#include "surface/model/SurfacePort.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace Surface {
namespace {

using MidiServer::Protocol;

std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file) << path;
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

// Returns the names of the lights that are on, or those of one strip.
std::string Lit(const SurfaceModel& model, std::optional<std::uint8_t> strip) {
    std::string text;
    for (std::size_t number = 0; number < kButtonCount; ++number) {
        const auto button = static_cast<Button>(number);
        if (IsStripButton(button) != strip.has_value()) {
            continue;
        }
        const LightState state = model.Light({button, strip.value_or(0)});
        if (state != LightState::kOff) {
            text += fmt::format("{}{}{}", text.empty() ? "" : ", ", ButtonName(button),
                                state == LightState::kFlashing ? " (flashing)" : "");
        }
    }
    return text.empty() ? "none" : text;
}

std::string Picture(const SurfacePort& port) {
    const SurfaceModel& model = port.Model();
    std::string text = fmt::format("|{}|\n|{}|\nassignment |{}| timecode |{}|\n", model.Line(0),
                                   model.Line(1), model.AssignmentText(), model.TimecodeText());
    for (std::uint8_t strip = 0; strip < kStripCount; ++strip) {
        std::string ring;
        for (std::size_t light = 0; light < kRingLights; ++light) {
            ring += LitRingLights(model.Ring(strip))[light] ? '*' : '.';
        }
        const SurfaceModel::Meter& meter = model.MeterOf(strip, MeterSide::kLeft);
        text += fmt::format("{} ring {}{} fader {:5} {:>6} meter {:2}{} lights {}\n", strip + 1,
                            ring, model.Ring(strip).centre ? " o" : "  ", model.Fader(strip),
                            DecibelText(model.Fader(strip)), meter.level,
                            meter.overload ? " overload" : "", Lit(model, strip));
    }
    text += fmt::format("master {} {}\nlights {}\n", model.Fader(kMasterFader),
                        DecibelText(model.Fader(kMasterFader)), Lit(model, {}));
    const MessageCounts& counts = port.Counts();
    return text + fmt::format("messages {} pings {} foreign {} unknown {} repeated {}\n",
                              counts.messages, counts.pings, counts.foreignExclusive,
                              counts.unknown, counts.repeated);
}

struct Session {
    const char* capture;
    Protocol protocol;
    std::uint64_t seconds; // of the capture; all that came later is left out
    const char* picture;
};

class CapturesTest : public testing::TestWithParam<Session> {};

TEST_P(CapturesTest, ShowsThePictureOfTheSession) {
    const Session& session = GetParam();
    const auto messages = MidiServer::ReadCaptureFile(
        ReadFile(SURFACE_CAPTURES + std::string("/") + session.capture), session.capture);
    SurfacePort port(session.protocol);
    for (const auto& message : messages) {
        const SurfaceModel::Time now(message.microseconds);
        if (now > std::chrono::seconds(session.seconds)) {
            break;
        }
        const std::string line = EventText(port.Receive(message.bytes, now));
        ASSERT_FALSE(line.empty());
        ASSERT_THAT(line, testing::Each(testing::Truly(IsPrintable)));
    }
    EXPECT_EQ(Picture(port), ReadFile(SURFACE_PICTURES + std::string("/") + session.picture));
}

INSTANTIATE_TEST_SUITE_P(
    Ardour, CapturesTest,
    testing::Values(
        Session{"ardour-mackie-a.txt", Protocol::kMackieControl, 30, "ardour-mackie-a-30s.txt"},
        Session{"ardour-mackie-a.txt", Protocol::kMackieControl, 3600, "ardour-mackie-a.txt"},
        Session{"ardour-buttons.txt", Protocol::kMackieControl, 12, "ardour-buttons-12s.txt"},
        Session{"ardour-buttons.txt", Protocol::kMackieControl, 3600, "ardour-buttons.txt"},
        Session{"ardour-hui.txt", Protocol::kHui, 3600, "ardour-hui.txt"}),
    [](const testing::TestParamInfo<Session>& session) {
        std::string name = std::filesystem::path(session.param.picture).stem().string();
        std::replace(name.begin(), name.end(), '-', '_');
        return name;
    });

} // namespace
} // namespace Surface
