#include "platform/CoreMIDI/src/state/ObjectRegistry.h"

#include "platform/CoreMIDI/src/state/Objects.h"

#include <new>
#include <utility>

namespace CoreMIDI {

MIDIObjectRef ObjectRegistry::Add(Kind kind, std::unique_ptr<Object> object) {
    // Whoever looks for the object takes the lock that the caller holds: it may be put in after
    // that.
    const MIDIObjectRef reference = mTable.Add([](Entry& /*entry*/, MIDIObjectRef /*given*/) {},
                                               static_cast<MIDIObjectRef>(kind));
    if (reference == 0) {
        throw std::bad_alloc();
    }
    object->mReference = reference;
    mTable.Find(reference)->mObject = std::move(object);
    return reference;
}

Object* ObjectRegistry::Find(MIDIObjectRef reference) const {
    const Entry* const entry = mTable.Find(reference);
    return entry == nullptr ? nullptr : entry->mObject.get();
}

void ObjectRegistry::Remove(MIDIObjectRef reference) noexcept {
    // Before its route, so that a reader that finds the reference has found this object's route.
    if (!mTable.Remove(reference)) {
        return;
    }
    Entry& entry = *mTable.FindInAnyLife(reference);
    Replace(entry, nullptr);
    entry.mObject.reset();
}

void ObjectRegistry::SetRoute(MIDIObjectRef reference, std::unique_ptr<Route> route) noexcept {
    Replace(*mTable.FindInAnyLife(reference), std::move(route));
}

void ObjectRegistry::Replace(Entry& entry, std::unique_ptr<Route> route) noexcept {
    entry.mRoute.store(route.get(), std::memory_order_seq_cst);
    std::swap(entry.mOwnedRoute, route);
    if (route != nullptr) {
        route->mNextRetired = std::move(entry.mRetired);
        entry.mRetired = std::move(route);
    }
    // With no reader, whoever comes next sees the new route: nobody has an old one. Otherwise they
    // wait for the slot's next change.
    if (entry.mReaders.load(std::memory_order_seq_cst) == 0) {
        // One by one: each would take the next with it, however many there are.
        while (entry.mRetired != nullptr) {
            entry.mRetired = std::move(entry.mRetired->mNextRetired);
        }
    }
}

} // namespace CoreMIDI
