#pragma once

#include "platform/support/Mutex.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <new>

// A table of objects ("contents") that are known by identifiers. It tells whether an identifier
// names a content, has ceased to, or never did.
//
//     constinit SlotTable<Region, std::uintptr_t, 20> sRegions;
//     const std::uintptr_t identifier = sRegions.Add([](Region& region, std::uintptr_t) {...});
//     Region* const region = sRegions.Find(identifier); // null once it has been removed
//     sRegions.Remove(identifier);
//
// A content lives in a slot, from Add to Remove. Its identifier holds the slot's number, a tag of
// the caller's choice and the slot's generation. Every Add gives the slot another generation, so a
// slot that is used again does not answer to its earlier identifiers. The slot that has been free
// longest is used first. An identifier recurs after 16 million further Adds at the earliest, as
// long as there are memory and numbers for that.
//
// Contents are made 256 at a time, by their default constructor, and never destroyed. A pointer to
// a content therefore stays valid for ever, and Add finds what the slot's last user left in it.
//
// Any thread may call. Only Add allocates; only Add and Remove take a lock, for a few
// instructions. What Add did to a content is visible to whoever finds it.
template <typename Content, typename Identifier, unsigned kIndexBits, unsigned kTagBits = 0>
class SlotTable {
public:
    constexpr SlotTable() = default;
    SlotTable(const SlotTable&) = delete;
    SlotTable& operator=(const SlotTable&) = delete;

    static constexpr Identifier TagOf(Identifier identifier) {
        return (identifier >> kIndexBits) & ((Identifier{1} << kTagBits) - 1);
    }

    // Uses a free slot and returns its identifier, never 0. `begin(content, identifier)` prepares
    // the content before anybody can find it. Returns 0, without calling `begin`, when memory or
    // numbers are used up.
    template <typename Begin>
    Identifier Add(const Begin& begin, Identifier tag = 0) {
        Slot* const slot = TakeFree();
        if (slot == nullptr) {
            return 0;
        }
        // Generation 0 is left out, so that no identifier is ever 0.
        const Identifier last = slot->mLast >> kGenerationShift;
        const Identifier generation = last == kLastGeneration ? 1 : last + 1;
        slot->mLast = (generation << kGenerationShift) | (tag << kIndexBits) | IndexOf(slot->mLast);
        begin(slot->mContent, slot->mLast);
        // Pairs with the load in IsLive: a content that is found is found prepared.
        slot->mLiving.store(slot->mLast, std::memory_order_release);
        return slot->mLast;
    }

    // Frees the slot. Returns false if the identifier names no content. Of several threads that
    // remove the same content, one gets true.
    bool Remove(Identifier identifier) {
        const MutexLock lock(mMutex);
        if (!IsLive(identifier)) {
            return false;
        }
        Slot* const slot = SlotOf(identifier);
        slot->mLiving.store(0, std::memory_order_release);
        slot->mNextFree = nullptr;
        (mFree == 0 ? mFirstFree : mLastFree->mNextFree) = slot;
        mLastFree = slot;
        ++mFree;
        return true;
    }

    bool IsLive(Identifier identifier) const {
        const Slot* const slot = SlotOf(identifier);
        return slot != nullptr && identifier != 0 &&
               slot->mLiving.load(std::memory_order_acquire) == identifier;
    }

    // Returns the content that an identifier names, or null. The caller sees to it that nobody
    // removes the content meanwhile.
    Content* Find(Identifier identifier) const {
        return IsLive(identifier) ? &SlotOf(identifier)->mContent : nullptr;
    }

    // Returns what lies in the identifier's slot, whoever uses it now; null if it was never made.
    Content* FindInAnyLife(Identifier identifier) const {
        Slot* const slot = SlotOf(identifier);
        return slot == nullptr ? nullptr : &slot->mContent;
    }

private:
    static constexpr unsigned kGenerationShift = kIndexBits + kTagBits;
    static constexpr unsigned kGenerationBits =
        std::numeric_limits<Identifier>::digits - kGenerationShift;
    static constexpr Identifier kLastGeneration =
        std::numeric_limits<Identifier>::max() >> kGenerationShift;
    static constexpr std::uint32_t kSlotCount = std::uint32_t{1} << kIndexBits;
    static constexpr std::uint32_t kBlockSize = 256;
    // The least number of slots that stay free, so that an identifier does not recur within 16
    // million Adds.
    static constexpr std::uint32_t kMinimumFree =
        kGenerationBits < 24 ? std::uint32_t{1} << (24 - kGenerationBits) : 0;
    static constexpr std::size_t kCacheLine = 64;

    // In a cache line of its own, so that contents in use at once do not slow each other down.
    struct alignas(kCacheLine) Slot {
        std::atomic<Identifier> mLiving{0}; // 0 while the slot is free
        // The slot's latest identifier; before the first Add, its number alone. Only the thread
        // that took the slot from the free ones uses it. The next field is the table's.
        Identifier mLast = 0;
        Slot* mNextFree = nullptr;
        Content mContent;
    };
    using Block = std::array<Slot, kBlockSize>;

    static constexpr std::uint32_t IndexOf(Identifier identifier) {
        return static_cast<std::uint32_t>(identifier & (kSlotCount - 1));
    }

    Slot* SlotOf(Identifier identifier) const {
        const std::uint32_t index = IndexOf(identifier);
        // Pairs with the release store in TakeFresh: a block that is seen is seen complete.
        Block* const block = mBlocks[index / kBlockSize].load(std::memory_order_acquire);
        return block == nullptr ? nullptr : &(*block)[index % kBlockSize];
    }

    Slot* TakeFree() {
        const MutexLock lock(mMutex);
        if (mFree <= kMinimumFree) {
            if (Slot* const fresh = TakeFresh()) {
                return fresh;
            }
        }
        if (mFree == 0) {
            return nullptr;
        }
        --mFree;
        Slot* const slot = mFirstFree;
        mFirstFree = slot->mNextFree;
        return slot;
    }

    // A slot that was never used.
    Slot* TakeFresh() QUORVEL_REQUIRES(mMutex) {
        if (mUsed == kSlotCount) {
            return nullptr;
        }
        if (mUsed % kBlockSize == 0) {
            Block* const block = new (std::nothrow) Block;
            if (block == nullptr) {
                return nullptr;
            }
            mBlocks[mUsed / kBlockSize].store(block, std::memory_order_release);
        }
        Slot* const slot = SlotOf(mUsed);
        slot->mLast = mUsed++;
        return slot;
    }

    std::array<std::atomic<Block*>, kSlotCount / kBlockSize> mBlocks{};
    Mutex mMutex;
    std::uint32_t mUsed QUORVEL_GUARDED_BY(mMutex) = 0; // slots that were ever used
    // Those that are free now, in a list that begins with the one that has been free longest.
    std::uint32_t mFree QUORVEL_GUARDED_BY(mMutex) = 0;
    Slot* mFirstFree QUORVEL_GUARDED_BY(mMutex) = nullptr;
    Slot* mLastFree QUORVEL_GUARDED_BY(mMutex) = nullptr;
};
