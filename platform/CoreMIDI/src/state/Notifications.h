#pragma once

#include "platform/CoreMIDI/src/base/CallGate.h"
#include "platform/CoreMIDI/src/base/StateMutex.h"
#include "platform/support/CFOwned.h"

#include <CoreMIDI/MIDINotification.h>

#include <deque>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace CoreMIDI {

// A Notice is a notification that has not been delivered yet. `mMessage` determines which of the
// other fields have a meaning.
struct Notice {
    MIDINotificationMessageID mMessage = kMIDIMsgSetupChanged;
    MIDIObjectRef mObject = 0;
    MIDIObjectRef mParent = 0;
    std::string mProperty;
    OSStatus mError = noErr;
};

// A NotificationQueue keeps the notifications for one client until they are delivered. Any thread
// may use it.
class NotificationQueue {
public:
    NotificationQueue(MIDIObjectRef client, MIDINotifyProc procedure, void* refCon)
        : mGate(client), mProcedure(procedure), mRefCon(refCon) {}

    // Appends a notification. If kMaximum are waiting already, or there is no memory, one
    // kMIDIMsgSetupChanged replaces all notifications until the next delivery.
    void Push(const Notice& notice) noexcept;
    // Calls the client's procedure for each waiting notification.
    void Deliver() noexcept QUORVEL_EXCLUDES(sStateMutex);
    // See CallGate::Close.
    void Close() QUORVEL_EXCLUDES(sStateMutex) { mGate.Close(); }

private:
    static constexpr std::size_t kMaximum = 1024;

    CallGate mGate;
    const MIDINotifyProc mProcedure;
    void* const mRefCon;
    Mutex mMutex;
    std::deque<Notice> mNotices QUORVEL_GUARDED_BY(mMutex);
    // Whether one kMIDIMsgSetupChanged stands for all notifications since the last delivery.
    bool mIsCutShort QUORVEL_GUARDED_BY(mMutex) = false;
};

// The NotificationCentre knows the run loop on which clients are notified, and the clients' queues.
class NotificationCentre {
public:
    static NotificationCentre& Get();

    // Adds a client. The first client determines the run loop: it is that of the calling thread.
    // `queue` is null for a client without a notify procedure. Throws std::bad_alloc and then
    // changes nothing.
    void AddClient(const std::shared_ptr<NotificationQueue>& queue);
    // Removes a client. Removing the last client releases the run loop.
    void RemoveClient(const std::shared_ptr<NotificationQueue>& queue) noexcept;
    void Post(std::span<const Notice> notices) noexcept;

private:
    // Makes the source and puts it into the loop, or throws std::bad_alloc.
    CFOwned<CFRunLoopSourceRef> MakeSource(CFRunLoopRef loop) QUORVEL_REQUIRES(mMutex);
    static void Perform(void* centre) noexcept;

    Mutex mMutex;
    std::size_t mClients QUORVEL_GUARDED_BY(mMutex) = 0;
    CFOwned<CFRunLoopRef> mLoop QUORVEL_GUARDED_BY(mMutex);
    // Null until there is a queue.
    CFOwned<CFRunLoopSourceRef> mSource QUORVEL_GUARDED_BY(mMutex);
    std::vector<std::shared_ptr<NotificationQueue>> mQueues QUORVEL_GUARDED_BY(mMutex);
};

} // namespace CoreMIDI
