#pragma once

#include "platform/CoreMIDI/src/state/Notifications.h"
#include "platform/CoreMIDI/src/state/World.h"

#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace CoreMIDI {

// A change of the objects: holds the lock of World, and after letting it go does what must not be
// done under it, in this order: notifies clients, saves the setup, waits for procedures that the
// change has ended. Nothing of that happens for what was not asked for.
class Change {
public:
    Change() : mLock(World::Get().mMutex) {}
    ~Change();
    Change(const Change&) = delete;
    Change& operator=(const Change&) = delete;

    // Virtual endpoints, devices of the setup and what belongs to these are notified of, all else
    // is passed over. `parent` is that of the object or 0.
    void NotifyAdded(const PropertyObject& object) { Notify(kMIDIMsgObjectAdded, object, {}); }
    void NotifyRemoved(const PropertyObject& object) { Notify(kMIDIMsgObjectRemoved, object, {}); }
    void NotifyProperty(const PropertyObject& object, const std::string& name) {
        Notify(kMIDIMsgPropertyChanged, object, name);
    }
    // What is saved of the object has changed; does nothing unless it is part of the setup.
    void SetupChanged(const PropertyObject& object);
    void End(std::shared_ptr<Connection> connection) { mEnded.push_back(std::move(connection)); }

private:
    void Notify(MIDINotificationMessageID message, const PropertyObject& object,
                const std::string& property);

    std::vector<Notice> mNotices;
    std::vector<std::shared_ptr<Connection>> mEnded;
    bool mSetupChanged = false;
    // Declared last: let go first when construction fails.
    std::unique_lock<std::mutex> mLock;
};

} // namespace CoreMIDI
