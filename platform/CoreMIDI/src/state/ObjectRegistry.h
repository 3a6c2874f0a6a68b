#pragma once

#include "platform/CoreMIDI/src/base/Route.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace CoreMIDI {

struct Object;

// What an object is; part of its reference.
enum class Kind : uint32_t {
    kClient = 1,
    kInputPort,
    kOutputPort,
    kDevice,
    kEntity,
    kSource,
    kDestination,
    kDeviceList,
};

// All objects by their references.
//
// An object lies in a slot. Its reference holds the slot's number, the object's kind and the
// generation of the slot, so that one comparison tells whether a reference is that of an object
// that exists. Slots are never given back to the system, and are used again in the order in which
// they became free, never fewer than kMinimumFree later: a reference comes round after some 16
// million further objects.
//
// IsLive and Reader: any thread, no lock, no allocation. All else: under the lock of World.
class ObjectRegistry {
    struct Slot;

public:
    ObjectRegistry();
    ~ObjectRegistry();

    static Kind KindOf(MIDIObjectRef reference) {
        return static_cast<Kind>((reference >> kIndexBits) & kKindMask);
    }

    // The new object's reference, which is also put into it. Throws std::bad_alloc when memory or
    // slots are used up.
    MIDIObjectRef Add(Kind kind, std::unique_ptr<Object> object);
    // Null when there is no such object.
    Object* Find(MIDIObjectRef reference) const;
    // Destroys the object. Routes that are being read stay until they are not.
    void Remove(MIDIObjectRef reference) noexcept;
    // Replaces the route of an endpoint. Packets that are on their way may still take the old one.
    void SetRoute(MIDIObjectRef reference, std::unique_ptr<Route> route) noexcept;

    bool IsLive(MIDIObjectRef reference, Kind kind) const {
        return KindOf(reference) == kind && IsLive(reference);
    }
    bool IsLive(MIDIObjectRef reference) const {
        const Slot* slot = SlotOf(reference);
        return slot != nullptr && slot->mReference.load(std::memory_order_acquire) == reference;
    }

    // An endpoint's route, which stays as it is while the reader exists.
    class Reader {
    public:
        Reader(const ObjectRegistry& registry, MIDIEndpointRef endpoint)
            : mSlot(registry.SlotOf(endpoint)) {
            if (mSlot == nullptr) {
                return;
            }
            // Sequentially consistent with the writer's exchange of the route and its look at the
            // readers (Replace): either the writer sees this reader, or this reader the new route.
            mSlot->mReaders.fetch_add(1, std::memory_order_seq_cst);
            const Route* route = mSlot->mRoute.load(std::memory_order_seq_cst);
            // Looked at after the route: a slot that holds another object by now has its route.
            if (mSlot->mReference.load(std::memory_order_seq_cst) == endpoint) {
                mRoute = route;
            }
        }
        ~Reader() {
            if (mSlot != nullptr) {
                // Release: the reading is done before the writer destroys the route.
                mSlot->mReaders.fetch_sub(1, std::memory_order_release);
            }
        }
        Reader(const Reader&) = delete;
        Reader& operator=(const Reader&) = delete;

        // Null when there is no such endpoint.
        const Route* Get() const { return mRoute; }

    private:
        friend class ObjectRegistry;

        Slot* mSlot;
        const Route* mRoute = nullptr;
    };

private:
    static constexpr unsigned kIndexBits = 16;
    static constexpr unsigned kKindBits = 4;
    static constexpr uint32_t kIndexMask = (uint32_t{1} << kIndexBits) - 1;
    static constexpr uint32_t kKindMask = (uint32_t{1} << kKindBits) - 1;
    static constexpr uint32_t kGenerations = uint32_t{1} << (32 - kIndexBits - kKindBits);
    static constexpr uint32_t kBlockSize = 256;
    static constexpr uint32_t kBlockCount = (uint32_t{1} << kIndexBits) / kBlockSize;
    static constexpr std::size_t kMinimumFree = 4096;
    static constexpr std::size_t kCacheLine = 64;

    // A slot of its own cache line, so that endpoints in use at once do not slow each other down.
    struct alignas(kCacheLine) Slot {
        std::atomic<MIDIObjectRef> mReference{0}; // 0 while it is free
        std::atomic<uint32_t> mReaders{0};
        std::atomic<const Route*> mRoute{nullptr};
        // The rest is under the lock of World.
        uint32_t mGeneration = 0;
        std::unique_ptr<Object> mObject;
        uint32_t mNextFree = 0; // of a free slot, 0 for the last one
        std::unique_ptr<Route> mOwnedRoute;
        // The first of the routes that were replaced while somebody read them.
        std::unique_ptr<Route> mRetired;
    };
    using Block = std::array<Slot, kBlockSize>;

    Slot* SlotOf(MIDIObjectRef reference) const {
        const uint32_t index = reference & kIndexMask;
        // Pairs with the release store in TakeFree: a block that is seen is seen complete.
        Block* block = mBlocks[index / kBlockSize].load(std::memory_order_acquire);
        return block == nullptr ? nullptr : &(*block)[index % kBlockSize];
    }

    uint32_t TakeFree();
    static void Replace(Slot& slot, std::unique_ptr<Route> route) noexcept;

    std::array<std::atomic<Block*>, kBlockCount> mBlocks{};
    // The free slots in the order in which they became so, linked through themselves, so that
    // removing an object needs no memory.
    uint32_t mFirstFree = 0;
    uint32_t mLastFree = 0;
    std::size_t mFreeCount = 0;
    uint32_t mUsed = 1; // slots that were ever used, with slot 0, which is left out
};

} // namespace CoreMIDI
