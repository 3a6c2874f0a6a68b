#include "platform/support/SlotTable.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <deque>
#include <set>
#include <thread>
#include <vector>

namespace {

struct Content {
    int mValue = -1;
};

// 256 slots with 16 tags and 20 bits of generations.
using Table = SlotTable<Content, std::uint32_t, 8, 4>;
// 15 generations, so that identifiers come round soon.
using ShortTable = SlotTable<Content, std::uint32_t, 8, 20>;
// Few enough generations that 4096 slots stay free.
using RestingTable = SlotTable<Content, std::uint32_t, 16, 4>;

// A table of its own for the caller. Tables are never destroyed, as their slots never are.
template <typename Any>
Any& Make() {
    static auto& tables = *new std::deque<Any>;
    return tables.emplace_back();
}

template <typename Any>
std::uint32_t Add(Any& table, int value = 0, std::uint32_t tag = 0) {
    return table.Add([value](Content& content, std::uint32_t) { content.mValue = value; }, tag);
}

TEST(SlotTable, FindsWhatWasAddedUntilItIsRemoved) {
    auto& table = Make<Table>();
    const std::uint32_t first = Add(table, 1);
    const std::uint32_t second = Add(table, 2);
    ASSERT_NE(table.Find(first), nullptr);
    EXPECT_EQ(table.Find(first)->mValue, 1);
    ASSERT_NE(table.Find(second), nullptr);
    EXPECT_EQ(table.Find(second)->mValue, 2);
    EXPECT_TRUE(table.Remove(first));
    EXPECT_EQ(table.Find(first), nullptr);
    EXPECT_FALSE(table.IsLive(first));
    EXPECT_TRUE(table.IsLive(second));
    EXPECT_FALSE(table.Remove(first));
}

TEST(SlotTable, TellsTheIdentifierToTheOneWhoPrepares) {
    auto& table = Make<Table>();
    std::uint32_t told = 0;
    const std::uint32_t identifier =
        table.Add([&told](Content&, std::uint32_t given) { told = given; }, 3);
    EXPECT_NE(identifier, 0U);
    EXPECT_EQ(told, identifier);
}

TEST(SlotTable, KeepsTheTagInTheIdentifier) {
    auto& table = Make<Table>();
    for (std::uint32_t tag = 0; tag < 16; ++tag) {
        EXPECT_EQ(Table::TagOf(Add(table, 0, tag)), tag);
    }
}

TEST(SlotTable, AnswersWhatItNeverGaveOut) {
    auto& table = Make<Table>();
    EXPECT_EQ(table.Find(0), nullptr);
    EXPECT_FALSE(table.Remove(0));
    EXPECT_EQ(table.FindInAnyLife(7), nullptr);
    const std::uint32_t identifier = Add(table, 0, 5);
    for (unsigned bit = 0; bit < 32; ++bit) {
        const std::uint32_t other = identifier ^ (std::uint32_t{1} << bit);
        EXPECT_EQ(table.Find(other), nullptr) << bit;
        EXPECT_FALSE(table.Remove(other)) << bit;
    }
    EXPECT_EQ(table.Find(0), nullptr);
    EXPECT_FALSE(table.IsLive(0));
    EXPECT_TRUE(table.Remove(identifier));
    EXPECT_EQ(table.Find(0), nullptr);
    EXPECT_FALSE(table.Remove(0));
}

TEST(SlotTable, LeavesAContentInItsSlotAfterItsLife) {
    auto& table = Make<Table>();
    const std::uint32_t identifier = Add(table, 7);
    Content* const content = table.Find(identifier);
    table.Remove(identifier);
    EXPECT_EQ(table.FindInAnyLife(identifier), content);
    EXPECT_EQ(content->mValue, 7);
}

TEST(SlotTable, AnswersZeroWhenAllSlotsAreInUse) {
    auto& table = Make<Table>();
    std::set<std::uint32_t> identifiers;
    for (int i = 0; i < 256; ++i) {
        EXPECT_TRUE(identifiers.insert(Add(table)).second);
    }
    EXPECT_EQ(identifiers.count(0), 0U);
    bool isPrepared = false;
    EXPECT_EQ(table.Add([&isPrepared](Content&, std::uint32_t) { isPrepared = true; }), 0U);
    EXPECT_FALSE(isPrepared);
    EXPECT_TRUE(table.Remove(*identifiers.begin()));
    const std::uint32_t again = Add(table);
    EXPECT_NE(again, 0U);
    EXPECT_EQ(identifiers.count(again), 0U);
    EXPECT_EQ(Add(table), 0U);
}

TEST(SlotTable, NeverGivesZeroNorALivingIdentifierAsGenerationsComeRound) {
    auto& table = Make<ShortTable>();
    const std::uint32_t kept = Add(table, 42);
    std::set<std::uint32_t> seen{kept};
    bool hasComeRound = false;
    // More lives than there are identifiers.
    for (int i = 0; i < 256 * 16 * 2; ++i) {
        const std::uint32_t identifier = Add(table);
        ASSERT_NE(identifier, 0U);
        ASSERT_NE(identifier, kept);
        hasComeRound = hasComeRound || !seen.insert(identifier).second;
        ASSERT_TRUE(table.Remove(identifier));
    }
    EXPECT_TRUE(hasComeRound);
    EXPECT_EQ(table.Find(kept)->mValue, 42);
}

TEST(SlotTable, RestsASlotTheLongerTheFewerGenerationsItHas) {
    auto& table = Make<RestingTable>();
    const std::uint32_t first = Add(table);
    ASSERT_TRUE(table.Remove(first));
    constexpr std::uint32_t kSlot = 0xFFFF;
    for (int i = 0; i < 4096; ++i) {
        const std::uint32_t other = Add(table);
        ASSERT_NE(other & kSlot, first & kSlot) << i;
        ASSERT_TRUE(table.Remove(other));
    }
    // Not for ever.
    std::uint32_t other = 0;
    for (int i = 0; i < 256 && (other & kSlot) != (first & kSlot); ++i) {
        other = Add(table);
        ASSERT_TRUE(table.Remove(other));
    }
    EXPECT_EQ(other & kSlot, first & kSlot);
    EXPECT_NE(other, first);
}

TEST(SlotTable, TellsOneOfSeveralThreadsThatItRemoved) {
    auto& table = Make<Table>();
    for (int round = 0; round < 200; ++round) {
        const std::uint32_t identifier = Add(table);
        std::atomic<int> removed{0};
        std::vector<std::thread> threads;
        for (int t = 0; t < 3; ++t) {
            threads.emplace_back([&] { removed += table.Remove(identifier) ? 1 : 0; });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        ASSERT_EQ(removed, 1);
    }
}

// Identifiers go from one thread to another without an order of their own: that of the table has to
// do, and the thread sanitizer sees where it does not.
TEST(SlotTable, ShowsAContentPreparedToWhoeverFindsIt) {
    auto& table = Make<SlotTable<Content, std::uint32_t, 16>>();
    constexpr int kRounds = 20000;
    std::array<std::atomic<std::uint32_t>, kRounds> published{};
    std::thread reader([&] {
        int next = 0;
        while (next < kRounds) {
            const std::uint32_t identifier =
                published[static_cast<std::size_t>(next)].load(std::memory_order_relaxed);
            if (identifier == 0) {
                std::this_thread::yield();
                continue;
            }
            const Content* const found = table.Find(identifier);
            ASSERT_NE(found, nullptr);
            ASSERT_EQ(found->mValue, next);
            ++next;
        }
    });
    for (int i = 0; i < kRounds; ++i) {
        published[static_cast<std::size_t>(i)].store(Add(table, i), std::memory_order_relaxed);
    }
    reader.join();
}

TEST(SlotTable, KeepsTheIdentifiersOfManyThreadsApart) {
    auto& table = Make<SlotTable<Content, std::uintptr_t, 20>>();
    constexpr int kThreads = 3;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&table, t] {
            std::vector<std::uintptr_t> mine;
            for (int i = 0; i < 5000; ++i) {
                mine.push_back(
                    table.Add([t](Content& content, std::uintptr_t) { content.mValue = t; }));
                if (i % 3 == 2) {
                    const std::uintptr_t removed = mine[mine.size() / 2];
                    mine.erase(mine.begin() + static_cast<std::ptrdiff_t>(mine.size() / 2));
                    ASSERT_TRUE(table.Remove(removed));
                    ASSERT_EQ(table.Find(removed), nullptr);
                }
                ASSERT_EQ(table.Find(mine.back())->mValue, t);
            }
            for (const std::uintptr_t identifier : mine) {
                ASSERT_TRUE(table.IsLive(identifier));
                ASSERT_EQ(table.Find(identifier)->mValue, t);
                ASSERT_TRUE(table.Remove(identifier));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

} // namespace
