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

// A list whose time is still to come.
struct LaterList {
    MIDITimeStamp mTime;
    PacketListBuilder mList;
};

// The driver I/O thread: the only one that calls `Send`, `EnableSource` and `Flush` of drivers, and
// the one that hands over packets which had to wait for their time.
//
// What is due is queued, 65536 bytes of packet lists at most; what is to wait is kept apart by
// time, 1 MiB at most. What is handed over next is what became due first: a queued list at the time
// when it was queued. The thread is started when it is first needed and lives as long as the
// process; it waits in its run loop.
//
// Any thread; functions block and allocate only as stated.
class DriverIO {
public:
    static DriverIO& Get();

    // Starts the thread, if need be, and waits for that. False when it cannot be started.
    bool Start();
    bool IsThisThread() const;
    // The thread's run loop; null when it cannot be started.
    CFRunLoopRef Loop();

    // Queues a list (null: none) for a driver's destination, and lists that have to wait for any
    // destination; all or nothing. Blocks while the queue is full, but fails on the thread itself.
    // False: not attached, no room, or no thread. Throws std::bad_alloc, with nothing queued.
    bool Submit(const std::shared_ptr<const OutputTarget>& target, const MIDIPacketList* due,
                std::size_t dueBytes, std::vector<LaterList> later) QUORVEL_EXCLUDES(sStateMutex);
    // Drops what waits for its time, for one endpoint or, for 0, all.
    void DropWaiting(MIDIEndpointRef endpoint) noexcept;

    // Queues calls of drivers' functions. Never blocks, needs no memory; nothing happens for a
    // driver that is not attached.
    void Post(DriverItems items) noexcept;

    // Refuses all that comes for the driver from now on, drops what waits for its time, and blocks
    // until the driver has taken the rest. Not on the thread itself. Needs no memory.
    void Detach(const std::shared_ptr<DriverOutput>& driver) noexcept QUORVEL_EXCLUDES(sStateMutex);

private:
    friend struct DriverOutput; // for msMutex

    static constexpr std::size_t kQueueBytes = 65536;
    static constexpr std::size_t kWaitingBytes = std::size_t{1} << 20;
    static constexpr std::size_t kSpareItems = 64;

    void Run() noexcept;
    // Makes the thread's loop, or does not.
    void TakeUpLoop() noexcept QUORVEL_REQUIRES(msMutex);
    // The next item that is due. None, with the time until one is, when there is none.
    DriverItems TakeNext(CFTimeInterval& secondsToNext) noexcept;
    static void Perform(const DriverItem& item);
    void Finish(DriverItems item) noexcept;

    void Queue(DriverItems items) noexcept QUORVEL_REQUIRES(msMutex);
    // isToBeDropped: bool (const OutputTarget&).
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
    bool mIsAwake QUORVEL_GUARDED_BY(msMutex) = false; // looks at the queue before it sleeps
    DriverItems mQueue QUORVEL_GUARDED_BY(msMutex);
    std::multimap<MIDITimeStamp, DriverItems> mWaiting QUORVEL_GUARDED_BY(msMutex); // one of each
    // Of lists queued or being handed over.
    std::size_t mQueuedBytes QUORVEL_GUARDED_BY(msMutex) = 0;
    std::size_t mWaitingBytes QUORVEL_GUARDED_BY(msMutex) = 0;
    DriverItems mSpare QUORVEL_GUARDED_BY(msMutex); // to be used again, for their buffers
};

// A driver that is attached.
struct DriverOutput {
    MIDIDriverRef mDriver = nullptr;
    std::string mIdentity;
    bool mIsAttached QUORVEL_GUARDED_BY(DriverIO::msMutex) = true;
    // Calls that are queued or in progress.
    std::size_t mPending QUORVEL_GUARDED_BY(DriverIO::msMutex) = 0;
};

} // namespace CoreMIDI
