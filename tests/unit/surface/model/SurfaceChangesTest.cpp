#include "surface/model/SurfaceChanges.h"

#include <gmock/gmock.h>

namespace Surface {
namespace {

constexpr std::array kStripParts = {StripPart::kText, StripPart::kRing, StripPart::kLights,
                                    StripPart::kMeter, StripPart::kFader};
constexpr std::array kSharedParts = {SharedPart::kMaster, SharedPart::kLights,
                                     SharedPart::kTimecode, SharedPart::kAssignment,
                                     SharedPart::kMainDisplay};

std::size_t Count(const SurfaceChanges& changes) {
    std::size_t count = 0;
    for (const SharedPart part : kSharedParts) {
        count += changes.Has(part) ? 1 : 0;
    }
    for (std::size_t strip = 0; strip < kStripCount; ++strip) {
        for (const StripPart part : kStripParts) {
            count += changes.Has(part, strip) ? 1 : 0;
        }
    }
    return count;
}

TEST(SurfaceChangesTest, KeepsEveryPartApart) {
    EXPECT_FALSE(SurfaceChanges().Any());
    for (const SharedPart part : kSharedParts) {
        SurfaceChanges changes;
        changes.Note(part);
        EXPECT_TRUE(changes.Has(part) && changes.Any());
        EXPECT_EQ(Count(changes), 1U);
    }
    for (std::size_t strip = 0; strip < kStripCount; ++strip) {
        for (const StripPart part : kStripParts) {
            SurfaceChanges changes;
            changes.Note(part, strip);
            EXPECT_TRUE(changes.Has(part, strip) && changes.Any());
            EXPECT_EQ(Count(changes), 1U);
        }
    }
    SurfaceChanges all;
    all.NoteAll();
    EXPECT_EQ(Count(all), kStripCount * kStripParts.size() + kSharedParts.size());
}

} // namespace
} // namespace Surface
