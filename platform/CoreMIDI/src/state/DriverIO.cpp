#include "platform/CoreMIDI/src/state/DriverIO.h"

#include "platform/CoreMIDI/src/base/HostTime.h"
#include "platform/CoreMIDI/src/state/Notifications.h"

#include <pthread.h>

#include <algorithm>
#include <exception>
#include <limits>
#include <thread>
#include <utility>

namespace CoreMIDI {

namespace {

thread_local bool tIsDriverIOThread = false;

// How long the thread sleeps when no packet waits.
constexpr CFTimeInterval kForever = 1e10;

CFTimeInterval SecondsBetween(MIDITimeStamp now, MIDITimeStamp then) {
    constexpr CFTimeInterval kNanosecondsPerSecond = 1e9;
    return static_cast<CFTimeInterval>(then - now) / kNanosecondsPerSecond;
}

const MIDIPacketList* ListOf(const ListBuffer& buffer) {
    return reinterpret_cast<const MIDIPacketList*>(buffer.data());
}

} // namespace

DriverOutput* DriverItem::Driver() const {
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
    const MutexLock lock(msMutex);
    if (mThreadState == ThreadState::kNone) {
        try {
            std::thread([this] { Run(); }).detach();
        } catch (const std::exception&) {
            return false;
        }
        mThreadState = ThreadState::kStarting;
    }
    while (mThreadState == ThreadState::kStarting) {
        mChanged.Wait(msMutex);
    }
    return mThreadState == ThreadState::kRunning;
}

CFRunLoopRef DriverIO::Loop() {
    if (!Start()) {
        return nullptr;
    }
    const MutexLock lock(msMutex);
    return mLoop;
}

void DriverIO::Run() noexcept {
    tIsDriverIOThread = true;
    pthread_setname_np(pthread_self(), "MIDI driver I/O");
    bool isRunning = false;
    {
        const MutexLock lock(msMutex);
        TakeUpLoop();
        isRunning = mLoop != nullptr;
        mThreadState = isRunning ? ThreadState::kRunning : ThreadState::kNone;
        mIsAwake = true;
    }
    mChanged.NotifyAll();
    if (!isRunning) {
        return;
    }
    for (;;) {
        CFTimeInterval seconds = 0;
        DriverItems item = TakeNext(seconds);
        if (!item.empty()) {
            Perform(item.front());
            Finish(std::move(item));
        }
        // Sources that drivers have put into the loop get their turn between the packets.
        CFRunLoopRunInMode(kCFRunLoopDefaultMode, seconds, true);
    }
}

void DriverIO::TakeUpLoop() noexcept {
    CFRunLoopSourceContext context{};
    // The source only ends the loop's sleep.
    context.perform = [](void*) {};
    CFOwned<CFRunLoopSourceRef> source(CFRunLoopSourceCreate(nullptr, 0, &context));
    CFRunLoopRef loop = CFRunLoopGetCurrent();
    if (!source || loop == nullptr) {
        return;
    }
    CFRunLoopAddSource(loop, source.Get(), kCFRunLoopDefaultMode);
    if (CFRunLoopContainsSource(loop, source.Get(), kCFRunLoopDefaultMode)) {
        mWakeSource = source.Release();
        mLoop = loop;
    }
}

DriverItems DriverIO::TakeNext(CFTimeInterval& secondsToNext) noexcept {
    const MutexLock lock(msMutex);
    mIsAwake = true;
    secondsToNext = 0;
    DriverItems item;
    const MIDITimeStamp now = HostTimeNow();
    const auto first = mWaiting.begin();
    const bool isWaitingDue = first != mWaiting.end() && first->first <= now;
    if (isWaitingDue && (mQueue.empty() || first->first <= mQueue.front().mDue)) {
        item.splice(item.begin(), first->second);
        mWaiting.erase(first);
        mWaitingBytes -= item.front().mList.size();
        // From here on it counts as a queued item.
        mQueuedBytes += item.front().mList.size();
        return item;
    }
    if (!mQueue.empty()) {
        item.splice(item.begin(), mQueue, mQueue.begin());
        return item;
    }
    secondsToNext = first == mWaiting.end() ? kForever : SecondsBetween(now, first->first);
    mIsAwake = false;
    return item;
}

void DriverIO::Perform(const DriverItem& item) {
    if (item.mTask == DriverItem::Task::kPackets && item.mTarget->mReceiver != nullptr) {
        item.mTarget->mReceiver->Deliver(ListOf(item.mList));
        return;
    }
    MIDIDriverRef driver = item.Driver()->mDriver;
    const auto* const target = item.mTarget.get();
    switch (item.mTask) {
    case DriverItem::Task::kPackets: {
        const OSStatus status = (*driver)->Send(driver, ListOf(item.mList), target->mRefCons.first,
                                                target->mRefCons.second);
        if (status != noErr) {
            Notice notice;
            notice.mMessage = kMIDIMsgIOError;
            notice.mObject = target->mDevice;
            notice.mError = status;
            NotificationCentre::Get().Post({&notice, 1});
        }
        return;
    }
    case DriverItem::Task::kFlush:
        (*driver)->Flush(driver, target->mEndpoint, target->mRefCons.first,
                         target->mRefCons.second);
        return;
    case DriverItem::Task::kEnableSource:
    case DriverItem::Task::kDisableSource:
        (*driver)->EnableSource(driver, item.mSource,
                                item.mTask == DriverItem::Task::kEnableSource);
        return;
    }
}

void DriverIO::Finish(DriverItems item) noexcept {
    // Destroyed after the lock is released, like the rest of the item if it is not kept.
    const std::shared_ptr<const OutputTarget> target = std::move(item.front().mTarget);
    const std::shared_ptr<DriverOutput> driver = std::move(item.front().mDriver);
    {
        const MutexLock lock(msMutex);
        mQueuedBytes -= item.front().mList.size();
        if (DriverOutput* const output = target != nullptr ? target->mDriver.get() : driver.get()) {
            --output->mPending;
        }
        if (item.front().mList.capacity() != 0 && mSpare.size() < kSpareItems) {
            mSpare.splice(mSpare.begin(), item);
        }
    }
    mChanged.NotifyAll();
}

bool DriverIO::Submit(const std::shared_ptr<const OutputTarget>& target, const MIDIPacketList* due,
                      std::size_t dueBytes, std::vector<LaterList> later) {
    if (!Start()) {
        return false;
    }
    std::size_t laterBytes = 0;
    std::multimap<MIDITimeStamp, DriverItems> waiting;
    for (LaterList& list : later) {
        DriverItems& item = waiting.emplace(list.mTime, DriverItems(1))->second;
        item.front().mTarget = target;
        item.front().mDue = list.mTime;
        item.front().mList = list.mList.Release();
        laterBytes += item.front().mList.size();
    }
    const MutexLock lock(msMutex);
    const DriverOutput* const driver = target->mDriver.get();
    const auto hasRoom = [&]() QUORVEL_REQUIRES(msMutex) {
        return due == nullptr || mQueuedBytes == 0 || mQueuedBytes + dueBytes <= kQueueBytes;
    };
    const auto isRefused = [&]() QUORVEL_REQUIRES(msMutex) {
        return driver != nullptr && !driver->mIsAttached;
    };
    if (tIsDriverIOThread && !hasRoom()) {
        return false;
    }
    while (!isRefused() && !hasRoom()) {
        mChanged.Wait(msMutex);
    }
    if (isRefused() || mWaitingBytes + laterBytes > kWaitingBytes) {
        return false;
    }
    if (due != nullptr) {
        DriverItems item;
        if (mSpare.empty()) {
            item.emplace_back();
        } else {
            item.splice(item.begin(), mSpare, mSpare.begin());
        }
        const auto* const bytes = reinterpret_cast<const Byte*>(due);
        item.front().mTask = DriverItem::Task::kPackets;
        item.front().mList.assign(bytes, bytes + dueBytes);
        item.front().mTarget = target;
        Queue(std::move(item));
    }
    mWaitingBytes += laterBytes;
    if (driver != nullptr) {
        target->mDriver->mPending += waiting.size();
    }
    mWaiting.merge(waiting);
    Wake();
    return true;
}

void DriverIO::Queue(DriverItems items) noexcept {
    for (DriverItem& item : items) {
        // Read under the lock, so that the items of the queue are in the order of their times.
        item.mDue = HostTimeNow();
        mQueuedBytes += item.mList.size();
        if (DriverOutput* const driver = item.Driver()) {
            ++driver->mPending;
        }
    }
    mQueue.splice(mQueue.end(), items);
}

void DriverIO::Wake() noexcept {
    if (!mIsAwake) {
        mIsAwake = true;
        CFRunLoopSourceSignal(mWakeSource);
        CFRunLoopWakeUp(mLoop);
    }
}

void DriverIO::Post(DriverItems items) noexcept {
    const MutexLock lock(msMutex);
    const auto isRefused = [](const DriverItem& item)
                               QUORVEL_REQUIRES(msMutex) { return !item.Driver()->mIsAttached; };
    items.remove_if(isRefused);
    // The thread runs if a driver is attached.
    if (!items.empty()) {
        Queue(std::move(items));
        Wake();
    }
}

template <typename Predicate>
void DriverIO::DropWaitingIf(const Predicate& isToBeDropped) {
    for (auto waiting = mWaiting.begin(); waiting != mWaiting.end();) {
        if (!isToBeDropped(*waiting->second.front().mTarget)) {
            ++waiting;
            continue;
        }
        mWaitingBytes -= waiting->second.front().mList.size();
        if (DriverOutput* const driver = waiting->second.front().Driver()) {
            --driver->mPending;
        }
        waiting = mWaiting.erase(waiting);
    }
}

void DriverIO::DropWaiting(MIDIEndpointRef endpoint) noexcept {
    const MutexLock lock(msMutex);
    DropWaitingIf([endpoint](const OutputTarget& target) {
        return endpoint == 0 || target.mEndpoint == endpoint;
    });
}

void DriverIO::Detach(const std::shared_ptr<DriverOutput>& driver) noexcept {
    const MutexLock lock(msMutex);
    driver->mIsAttached = false;
    DropWaitingIf([&driver](const OutputTarget& target) { return target.mDriver == driver; });
    // Wakes the threads that wait for room in the queue, which are refused now.
    mChanged.NotifyAll();
    while (driver->mPending != 0) {
        mChanged.Wait(msMutex);
    }
}

} // namespace CoreMIDI
