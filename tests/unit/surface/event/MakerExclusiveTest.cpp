#include "surface/event/MakerExclusive.h"

#include <gmock/gmock.h>

namespace Surface {
namespace {

using Bytes = std::vector<std::uint8_t>;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(MakerExclusiveTest, FindsTheDeviceAndTheData) {
    const Bytes message = {0xF0, 0x00, 0x00, 0x66, 0x14, 0x12, 0x41, 0xF7};
    const auto exclusive = MakerExclusiveOf(message);
    ASSERT_TRUE(exclusive);
    EXPECT_EQ(exclusive->identity, 0x14);
    EXPECT_THAT(exclusive->data, ElementsAre(0x12, 0x41));

    const Bytes shortest = {0xF0, 0x00, 0x00, 0x66, 0x14, 0xF7};
    ASSERT_TRUE(MakerExclusiveOf(shortest));
    EXPECT_THAT(MakerExclusiveOf(shortest)->data, IsEmpty());
}

TEST(MakerExclusiveTest, RefusesWhatIsCutOrAnotherMakes) {
    EXPECT_FALSE(MakerExclusiveOf({}));
    EXPECT_FALSE(MakerExclusiveOf(Bytes{0xF0, 0x00, 0x00, 0x66, 0xF7}));
    EXPECT_FALSE(MakerExclusiveOf(Bytes{0xF0, 0x00, 0x00, 0x66, 0x14, 0x12}));
    EXPECT_FALSE(MakerExclusiveOf(Bytes{0xF0, 0x00, 0x00, 0x67, 0x15, 0x13, 0xF7}));
}

TEST(MakerExclusiveTest, TellsAnotherMakeFromWhatIsUnknown) {
    const auto isForeign = [](const Bytes& message) {
        return std::holds_alternative<ForeignExclusive>(EventOfUnknown(message));
    };
    EXPECT_TRUE(isForeign({0xF0, 0x00, 0x00, 0x67, 0x15, 0x13, 0xF7}));
    EXPECT_TRUE(isForeign({0xF0, 0x7E, 0x7F, 0x06, 0x01, 0xF7}));
    EXPECT_TRUE(isForeign({0xF0, 0xF7}));
    EXPECT_FALSE(isForeign({0xF0, 0x00, 0x00, 0x66, 0x17, 0x30, 0xF7}));
    EXPECT_FALSE(isForeign({0xC0, 0x00}));
    EXPECT_FALSE(isForeign({}));
}

} // namespace
} // namespace Surface
