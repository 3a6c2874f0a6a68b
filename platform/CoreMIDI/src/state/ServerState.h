#pragma once

#include "platform/CoreMIDI/src/base/OnFailure.h"
#include "platform/CoreMIDI/src/base/StateMutex.h"
#include "platform/CoreMIDI/src/state/ObjectRegistry.h"
#include "platform/CoreMIDI/src/state/Objects.h"
#include "platform/CoreMIDI/src/state/SetupStore.h"

#include <exception>
#include <limits>
#include <map>
#include <new>
#include <random>
#include <type_traits>
#include <vector>

namespace CoreMIDI {

// All that there is, one for the process. Never destroyed: threads of clients and of the library
// may still be at work while the process ends.
class ServerState {
public:
    static ServerState& Get();

    // The object of that reference if it is of the type; null otherwise.
    template <typename Type>
    Type* Find(MIDIObjectRef reference) const QUORVEL_REQUIRES(sStateMutex) {
        return dynamic_cast<Type*>(mObjects.Find(reference));
    }
    Port* FindPort(MIDIPortRef reference, Kind kind) const QUORVEL_REQUIRES(sStateMutex) {
        return ObjectRegistry::KindOf(reference) == kind ? Find<Port>(reference) : nullptr;
    }
    // An endpoint of that kind; the status says what is wrong when it is null.
    Endpoint* FindEndpoint(MIDIEndpointRef reference, Kind kind, OSStatus& status) const
        QUORVEL_REQUIRES(sStateMutex);

    // Makes an object and gives it a reference and, if it is one with properties, a unique ID.
    // Throws std::bad_alloc, with nothing changed.
    template <typename Type>
    Type& Add(Kind kind) QUORVEL_REQUIRES(sStateMutex) {
        auto object = std::make_unique<Type>();
        Type& added = *object;
        mObjects.Add(kind, std::move(object));
        const OnFailure remove(
            [&]() QUORVEL_REQUIRES(sStateMutex) { mObjects.Remove(added.mReference); });
        if constexpr (std::is_base_of_v<PropertyObject, Type>) {
            const MIDIUniqueID uniqueID = FreeUniqueID();
            mUniqueIDs.emplace(uniqueID, &added);
            added.mUniqueID = uniqueID;
        }
        return added;
    }
    // Takes the object out of the registry and of the unique IDs.
    void Remove(Object& object) noexcept QUORVEL_REQUIRES(sStateMutex);

    // False when another object has the ID.
    bool SetUniqueID(PropertyObject& object, MIDIUniqueID uniqueID) noexcept
        QUORVEL_REQUIRES(sStateMutex);
    // Another object that has the ID gets a new one.
    void TakeUniqueID(PropertyObject& object, MIDIUniqueID uniqueID) noexcept
        QUORVEL_REQUIRES(sStateMutex);

    ObjectRegistry mObjects; // says itself what is under the lock
    std::map<MIDIUniqueID, PropertyObject*> mUniqueIDs QUORVEL_GUARDED_BY(sStateMutex);
    std::vector<Device*> mSetupDevices QUORVEL_GUARDED_BY(sStateMutex);
    std::vector<Endpoint*> mVirtualEndpoints QUORVEL_GUARDED_BY(sStateMutex);
    std::vector<std::shared_ptr<DriverOutput>> mDrivers QUORVEL_GUARDED_BY(sStateMutex);
    std::vector<Client*> mClients QUORVEL_GUARDED_BY(sStateMutex);
    SetupStore mSetup; // has a lock of its own

private:
    ServerState();
    MIDIUniqueID FreeUniqueID() QUORVEL_REQUIRES(sStateMutex);

    std::mt19937 mRandom QUORVEL_GUARDED_BY(sStateMutex){std::random_device{}()};
};

// What a reference names, as notifications and searches tell it.
MIDIObjectType TypeOf(MIDIObjectRef reference);

// Runs the body of an interface function: no exception gets into the C code that called it.
template <typename Body>
OSStatus Answer(const Body& body) noexcept {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return memFullErr;
    } catch (const std::exception&) {
        return kMIDIServerStartErr;
    }
}

// The same for a function that gives a number or reference, 0 on failure.
template <typename Body>
auto AnswerOrZero(const Body& body) noexcept -> decltype(body()) {
    try {
        return body();
    } catch (const std::exception&) {
        return {};
    }
}

} // namespace CoreMIDI
