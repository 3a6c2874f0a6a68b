#include "hsl/LogIndent.h"

#include "tests/unit/hsl/LoggingTest.h"
#include "tests/unit/hsl/record/RecordBytes.h"

namespace HSL {
namespace {

class LogIndentTest : public LoggingTest {};

TEST_F(LogIndentTest, IndentsWhileItLives) {
    OwnContext context;
    const auto recorded = [&context] {
        context.Log(kCat, "x");
        return RecordBytes::Reader(context.Take()).Next().mIndent;
    };
    EXPECT_EQ(recorded(), 0);
    {
        const CLogIndent outer(context);
        EXPECT_EQ(recorded(), 1);
        {
            const CLogIndent inner(context);
            EXPECT_EQ(recorded(), 2);
        }
        EXPECT_EQ(recorded(), 1);
    }
    EXPECT_EQ(recorded(), 0);
}

TEST_F(LogIndentTest, LeavesOtherContextsAlone) {
    OwnContext context;
    OwnContext other;
    const CLogIndent indent(context);
    EXPECT_EQ(context.GetIndent(), 1);
    EXPECT_EQ(other.GetIndent(), 0);
}

TEST_F(LogIndentTest, EndsWithAnExceptionToo) {
    OwnContext context;
    try {
        const CLogIndent indent(context);
        throw 1;
    } catch (int) {
    }
    EXPECT_EQ(context.GetIndent(), 0);
}

} // namespace
} // namespace HSL
