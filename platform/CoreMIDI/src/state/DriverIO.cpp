#include "platform/CoreMIDI/src/state/DriverIO.h"

#include "platform/CoreMIDI/src/base/HostTime.h"
#include "platform/CoreMIDI/src/state/Notifications.h"

#include <pthread.h>

#include <algorithm>
#include <iterator>
#include <limits>
#include <system_error>
#include <thread>
#include <utility>

namespace CoreMIDI {

namespace {

thread_local bool tIsDriverIOThread = false;

// How long the thread sleeps at most when nothing is to come.
constexpr CFTimeInterval kLongSleepSeconds = 3600;

CFTimeInterval SecondsBetween(MIDITimeStamp now, MIDITimeStamp then) {
    constexpr CFTimeInterval kNanosecondsPerSecond = 1e9;
    return std::min(static_cast<CFTimeInterval>(then - now) / kNanosecondsPerSecond,
                    kLongSleepSeconds);
}

const MIDIPacketList* ListOf(const ListBuffer& buffer) {
    return reinterpret_cast<const MIDIPacketList*>(buffer.data());
}

} // namespace

DriverOutput* DriverIO::Item::Driver() const {
    return mTarget != nullptr ? mTarget->mDriver.get() : mDriver.get();
}

DriverIO& DriverIO::Get() {
    static auto* const driverIO = new DriverIO;
    return *driverIO;
}

bool DriverIO::IsThisThread() const {
    return tIsDriverIOThread;
}

bool DriverIO::Start() {
    std::unique_lock lock(mMutex);
    if (mThreadState == ThreadState::kNone) {
        try {
            std::thread([this] { Run(); }).detach();
        } catch (const std::system_error&) {
            return false;
        }
        mThreadState = ThreadState::kStarting;
    }
    mChanged.wait(lock, [this] { return mThreadState == ThreadState::kRunning; });
    return true;
}

CFRunLoopRef DriverIO::Loop() {
    if (!Start()) {
        return nullptr;
    }
    const std::lock_guard lock(mMutex);
    return mLoop;
}

void DriverIO::Run() {
    tIsDriverIOThread = true;
    pthread_setname_np(pthread_self(), "MIDI driver I/O");
    CFRunLoopSourceContext context{};
    // The source only ends the loop's sleep.
    context.perform = [](void*) {};
    {
        const std::lock_guard lock(mMutex);
        mLoop = CFRunLoopGetCurrent();
        mWakeSource = CFRunLoopSourceCreate(nullptr, 0, &context);
        CFRunLoopAddSource(mLoop, mWakeSource, kCFRunLoopDefaultMode);
        mThreadState = ThreadState::kRunning;
        mIsAwake = true;
        mSpare.reserve(kSpareBuffers);
    }
    mChanged.notify_all();
    Item item;
    for (;;) {
        CFTimeInterval seconds = 0;
        if (TakeNext(item, seconds)) {
            Perform(item);
            Finish(item);
        }
        // Sources that drivers have put into the loop get their turn between the packets.
        CFRunLoopRunInMode(kCFRunLoopDefaultMode, seconds, true);
    }
}

bool DriverIO::TakeNext(Item& item, CFTimeInterval& secondsToNext) {
    const std::lock_guard lock(mMutex);
    mIsAwake = true;
    const MIDITimeStamp now = HostTimeNow();
    const auto first = mWaiting.begin();
    const bool isWaitingDue = first != mWaiting.end() && first->first <= now;
    if (isWaitingDue && (mQueue.empty() || first->first <= mQueue.front().mDue)) {
        item = std::move(first->second);
        mWaiting.erase(first);
        mWaitingBytes -= item.mList.size();
        // From here on it is like a queued one.
        mQueuedBytes += item.mList.size();
        secondsToNext = 0;
        return true;
    }
    if (!mQueue.empty()) {
        item = std::move(mQueue.front());
        mQueue.pop_front();
        secondsToNext = 0;
        return true;
    }
    secondsToNext = first == mWaiting.end() ? kLongSleepSeconds : SecondsBetween(now, first->first);
    mIsAwake = false;
    return false;
}

void DriverIO::Perform(const Item& item) {
    if (item.mTask == Task::kPackets && item.mTarget->mReceiver != nullptr) {
        item.mTarget->mReceiver->Deliver(ListOf(item.mList));
        return;
    }
    MIDIDriverRef driver = item.Driver()->mDriver;
    const auto* const target = item.mTarget.get();
    switch (item.mTask) {
    case Task::kPackets: {
        const OSStatus status = (*driver)->Send(driver, ListOf(item.mList), target->mRefCons.first,
                                                target->mRefCons.second);
        if (status != noErr) {
            Notice notice;
            notice.mMessage = kMIDIMsgIOError;
            notice.mObject = target->mDevice;
            notice.mError = status;
            NotificationCentre::Get().Post({notice});
        }
        return;
    }
    case Task::kFlush:
        (*driver)->Flush(driver, target->mEndpoint, target->mRefCons.first,
                         target->mRefCons.second);
        return;
    case Task::kEnableSource:
    case Task::kDisableSource:
        (*driver)->EnableSource(driver, item.mSource, item.mTask == Task::kEnableSource);
        return;
    }
}

void DriverIO::Finish(Item& item) {
    {
        const std::lock_guard lock(mMutex);
        mQueuedBytes -= item.mList.size();
        if (DriverOutput* const driver = item.Driver()) {
            --driver->mPending;
        }
        if (item.mList.capacity() != 0 && mSpare.size() < kSpareBuffers) {
            mSpare.push_back(std::move(item.mList));
        }
    }
    mChanged.notify_all();
    item = {};
}

bool DriverIO::Submit(const std::shared_ptr<const OutputTarget>& target, const MIDIPacketList* due,
                      std::size_t dueBytes, std::vector<LaterList> later) {
    if (!Start()) {
        return false;
    }
    std::size_t laterBytes = 0;
    for (const LaterList& list : later) {
        laterBytes += list.mList.ByteSize();
    }
    std::unique_lock lock(mMutex);
    const DriverOutput* const driver = target->mDriver.get();
    const auto hasRoom = [&] {
        return due == nullptr || mQueuedBytes == 0 || mQueuedBytes + dueBytes <= kQueueBytes;
    };
    const auto isRefused = [&] { return driver != nullptr && !driver->mIsAttached; };
    if (tIsDriverIOThread && !hasRoom()) {
        return false;
    }
    mChanged.wait(lock, [&] { return isRefused() || hasRoom(); });
    if (isRefused() || mWaitingBytes + laterBytes > kWaitingBytes) {
        return false;
    }
    for (LaterList& list : later) {
        Item item;
        item.mTarget = target;
        item.mDue = list.mTime;
        item.mList = list.mList.Release();
        mWaitingBytes += item.mList.size();
        mWaiting.emplace(list.mTime, std::move(item));
        if (driver != nullptr) {
            ++target->mDriver->mPending;
        }
    }
    if (due != nullptr) {
        Item item;
        item.mTarget = target;
        if (!mSpare.empty()) {
            item.mList = std::move(mSpare.back());
            mSpare.pop_back();
        }
        const auto* const bytes = reinterpret_cast<const Byte*>(due);
        item.mList.assign(bytes, bytes + dueBytes);
        QueueLocked(std::move(item));
    }
    WakeLocked();
    return true;
}

void DriverIO::QueueLocked(Item item) {
    // Taken under the lock, so that the times in the queue are in its order.
    item.mDue = HostTimeNow();
    mQueuedBytes += item.mList.size();
    if (DriverOutput* const driver = item.Driver()) {
        ++driver->mPending;
    }
    mQueue.push_back(std::move(item));
}

void DriverIO::WakeLocked() {
    if (!mIsAwake) {
        mIsAwake = true;
        CFRunLoopSourceSignal(mWakeSource);
        CFRunLoopWakeUp(mLoop);
    }
}

void DriverIO::Post(Item item) {
    if (!Start()) {
        return;
    }
    const std::lock_guard lock(mMutex);
    if (item.Driver()->mIsAttached) {
        QueueLocked(std::move(item));
        WakeLocked();
    }
}

void DriverIO::PostEnableSource(const std::shared_ptr<DriverOutput>& driver, MIDIEndpointRef source,
                                bool isEnabled) {
    Item item;
    item.mTask = isEnabled ? Task::kEnableSource : Task::kDisableSource;
    item.mDriver = driver;
    item.mSource = source;
    Post(std::move(item));
}

void DriverIO::PostFlush(const std::shared_ptr<const OutputTarget>& target) {
    Item item;
    item.mTask = Task::kFlush;
    item.mTarget = target;
    Post(std::move(item));
}

template <typename Predicate>
void DriverIO::DropWaitingLocked(const Predicate& isToBeDropped) {
    for (auto waiting = mWaiting.begin(); waiting != mWaiting.end();) {
        if (!isToBeDropped(*waiting->second.mTarget)) {
            ++waiting;
            continue;
        }
        mWaitingBytes -= waiting->second.mList.size();
        if (DriverOutput* const driver = waiting->second.Driver()) {
            --driver->mPending;
        }
        waiting = mWaiting.erase(waiting);
    }
}

void DriverIO::DropWaiting(MIDIEndpointRef endpoint) {
    const std::lock_guard lock(mMutex);
    DropWaitingLocked([endpoint](const OutputTarget& target) {
        return endpoint == 0 || target.mEndpoint == endpoint;
    });
}

void DriverIO::Detach(const std::shared_ptr<DriverOutput>& driver) {
    std::unique_lock lock(mMutex);
    driver->mIsAttached = false;
    DropWaitingLocked([&driver](const OutputTarget& target) { return target.mDriver == driver; });
    // For those who wait for room in the queue.
    mChanged.notify_all();
    mChanged.wait(lock, [&driver] { return driver->mPending == 0; });
}

} // namespace CoreMIDI
