#pragma once

#include "Deadline.h"

#include <pthread.h>

#include <array>
#include <atomic>
#include <bit>
#include <cstdint>
#include <limits>
#include <new>

namespace CoreServices {

// What every kind of object in an ObjectTable begins with.
struct ObjectRecord {
    // Held for a few instructions at a time, so a thread that meets another one here looks again
    // for a moment before it sleeps.
    pthread_mutex_t mMutex = PTHREAD_ADAPTIVE_MUTEX_INITIALIZER_NP;
    MonotonicCondition mCondition;
    // The life that the record is in; changes at each Delete. Under `mMutex`.
    uintptr_t mGeneration = 1;
    bool mAlive = false;
    // The next record of the free list, under the table's mutex.
    uint32_t mIndex = 0;
    ObjectRecord* mNextFree = nullptr;
};

// The objects of one kind and their identifiers.
//
// An identifier is a record's number and the generation it was made in. Records are never given
// back to the system, only reused, so a stale or invented identifier leads to a record that can be
// locked and whose generation then tells that the identifier is not valid. A thread that waits on
// an object that is deleted under it likewise sees the generation change.
//
// Record: derives from ObjectRecord, default constructible, `void Reset()` ends a life.
template <typename Record>
class ObjectTable {
public:
    // A record held under its mutex for as long as this object exists; null when the identifier
    // is not valid.
    class Locked {
    public:
        Locked(ObjectTable& table, const void* identifier) : mGeneration(GenerationOf(identifier)) {
            Record* record = table.Find(identifier);
            if (record == nullptr) {
                return;
            }
            pthread_mutex_lock(&record->mMutex);
            mRecord = record;
            if (!IsValid()) {
                pthread_mutex_unlock(&record->mMutex);
                mRecord = nullptr;
            }
        }
        ~Locked() {
            if (mRecord != nullptr) {
                pthread_mutex_unlock(&mRecord->mMutex);
            }
        }
        Locked(const Locked&) = delete;
        Locked& operator=(const Locked&) = delete;

        explicit operator bool() const { return mRecord != nullptr; }
        Record* operator->() const { return mRecord; }

        // Whether the object still exists; asked after a wait, which lets the mutex go.
        bool IsValid() const { return mRecord->mAlive && mRecord->mGeneration == mGeneration; }

        bool Wait(const Deadline& deadline) {
            return deadline.Wait(mRecord->mCondition, mRecord->mMutex);
        }

    private:
        Record* mRecord = nullptr;
        const uintptr_t mGeneration;
    };

    // The generation that an identifier was made in.
    static uintptr_t GenerationOf(const void* identifier) {
        return reinterpret_cast<uintptr_t>(identifier) >> kIndexBits;
    }

    // The record that an identifier leads to, in whatever generation it is; null when there never
    // was one. For what a record offers without its mutex.
    Record* Find(const void* identifier) const {
        const auto index =
            static_cast<uint32_t>(reinterpret_cast<uintptr_t>(identifier) & kIndexMask);
        // Pairs with the release store in Grow: a block that is seen is seen complete.
        Block* block = mBlocks[index / kBlockSize].load(std::memory_order_acquire);
        return block == nullptr ? nullptr : &(*block)[index % kBlockSize];
    }

    // Begins an object's life. `prepare` sets the fields up. Null when memory or numbers are out.
    template <typename Prepare>
    void* Create(const Prepare& prepare) {
        Record* record = TakeFree();
        if (record == nullptr) {
            return nullptr;
        }
        pthread_mutex_lock(&record->mMutex);
        record->mAlive = true;
        prepare(*record);
        const uintptr_t value = (record->mGeneration << kIndexBits) | record->mIndex;
        pthread_mutex_unlock(&record->mMutex);
        return std::bit_cast<void*>(value);
    }

    // Ends it and wakes its waiters. False when the identifier is not valid.
    bool Delete(const void* identifier) {
        ObjectRecord* freed = nullptr;
        {
            Locked record(*this, identifier);
            if (!record) {
                return false;
            }
            record->Reset();
            record->mAlive = false;
            // 0 is left out, so that no identifier is ever null.
            record->mGeneration = (record->mGeneration & kGenerationMask) == kGenerationMask
                                      ? 1
                                      : record->mGeneration + 1;
            record->mCondition.Broadcast();
            freed = record.operator->();
        }
        pthread_mutex_lock(&mMutex);
        *mFreeTail = freed;
        freed->mNextFree = nullptr;
        mFreeTail = &freed->mNextFree;
        pthread_mutex_unlock(&mMutex);
        return true;
    }

private:
    static constexpr unsigned kIndexBits = 20;
    static constexpr uintptr_t kIndexMask = (uintptr_t{1} << kIndexBits) - 1;
    static constexpr uintptr_t kGenerationMask =
        std::numeric_limits<uintptr_t>::max() >> kIndexBits;
    static constexpr uint32_t kBlockSize = 256;
    static constexpr uint32_t kBlockCount = (uint32_t{1} << kIndexBits) / kBlockSize;

    using Block = std::array<Record, kBlockSize>;

    Record* TakeFree() {
        pthread_mutex_lock(&mMutex);
        if (mFreeHead == nullptr) {
            Grow();
        }
        ObjectRecord* record = mFreeHead;
        if (record != nullptr) {
            mFreeHead = record->mNextFree;
            if (mFreeHead == nullptr) {
                mFreeTail = &mFreeHead;
            }
        }
        pthread_mutex_unlock(&mMutex);
        return static_cast<Record*>(record);
    }

    void Grow() {
        if (mBlocksUsed == kBlockCount) {
            return;
        }
        auto* block = new (std::nothrow) Block;
        if (block == nullptr) {
            return;
        }
        for (uint32_t i = 0; i < kBlockSize; ++i) {
            ObjectRecord& record = (*block)[i];
            record.mIndex = mBlocksUsed * kBlockSize + i;
            *mFreeTail = &record;
            mFreeTail = &record.mNextFree;
        }
        mBlocks[mBlocksUsed].store(block, std::memory_order_release);
        ++mBlocksUsed;
    }

    std::array<std::atomic<Block*>, kBlockCount> mBlocks{};
    // Guards what follows.
    pthread_mutex_t mMutex = PTHREAD_MUTEX_INITIALIZER;
    uint32_t mBlocksUsed = 0;
    // First in, first out, so that a number and its generations come round as late as possible.
    ObjectRecord* mFreeHead = nullptr;
    ObjectRecord** mFreeTail = &mFreeHead;
};

} // namespace CoreServices
