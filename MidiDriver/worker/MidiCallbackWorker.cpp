#include "MidiDriver/worker/MidiCallbackWorker.h"

#include "MidiDriver/worker/DriverDiagnostics.h"
#include "MidiDriver/worker/WorkerRecords.h"
#include "platform/packetlist/PacketListWalk.h"

#include <syslog.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <new>

namespace {

constexpr std::uint32_t kQueueRingLength = 524288; // elements of the data ring and of the info ring
constexpr int kDataElementSize = 1;
constexpr int kInfoElementSize = sizeof(InfoRecord);
constexpr int kThrottleElementSize = sizeof(ThrottleRecord);
constexpr double kThrottleRingMargin = 1.1;
constexpr unsigned int kFirstPacketBufferCapacity = 256;
constexpr std::size_t kReplyCapacity = 128;
constexpr double kSecondsBetweenReports = 10.0;

// Makes no ring for elements of another size than expected, because the loop reads records of the
// expected size.
unsigned int InitializeRing(_t_circular_buffer** ring, int elementSize, int expectedSize,
                            std::uint32_t length) {
    if (elementSize != expectedSize) {
        *ring = nullptr;
        return kCBAllocationFailed;
    }
    return cb_initialize(ring, static_cast<std::uint32_t>(elementSize), length, allocFunc,
                         freeFunc);
}

unsigned int RemoveAll(_t_circular_buffer* ring) {
    int count = static_cast<int>(cb_get_num_elem_used(ring));
    return cb_remove(ring, &count);
}

CMidiCallbackWorker* WorkerOf(void* worker) {
    return static_cast<CMidiCallbackWorker*>(worker);
}

} // namespace

void* allocFunc(int size) {
    return std::malloc(static_cast<std::size_t>(size));
}

void freeFunc(void* block, int /*size*/) {
    std::free(block);
}

void* CreateMidiCallbackWorker(tPacketDataCBElemType elementType, int dataElementSize,
                               int infoElementSize, int throttleElementSize, tForwardMIDIFn forward,
                               tReplyMIDIFn reply, const std::vector<tActiveSenseFn>* activeSense,
                               void* refcon, int throttleRate, int portCount) {
    auto* const worker =
        new CMidiCallbackWorker(elementType, dataElementSize, infoElementSize, throttleElementSize,
                                forward, reply, activeSense, refcon, throttleRate, portCount);
    worker->Start();
    return worker;
}

void DeleteMidiCallbackWorker(void* worker) {
    delete WorkerOf(worker);
}

void ShutDown(void* worker) {
    if (worker != nullptr) {
        WorkerOf(worker)->Shutdown();
    }
}

void WriteCBBytes(void* worker, unsigned int port, void* data, unsigned int numBytes,
                  bool complete) {
    if (worker != nullptr) {
        WorkerOf(worker)->WriteCBBytes(port, data, numBytes, complete);
    }
}

void SignalConsumeEvent(void* worker) {
    if (worker != nullptr) {
        WorkerOf(worker)->SignalConsumeEvent();
    }
}

// The port count is not read, because the throttle rate gives the size of the tables; see the
// header.
CMidiCallbackWorker::CMidiCallbackWorker(tPacketDataCBElemType elementType, int dataElementSize,
                                         int infoElementSize, int throttleElementSize,
                                         tForwardMIDIFn forward, tReplyMIDIFn reply,
                                         const std::vector<tActiveSenseFn>* activeSense,
                                         void* refcon, int throttleRate, int /*portCount*/)
    : mConsumeEvent(NyEvent::kAutoReset, NyEvent::kNotSignaled),
      mPortTableSize(std::max(throttleRate, 0)),
      mElementType(elementType),
      mDataElementSize(dataElementSize),
      mInfoElementSize(infoElementSize),
      mThrottleElementSize(throttleElementSize),
      mThrottleRate(std::max(throttleRate, 0)),
      mWindowBytes(static_cast<std::size_t>(mPortTableSize)),
      mWindowStart(static_cast<std::size_t>(mPortTableSize)),
      mLastEvaluationTime(static_cast<std::size_t>(mPortTableSize)),
      mTailPacketBytes(static_cast<std::size_t>(mPortTableSize)),
      mTailPacketTime(static_cast<std::size_t>(mPortTableSize)),
      mForward(forward),
      mReply(reply),
      mRefcon(refcon),
      mPacketBufferCapacity(kFirstPacketBufferCapacity) {
    try {
        InitializeRings();
        if (activeSense != nullptr) {
            mActiveSense = std::make_unique<const std::vector<tActiveSenseFn>>(*activeSense);
        }
        mPacketBuffer = AllocatePacketBuffer(mPacketBufferCapacity);
        if (mPacketBuffer == nullptr) {
            throw std::bad_alloc();
        }
    } catch (...) {
        DestroyRings();
        throw;
    }
    mLastReportTime.SetToCurrentTime();
}

