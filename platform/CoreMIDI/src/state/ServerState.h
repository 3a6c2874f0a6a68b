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

// The ServerState holds all objects of the MIDI server. There is one for the process, which is
// never destroyed, because threads of clients and of the library may still run while the process
// ends.
class ServerState {
public:
    static ServerState& Get();

    // Returns the object with that reference, or null if there is none or it has another type.
    template <typename Type>
    Type* Find(MIDIObjectRef reference) const QUORVEL_REQUIRES(sStateMutex) {
        return dynamic_cast<Type*>(mObjects.Find(reference));
    }
    Port* FindPort(MIDIPortRef reference, Kind kind) const QUORVEL_REQUIRES(sStateMutex) {
        return ObjectRegistry::KindOf(reference) == kind ? Find<Port>(reference) : nullptr;
    }
    // Returns the endpoint of that kind, or null and sets `status` to the reason.
    Endpoint* FindEndpoint(MIDIEndpointRef reference, Kind kind, OSStatus& status) const
        QUORVEL_REQUIRES(sStateMutex);

    // Makes an object with a reference and, if objects of the type have properties, a unique ID.
    // Throws std::bad_alloc and then changes nothing.
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
    // Destroys the object and frees its reference and its unique ID.
    void Remove(Object& object) noexcept QUORVEL_REQUIRES(sStateMutex);

    // Gives the object a unique ID. Returns false if another object has that ID.
    bool SetUniqueID(PropertyObject& object, MIDIUniqueID uniqueID) noexcept
        QUORVEL_REQUIRES(sStateMutex);
    // Gives the object a unique ID. If another object has that ID, that object gets a new one.
    void TakeUniqueID(PropertyObject& object, MIDIUniqueID uniqueID) noexcept
        QUORVEL_REQUIRES(sStateMutex);

    ObjectRegistry mObjects; // states for each of its functions whether the lock is needed
    std::map<MIDIUniqueID, PropertyObject*> mUniqueIDs QUORVEL_GUARDED_BY(sStateMutex);
    std::vector<Device*> mSetupDevices QUORVEL_GUARDED_BY(sStateMutex);
    std::vector<Endpoint*> mVirtualEndpoints QUORVEL_GUARDED_BY(sStateMutex);
    std::vector<std::shared_ptr<DriverOutput>> mDrivers QUORVEL_GUARDED_BY(sStateMutex);
    SetupStore mSetup; // has a lock of its own

private:
    ServerState();
    MIDIUniqueID FreeUniqueID() QUORVEL_REQUIRES(sStateMutex);

    std::mt19937 mRandom QUORVEL_GUARDED_BY(sStateMutex){std::random_device{}()};
};

// Returns the type of the object with that reference, as notifications and searches report it.
MIDIObjectType TypeOf(MIDIObjectRef reference);

// Runs the body of an interface function and turns exceptions into results, because none may reach
// the C code that called the function.
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

// Does the same for a function that returns a number or a reference, and returns 0 on failure.
template <typename Body>
auto AnswerOrZero(const Body& body) noexcept -> decltype(body()) {
    try {
        return body();
    } catch (const std::exception&) {
        return {};
    }
}

// Runs the body of an interface function that needs an object and no transaction: calls
// `body(object)` under the lock of the state and returns its result, or returns `otherwise` if
// there is no object of the type with that reference.
template <typename Type, typename Body>
OSStatus WithObject(MIDIObjectRef reference, OSStatus otherwise, const Body& body) noexcept {
    return Answer([&]() -> OSStatus {
        ServerState& state = ServerState::Get();
        const MutexLock lock(sStateMutex);
        auto* const object = state.Find<Type>(reference);
        return object == nullptr ? otherwise : OSStatus{body(*object)};
    });
}

} // namespace CoreMIDI
