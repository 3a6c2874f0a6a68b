#include "surface/event/UserAction.h"

#include <gmock/gmock.h>

#include <limits>

namespace Surface {
namespace {

using Message = std::array<std::uint8_t, 3>;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(UserActionTest, TurnsByStepsAndTheirDirection) {
    EXPECT_THAT(TurnMessages(0x10, 1, 0, 0x40), ElementsAre(Message{0xB0, 0x10, 0x01}));
    EXPECT_THAT(TurnMessages(0x10, -7, 0, 0x40), ElementsAre(Message{0xB0, 0x10, 0x47}));
    EXPECT_THAT(TurnMessages(0x44, 63, 0x40, 0), ElementsAre(Message{0xB0, 0x44, 0x7F}));
    EXPECT_THAT(TurnMessages(0x44, -63, 0x40, 0), ElementsAre(Message{0xB0, 0x44, 0x3F}));
}

TEST(UserActionTest, SendsNoTurnForNoSteps) {
    EXPECT_THAT(TurnMessages(0x10, 0, 0, 0x40), IsEmpty());
}

TEST(UserActionTest, LimitsTheStepsToWhatAMessageHolds) {
    EXPECT_EQ(TurnMessages(0x10, 64, 0, 0x40), TurnMessages(0x10, kMostSteps, 0, 0x40));
    EXPECT_EQ(TurnMessages(0x10, std::numeric_limits<int>::min(), 0, 0x40),
              TurnMessages(0x10, -kMostSteps, 0, 0x40));
}

} // namespace
} // namespace Surface
