#include "hsl/FormatHolder.h"

#include "tests/unit/hsl/LoggingTest.h"

#include <gmock/gmock.h>

namespace HSL {
namespace {

using testing::ElementsAre;

class FormatHolderTest : public LoggingTest {};

TEST_F(FormatHolderTest, ItsIDIsMinusOneBeforeRegistration) {
    const CFormatHolder holder("never");
    EXPECT_EQ(holder.ID(), -1);
    OwnContext context;
    context.Log(kCat, holder, 3);
    EXPECT_THAT(CollectTexts(), ElementsAre("<UNINITIALIZED FORMAT STRING ID USED> (3) "));
}

TEST_F(FormatHolderTest, LogsByTheIDThatItGotAtRegistration) {
    Manager().AddFormatString("another");
    CFormatHolder holder("late by %d us");
    holder.Register();
    EXPECT_EQ(holder.ID(), 1);
    OwnContext context;
    context.Log(kCat, holder, 12);
    EXPECT_THAT(CollectTexts(), ElementsAre("late by 12 us"));
}

TEST_F(FormatHolderTest, RegistersOnce) {
    CFormatHolder holder("once");
    holder.Register();
    holder.Register();
    EXPECT_EQ(holder.ID(), 0);
    EXPECT_EQ(Manager().AddFormatString("next"), 1);
}

TEST_F(FormatHolderTest, ForgetsItsIDWhenLoggingStartsAnew) {
    CFormatHolder holder("anew %d");
    Manager().AddFormatString("shifts the ids");
    holder.Register();
    EXPECT_EQ(holder.ID(), 1);
    Release();
    CLogManager::Cleanup();
    CLogManager::Initialize();
    EXPECT_EQ(holder.ID(), -1);
    holder.Register();
    EXPECT_EQ(holder.ID(), 0);
}

TEST(FormatHolderIdleTest, RegistersNothingWhileLoggingDoesNotRun) {
    ASSERT_FALSE(CLogManager::IsInitialized());
    CFormatHolder holder("idle");
    holder.Register();
    EXPECT_EQ(holder.ID(), -1);
}

} // namespace
} // namespace HSL
