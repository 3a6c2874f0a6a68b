#pragma once

#include "platform/CoreMIDI/src/base/CallGate.h"
#include "platform/support/CFOwned.h"

#include <CoreMIDI/MIDINotification.h>

#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace CoreMIDI {

// A notification that waits; `mMessage` says which of the other fields count.
struct Notice {
    MIDINotificationMessageID mMessage = kMIDIMsgSetupChanged;
    MIDIObjectRef mObject = 0;
    MIDIObjectRef mParent = 0;
    std::string mProperty;
    OSStatus mError = noErr;
};

// What waits for one client. Any thread; allocates.
class NotificationQueue {
public:
    NotificationQueue(MIDIObjectRef client, MIDINotifyProc procedure, void* refCon)
        : mGate(client), mProcedure(procedure), mRefCon(refCon) {}

    // When kMaximum wait already, all are replaced by one kMIDIMsgSetupChanged.
    void Push(const Notice& notice);
    // Calls the procedure for all that waits.
    void Deliver();
    // See CallGate::Close.
    void Close() { mGate.Close(); }

private:
    static constexpr std::size_t kMaximum = 1024;

    CallGate mGate;
    const MIDINotifyProc mProcedure;
    void* const mRefCon;
    std::mutex mMutex;
    std::deque<Notice> mNotices; // under mMutex
};

// The run loop that notifications come on, and the queues that it looks after.
class NotificationCentre {
public:
    static NotificationCentre& Get();

    // The first client fixes the run loop: that of the calling thread. `queue` may be null.
    void AddClient(const std::shared_ptr<NotificationQueue>& queue);
    // The last one lets it go.
    void RemoveClient(const std::shared_ptr<NotificationQueue>& queue);
    void Post(const std::vector<Notice>& notices);

private:
    static void Perform(void* centre);

    std::mutex mMutex;
    // Under mMutex.
    std::size_t mClients = 0;
    CFOwned<CFRunLoopRef> mLoop;
    CFOwned<CFRunLoopSourceRef> mSource; // null until there is a queue
    std::vector<std::shared_ptr<NotificationQueue>> mQueues;
};

} // namespace CoreMIDI
