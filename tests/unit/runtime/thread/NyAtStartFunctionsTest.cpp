#include "runtime/thread/NyAtStartFunctions.h"

#include <gtest/gtest.h>

#include <thread>
#include <type_traits>
#include <vector>

namespace {

void First() {}
void Second() {}

static_assert(std::is_trivially_destructible_v<NyAtStartFunctions>);

// A static object that is built before any code runs.
constinit NyAtStartFunctions sList;

TEST(NyAtStartFunctionsTest, IsBuiltEmpty) {
    EXPECT_EQ(sList.Size(), 0U);
}

TEST(NyAtStartFunctionsTest, KeepsTheOrderOfRegistrationAndRepetitions) {
    NyAtStartFunctions list;
    list.Append(&First);
    list.Append(&Second);
    list.Append(&First);
    ASSERT_EQ(list.Size(), 3U);
    EXPECT_EQ(list.At(0), &First);
    EXPECT_EQ(list.At(1), &Second);
    EXPECT_EQ(list.At(2), &First);
}

TEST(NyAtStartFunctionsTest, GrowsWithoutLimitAndMovesNothing) {
    constexpr std::size_t kCount = 1000;
    // Static: it never frees what it allocates.
    static NyAtStartFunctions list;
    const auto expected = [](std::size_t index) { return index % 3 == 0 ? &First : &Second; };
    for (std::size_t i = 0; i < kCount; ++i) {
        list.Append(expected(i));
        ASSERT_EQ(list.Size(), i + 1);
        ASSERT_EQ(list.At(i), expected(i));
    }
    for (std::size_t i = 0; i < kCount; ++i) {
        ASSERT_EQ(list.At(i), expected(i)) << i;
    }
}

TEST(NyAtStartFunctionsTest, LosesNoFunctionOfSeveralThreadsWhileOthersRead) {
    constexpr std::size_t kThreads = 4;
    constexpr std::size_t kEach = 500;
    static NyAtStartFunctions list;
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < kThreads; ++t) {
        threads.emplace_back([t] {
            for (std::size_t i = 0; i < kEach; ++i) {
                list.Append(t % 2 == 0 ? &First : &Second);
                EXPECT_NE(list.At(list.Size() - 1), nullptr);
            }
        });
    }
    threads.emplace_back([] {
        // The size is read afresh each time, as a starting thread does.
        for (std::size_t i = 0; i < kThreads * kEach;) {
            if (i < list.Size()) {
                EXPECT_NE(list.At(i), nullptr);
                ++i;
            } else {
                std::this_thread::yield();
            }
        }
    });
    for (auto& thread : threads) {
        thread.join();
    }
    ASSERT_EQ(list.Size(), kThreads * kEach);
    std::size_t first = 0;
    for (std::size_t i = 0; i < list.Size(); ++i) {
        first += list.At(i) == &First ? 1 : 0;
    }
    EXPECT_EQ(first, kThreads * kEach / 2);
}

} // namespace
