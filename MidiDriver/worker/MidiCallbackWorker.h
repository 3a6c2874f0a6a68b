// The output worker. It takes MIDI data from the host's sending thread, holds every port to its
// byte rate, and hands the data to a callback on a thread of its own. It answers pings at once, on
// the sending thread.
//
//     void* worker = CreateMidiCallbackWorker(kMIDIPacketList, 1, 4, 12, Forward, Reply, nullptr,
//                                             nullptr, 14336, 32);
//     WriteCBBytes(worker, port, list, size, true); // Forward gets it on the worker's thread
//     ShutDown(worker);
//     DeleteMidiCallbackWorker(worker);
//
//   operation                  thread        blocks                         allocates
//   CreateMidiCallbackWorker   owner         no                             yes
//   WriteCBBytes               one sender    while a port is throttled, up  no
//                                            to about a second for an item
//   SignalConsumeEvent         any           no                             no
//   ShutDown                   owner         until the thread has ended     no
//   DeleteMidiCallbackWorker   owner, last   as ShutDown                    no
//   forward callback           the worker's  up to the callback             up to the callback
//   reply callback             the sender's  up to the callback             up to the callback
//
// "Owner" is the thread that created the worker. No thread may be in another call when the worker
// is deleted, and the forward callback must not call ShutDown or DeleteMidiCallbackWorker.
//
// When a ring is full. The data ring holds 524288 bytes, and the info ring as many items. A write
// that does not fit is lost, together with everything that is queued. The rest of its item is
// dropped. If the write was the completing one, there is no rest, and the whole next item is
// dropped instead; it makes no difference whether the bytes or the item's record did not fit. The
// ring's error is never cleared, so this worker forwards nothing from then on, and only a new
// worker recovers. A syslog line reports the loss at most every 10 seconds.
//
// The bytes that an item had queued before it failed stay counted, for all workers of the process
// together. If the item's record did not fit, these are all its bytes; later items may still fit
// the data ring, and then their bytes are added. The next item that any worker queues is recorded
// as longer than it is by that number. Its worker finds too few bytes, loses the item and reports
// that its rings are out of sync.
//
// Both are intended and kept for the users of the driver, who know its losses by these syslog
// lines.
#pragma once

#include "MidiDriver/worker/ActiveSense.h"
#include "MidiDriver/worker/circular_buffer/circular_buffer.h"
#include "runtime/sync/NyEvent.h"
#include "runtime/sync/NyLock.h"
#include "runtime/thread/NyThread.h"
#include "runtime/time/NyTime.h"

#include <CoreServices/CoreServices.h>

#include <atomic>
#include <memory>
#include <vector>

// What the bytes of one queued item are.
enum tPacketDataCBElemType : int {
    kMIDISinglePacket = 0, // the MIDI bytes of one packet
    kMIDIPacketList = 1,   // the bytes of a MIDIPacketList, laid out and aligned as CoreMIDI does
};

// Delivers one queued item. `data` is `length` bytes as they were queued, valid until the call
// returns, with no more alignment than a byte array has. Called on the worker's thread, without the
// worker's lock.
using tForwardMIDIFn = void (*)(unsigned int port, const unsigned char* data, unsigned int length,
                                void* refcon);

// Sends the answer to a ping straight back to the host. Called on the sending thread.
using tReplyMIDIFn = void (*)(unsigned int port, const unsigned char* data, unsigned int length);

// Makes a worker and starts its thread, which may call `forward` at once. The caller owns the
// worker and gives it to DeleteMidiCallbackWorker.
//
// `dataElementSize`, `infoElementSize` and `throttleElementSize` must be 1, 4 and 12 bytes. A ring
// with any other element size is not made, just as one whose allocation failed, and syslog says so.
// Without the data ring or the info ring the worker queues nothing; without a throttle ring it
// drops every item instead of forwarding it.
//
// `forward` may be null: items are then consumed. `reply` may be null: pings are then not answered.
// `activeSense` is copied and holds a detector for each port, by its index. Pings of a port without
// a detector are not answered. `refcon` goes to `forward` unchanged.
//
// `throttleRate` is in counted bytes per second and port; 0 or less means no limit. It is also the
// number of ports that the throttle's tables have room for, and `portCount` is not read. This is
// intended: at the driver's rate no port that a record can hold is beyond the tables. Each of those
// ports has a ring of 1.1 * `throttleRate` records, of which only the header is touched before it
// is used.
//
// Throws std::bad_alloc or std::length_error when the tables cannot be allocated.
void* CreateMidiCallbackWorker(tPacketDataCBElemType elementType, int dataElementSize,
                               int infoElementSize, int throttleElementSize, tForwardMIDIFn forward,
                               tReplyMIDIFn reply, const std::vector<tActiveSenseFn>* activeSense,
                               void* refcon, int throttleRate, int portCount);

// The entry points to a worker. They do nothing for a null worker.

// Shuts the worker down if necessary and frees it.
void DeleteMidiCallbackWorker(void* worker);

