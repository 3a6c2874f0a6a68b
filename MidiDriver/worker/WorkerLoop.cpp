// The part of the worker that runs on its thread: the loop and the throttle.

#include "MidiDriver/worker/DriverDiagnostics.h"
#include "MidiDriver/worker/MidiCallbackWorker.h"
#include "MidiDriver/worker/WorkerRecords.h"
#include "platform/packetlist/PacketListWalk.h"

#include <CoreServices/CoreServices.h>

#include <syslog.h>
#include <unistd.h>

#include <cstdint>
#include <new>

namespace {

constexpr unsigned int kNoLimit = 0xFFFFFFFF;
constexpr double kSecondsBetweenReports = 10.0;
constexpr Duration kWindowMilliseconds = 1000;
constexpr useconds_t kThrottleSleepMicroseconds = 5000;
constexpr int kMostRateReports = 10;

// How many lines the process has written. Relaxed, as it only counts.
std::atomic<int> sRateReports{0};

double SecondsBetween(const NyTime& from, const NyTime& to) {
    if (from.mSpecial != NyTime::kZero || to.mSpecial != NyTime::kZero) {
        return 0;
    }
    return static_cast<double>(to.mMicroseconds - from.mMicroseconds) * 1e-6;
}

void ReportRateExceeded(unsigned long bytes, int throttleRate) {
    // The first condition keeps the counter from ever wrapping round.
    if (sRateReports.load(std::memory_order_relaxed) < kMostRateReports &&
        sRateReports.fetch_add(1, std::memory_order_relaxed) < kMostRateReports) {
        syslog(LOG_CRIT, "Current rate %f exceeds throttle rate %i Bytes/sec\n",
               static_cast<double>(bytes), throttleRate);
    }
}

// Converts a time for the formats of the debug channel.
unsigned long long ToTicks(UnsignedWide time) {
    return ToNumber(time);
}

} // namespace

void CMidiCallbackWorker::Run() {
    while (IsRunning()) {
        mConsumeEvent.Wait(kNoLimit);
        while (IsRunning() && ProcessItem()) {
        }
    }
    mPacketBuffer = nullptr;
}

// Returns true when the loop may write a report; the caller must then write one.
bool CMidiCallbackWorker::TakeReportBudget() {
    NyTime now;
    now.SetToCurrentTime();
    if (SecondsBetween(mLastReportTime, now) < kSecondsBetweenReports) {
        return false;
    }
    mLastReportTime = now;
    return true;
}

// Forwards one item. Returns false when nothing is queued or something failed; the loop then waits
// for the next signal.
bool CMidiCallbackWorker::ProcessItem() {
    NyLockGuard guard(mLock, true);
    InfoRecord record;
    int count = 1;
    unsigned int result = cb_read(mInfoRing, &record, &count);
    if (result != 0) {
        guard.Unlock();
        mReadErrorSeen = 1;
        // The text names the data ring, although it was the info ring: users search their logs for
        // it.
        if (TakeReportBudget()) {
            syslog(LOG_INFO, "Error %d reading from MIDI Data circular buffer",
                   static_cast<int>(result));
        }
        return false;
    }
    if (count == 0) {
        return false;
    }

    const unsigned int port = record.Port();
    const unsigned int length = record.Length();
    count = static_cast<int>(length);
    if (!MakePacketBufferHold(length)) {
        if (TakeReportBudget()) {
            syslog(LOG_ERR,
                   "CMidiCallbackWorker:svc: Error dynamically allocating mPktData buffer");
        }
        result = cb_remove(mDataRing, &count);
        guard.Unlock();
        if (result != 0 && TakeReportBudget()) {
            syslog(LOG_ERR, "CMidiCallbackWorker:svc: Error removing large packet from buffer");
        }
        return result == 0;
    }

    result = cb_read(mDataRing, mPacketBuffer, &count);
    if (result != 0 || static_cast<unsigned int>(count) < length) {
        guard.Unlock();
        mReadErrorSeen = 1;
        if (!TakeReportBudget()) {
            return false;
        }
        if (result == 0) {
            syslog(LOG_INFO, "Error %d reading from MIDI Data circular buffer.  CBs out of sync.",
                   0);
        } else {
            syslog(LOG_INFO, "Error %d reading from MIDI Data circular buffer",
                   static_cast<int>(result));
        }
        return false;
    }

    if (mThrottleRate != 0 && !Throttle(port, length)) {
        return false;
    }
    guard.Unlock();
    if (mForward != nullptr) {
        mForward(port, mPacketBuffer, length, mRefcon);
    }
    return true;
}