CMidiCallbackWorker::~CMidiCallbackWorker() {
    Shutdown();
    DestroyRings();
    delete[] mPacketBuffer; // null, unless the thread never ran
}

void CMidiCallbackWorker::InitializeRings() {
    LogIfError(InitializeRing(&mDataRing, mDataElementSize, kDataElementSize, kQueueRingLength),
               "VirtualMidi: Error initializing MIDI Data circular buffer");
    LogIfError(InitializeRing(&mInfoRing, mInfoElementSize, kInfoElementSize, kQueueRingLength),
               "VirtualMidi: Error initializing MIDI Info circular buffer");
    if (mThrottleRate == 0) {
        return;
    }
    mWindowMaxBytes = mThrottleRate; // the window is one second long
    mThrottleRingLength =
        static_cast<int>(std::min(std::ceil(mWindowMaxBytes * kThrottleRingMargin),
                                  static_cast<double>(std::numeric_limits<int>::max())));
    LogThrottleDebugInfo("ThrottleCB: bytes per elem = %d, windowMaxBytes = %d, # of elems= %d\n",
                         mThrottleElementSize, mWindowMaxBytes, mThrottleRingLength);
    mThrottleRings.resize(static_cast<std::size_t>(mPortTableSize));
    for (int i = 0; i < mPortTableSize; ++i) {
        LogIfError(InitializeRing(&mThrottleRings[static_cast<std::size_t>(i)],
                                  mThrottleElementSize, kThrottleElementSize,
                                  static_cast<std::uint32_t>(mThrottleRingLength)),
                   "VirtualMidi: Error initializing MIDI Throttle circular buffer[%i]", i);
    }
}

void CMidiCallbackWorker::DestroyRings() {
    LogIfError(cb_destroy(mDataRing), "~CMidiCallbackWorker: Error while destroying MIDI Data CB");
    LogIfError(cb_destroy(mInfoRing), "~CMidiCallbackWorker: Error while destroying MIDI Info CB");
    for (std::size_t i = 0; i < mThrottleRings.size(); ++i) {
        LogIfError(cb_destroy(mThrottleRings[i]),
                   "~CMidiCallbackWorker: Error while destroying MIDI Throttle CB[%i]",
                   static_cast<int>(i));
    }
}

void CMidiCallbackWorker::Shutdown() {
    // The exchange makes sure that the thread is joined only once.
    if (mRunning.exchange(0, std::memory_order_relaxed) != 0) {
        mConsumeEvent.Signal();
        WaitForExit();
    }
}

// The info record holds eight bits of the port. With a throttle the port must also have an entry in
// the tables.
bool CMidiCallbackWorker::Accepts(unsigned int port) const {
    return port <= InfoRecord::kHighestPort &&
           (mThrottleRate == 0 || port < static_cast<unsigned int>(mPortTableSize));
}