// Ends the worker's thread and waits for it; a second call does nothing. Items that are still
// queued are dropped. An item that is being held back is forwarded first, which takes up to about a
// second.
void ShutDown(void* worker);

// Queues `numBytes` bytes from `data` for a 0-based port. If `complete` is false, they are the
// first part of an item, which ends with the next complete call. `data` is not changed and may be
// reused afterwards.
//
// Every ping among the packets of a complete call is answered before the call returns, and it is
// queued as well. In a packet list only those packets are examined that lie wholly within
// `numBytes`.
//
// Nothing happens for a port above 255, for a port beyond the throttle's tables, and for null data
// with a `numBytes` other than 0.
void WriteCBBytes(void* worker, unsigned int port, void* data, unsigned int numBytes,
                  bool complete);

// Wakes the worker's thread.
void SignalConsumeEvent(void* worker);

// The allocator of every ring: malloc and free, without a use for the size.
void* allocFunc(int size);
void freeFunc(void* block, int size);

// The worker behind the entry points above, which have its contract.
class CMidiCallbackWorker : public NyThread {
public:
    CMidiCallbackWorker(tPacketDataCBElemType elementType, int dataElementSize, int infoElementSize,
                        int throttleElementSize, tForwardMIDIFn forward, tReplyMIDIFn reply,
                        const std::vector<tActiveSenseFn>* activeSense, void* refcon,
                        int throttleRate, int portCount);
    ~CMidiCallbackWorker() override;

    void WriteCBBytes(unsigned int port, void* data, unsigned int numBytes, bool complete);
    void Shutdown();
    void SignalConsumeEvent() { mConsumeEvent.Signal(); }
    bool IsRunning() const { return mRunning.load(std::memory_order_relaxed) != 0; }

    // The body of the worker's thread.
    void Run() override;

private:
    void InitializeRings();
    void DestroyRings();
    void ReinitializeInfoDataCB();
    void ReinitializeThrottleCB(int port);

    bool Accepts(unsigned int port) const;
    void AnswerPings(unsigned int port, const unsigned char* data, unsigned int numBytes,
                     bool complete);
    void ReportReinitialization(unsigned int result);

    bool ProcessItem();
    bool MakePacketBufferHold(unsigned int length);
    static unsigned char* AllocatePacketBuffer(unsigned int size);
    bool TakeReportBudget();

    bool Throttle(unsigned int port, unsigned int length);
    unsigned int CountBytes(unsigned int length) const;
    bool ReadTail(unsigned int port);
    bool RecordRelease(unsigned int port, unsigned int bytes);

    // Guards the rings and the throttle's state. The worker's thread holds it from reading an item
    // until the item's throttling has ended, even while it sleeps. So a throttled port holds the
    // sender back.
    NyLock mLock;
    NyEvent mConsumeEvent; // the only wake-up: an item was queued, or shutdown
    // 1 until shutdown. Relaxed: the event orders what was queued, and the join orders what the
    // thread did.
    std::atomic<int> mRunning{1};
    _t_circular_buffer* mDataRing = nullptr;         // the items' bytes
    _t_circular_buffer* mInfoRing = nullptr;         // an InfoRecord per item
    int mPortTableSize;                              // entries in each table below
    std::vector<_t_circular_buffer*> mThrottleRings; // ThrottleRecords
    const tPacketDataCBElemType mElementType;
    const int mDataElementSize;
    const int mInfoElementSize;
    const int mThrottleElementSize;
    int mThrottleRingLength = 0; // records
    int mWindowMaxBytes = 0;
    const int mThrottleRate;
    std::vector<unsigned long> mWindowBytes;       // counted bytes within the window
    std::vector<UnsignedWide> mWindowStart;        // host ticks, as are the other times
    std::vector<UnsignedWide> mLastEvaluationTime; // in the end the item's time of release
    std::vector<unsigned long> mTailPacketBytes;   // of the oldest item within the window
    std::vector<UnsignedWide> mTailPacketTime;     // when it was released; 0: not known
    int mReadErrorSeen = 0;                        // of the worker's thread; nothing reads it
    // Set by either thread after a failed write to a ring, and cleared by the sender. Relaxed: it
    // orders nothing, and the rings are under the lock. If one thread sets it just as the sender
    // clears it, the set may be lost; the item that it would have dropped is then queued.
    std::atomic<int> mDiscard{0};
    const tForwardMIDIFn mForward;
    const tReplyMIDIFn mReply;
    std::unique_ptr<const std::vector<tActiveSenseFn>> mActiveSense;
    void* const mRefcon;
    // The item that is being forwarded. Once started, only the worker's thread uses it. When that
    // thread ends, it drops the pointer and does not free the buffer. This leak of one block for
    // each worker is accepted.
    unsigned char* mPacketBuffer = nullptr;
    unsigned int mPacketBufferCapacity;
    NyTime mLastReportTime; // of any of the thread's reports, which are limited together
};