// A function of its own, because the leak detector is told of it by name. It zeroes the buffer so
// that the allocation is not the last thing it does and its frame stays on the stack.
unsigned char* CMidiCallbackWorker::AllocatePacketBuffer(unsigned int size) {
    return new (std::nothrow) unsigned char[size]();
}

// A failed allocation leaves no buffer and the capacity at the size that was wanted. So the next
// item, whatever its length, tries to allocate as much again.
bool CMidiCallbackWorker::MakePacketBufferHold(unsigned int length) {
    if (length <= mPacketBufferCapacity && mPacketBuffer != nullptr) {
        return true;
    }
    if (length > mPacketBufferCapacity) {
        mPacketBufferCapacity = length;
    }
    delete[] mPacketBuffer;
    mPacketBuffer = AllocatePacketBuffer(mPacketBufferCapacity);
    if (mPacketBuffer == nullptr) {
        return false;
    }
    LogDebugInfo("CMidiCallbackWorker:svc: pktData buffer dynamically increased to %d",
                 static_cast<int>(mPacketBufferCapacity));
    return true;
}

// Only MIDI data counts towards the rate. The headers of a list and of its packets do not, and
// neither does padding.
unsigned int CMidiCallbackWorker::CountBytes(unsigned int length) const {
    return mElementType == kMIDIPacketList ? CountMIDIBytes(mPacketBuffer, length) : length;
}

// Holds the item in the packet buffer back until its port has room for it within the last second.
// Returns false when the item is to be dropped.
bool CMidiCallbackWorker::Throttle(unsigned int port, unsigned int length) {
    const unsigned int bytes = CountBytes(length);
    const auto windowMaxBytes = static_cast<unsigned long>(mWindowMaxBytes);
    for (;;) {
        const AbsoluteTime now = UpTime();
        mLastEvaluationTime[port] = now;
        mWindowStart[port] = SubDurationFromAbsolute(kWindowMilliseconds, now);
        const std::uint64_t start = ToNumber(mWindowStart[port]);
        const std::uint64_t tail = ToNumber(mTailPacketTime[port]);
        LogThrottleDebugInfo("[start, end] = [%llu, %llu], trail = %llu, start-trail = %llu\n",
                             ToTicks(mWindowStart[port]), ToTicks(now),
                             ToTicks(mTailPacketTime[port]),
                             static_cast<unsigned long long>(start - tail));

        if (tail == 0) {
            LogThrottleDebugInfo("Tail packet time has not been assigned yet, skip this code block "
                                 "and immediately read tail element from Throttle CB\n");
        } else if (tail < start) {
            LogThrottleDebugInfo("packet expired (%llu), windowBytes-tailPacketBytes=%i-%i\n",
                                 ToTicks(mTailPacketTime[port]),
                                 static_cast<int>(mWindowBytes[port]),
                                 static_cast<int>(mTailPacketBytes[port]));
            mWindowBytes[port] -= mTailPacketBytes[port];
        } else if (bytes + mWindowBytes[port] <= windowMaxBytes) {
            LogThrottleDebugInfo("packet has NOT expired (%llu), but we are within throttle rate "
                                 "(%i <= %i) - send MIDI\n",
                                 ToTicks(mTailPacketTime[port]),
                                 static_cast<int>(bytes + mWindowBytes[port]), mWindowMaxBytes);
            break;
        } else {
            LogThrottleDebugInfo(
                "packet has NOT expired (%llu), and we exceed throttle rate - sleep\n",
                ToTicks(mTailPacketTime[port]));
            ReportRateExceeded(bytes + mWindowBytes[port], mThrottleRate);
            usleep(kThrottleSleepMicroseconds);
            continue;
        }
        if (!ReadTail(port)) {
            break;
        }
    }
    return RecordRelease(port, bytes);
}

