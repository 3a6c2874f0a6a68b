#include "hsl/CategoryHolder.h"

#include "tests/unit/hsl/LoggingTest.h"

namespace HSL {
namespace {

constexpr CCategoryHolder kTransport(20, "Transport");

TEST(CategoryHolderTest, FormsASetWithEachLevel) {
    EXPECT_EQ(kTransport.ID(), 20);
    EXPECT_STREQ(kTransport.Name(), "Transport");
    for (int level = kUltraVerbose; level <= kCatastrophy; ++level) {
        const CCat& cat = kTransport[static_cast<tLevel>(level)];
        ASSERT_EQ(cat.Count(), 2);
        EXPECT_EQ(cat.IDs()[0], level);
        EXPECT_EQ(cat.IDs()[1], 20);
    }
}

TEST(CategoryHolderTest, RegistersNothingWhileLoggingDoesNotRun) {
    ASSERT_FALSE(CLogManager::IsInitialized());
    kTransport.Register();
    CLogManager::Initialize();
    EXPECT_EQ(CLogManager::Instance()->GetCategoryName(20), "");
    CLogManager::Cleanup();
}

class CategoryHolderRunningTest : public LoggingTest {};

TEST_F(CategoryHolderRunningTest, NamesItsCategoryUnlessItHasAName) {
    kTransport.Register();
    EXPECT_EQ(Manager().GetCategoryName(20), "Transport");
    const CCategoryHolder late(20, "Late");
    late.Register();
    EXPECT_EQ(Manager().GetCategoryName(20), "Transport");
}

TEST_F(CategoryHolderRunningTest, PassesByItsLevelOrByItsSubject) {
    OwnContext context;
    EXPECT_EQ(context.Log(kTransport[kInfo], "level"), 1);
    EXPECT_EQ(context.Log(kTransport[kError], "neither"), 0);
    Manager().SetFilterValue(20, true);
    EXPECT_EQ(context.Log(kTransport[kError], "subject"), 2);
}

} // namespace
} // namespace HSL
