#include "platform/CoreMIDI/src/state/ObjectRegistry.h"

#include "platform/CoreMIDI/src/state/Objects.h"

#include <new>
#include <utility>

namespace CoreMIDI {

ObjectRegistry::ObjectRegistry() = default;

ObjectRegistry::~ObjectRegistry() {
    for (std::atomic<Block*>& block : mBlocks) {
        delete block.load(std::memory_order_relaxed);
    }
}

uint32_t ObjectRegistry::TakeFree() {
    constexpr uint32_t kSlots = uint32_t{1} << kIndexBits;
    if (mUsed < kSlots && mFreeCount < kMinimumFree) {
        std::atomic<Block*>& block = mBlocks[mUsed / kBlockSize];
        if (block.load(std::memory_order_relaxed) == nullptr) {
            block.store(new Block, std::memory_order_release);
        }
        return mUsed++;
    }
    if (mFreeCount == 0) {
        throw std::bad_alloc();
    }
    const uint32_t index = mFirstFree;
    mFirstFree = SlotOf(index)->mNextFree;
    --mFreeCount;
    return index;
}

MIDIObjectRef ObjectRegistry::Add(Kind kind, std::unique_ptr<Object> object) {
    const uint32_t index = TakeFree();
    Slot& slot = *SlotOf(index);
    // 0 is left out, so that no reference is ever 0.
    slot.mGeneration = slot.mGeneration + 1 == kGenerations ? 1 : slot.mGeneration + 1;
    const MIDIObjectRef reference = (slot.mGeneration << (kIndexBits + kKindBits)) |
                                    (static_cast<uint32_t>(kind) << kIndexBits) | index;
    object->mReference = reference;
    slot.mObject = std::move(object);
    slot.mReference.store(reference, std::memory_order_seq_cst);
    return reference;
}

Object* ObjectRegistry::Find(MIDIObjectRef reference) const {
    return IsLive(reference) ? SlotOf(reference)->mObject.get() : nullptr;
}

void ObjectRegistry::Remove(MIDIObjectRef reference) noexcept {
    if (!IsLive(reference)) {
        return;
    }
    Slot& slot = *SlotOf(reference);
    // Before its route, so that a reader that finds the reference has found this object's route.
    slot.mReference.store(0, std::memory_order_seq_cst);
    Replace(slot, nullptr);
    slot.mObject.reset();
    const uint32_t index = reference & kIndexMask;
    slot.mNextFree = 0;
    if (mFreeCount++ == 0) {
        mFirstFree = index;
    } else {
        SlotOf(mLastFree)->mNextFree = index;
    }
    mLastFree = index;
}

void ObjectRegistry::SetRoute(MIDIObjectRef reference, std::unique_ptr<Route> route) noexcept {
    Replace(*SlotOf(reference), std::move(route));
}

void ObjectRegistry::Replace(Slot& slot, std::unique_ptr<Route> route) noexcept {
    slot.mRoute.store(route.get(), std::memory_order_seq_cst);
    std::swap(slot.mOwnedRoute, route);
    if (route != nullptr) {
        route->mNextRetired = std::move(slot.mRetired);
        slot.mRetired = std::move(route);
    }
    // With no reader, whoever comes next sees the new route: nobody has an old one. Otherwise they
    // wait for the slot's next change.
    if (slot.mReaders.load(std::memory_order_seq_cst) == 0) {
        // One by one: each would take the next with it, however many there are.
        while (slot.mRetired != nullptr) {
            slot.mRetired = std::move(slot.mRetired->mNextRetired);
        }
    }
}

} // namespace CoreMIDI
