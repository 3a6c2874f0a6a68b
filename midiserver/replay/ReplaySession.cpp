#include "midiserver/replay/ReplaySession.h"

#include "midiserver/host/Interrupt.h"
#include "midiserver/log/LogCategories.h"
#include "midiserver/log/Logging.h"
#include "midiserver/midi/PacketList.h"
#include "midiserver/routing/DriverConnection.h"

#include <fmt/format.h>

#include <algorithm>

namespace MidiServer {

namespace {

constexpr std::size_t kLargestPacket = 256;
constexpr std::size_t kLargestList = 1024;
// The longest time that a wait goes on without looking at the interrupt count.
constexpr std::chrono::milliseconds kLookout(50);
// The time that the driver may need beyond the permitted rate on a busy machine.
constexpr std::chrono::seconds kGrace(15);

// Returns the longest time that the throttle needs for these bytes: their time at the permitted
// rate, and one second until the bytes that it let through before have left its window.
std::chrono::nanoseconds ThrottleTime(std::uint64_t dataBytes) {
    const std::chrono::duration<double> time(
        1.0 + static_cast<double>(dataBytes) /
                  static_cast<double>(ReplayStatistics::kPermittedBytesPerSecond));
    return std::chrono::duration_cast<std::chrono::nanoseconds>(time);
}

// Returns the number of ports after checking that the port to play to is at its place.
unsigned CheckedPortCount(const std::vector<DriverPort>& ports, unsigned port) {
    const std::string name = fmt::format("Quorvel Port {}", port + 1);
    if (port >= ports.size() || ports[port].name != name) {
        throw HostError(fmt::format("the driver publishes no port \"{}\"", name));
    }
    return static_cast<unsigned>(ports.size());
}

} // namespace

ReplaySession::ReplaySession(const RecordedSession& recording, const ReplayOptions& options,
                             const Host& host)
    : mRecording(recording),
      mOptions(options),
      mHost(host),
      mStatistics(options.port, CheckedPortCount(host.Ports(), options.port), options.protocol) {
    mReport.file = options.file;
    mReport.port = options.port;
    mReport.protocol = options.protocol;
    mReport.speed = options.speed;
    mReport.messages = recording.MessageCount();
    mStart = mLastArrival = Clock::now();
}

ReplayReport ReplaySession::Run() {
    const auto replied = [this](std::size_t port, const MIDIPacketList& packets) {
        const Clock::time_point now = Clock::now();
        const MutexLock lock(mMutex);
        mStatistics.Replied(static_cast<unsigned>(port), now, PacketsOf(packets));
        mArrived.NotifyAll();
    };
    const auto forwarded = [this](std::size_t port, const MIDIPacketList& packets) {
        const Clock::time_point now = Clock::now();
        const MutexLock lock(mMutex);
        mStatistics.Forwarded(static_cast<unsigned>(port), now, PacketsOf(packets));
        mLastArrival = now;
        mArrived.NotifyAll();
    };
    std::optional<DriverConnection> driver(std::in_place, mHost.Ports(),
                                           DriverConnection::Listeners{replied, forwarded});
    const Clock::time_point start = Clock::now();
    {
        const MutexLock lock(mMutex);
        mStart = mLastArrival = start;
    }
    SendAll(*driver, start);
    LogSent();
    WaitForTheRest();
    driver.reset();
    return Report();
}

void ReplaySession::SendAll(const DriverConnection& driver, Clock::time_point start) {
    RecordedSession::Iterator message = mRecording.begin();
    const std::uint64_t first = message->microseconds;
    std::size_t offset = 0;
    while (message != mRecording.end()) {
        if (mOptions.speed && offset == 0) {
            const std::chrono::duration<double, std::micro> time(
                static_cast<double>(message->microseconds - first) / *mOptions.speed);
            if (!WaitUntilDue(start + std::chrono::duration_cast<Clock::duration>(time))) {
                break;
            }
        }
        if (Interrupt::Count() > 0 || !SendNextList(driver, message, offset)) {
            break;
        }
    }
    const MutexLock lock(mMutex);
    mReport.interrupted = message != mRecording.end() && !mReport.stalled;
}

void ReplaySession::LogSent() const {
    const ReplayReport report = Report();
    Log(kReplayLog[HSL::kInfo], "%s: sent %u of %u messages%s", report.file, report.sent,
        report.messages, report.interrupted ? ", interrupted" : "");
    if (report.heldBack > 0) {
        Log(kReplayLog[HSL::kChatty], "waited %u times for room in the driver", report.heldBack);
    }
}

// Returns false if the wait was interrupted.
bool ReplaySession::WaitUntilDue(Clock::time_point due) {
    const MutexLock lock(mMutex);
    for (Clock::time_point now = Clock::now(); now < due; now = Clock::now()) {
        if (Interrupt::Count() > 0) {
            return false;
        }
        // Arrivals wake it too early, which does no harm.
        mArrived.WaitUntil(mMutex, std::min(due, now + kLookout));
    }
    return true;
}

// Sends one packet list with the messages that are due at the time of `message`, from `offset` of
// it on, as far as they fit, and moves both on. Returns false if the session has to end.
bool ReplaySession::SendNextList(const DriverConnection& driver, RecordedSession::Iterator& message,
                                 std::size_t& offset) {
    const std::uint64_t time = message->microseconds;
    mList.Clear();
    mListPackets.clear();
    std::uint64_t completed = 0;
    while (message != mRecording.end() && message->microseconds == time) {
        const std::span<const std::uint8_t> rest = message->bytes.subspan(offset);
        const std::span<const std::uint8_t> packet =
            rest.first(std::min(rest.size(), kLargestPacket));
        if (!mList.Empty() && mList.SizeWith(packet.size()) > kLargestList) {
            break;
        }
        mList.Add(packet);
        mListPackets.push_back(packet);
        offset += packet.size();
        if (packet.size() == rest.size()) {
            ++message;
            ++completed;
            offset = 0;
        }
    }
    {
        const MutexLock lock(mMutex);
        if (!WaitForRoom(mList.ByteSize())) {
            return false;
        }
        // Announced before it is sent: it may arrive before MIDISend returns.
        mStatistics.ListSent(Clock::now(), mListPackets);
        mReport.sent += completed;
    }
    if (driver.Send(mOptions.port, *mList.List()) != noErr) {
        const MutexLock lock(mMutex);
        mStatistics.LastListRefused();
    }
    return true;
}

// Returns false if the driver lets nothing through any more, or if the wait was interrupted.
bool ReplaySession::WaitForRoom(std::size_t listBytes) {
    const auto isRoom = [this, listBytes]() QUORVEL_REQUIRES(mMutex) {
        return mStatistics.BytesInFlight() + listBytes <= kFlowControlBytes;
    };
    if (isRoom()) {
        return true;
    }
    const Clock::time_point start = Clock::now();
    mReport.phase = ReplayPhase::kHeldBack;
    ++mReport.heldBack;
    while (!isRoom() && !mReport.stalled && Interrupt::Count() == 0) {
        const Clock::time_point now = Clock::now();
        if (now - std::max(start, mLastArrival) > ThrottleTime(kLargestList) + kGrace) {
            mReport.stalled = true;
        } else {
            mArrived.WaitUntil(mMutex, now + kLookout);
        }
    }
    mReport.heldBackTime += Clock::now() - start;
    mReport.phase = ReplayPhase::kSending;
    return isRoom() && !mReport.stalled;
}

void ReplaySession::WaitForTheRest() {
    const MutexLock lock(mMutex);
    mReport.phase = ReplayPhase::kWaitingForTheRest;
    const Clock::time_point deadline =
        Clock::now() + ThrottleTime(mStatistics.DataBytesInFlight()) + kGrace;
    while ((mStatistics.BytesInFlight() > 0 || mStatistics.PingsOutstanding() > 0) &&
           Interrupt::Count() < 2 && !mReport.stalled) {
        const Clock::time_point now = Clock::now();
        if (now > deadline) {
            mReport.stalled = true;
        } else {
            mArrived.WaitUntil(mMutex, now + kLookout);
        }
    }
    mReport.elapsed = Clock::now() - mStart;
    mReport.phase = ReplayPhase::kFinished;
    mFinished = true;
}

ReplayReport ReplaySession::Report() const {
    ReplayReport report;
    std::optional<ReplayStatistics> statistics;
    {
        const MutexLock lock(mMutex);
        report = mReport;
        if (!mFinished) {
            report.elapsed = Clock::now() - mStart;
        }
        statistics = mStatistics;
    }
    report.bytesInFlight = statistics->BytesInFlight();
    report.dataBytesInFlight = statistics->DataBytesInFlight();
    // Of the copy: sorting takes long, and the driver's threads would wait for the lock.
    report.findings = statistics->Findings();
    return report;
}

} // namespace MidiServer
