#include "runtime/thread/NyAtStartFunctions.h"

#include <gtest/gtest.h>

#include <thread>
#include <type_traits>
#include <vector>

namespace {

void First() {}
void Second() {}

static_assert(std::is_trivially_destructible_v<NyAtStartFunctions>);

TEST(NyAtStartFunctionsTest, IsBuiltEmpty) {
    const NyAtStartFunctions list;
    EXPECT_EQ(list.Size(), 0U);
    EXPECT_EQ(list.At(0), nullptr);
    EXPECT_FALSE(list.Contains(&First));
}

TEST(NyAtStartFunctionsTest, KeepsTheOrderOfRegistrationAndRepetitions) {
    NyAtStartFunctions list;
    EXPECT_TRUE(list.Append(&First));
    EXPECT_TRUE(list.Append(&Second));
    EXPECT_TRUE(list.Append(&First));
    EXPECT_EQ(list.Size(), 3U);
    EXPECT_EQ(list.At(0), &First);
    EXPECT_EQ(list.At(1), &Second);
    EXPECT_EQ(list.At(2), &First);
    EXPECT_EQ(list.At(3), nullptr);
    EXPECT_TRUE(list.Contains(&Second));
}

TEST(NyAtStartFunctionsTest, RefusesNull) {
    NyAtStartFunctions list;
    EXPECT_FALSE(list.Append(nullptr));
    EXPECT_FALSE(list.Contains(nullptr));
    EXPECT_EQ(list.Size(), 0U);
}

TEST(NyAtStartFunctionsTest, RefusesWhenFull) {
    NyAtStartFunctions list;
    for (std::size_t i = 0; i < NyAtStartFunctions::kCapacity; ++i) {
        EXPECT_TRUE(list.Append(&First));
    }
    EXPECT_FALSE(list.Append(&Second));
    EXPECT_EQ(list.Size(), NyAtStartFunctions::kCapacity);
    EXPECT_FALSE(list.Contains(&Second));
    EXPECT_EQ(list.At(NyAtStartFunctions::kCapacity), nullptr);
}

TEST(NyAtStartFunctionsTest, LosesNoFunctionOfSeveralThreads) {
    NyAtStartFunctions list;
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < 4; ++t) {
        threads.emplace_back([&list] {
            for (std::size_t i = 0; i < NyAtStartFunctions::kCapacity / 4; ++i) {
                EXPECT_TRUE(list.Append(&First));
                EXPECT_NE(list.At(list.Size() - 1), nullptr);
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(list.Size(), NyAtStartFunctions::kCapacity);
}

} // namespace
