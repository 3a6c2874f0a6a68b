#include "platform/CoreMIDI/src/state/Notifications.h"

#include "platform/CoreMIDI/src/state/ServerState.h"

#include <algorithm>
#include <limits>
#include <new>
#include <utility>

namespace CoreMIDI {

namespace {

void Call(MIDINotifyProc procedure, void* refCon, const Notice& notice) {
    const auto send = [&](MIDINotificationMessageID what, auto message) {
        message.messageID = what;
        message.messageSize = sizeof message;
        procedure(reinterpret_cast<const MIDINotification*>(&message), refCon);
    };
    switch (notice.mMessage) {
    case kMIDIMsgObjectAdded:
    case kMIDIMsgObjectRemoved:
        send(notice.mMessage,
             MIDIObjectAddRemoveNotification{0, 0, notice.mParent, TypeOf(notice.mParent),
                                             notice.mObject, TypeOf(notice.mObject)});
        return;
    case kMIDIMsgPropertyChanged:
        if (const CFOwned<CFStringRef> name = CreateString(notice.mProperty)) {
            send(notice.mMessage, MIDIObjectPropertyChangeNotification{
                                      0, 0, notice.mObject, TypeOf(notice.mObject), name.Get()});
            return;
        }
        break;
    case kMIDIMsgIOError:
        send(notice.mMessage, MIDIIOErrorNotification{0, 0, notice.mObject, notice.mError});
        return;
    default:
        break;
    }
    send(kMIDIMsgSetupChanged, MIDINotification{});
}

} // namespace

void NotificationQueue::Push(const Notice& notice) noexcept {
    const MutexLock lock(mMutex);
    if (mIsCutShort) {
        return;
    }
    if (mNotices.size() < kMaximum) {
        try {
            mNotices.push_back(notice);
            return;
        } catch (const std::bad_alloc&) {
            // As if there were too many.
        }
    }
    mNotices.clear();
    mIsCutShort = true;
}

void NotificationQueue::Deliver() noexcept {
    for (;;) {
        Notice notice;
        {
            const MutexLock lock(mMutex);
            if (std::exchange(mIsCutShort, false)) {
                // The notice as it is: the setup has changed.
            } else if (mNotices.empty()) {
                return;
            } else {
                notice = std::move(mNotices.front());
                mNotices.pop_front();
            }
        }
        const CallGate::Call call(mGate);
        if (!call) {
            return;
        }
        Call(mProcedure, mRefCon, notice);
    }
}

NotificationCentre& NotificationCentre::Get() {
    static auto* const centre = new NotificationCentre;
    return *centre;
}

void NotificationCentre::AddClient(const std::shared_ptr<NotificationQueue>& queue) {
    const MutexLock lock(mMutex);
    const auto loop =
        mClients == 0 ? CFOwned<CFRunLoopRef>::Retained(CFRunLoopGetCurrent()) : mLoop;
    if (!loop) {
        throw std::bad_alloc();
    }
    if (queue != nullptr) {
        mQueues.reserve(mQueues.size() + 1);
        if (!mSource) {
            mSource = MakeSource(loop.Get());
        }
        mQueues.push_back(queue);
    }
    mLoop = loop;
    ++mClients;
}

CFOwned<CFRunLoopSourceRef> NotificationCentre::MakeSource(CFRunLoopRef loop) {
    CFRunLoopSourceContext context{};
    context.info = this;
    context.perform = Perform;
    CFOwned<CFRunLoopSourceRef> source(CFRunLoopSourceCreate(nullptr, 0, &context));
    if (source) {
        CFRunLoopAddSource(loop, source.Get(), kCFRunLoopDefaultMode);
    }
    if (!source || !CFRunLoopContainsSource(loop, source.Get(), kCFRunLoopDefaultMode)) {
        throw std::bad_alloc();
    }
    return source;
}

void NotificationCentre::RemoveClient(const std::shared_ptr<NotificationQueue>& queue) noexcept {
    const MutexLock lock(mMutex);
    std::erase(mQueues, queue);
    if (--mClients == 0) {
        if (mSource) {
            CFRunLoopSourceInvalidate(mSource.Get());
        }
        mSource = {};
        mLoop = {};
    }
}

void NotificationCentre::Post(std::span<const Notice> notices) noexcept {
    const MutexLock lock(mMutex);
    if (mQueues.empty()) {
        return;
    }
    for (const std::shared_ptr<NotificationQueue>& queue : mQueues) {
        for (const Notice& notice : notices) {
            queue->Push(notice);
        }
    }
    CFRunLoopSourceSignal(mSource.Get());
    CFRunLoopWakeUp(mLoop.Get());
}

void NotificationCentre::Perform(void* centre) noexcept {
    auto* const self = static_cast<NotificationCentre*>(centre);
    // From the last to the first, without a copy of all: procedures may add and remove clients,
    // which does not move those that are yet to come further down.
    for (std::size_t next = std::numeric_limits<std::size_t>::max();;) {
        std::shared_ptr<NotificationQueue> queue;
        {
            const MutexLock lock(self->mMutex);
            next = std::min(next, self->mQueues.size());
            if (next == 0) {
                return;
            }
            queue = self->mQueues[--next];
        }
        queue->Deliver();
    }
}

} // namespace CoreMIDI
