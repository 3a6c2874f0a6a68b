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

// A notification that waits; `mMessage` says which of the other fields count.
struct Notice {
    MIDINotificationMessageID mMessage = kMIDIMsgSetupChanged;
    MIDIObjectRef mObject = 0;
    MIDIObjectRef mParent = 0;
    std::string mProperty;
    OSStatus mError = noErr;
};

// What waits for one client. Any thread.
class NotificationQueue {
public:
    NotificationQueue(MIDIObjectRef client, MIDINotifyProc procedure, void* refCon)
        : mGate(client), mProcedure(procedure), mRefCon(refCon) {}

    // When kMaximum wait already, or memory runs out, all until the next delivery are replaced by
    // one kMIDIMsgSetupChanged.
    void Push(const Notice& notice) noexcept;
    // Calls the procedure for all that waits.
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
    // A kMIDIMsgSetupChanged stands for all.
    bool mIsCutShort QUORVEL_GUARDED_BY(mMutex) = false;
};

// The run loop that notifications come on, and the queues that it looks after.
class NotificationCentre {
public:
    static NotificationCentre& Get();

    // The first client fixes the run loop: that of the calling thread. `queue` may be null. Throws
    // std::bad_alloc, with nothing changed.
    void AddClient(const std::shared_ptr<NotificationQueue>& queue);
    // The last one lets it go.
    void RemoveClient(const std::shared_ptr<NotificationQueue>& queue) noexcept;
    void Post(std::span<const Notice> notices) noexcept;

private:
    // Made and put into the loop, or std::bad_alloc.
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