void CMidiCallbackWorker::WriteCBBytes(unsigned int port, void* data, unsigned int numBytes,
                                       bool complete) {
    // The bytes written since the last info record. It is one total for all workers, and a failed
    // write leaves it as it is; see the header. It is atomic because every worker has its own lock.
    static std::atomic<unsigned int> sBytesSinceInfoRecord{0};

    if (!Accepts(port) || (data == nullptr && numBytes != 0)) {
        return;
    }
    if (mDiscard.load(std::memory_order_relaxed) != 0) {
        // The rest of an item that failed is dropped, or the whole next item if the completing call
        // failed; see the header.
        if (complete) {
            mDiscard.store(0, std::memory_order_relaxed);
        }
        return;
    }
    AnswerPings(port, static_cast<const unsigned char*>(data), numBytes, complete);

    NyLockGuard guard(mLock, true);
    // A number of bytes that does not fit an int does not fit the ring either.
    int count = static_cast<int>(
        std::min(numBytes, static_cast<unsigned int>(std::numeric_limits<int>::max())));
    unsigned int result = cb_write(mDataRing, data, &count);
    if (result == 0) {
        LogDebugInfo("writeCBBytes: numbytes %d, MIDI Data circular buffer",
                     static_cast<int>(numBytes));
        const unsigned int total =
            sBytesSinceInfoRecord.fetch_add(numBytes, std::memory_order_relaxed) + numBytes;
        if (!complete) {
            return;
        }
        const InfoRecord record = InfoRecord::Make(port, total);
        count = 1;
        result = cb_write(mInfoRing, &record, &count);
        if (result == 0) {
            LogDebugInfo("writeCBBytes: port %d, length %d, MIDI Info circular buffer",
                         static_cast<int>(port), static_cast<int>(total));
            // The worker's thread first takes the lock, so it is woken when the lock is free.
            mConsumeEvent.SignalUnderLock();
            sBytesSinceInfoRecord.store(0, std::memory_order_relaxed);
            guard.Unlock();
            mConsumeEvent.WakeWaiters();
            return;
        }
    }
    mDiscard.store(1, std::memory_order_relaxed);
    ReinitializeInfoDataCB();
    ReportReinitialization(result);
}

void CMidiCallbackWorker::AnswerPings(unsigned int port, const unsigned char* data,
                                      unsigned int numBytes, bool complete) {
    if (mActiveSense == nullptr || port >= mActiveSense->size() ||
        (*mActiveSense)[port] == nullptr) {
        LogDebugInfo(
            "MidiCallbackWorker::WriteCBBytes, no Active Sense direct reply function, port = %d\n",
            static_cast<int>(port));
        return;
    }
    const tActiveSenseFn detect = (*mActiveSense)[port];
    std::array<unsigned char, kReplyCapacity> reply;
    // Set once for all packets of a list: each ping finds the length of the answer before it as its
    // capacity. The driver's detectors need no more, as all answers of a port have the same length.
    unsigned int replyLength = kReplyCapacity;
    const auto send = [&] {
        if (mReply != nullptr) {
            mReply(port, reply.data(), replyLength);
        }
    };

    if (mElementType == kMIDISinglePacket) {
        if (detect(port, data, numBytes, reply.data(), &replyLength) && complete) {
            LogDebugInfo("MidiCallbackWorker::WriteCBBytes, Single Packet, Active Sense received "
                         "and direct reply sent, port = %d\n",
                         static_cast<int>(port));
            send();
        }
        return;
    }
    ForEachPacket(data, numBytes, [&](const MIDIPacket* packet) {
        if (detect(port, PacketData(packet), PacketLength(packet), reply.data(), &replyLength) &&
            complete) {
            LogDebugInfo("MidiCallbackWorker::WriteCBBytes, Packet List, Active Sense received and "
                         "direct reply sent, port = %d\n",
                         static_cast<int>(port));
            send();
        }
    });
}

void CMidiCallbackWorker::ReinitializeInfoDataCB() {
    LogIfError(RemoveAll(mInfoRing),
               "ReinitializeInfoDataCB: Error while removing elements from MIDI Info CB");
    LogIfError(RemoveAll(mDataRing),
               "ReinitializeInfoDataCB: Error while removing elements from MIDI Data CB");
}

// The text names the other function on purpose: users search their logs for it.
void CMidiCallbackWorker::ReinitializeThrottleCB(int port) {
    LogIfError(RemoveAll(mThrottleRings[static_cast<std::size_t>(port)]),
               "ReinitializeInfoDataCB: Error while removing elements from MIDI Throttle CB[%i]",
               port);
}

void CMidiCallbackWorker::ReportReinitialization(unsigned int result) {
    // When a line was last written, in microseconds. There is one for all workers, and it starts at
    // 0, so that the first failure of the process is always reported. The worker that moves it on
    // writes the line; two that fail at once write one line.
    static std::atomic<std::int64_t> sLastReport{0};

    NyTime now;
    now.SetToCurrentTime();
    std::int64_t last = sLastReport.load(std::memory_order_relaxed);
    const auto elapsed = static_cast<double>(now.mMicroseconds - last);
    if (elapsed * 1e-6 >= kSecondsBetweenReports &&
        sLastReport.compare_exchange_strong(last, now.mMicroseconds, std::memory_order_relaxed)) {
        syslog(LOG_ERR,
               "writeCBBytes: Error %d while writing to MIDI circular buffer, reinitializing Data "
               "and Info CBs...",
               static_cast<int>(result));
    }
}
