// The output worker: takes MIDI from the host's sending thread, holds every port to its byte rate
// and hands it to a callback on a thread of its own. Pings it answers at once, on the sending
// thread.
//
//   operation                   thread           blocks                           allocates
//   CreateMidiCallbackWorker    owner            no                               yes
//   WriteCBBytes                one sender       while a port is throttled: each  no
//                                                item takes up to about a second
//   SignalConsumeEvent          any              no                               no
//   ShutDown                    owner            until the thread has ended       no
//   DeleteMidiCallbackWorker    owner, last      as ShutDown                      no
//   forward callback            the worker's     its own affair                   its own affair
//   reply callback              the sender's     its own affair                   its own affair
//
// `Owner` is the thread that created the worker. No thread may be in another call when the worker
// is deleted, and ShutDown and Delete must not be called from the forward callback.
//
// Full-buffer policy. The rings hold 524288 bytes and as many items. A write that does not fit
// loses itself and everything queued, and the rest of its item is dropped; if it was the completing
// write, whether the bytes or the item's record did not fit, the whole next item is. The ring's
// error is never cleared, so that this worker forwards nothing from then on: only a new worker
// recovers. At most every 10 seconds a syslog line tells of it.
//
// The bytes that an item had queued when it failed stay counted. With a record that does not fit
// these are all of the item's, and since later items still fit the data ring, theirs come on top.
// The next item that any worker of the process queues is recorded as so much longer than it is: its
// worker finds too few bytes, loses it, and reports its rings out of sync. All intended.
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

// What one queued item is.
enum tPacketDataCBElemType : int {
    kMIDISinglePacket = 0, // the MIDI bytes of one packet
    kMIDIPacketList = 1,   // the bytes of a MIDIPacketList, laid out and aligned as CoreMIDI does
};

// Delivers one queued item: `data` is `length` bytes as they were enqueued, valid until the call
// returns, not aligned beyond a byte array's. Called on the worker's thread without its lock.
using tForwardMIDIFn = void (*)(unsigned int port, const unsigned char* data, unsigned int length,
                                void* refcon);

// Sends the answer to a ping straight back to the host. Called on the sending thread.
using tReplyMIDIFn = void (*)(unsigned int port, const unsigned char* data, unsigned int length);

// Makes a worker and starts its thread, which may call `forward` at once. Ownership goes to the
// caller, who gives the worker to DeleteMidiCallbackWorker.
//
// `dataElementSize`, `infoElementSize` and `throttleElementSize` are 1, 4 and 12 bytes. A ring of
// any other element size is left out, as one whose allocation failed. That is reported to syslog;
// the worker then queues nothing (data, info) or drops every item on its way out (throttle).
//
// `forward` and `reply` may be null: items are then consumed, pings not answered. `activeSense` is
// copied; null, or a null entry, or a port beyond its end: that port's pings are not answered.
// `refcon` goes to `forward` unchanged.
//
// `throttleRate` is in counted bytes per second and port; 0 or less means no limit. Intended: it
// is also the number of ports that the throttle's tables have room for, each with a ring of 1.1 *
// `throttleRate` records of which only the header is touched, and `portCount` is not read.
//
// Throws std::bad_alloc or std::length_error when the tables cannot be allocated.
void* CreateMidiCallbackWorker(tPacketDataCBElemType elementType, int dataElementSize,
                               int infoElementSize, int throttleElementSize, tForwardMIDIFn forward,
                               tReplyMIDIFn reply, const std::vector<tActiveSenseFn>* activeSense,
                               void* refcon, int throttleRate, int portCount);

// The entry points to a worker. All do nothing for a null worker.

// Shuts the worker down if necessary and frees it.
void DeleteMidiCallbackWorker(void* worker);

// Ends the worker's thread and waits for it, once; what is still queued is dropped. An item that
// is being held back is released first, which takes up to about a second.
void ShutDown(void* worker);

// Queues `numBytes` bytes from `data` for a 0-based port. With `complete` false they are the first
// part of an item that ends with the next complete call. `data` may be reused on return and is not
// changed.
//
// Every ping among the packets of a complete call is answered before this returns, in addition to
// being queued. In a packet list only packets that lie whole within `numBytes` are looked at.
//
// Nothing at all happens for a port above 255, for one beyond the throttle's tables, and for null
// data that is said to have bytes.
void WriteCBBytes(void* worker, unsigned int port, void* data, unsigned int numBytes,
                  bool complete);

// Wakes the worker's thread.
void SignalConsumeEvent(void* worker);

// malloc and free (the size is ignored), the allocator of every ring.
void* allocFunc(int size);
void freeFunc(void* block, int size);

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

    // Guards the rings and the throttle's state. The worker's thread holds it from the read of an
    // item to the end of its throttling, sleeps included, so that a throttled port holds the sender
    // back.
    NyLock mLock;
    NyEvent mConsumeEvent; // the only wake-up: an item was queued, or shutdown
    // 1 until shutdown. Carries no other data: the event orders what was queued before, the join
    // what the thread did.
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
    int mReadErrorSeen = 0;                        // the worker's thread's; read by nothing
    // Set by either thread after a failed ring write, cleared by the sender. Relaxed: it stands for
    // itself, and the rings are under the lock. A set that meets the sender's clear may go under;
    // the item it would have dropped then goes through.
    std::atomic<int> mDiscard{0};
    const tForwardMIDIFn mForward;
    const tReplyMIDIFn mReply;
    std::unique_ptr<const std::vector<tActiveSenseFn>> mActiveSense;
    void* const mRefcon;
    // The item being forwarded. The worker's thread's alone once started; it lets the buffer go
    // when it ends, without freeing it. Intended.
    unsigned char* mPacketBuffer = nullptr;
    unsigned int mPacketBufferCapacity;
    NyTime mLastReportTime; // the one time budget of all of the thread's reports
};
