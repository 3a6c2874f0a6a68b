// Alone in its program, since only the first record of a process is the first one.
#include "tests/unit/hsl/LoggingTest.h"

#include <gmock/gmock.h>

namespace HSL {
namespace {

class FirstRecordTest : public LoggingTest {};

TEST_F(FirstRecordTest, ShowsNoTimeSinceAnother) {
    OwnContext context;
    context.Log(kCat, "first");
    EXPECT_THAT(CollectLines(),
                testing::ElementsAre(
                    "     1  01:46:40.000000  (00.000000) :  [Own               ]\tfirst\n"));
}

} // namespace
} // namespace HSL
