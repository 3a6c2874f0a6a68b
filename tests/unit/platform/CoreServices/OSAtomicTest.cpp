#include <libkern/OSAtomic.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <thread>
#include <vector>

extern "C" int UseCoreServicesFromC(void);

namespace {

TEST(OSAtomicTest, ReturnsTheNewValue) {
    volatile std::int32_t value = 5;
    EXPECT_EQ(OSAtomicAdd32Barrier(3, &value), 8);
    EXPECT_EQ(OSAtomicAdd32Barrier(-10, &value), -2);
    EXPECT_EQ(OSAtomicAdd32Barrier(0, &value), -2);
}

TEST(OSAtomicTest, WrapsRoundAtTheEnds) {
    volatile std::int32_t value = std::numeric_limits<std::int32_t>::max();
    EXPECT_EQ(OSAtomicAdd32Barrier(1, &value), std::numeric_limits<std::int32_t>::min());
    EXPECT_EQ(OSAtomicAdd32Barrier(-1, &value), std::numeric_limits<std::int32_t>::max());
}

TEST(OSAtomicTest, GivesEveryThreadNumbersOfItsOwn) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 5000;
    volatile std::int32_t value = 0;
    std::vector<std::vector<std::int32_t>> taken(kThreads);
    std::vector<std::thread> threads;
    for (auto& mine : taken) {
        threads.emplace_back([&value, &mine] {
            for (int i = 0; i < kRounds; ++i) {
                mine.push_back(OSAtomicAdd32Barrier(1, &value));
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    std::vector<bool> seen(kThreads * kRounds + 1);
    for (const auto& mine : taken) {
        std::int32_t last = 0;
        for (const std::int32_t number : mine) {
            ASSERT_GT(number, last);
            ASSERT_LE(number, kThreads * kRounds);
            ASSERT_FALSE(seen[static_cast<std::size_t>(number)]);
            seen[static_cast<std::size_t>(number)] = true;
            last = number;
        }
    }
}

TEST(CoreServicesHeadersTest, ServeC) {
    EXPECT_EQ(UseCoreServicesFromC(), 1);
}

} // namespace