// Takes the oldest record out of the port's ring. Returns false when there is none or the ring
// fails; the item is then forwarded whatever the limit is.
bool CMidiCallbackWorker::ReadTail(unsigned int port) {
    LogThrottleDebugInfo("-------------------------------------------------\n");
    _t_circular_buffer* const ring = mThrottleRings[port];
    ThrottleRecord record;
    int count = 1;
    const unsigned int result = cb_read(ring, &record, &count);
    if (result == 0 && count == 1) {
        mTailPacketTime[port] = record.mTime;
        mTailPacketBytes[port] = record.Bytes();
        LogThrottleDebugInfo(
            "Successfuly read tail element (%llu) from Throttle CB, # readable elements = %i\n",
            ToTicks(record.mTime), static_cast<int>(cb_get_num_elem_used(ring)));
        return true;
    }
    if (result != 0) {
        mReadErrorSeen = 1;
        LogThrottleDebugInfo("Eror reading from Throttle CB\n");
        if (TakeReportBudget()) {
            syslog(LOG_INFO, "Error %d reading from MIDI Throttle CB", static_cast<int>(result));
        }
    } else {
        if (ring->readOffset == ring->writeOffset) {
            LogThrottleDebugInfo("Throttle CB is empty\n");
        } else {
            LogThrottleDebugInfo("Throttle CB is NOT empty!\n");
        }
        LogThrottleDebugInfo("assert empty window, windowBytes = %i\n",
                             static_cast<int>(mWindowBytes[port]));
    }
    mTailPacketTime[port] = UnsignedWide{};
    mTailPacketBytes[port] = 0;
    if (result != 0) {
        ReinitializeThrottleCB(static_cast<int>(port));
    }
    return false;
}

// Adds the item to its port's window. Returns false when that fails; the item is then to be
// dropped.
bool CMidiCallbackWorker::RecordRelease(unsigned int port, unsigned int bytes) {
    const unsigned long oldWindowBytes = mWindowBytes[port];
    mWindowBytes[port] += bytes;
    // This counts as a report although the debug channel writes nothing. It is kept so that
    // failures are reported exactly as often as with the channel on.
    if (TakeReportBudget()) {
        LogThrottleDebugInfo("** Send MIDI packet, current rate: %f, windowBytes = %i + %i, "
                             "windowLengthTime = %f\n",
                             static_cast<double>(mWindowBytes[port]),
                             static_cast<int>(oldWindowBytes), static_cast<int>(bytes), 1.0);
    }

    _t_circular_buffer* const ring = mThrottleRings[port];
    const ThrottleRecord record = ThrottleRecord::Make(mLastEvaluationTime[port], bytes);
    int count = 1;
    const unsigned int result = cb_write(ring, &record, &count);
    if (result != 0) {
        mDiscard.store(1, std::memory_order_relaxed);
        LogThrottleDebugInfo("Error writing to Throttle CB\n");
        if (TakeReportBudget()) {
            syslog(LOG_INFO, "Error %d writing to MIDI Throttle CB", static_cast<int>(result));
        }
        ReinitializeThrottleCB(static_cast<int>(port));
        return false;
    }
    LogThrottleDebugInfo("Successfully wrote to Throttle CB, # readable elements = %i\n",
                         static_cast<int>(cb_get_num_elem_used(ring)));
    return true;
}
