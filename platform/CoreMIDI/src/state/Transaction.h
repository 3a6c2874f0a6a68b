#pragma once

#include "platform/CoreMIDI/src/state/Notifications.h"
#include "platform/CoreMIDI/src/state/ServerState.h"

#include <memory>
#include <string_view>
#include <vector>

namespace CoreMIDI {

// A Transaction changes the server's objects. It holds the lock of the state. Its destructor
// releases the lock and then does what must not be done under the lock: it notifies clients, saves
// the setup, and waits for the read procedures whose connections the change has ended.
//
//     Transaction transaction;
//     Device& device = AddDevice(...);   // may throw
//     transaction.NotifyAdded(device);   // only now, when nothing can fail any more
//     transaction.SetupChanged(device);
//
// The destructor does only what the functions below have asked for, so ask when the change can no
// longer fail. If there is no memory, clients are told that the setup has changed but not how, and
// a setup that could not be written is written with the next change.
class QUORVEL_SCOPED_LOCK Transaction {
public:
    Transaction() QUORVEL_ACQUIRE(sStateMutex) { sStateMutex.Lock(); }
    ~Transaction() QUORVEL_RELEASE();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    // These three notify clients of a virtual endpoint, a device of the setup, or a part of such a
    // device. They do nothing for other objects.
    void NotifyAdded(const PropertyObject& object) noexcept QUORVEL_REQUIRES(sStateMutex) {
        Notify(kMIDIMsgObjectAdded, object, {});
    }
    void NotifyRemoved(const PropertyObject& object) noexcept QUORVEL_REQUIRES(sStateMutex) {
        Notify(kMIDIMsgObjectRemoved, object, {});
    }
    void NotifyProperty(const PropertyObject& object, std::string_view name) noexcept
        QUORVEL_REQUIRES(sStateMutex) {
        Notify(kMIDIMsgPropertyChanged, object, name);
    }
    // Has the setup saved. To be called when something that the setup file keeps of the object has
    // changed; does nothing if the object is not part of the setup.
    void SetupChanged(const PropertyObject& object) noexcept QUORVEL_REQUIRES(sStateMutex);
    // Ends a connection: its read procedure is not called after the destructor of the transaction.
    void End(std::shared_ptr<Connection> connection) noexcept {
        connection->mNextEnded = std::move(mEnded);
        mEnded = std::move(connection);
    }

private:
    void Notify(MIDINotificationMessageID message, const PropertyObject& object,
                std::string_view property) noexcept QUORVEL_REQUIRES(sStateMutex);

    std::vector<Notice> mNotices; // empty if there was no memory for one of them
    bool mIsNotified = false;
    bool mIsCutShort = false;
    std::shared_ptr<Connection> mEnded; // the first of the ended connections
    bool mSetupChanged = false;
};

// Runs the body of an interface function that changes an object: calls `change(transaction,
// object)` and returns its result, or returns `otherwise` if there is no object of the type with
// that reference.
//
//     return ChangeObject<Device>(reference, kMIDIObjectNotFound,
//                                 [](Transaction& transaction, Device& device) { ... });
template <typename Type, typename Change>
OSStatus ChangeObject(MIDIObjectRef reference, OSStatus otherwise, const Change& change) noexcept {
    return Answer([&]() -> OSStatus {
        Transaction transaction;
        auto* const object = ServerState::Get().Find<Type>(reference);
        return object == nullptr ? otherwise : OSStatus{change(transaction, *object)};
    });
}

} // namespace CoreMIDI
