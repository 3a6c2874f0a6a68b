#include "surface/model/FaderScale.h"

#include "midiserver/replay/session/CaptureFile.h"
#include "surface/event/SurfaceEvent.h"
#include "surface/mackie/MackieDecoder.h"

#include <gmock/gmock.h>

#include <charconv>
#include <cmath>
#include <fstream>
#include <sstream>

namespace Surface {
namespace {

TEST(FaderScaleTest, WritesDecibels) {
    EXPECT_EQ(DecibelText(0), "-∞");
    EXPECT_EQ(DecibelText(12808), "0.0");
    EXPECT_EQ(DecibelText(12790), "0.0") << "no minus before nothing";
    EXPECT_EQ(DecibelText(kHighestFader), "+6.0");
    EXPECT_EQ(DecibelText(1990), "-40.0");
    EXPECT_EQ(DecibelText(0xFFFF), "+6.0");
}

TEST(FaderScaleTest, FindsThePositionOfEveryGain) {
    EXPECT_EQ(FaderPosition(0), 12808);
    EXPECT_EQ(FaderPosition(10), kHighestFader);
    EXPECT_EQ(FaderPosition(-HUGE_VAL), 0);
    EXPECT_EQ(FaderPosition(-200), 0);
    for (std::uint16_t position = 1; position <= kHighestFader; ++position) {
        ASSERT_EQ(FaderPosition(FaderDecibels(position)), position);
    }
}

TEST(FaderScaleTest, HasMarksFromTheTopDown) {
    std::uint16_t above = kHighestFader + 1;
    for (const FaderMark& mark : FaderMarks()) {
        const std::uint16_t position = FaderPosition(mark.decibels);
        EXPECT_LT(position, above) << mark.label;
        EXPECT_LE(std::string_view(mark.label).size(), 3U);
        above = position;
    }
    EXPECT_GT(above, 0) << "off is below all";
}

// The recorded DAW writes each new gain into the lower line when it moves the fader.
TEST(FaderScaleTest, AgreesWithWhatARecordedDawWrites) {
    std::ifstream file(SURFACE_CAPTURES "/ardour-mackie-a.txt");
    std::ostringstream content;
    content << file.rdbuf();
    const auto session = MidiServer::ReadCaptureFile(content.str(), "ardour-mackie-a.txt");
    std::array<std::optional<std::uint16_t>, kFaderCount> positions;
    unsigned compared = 0;
    for (const auto& message : session) {
        const SurfaceEvent event = Mackie::Decode(message.bytes);
        if (const auto* moved = std::get_if<FaderMoved>(&event)) {
            positions[moved->fader] = moved->position;
        }
        const auto* text = std::get_if<TextWritten>(&event);
        if (!text || text->first < 56 || text->first % 7 != 0) {
            continue;
        }
        const std::size_t begin = std::min(text->text.find_first_not_of(' '), text->text.size());
        double decibels = 0;
        const auto [end, error] = std::from_chars(text->text.data() + begin,
                                                  text->text.data() + text->text.size(), decibels);
        const auto position = positions[static_cast<std::size_t>(text->first - 56) / 7];
        if (error == std::errc() && position) {
            ASSERT_NEAR(FaderDecibels(*position), decibels, 0.06) << *position;
            ++compared;
        }
    }
    EXPECT_GT(compared, 9000U);
}

} // namespace
} // namespace Surface
