#pragma once

#include "platform/CoreMIDI/src/state/Notifications.h"
#include "platform/CoreMIDI/src/state/ServerState.h"

#include <memory>
#include <string_view>
#include <vector>

namespace CoreMIDI {

// A change of the objects: holds the lock of the state, and after letting it go does what must not
// be done under it, in this order: notifies clients, saves the setup, waits for procedures that the
// change has ended. Nothing of that happens for what was not asked for; so it is asked for when the
// change can fail no more. None of it needs memory: without, clients are told that the setup has
// changed, not how, and a setup that is not written is written with the next change.
class QUORVEL_SCOPED_LOCK Transaction {
public:
    Transaction() QUORVEL_ACQUIRE(sStateMutex) { sStateMutex.Lock(); }
    ~Transaction() QUORVEL_RELEASE();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    // Virtual endpoints, devices of the setup and what belongs to these are notified of, all else
    // is passed over. `parent` is that of the object or 0.
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
    // What is saved of the object has changed; does nothing unless it is part of the setup.
    void SetupChanged(const PropertyObject& object) noexcept QUORVEL_REQUIRES(sStateMutex);
    void End(std::shared_ptr<Connection> connection) noexcept {
        connection->mNextEnded = std::move(mEnded);
        mEnded = std::move(connection);
    }

private:
    void Notify(MIDINotificationMessageID message, const PropertyObject& object,
                std::string_view property) noexcept QUORVEL_REQUIRES(sStateMutex);

    std::vector<Notice> mNotices; // all, or none when there was no memory for one
    bool mIsNotified = false;
    bool mIsCutShort = false;
    std::shared_ptr<Connection> mEnded; // the first of them
    bool mSetupChanged = false;
};

} // namespace CoreMIDI
