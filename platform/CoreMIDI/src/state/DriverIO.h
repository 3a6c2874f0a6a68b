#pragma once

#include "platform/CoreMIDI/src/base/DriverItem.h"
#include "platform/CoreMIDI/src/base/Route.h"
#include "platform/CoreMIDI/src/base/StateMutex.h"
#include "platform/packetlist/PacketListBuilder.h"
#include "platform/support/CFOwned.h"

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace CoreMIDI {

// A packet list that is to be delivered at a later time.
struct LaterList {
    MIDITimeStamp mTime;
    PacketListBuilder mList;
};

// DriverIO runs the driver I/O thread. Only this thread calls the functions `Send`, `EnableSource`
// and `Flush` of drivers, and it delivers the packets that had to wait for their time.
//
// Packets that are due are kept in a queue of at most 65536 bytes. Packets that have to wait are
// kept apart, ordered by time, in at most 1 MiB. The thread delivers first what became due first; a
// queued list became due when it was queued. The thread starts when it is first needed, waits in
// its run loop, and runs until the process ends.
//
// Any thread may call the functions. They block and allocate only where it is stated.
class DriverIO {
public:
    static DriverIO& Get();

    // Starts the thread if it does not run yet and waits until it does. Returns false if it cannot
    // be started.
    bool Start();
    bool IsThisThread() const;
    // Starts the thread like Start and returns its run loop, or null if it cannot be started.
    CFRunLoopRef Loop();

    // Queues a list that is due for a driver's destination (null for none) and keeps lists that
    // have to wait, for a destination of any sort. Takes all of them or none. Blocks while the
    // queue is full, but fails instead on the I/O thread itself. Returns false if the driver is not
    // attached, there is no room, or the thread cannot be started. Throws std::bad_alloc and then
    // queues nothing.
    bool Submit(const std::shared_ptr<const OutputTarget>& target, const MIDIPacketList* due,
                std::size_t dueBytes, std::vector<LaterList> later) QUORVEL_EXCLUDES(sStateMutex);
    // Drops the packets that wait for their time: those for one endpoint, or all if it is 0.
    void DropWaiting(MIDIEndpointRef endpoint) noexcept;

    // Queues calls of drivers' functions. Neither blocks nor allocates. Calls for a driver that is
    // not attached are dropped.
    void Post(DriverItems items) noexcept;

    // Refuses packets and calls for the driver from now on, drops its packets that wait for their
    // time, and blocks until the driver has taken the rest. Must not be called on the I/O thread.
    // Allocates nothing.
    void Detach(const std::shared_ptr<DriverOutput>& driver) noexcept QUORVEL_EXCLUDES(sStateMutex);

private:
    friend struct DriverOutput; // for msMutex

    static constexpr std::size_t kQueueBytes = 65536;
    static constexpr std::size_t kWaitingBytes = std::size_t{1} << 20;
    static constexpr std::size_t kSpareItems = 64;

    void Run() noexcept;
    // Sets mLoop and mWakeSource, or leaves both null if there is no memory.
    void TakeUpLoop() noexcept QUORVEL_REQUIRES(msMutex);
    // Returns the next item that is due. If there is none, returns an empty list and sets
    // `secondsToNext` to the time until there is one.
    DriverItems TakeNext(CFTimeInterval& secondsToNext) noexcept;
    static void Perform(const DriverItem& item);
    void Finish(DriverItems item) noexcept;

    void Queue(DriverItems items) noexcept QUORVEL_REQUIRES(msMutex);
    // Drops the waiting packets whose target satisfies `isToBeDropped(const OutputTarget&)`.
    template <typename Predicate>
    void DropWaitingIf(const Predicate& isToBeDropped) QUORVEL_REQUIRES(msMutex);
    void Wake() noexcept QUORVEL_REQUIRES(msMutex);

    enum class ThreadState { kNone, kStarting, kRunning };

    // Static, as there is one thread, so that DriverOutput can name it.
    static inline constinit Mutex msMutex;
    ConditionVariable mChanged; // room in the queue, a driver's item done, the thread started
    ThreadState mThreadState QUORVEL_GUARDED_BY(msMutex) = ThreadState::kNone;
    CFRunLoopRef mLoop QUORVEL_GUARDED_BY(msMutex) = nullptr;
    CFRunLoopSourceRef mWakeSource QUORVEL_GUARDED_BY(msMutex) = nullptr;
    // Whether the thread will look at the queue again before it sleeps.
    bool mIsAwake QUORVEL_GUARDED_BY(msMutex) = false;
    DriverItems mQueue QUORVEL_GUARDED_BY(msMutex);
    // The packets that wait for their time. Each list holds one item.
    std::multimap<MIDITimeStamp, DriverItems> mWaiting QUORVEL_GUARDED_BY(msMutex);
    // The bytes of the lists that are queued or being delivered.
    std::size_t mQueuedBytes QUORVEL_GUARDED_BY(msMutex) = 0;
    std::size_t mWaitingBytes QUORVEL_GUARDED_BY(msMutex) = 0;
    DriverItems mSpare QUORVEL_GUARDED_BY(msMutex); // kept so that their buffers are used again
};

// A driver that is, or was, attached.
struct DriverOutput {
    MIDIDriverRef mDriver = nullptr;
    std::string mIdentity;
    bool mIsAttached QUORVEL_GUARDED_BY(DriverIO::msMutex) = true;
    // Calls that are queued or in progress.
    std::size_t mPending QUORVEL_GUARDED_BY(DriverIO::msMutex) = 0;
};

} // namespace CoreMIDI
