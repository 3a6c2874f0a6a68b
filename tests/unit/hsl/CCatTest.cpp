#include "hsl/CCat.h"

#include "MidiDriver/worker/circular_buffer/CCircularBuffer.h"
#include "tests/unit/hsl/LoggingTest.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <vector>

namespace HSL {
namespace {

using Bytes = std::vector<unsigned char>;

Bytes Serialized(const CCat& cat) {
    CCircularBuffer ring(1, 1000, CCircularBuffer::MallocFunc, CCircularBuffer::FreeFunc,
                         CCircularBuffer::CopyFunc);
    EXPECT_EQ(cat.Serialize(&ring), 0);
    Bytes bytes(1000);
    int count = static_cast<int>(bytes.size());
    ring.Read(bytes.data(), count);
    bytes.resize(static_cast<std::size_t>(count));
    return bytes;
}

TEST(CCatTest, WritesItsCountAndThenItsIDs) {
    EXPECT_EQ(Serialized(CCat{}), (Bytes{0}));
    EXPECT_EQ(Serialized(CCat(kError)), (Bytes{1, 5}));
    EXPECT_EQ(Serialized(CCat(kWarning, 20)), (Bytes{2, 4, 20}));
    EXPECT_EQ(Serialized(CCat{3, 119, 0, 255}), (Bytes{4, 3, 119, 0, 255}));
}

TEST(CCatTest, HoldsUpTo255IDsAndLeavesOutMore) {
    const std::initializer_list<unsigned char> tenTimes26 = {
#define TEN 1, 2, 3, 4, 5, 6, 7, 8, 9, 10
        TEN, TEN, TEN, TEN, TEN, TEN, TEN, TEN, TEN, TEN, TEN, TEN, TEN,
        TEN, TEN, TEN, TEN, TEN, TEN, TEN, TEN, TEN, TEN, TEN, TEN, TEN};
#undef TEN
    const CCat cat(tenTimes26);
    EXPECT_EQ(cat.Count(), 255);
    const Bytes bytes = Serialized(cat);
    ASSERT_EQ(bytes.size(), 256u);
    EXPECT_EQ(bytes[0], 255);
    EXPECT_EQ(bytes[255], 5);
}

TEST(CCatTest, LevelsAreTheFirstSevenIDs) {
    EXPECT_EQ(kUltraVerbose, 0);
    EXPECT_EQ(kVerbose, 1);
    EXPECT_EQ(kChatty, 2);
    EXPECT_EQ(kInfo, 3);
    EXPECT_EQ(kWarning, 4);
    EXPECT_EQ(kError, 5);
    EXPECT_EQ(kCatastrophy, 6);
}

class CCatNamesTest : public LoggingTest {};

TEST_F(CCatNamesTest, InitializeNamesTheLevels) {
    const std::vector<std::string> names = {"Ultra Verbose", "Verbose", "Chatty",     "Info",
                                            "Warning",       "Error",   "Catastrophy"};
    for (std::size_t id = 0; id < names.size(); ++id) {
        EXPECT_EQ(Manager().GetCategoryName(static_cast<unsigned char>(id)), names[id]);
    }
    EXPECT_EQ(Manager().GetCategoryName(7), "");
}

TEST_F(CCatNamesTest, CleanupOfCategoriesDoesNothing) {
    CCat::Cleanup();
    EXPECT_EQ(Manager().GetCategoryName(kInfo), "Info");
}

} // namespace
} // namespace HSL
