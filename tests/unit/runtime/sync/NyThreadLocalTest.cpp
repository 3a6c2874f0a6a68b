#include "runtime/sync/NyThreadLocal.h"

#include "tests/unit/runtime/sync/PlatformCalls.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <new>
#include <thread>
#include <vector>

namespace {

TEST(NyThreadLocalTest, IsNullOnEveryThreadUntilSet) {
    NyThreadLocal<int*> slot;
    EXPECT_EQ(slot.Get(), nullptr);
    int mine = 0;
    slot.Set(&mine);
    std::thread([&slot] { EXPECT_EQ(slot.Get(), nullptr); }).join();
    EXPECT_EQ(slot.Get(), &mine);
}

TEST(NyThreadLocalTest, KeepsOneValuePerThread) {
    NyThreadLocal<int*> slot;
    std::vector<int> values(8);
    std::vector<std::thread> threads;
    for (int& value : values) {
        threads.emplace_back([&slot, &value] {
            slot.Set(&value);
            std::this_thread::yield();
            EXPECT_EQ(slot.Get(), &value);
            slot.Set(nullptr);
            EXPECT_EQ(slot.Get(), nullptr);
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
}

TEST(NyThreadLocalTest, KeepsTwoSlotsApart) {
    NyThreadLocal<int*> first;
    NyThreadLocal<const char*> second;
    int value = 0;
    first.Set(&value);
    EXPECT_EQ(second.Get(), nullptr);
}

TEST(NyThreadLocalTest, GivesItsKeyBackWithoutADestructorForTheValues) {
    PlatformCalls::Scope platform;
    std::vector<pthread_key_t> created;
    std::vector<pthread_key_t> deleted;
    platform->mKeyCreate = [&created](pthread_key_t* key, void (*destructor)(void*)) {
        EXPECT_EQ(destructor, nullptr);
        const int result = __real_pthread_key_create(key, destructor);
        created.push_back(*key);
        return result;
    };
    platform->mKeyDelete = [&deleted](pthread_key_t key) {
        deleted.push_back(key);
        return __real_pthread_key_delete(key);
    };
    { const NyThreadLocal<int*> slot; }
    EXPECT_FALSE(created.empty());
    EXPECT_EQ(created, deleted);
}

TEST(NyThreadLocalTest, CanBeBuiltAndDestroyedMoreOftenThanThereAreKeys) {
    for (int i = 0; i < 3 * PTHREAD_KEYS_MAX; ++i) {
        NyThreadLocal<int*> slot;
        int value = 0;
        slot.Set(&value);
        ASSERT_EQ(slot.Get(), &value);
    }
}

// Whether the platform's own 0 is still free differs; here the first key given plays 0.
TEST(NyThreadLocalTest, TakesAnotherKeyWhenItIsGivenZero) {
    PlatformCalls::Scope platform;
    pthread_key_t zero = 0;
    bool zeroGiven = false;
    bool zeroBack = false;
    platform->mKeyCreate = [&](pthread_key_t* key, void (*destructor)(void*)) {
        const int result = __real_pthread_key_create(key, destructor);
        if (!zeroGiven) {
            zeroGiven = true;
            zero = *key;
            *key = 0;
        }
        return result;
    };
    platform->mKeyDelete = [&](pthread_key_t key) {
        if (key == 0) {
            EXPECT_FALSE(zeroBack);
            zeroBack = true;
            key = zero;
        }
        return __real_pthread_key_delete(key);
    };
    NyThreadLocal<int*> slot;
    EXPECT_TRUE(zeroGiven);
    EXPECT_TRUE(zeroBack);
    int value = 0;
    slot.Set(&value);
    EXPECT_EQ(slot.Get(), &value);
    std::thread([&slot] { EXPECT_EQ(slot.Get(), nullptr); }).join();
}

TEST(NyThreadLocalTest, IsNullForWhoeverOutlivesIt) {
    alignas(NyThreadLocal<int*>) unsigned char storage[sizeof(NyThreadLocal<int*>)];
    auto* const slot = new (storage) NyThreadLocal<int*>;
    int value = 0;
    slot->Set(&value);
    slot->~NyThreadLocal();
    EXPECT_EQ(slot->Get(), nullptr);
    slot->Set(&value);
    EXPECT_EQ(slot->Get(), nullptr);
}

class NyThreadLocalWithoutKeyTest : public testing::TestWithParam<bool> {};

// The key 0 of this process; made if nobody has it.
void HaveKeyZero() {
    if (pthread_setspecific(0, pthread_getspecific(0)) != 0) {
        pthread_key_t key = 1;
        ASSERT_EQ(pthread_key_create(&key, nullptr), 0);
        ASSERT_EQ(key, 0U);
    }
}

TEST_P(NyThreadLocalWithoutKeyTest, UsesKeyZeroAndNeverDeletesIt) {
    ASSERT_NO_FATAL_FAILURE(HaveKeyZero());
    const bool zeroFirst = GetParam();
    PlatformCalls::Scope platform;
    int creations = 0;
    std::vector<pthread_key_t> deleted;
    platform->mKeyCreate = [&](pthread_key_t* key, void (*)(void*)) {
        ++creations;
        if (zeroFirst && creations == 1) {
            *key = 0;
            return 0;
        }
        *key = 77; // a failed call may leave anything
        return EAGAIN;
    };
    platform->mKeyDelete = [&](pthread_key_t key) {
        deleted.push_back(key);
        return 0;
    };
    int value = 0;
    const void* byKey = nullptr;
    const void* bySlot = nullptr;
    {
        NyThreadLocal<int*> slot;
        // Nothing but these calls happens while the key's owner, if it has one, misses its value.
        const void* const before = pthread_getspecific(0);
        slot.Set(&value);
        byKey = pthread_getspecific(0);
        bySlot = slot.Get();
        pthread_setspecific(0, before);
    }
    EXPECT_EQ(byKey, &value);
    EXPECT_EQ(bySlot, &value);
    EXPECT_EQ(creations, zeroFirst ? 2 : 1);
    EXPECT_EQ(deleted, zeroFirst ? std::vector<pthread_key_t>{0} : std::vector<pthread_key_t>{});
}

INSTANTIATE_TEST_SUITE_P(NoKeyLeftOrNoneButZero, NyThreadLocalWithoutKeyTest, testing::Bool());

} // namespace
