#pragma once

#include "platform/CoreMIDI/src/base/Route.h"
#include "platform/CoreMIDI/src/base/StateMutex.h"
#include "platform/support/SlotTable.h"

#include <atomic>
#include <cstdint>
#include <memory>

namespace CoreMIDI {

struct Object;

// The kind of an object, which is part of its reference.
enum class Kind : std::uint32_t {
    kClient = 1,
    kInputPort,
    kOutputPort,
    kDevice,
    kEntity,
    kSource,
    kDestination,
    kDeviceList,
};

// The ObjectRegistry finds objects, and the routes of endpoints, by their references. A reference
// is an identifier of a SlotTable whose tag is the object's kind.
//
// Any thread may use IsLive and Reader; they take no lock and allocate nothing.
class ObjectRegistry {
    // The content of a slot.
    struct Entry {
        std::atomic<std::uint32_t> mReaders{0};
        std::atomic<const Route*> mRoute{nullptr};
        std::unique_ptr<Object> mObject QUORVEL_GUARDED_BY(sStateMutex);
        std::unique_ptr<Route> mOwnedRoute QUORVEL_GUARDED_BY(sStateMutex);
        // The first of the routes that were replaced while somebody read them.
        std::unique_ptr<Route> mRetired QUORVEL_GUARDED_BY(sStateMutex);
    };
    using Table = SlotTable<Entry, MIDIObjectRef, 16, 4>;

public:
    static Kind KindOf(MIDIObjectRef reference) {
        return static_cast<Kind>(Table::TagOf(reference));
    }

    // Adds an object, sets its reference and returns it. Throws std::bad_alloc if there is no
    // memory or no slot left.
    MIDIObjectRef Add(Kind kind, std::unique_ptr<Object> object) QUORVEL_REQUIRES(sStateMutex);
    // Returns null if there is no such object.
    Object* Find(MIDIObjectRef reference) const QUORVEL_REQUIRES(sStateMutex);
    // Destroys the object. Its route is destroyed too, or, while it is being read, kept.
    void Remove(MIDIObjectRef reference) noexcept QUORVEL_REQUIRES(sStateMutex);
    // Replaces the route of an endpoint. Packets that are on their way may still take the old one.
    void SetRoute(MIDIObjectRef reference, std::unique_ptr<Route> route) noexcept
        QUORVEL_REQUIRES(sStateMutex);

    bool IsLive(MIDIObjectRef reference, Kind kind) const {
        return KindOf(reference) == kind && IsLive(reference);
    }
    bool IsLive(MIDIObjectRef reference) const { return mTable.IsLive(reference); }

    // A Reader gives access to an endpoint's route, which is not destroyed while the reader exists.
    class Reader {
    public:
        Reader(const ObjectRegistry& registry, MIDIEndpointRef endpoint)
            : mEntry(registry.mTable.FindInAnyLife(endpoint)) {
            if (mEntry == nullptr) {
                return;
            }
            // Sequentially consistent with the writer's exchange of the route and its look at the
            // readers (Replace): either the writer sees this reader, or this reader the new route.
            mEntry->mReaders.fetch_add(1, std::memory_order_seq_cst);
            const Route* route = mEntry->mRoute.load(std::memory_order_seq_cst);
            // Looked at after the route: a slot that holds another object by now has its route.
            if (registry.IsLive(endpoint)) {
                mRoute = route;
            }
        }
        ~Reader() {
            if (mEntry != nullptr) {
                // Release: the reading is done before the writer destroys the route.
                mEntry->mReaders.fetch_sub(1, std::memory_order_release);
            }
        }
        Reader(const Reader&) = delete;
        Reader& operator=(const Reader&) = delete;

        // Returns null if there is no such endpoint.
        const Route* Get() const { return mRoute; }

    private:
        Entry* mEntry;
        const Route* mRoute = nullptr;
    };

private:
    static void Replace(Entry& entry, std::unique_ptr<Route> route) noexcept
        QUORVEL_REQUIRES(sStateMutex);

    Table mTable;
};

} // namespace CoreMIDI
