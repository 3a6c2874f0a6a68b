#include "platform/CoreMIDI/src/state/Notifications.h"

#include "platform/CoreMIDI/src/state/World.h"

#include <utility>

namespace CoreMIDI {

namespace {

void Call(MIDINotifyProc procedure, void* refCon, const Notice& notice) {
    const auto send = [&](auto message) {
        message.messageID = notice.mMessage;
        message.messageSize = sizeof message;
        procedure(reinterpret_cast<const MIDINotification*>(&message), refCon);
    };
    switch (notice.mMessage) {
    case kMIDIMsgObjectAdded:
    case kMIDIMsgObjectRemoved:
        send(MIDIObjectAddRemoveNotification{0, 0, notice.mParent, TypeOf(notice.mParent),
                                             notice.mObject, TypeOf(notice.mObject)});
        return;
    case kMIDIMsgPropertyChanged: {
        const CFOwned<CFStringRef> name = MakeString(notice.mProperty);
        send(MIDIObjectPropertyChangeNotification{0, 0, notice.mObject, TypeOf(notice.mObject),
                                                  name.Get()});
        return;
    }
    case kMIDIMsgIOError:
        send(MIDIIOErrorNotification{0, 0, notice.mObject, notice.mError});
        return;
    default:
        send(MIDINotification{});
    }
}

} // namespace

void NotificationQueue::Push(const Notice& notice) {
    const std::lock_guard lock(mMutex);
    if (mNotices.size() < kMaximum) {
        mNotices.push_back(notice);
        return;
    }
    mNotices.clear();
    mNotices.emplace_back();
}

void NotificationQueue::Deliver() {
    for (;;) {
        Notice notice;
        {
            const std::lock_guard lock(mMutex);
            if (mNotices.empty()) {
                return;
            }
            notice = std::move(mNotices.front());
            mNotices.pop_front();
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
    const std::lock_guard lock(mMutex);
    if (queue != nullptr) {
        mQueues.push_back(queue);
    }
    if (mClients++ == 0) {
        mLoop = CFOwned<CFRunLoopRef>::Retained(CFRunLoopGetCurrent());
    }
    if (queue != nullptr && !mSource) {
        CFRunLoopSourceContext context{};
        context.info = this;
        context.perform = Perform;
        mSource = CFOwned<CFRunLoopSourceRef>(CFRunLoopSourceCreate(nullptr, 0, &context));
        CFRunLoopAddSource(mLoop.Get(), mSource.Get(), kCFRunLoopDefaultMode);
    }
}

void NotificationCentre::RemoveClient(const std::shared_ptr<NotificationQueue>& queue) {
    const std::lock_guard lock(mMutex);
    std::erase(mQueues, queue);
    if (--mClients == 0) {
        if (mSource) {
            CFRunLoopSourceInvalidate(mSource.Get());
        }
        mSource = {};
        mLoop = {};
    }
}

void NotificationCentre::Post(const std::vector<Notice>& notices) {
    const std::lock_guard lock(mMutex);
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

void NotificationCentre::Perform(void* centre) {
    auto* const self = static_cast<NotificationCentre*>(centre);
    std::vector<std::shared_ptr<NotificationQueue>> queues;
    {
        const std::lock_guard lock(self->mMutex);
        queues = self->mQueues;
    }
    for (const std::shared_ptr<NotificationQueue>& queue : queues) {
        queue->Deliver();
    }
}

} // namespace CoreMIDI
