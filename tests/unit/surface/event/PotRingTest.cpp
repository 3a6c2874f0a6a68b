#include "surface/event/PotRing.h"

#include <gmock/gmock.h>

namespace Surface {
namespace {

std::string Lights(RingMode mode, std::uint8_t value) {
    const auto lit = LitRingLights({mode, value, false});
    std::string text;
    for (std::size_t light = 0; light < kRingLights; ++light) {
        text += lit[light] ? '*' : '.';
    }
    return text;
}

TEST(PotRingTest, LightsOneLightForASingleValue) {
    EXPECT_EQ(Lights(RingMode::kSingle, 1), "*..........");
    EXPECT_EQ(Lights(RingMode::kSingle, 6), ".....*.....");
    EXPECT_EQ(Lights(RingMode::kSingle, 11), "..........*");
}

TEST(PotRingTest, LightsFromTheMiddleForBoostAndCut) {
    EXPECT_EQ(Lights(RingMode::kBoostCut, 1), "******.....");
    EXPECT_EQ(Lights(RingMode::kBoostCut, 4), "...***.....");
    EXPECT_EQ(Lights(RingMode::kBoostCut, 6), ".....*.....");
    EXPECT_EQ(Lights(RingMode::kBoostCut, 11), ".....******");
}

TEST(PotRingTest, LightsFromTheFirstForWrap) {
    EXPECT_EQ(Lights(RingMode::kWrap, 1), "*..........");
    EXPECT_EQ(Lights(RingMode::kWrap, 4), "****.......");
    EXPECT_EQ(Lights(RingMode::kWrap, 11), "***********");
}

TEST(PotRingTest, LightsToBothSidesForSpread) {
    EXPECT_EQ(Lights(RingMode::kSpread, 1), ".....*.....");
    EXPECT_EQ(Lights(RingMode::kSpread, 3), "...*****...");
    EXPECT_EQ(Lights(RingMode::kSpread, 6), "***********");
    EXPECT_EQ(Lights(RingMode::kSpread, 11), "***********") << "more than the ring has";
}

TEST(PotRingTest, IsDarkInEveryModeForNoValue) {
    for (const RingMode mode :
         {RingMode::kSingle, RingMode::kBoostCut, RingMode::kWrap, RingMode::kSpread}) {
        EXPECT_EQ(Lights(mode, 0), "...........");
        EXPECT_EQ(Lights(mode, 12), "...........");
    }
}

TEST(PotRingTest, ReadsEveryByteByItsBits) {
    for (unsigned byte = 0; byte < 256; ++byte) {
        const auto ring = RingOfByte(static_cast<std::uint8_t>(byte));
        const unsigned value = byte % 16;
        ASSERT_EQ(ring.has_value(), byte < 128 && value < 12) << byte;
        if (ring) {
            EXPECT_EQ(ring->value, value);
            EXPECT_EQ(static_cast<unsigned>(ring->mode), byte / 16 % 4);
            EXPECT_EQ(ring->centre, byte / 64 == 1);
        }
    }
}

} // namespace
} // namespace Surface
