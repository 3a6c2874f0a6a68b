#include "midiserver/routing/Router.h"

#include "midiserver/log/LogCategories.h"
#include "midiserver/log/Logging.h"
#include "midiserver/midi/PacketList.h"
#include "midiserver/routing/DriverLimits.h"
#include "platform/packetlist/PacketListBuilder.h"

#include <algorithm>
#include <utility>

namespace MidiServer {

namespace {

// A backend's server may smooth its times, which then lie a little ahead.
std::chrono::steady_clock::time_point ArrivalTime(std::uint64_t nanoseconds) {
    using Clock = std::chrono::steady_clock;
    return std::min(Clock::time_point(std::chrono::nanoseconds(nanoseconds)), Clock::now());
}

} // namespace

Router::Router(std::vector<RoutedBackend> backends, WakeUpSignal& signal,
               const RouterOptions& options, std::function<void()> stalled)
    : mBackends(std::move(backends)),
      mSignal(signal),
      mOptions(options),
      mStalled(std::move(stalled)),
      mInputs(mBackends.size()),
      mStallWatch(options.stallTime) {}

void Router::Start(const std::vector<DriverPort>& ports, std::span<const Protocol> protocols) {
    Suspend();
    mDriver.emplace(
        ports,
        DriverConnection::Listeners{
            [this](std::size_t port, const MIDIPacketList& packets) { Replied(port, packets); },
            [this](std::size_t port, const MIDIPacketList& packets) { Forwarded(port, packets); }});
    {
        const MutexLock lock(mMutex);
        SetPorts(ports.size(), protocols);
        mStallWatch = StallWatch(mOptions.stallTime);
        mHasStalled = false;
    }
    mShownPorts = PortsToShow(ports);
    for (const RoutedBackend& routed : mBackends) {
        routed.backend->Publish(mShownPorts);
    }
    mIsPublished = true;
    mThread.emplace(mSignal, mPriority, [this] { return Pass(); });
    Log(kRoutingLog[HSL::kInfo], "routing %u ports", ports.size());
}

void Router::SetPorts(std::size_t count, std::span<const Protocol> protocols) {
    for (std::size_t port = count; port < mPacer.Ports(); ++port) {
        DropWaiting(port);
        // The queue goes, with its own counts.
        mPorts[port].counters.delayedMessages += mPacer.Queue(port).Delayed();
        mPorts[port].counters.coalescedMessages += mPacer.Queue(port).Coalesced();
    }
    mPorts.resize(std::max(mPorts.size(), count));
    std::vector<Pacer::PortSettings> settings(count);
    for (std::size_t port = 0; port < count; ++port) {
        settings[port].protocol = port < protocols.size() ? protocols[port] : Protocol::kNone;
        settings[port].coalescing = port < kMaximumPorts && mOptions.coalescing[port];
        mPorts[port].protocol = settings[port].protocol;
    }
    mPacer.Configure(settings);
    for (std::vector<Input>& inputs : mInputs) {
        inputs.resize(count);
    }
}

std::vector<BackendPort> Router::PortsToShow(const std::vector<DriverPort>& ports) const {
    std::vector<BackendPort> shown;
    shown.reserve(ports.size());
    for (const DriverPort& port : ports) {
        shown.push_back(
            {port.name, port.sourceId.value_or(0), mDriver->PrivateIds()[shown.size()]});
    }
    return shown;
}

void Router::Suspend() {
    if (!mThread) {
        return;
    }
    mThread.reset();
    WaitForDriver();
    // What the driver's threads are just handing over is handed over when this returns.
    mDriver.reset();
    const MutexLock lock(mMutex);
    for (Port& port : mPorts) {
        CountLostInDriver(port, port.inDriver.TakeAll(), Clock::now());
    }
}

void Router::WaitForDriver() {
    const TimePoint deadline = Clock::now() + mOptions.drainTime;
    const MutexLock lock(mMutex);
    while (mBytesInDriver > 0 && mDriverIsEmpty.WaitUntil(mMutex, deadline)) {
    }
}

void Router::Stop() {
    Suspend();
    if (!mIsPublished) {
        return;
    }
    mIsPublished = false;
    for (const RoutedBackend& routed : mBackends) {
        routed.backend->Withdraw();
    }
    const MutexLock lock(mMutex);
    // What came last goes through the counters too.
    TakeInput();
    std::uint64_t dropped = 0;
    for (std::size_t port = 0; port < mPacer.Ports(); ++port) {
        dropped += mPacer.Queue(port).Messages();
        DropWaiting(port);
    }
    if (dropped > 0) {
        Log(kRoutingLog[HSL::kWarning], "%u messages still waited when the routing ended", dropped);
    }
}

void Router::DropWaiting(std::size_t port) {
    mPorts[port].counters.dropped.stopped += mPacer.Queue(port).Messages();
    mPacer.Clear(port);
    for (std::vector<Input>& inputs : mInputs) {
        if (std::exchange(inputs[port].isHeld, false)) {
            ++mPorts[port].counters.dropped.stopped;
        }
        inputs[port].assembler.NoteLoss();
        AddDropped(inputs[port], port);
    }
}

// Sends all that may go, and returns when there may be more.
Router::TimePoint Router::Pass() {
    bool hasStalled = false;
    TimePoint due;
    for (;;) {
        {
            const MutexLock lock(mMutex);
            const TimePoint now = Clock::now();
            // Anew before each list, so that a ping need not wait for all the others.
            TakeInput();
            if (!TakeList(now, mList)) {
                hasStalled = IsStalledNow(now);
                due = mIsDriverFull ? TimePoint::max() : mPacer.Due();
                due = std::min(due, mHasStalled ? TimePoint::max() : mStallWatch.Deadline());
                break;
            }
        }
        if (mDriver->Send(mList.port, *mList.list.List()) != noErr) {
            Refused(mList.port);
        }
    }
    if (hasStalled) {
        Log(kRoutingLog[HSL::kError],
            "the driver forwards nothing any more although it was sent messages");
        mStalled();
    }
    return due;
}

bool Router::TakeList(TimePoint now, PacedList& list) {
    mIsDriverFull = mBytesInDriver >= kMostBytesInDriver;
    if (mIsDriverFull || !mPacer.Next(now, list)) {
        return false;
    }
    // Noted before it is sent: it may come out before MIDISend returns.
    mPorts[list.port].inDriver.Sent({list.list.ByteSize(), list.dataBytes, list.arrived});
    mBytesInDriver += list.list.ByteSize();
    mStallWatch.Sent(now);
    CopyToTaps(list.port, StreamDirection::kFromDaw, *list.list.List());
    return true;
}

void Router::Refused(std::size_t port) {
    const MutexLock lock(mMutex);
    if (const std::optional<ListsInDriver::List> list = mPorts[port].inDriver.TakeLast()) {
        mPorts[port].counters.dropped.refused += list->arrived.size();
        mBytesInDriver -= list->listBytes;
        mStallWatch.Done(Clock::now(), 1);
    }
}

bool Router::IsStalledNow(TimePoint now) {
    if (mHasStalled || now < mStallWatch.Deadline()) {
        return false;
    }
    mHasStalled = true;
    ++mStalls;
    return true;
}

void Router::TakeInput() {
    for (std::size_t backend = 0; backend < mBackends.size(); ++backend) {
        for (std::size_t port = 0; port < mPacer.Ports(); ++port) {
            TakeInput(mBackends[backend], mInputs[backend][port], port);
        }
    }
}

void Router::TakeInput(const RoutedBackend& backend, Input& input, std::size_t port) {
    const InputLoss loss = backend.input->TakeLoss(port);
    mPorts[port].counters.dropped.lostInBackend += std::uint64_t{loss.noRoom} + loss.upstream;
    for (;;) {
        if (!input.isHeld && !backend.input->Read(port, input.event)) {
            return;
        }
        input.isHeld = backend.holdsBack && !IsRoomFor(input, port);
        if (input.isHeld) {
            return;
        }
        AddEvent(input, port);
    }
}

// The messages of an event are at most as long as the event and what came before it together.
bool Router::IsRoomFor(const Input& input, std::size_t port) const {
    return mPacer.Queue(port).Empty() ||
           input.assembler.PendingBytes() + input.event.bytes.size() <= mPacer.Queue(port).Room();
}

void Router::AddEvent(Input& input, std::size_t port) {
    if (input.event.followsLoss) {
        input.assembler.NoteLoss();
    }
    const TimePoint arrived = ArrivalTime(input.event.time);
    input.assembler.Add(input.event.bytes, [&](Message message) QUORVEL_REQUIRES(mMutex) {
        AddMessage(port, message, arrived);
    });
    AddDropped(input, port);
}

void Router::AddDropped(Input& input, std::size_t port) {
    const MessageAssembler::Dropped now = input.assembler.TakeDropped();
    DroppedMessages& dropped = mPorts[port].counters.dropped;
    dropped.tooLong += now.tooLong;
    dropped.incomplete += now.incomplete;
    dropped.malformed += now.malformed;
}

void Router::AddMessage(std::size_t port, Message message, TimePoint arrived) {
    Port& to = mPorts[port];
    const auto restored = RestoredPing(to.protocol, message);
    if (restored) {
        ++to.counters.restoredPings;
        TellOfRestoredPing(port);
        message = *restored;
    }
    ++to.counters.messagesIn;
    to.counters.bytesIn += message.size();
    if (IsPing(to.protocol, message)) {
        to.counters.lastPing = arrived;
    }
    to.hasToldOfFullQueue = to.hasToldOfFullQueue && !mPacer.Queue(port).Empty();
    if (mPacer.Add(port, message, arrived)) {
        return;
    }
    ++to.counters.dropped.queueFull;
    if (!std::exchange(to.hasToldOfFullQueue, true)) {
        Log(kRoutingLog[HSL::kWarning],
            "port %u: more comes than the driver lets through, and messages are dropped", port + 1);
    }
}

void Router::TellOfRestoredPing(std::size_t port) {
    if (!std::exchange(mPorts[port].hasToldOfRestoredPing, true)) {
        Log(kRoutingLog[HSL::kWarning],
            "port %u: a bridge turns the HUI pings into note-offs; they are turned back", port + 1);
    }
}

void Router::Forwarded(std::size_t port, const MIDIPacketList& packets) {
    for (const RoutedBackend& routed : mBackends) {
        routed.backend->EmitFromPrivateSource(port, packets);
    }
    std::size_t bytes = 0;
    for (const Message packet : PacketsOf(packets)) {
        bytes += packet.size();
    }
    const TimePoint now = Clock::now();
    const MutexLock lock(mMutex);
    CopyToTaps(port, StreamDirection::kToSurface, packets);
    if (port >= mPorts.size()) {
        return;
    }
    Port& from = mPorts[port];
    const std::optional<ListsInDriver::Forwarded> forwarded = from.inDriver.TakeForwarded(bytes);
    if (!forwarded) {
        return;
    }
    CountLostInDriver(from, forwarded->lost, now);
    from.counters.forwardedMessages += forwarded->list.arrived.size();
    from.counters.forwardedBytes += bytes;
    for (const TimePoint arrived : forwarded->list.arrived) {
        from.forwarding.Add(now - arrived);
    }
    mBytesInDriver -= forwarded->list.listBytes;
    mStallWatch.Done(now, 1);
    if (mBytesInDriver == 0) {
        mDriverIsEmpty.NotifyAll();
    }
    if (mIsDriverFull && mBytesInDriver < kMostBytesInDriver) {
        mSignal.Raise();
    }
}

void Router::CountLostInDriver(Port& port, const std::vector<ListsInDriver::List>& lists,
                               TimePoint now) {
    for (const ListsInDriver::List& list : lists) {
        port.counters.dropped.lostInDriver += list.arrived.size();
        Log(kRoutingLog[HSL::kError], "the driver lost %u messages", list.arrived.size());
        mBytesInDriver -= list.listBytes;
        mStallWatch.Done(now, 1);
    }
}

void Router::EmitToDaws(std::size_t port, const MIDIPacketList& packets) {
    {
        const MutexLock lock(mEmission);
        for (const RoutedBackend& routed : mBackends) {
            routed.backend->EmitFromPort(port, packets);
        }
    }
    const MutexLock lock(mMutex);
    CopyToTaps(port, StreamDirection::kToDaw, packets);
}

bool Router::Emit(std::size_t port, Message message) {
    if (!mIsPublished || port >= mShownPorts.size()) {
        return false;
    }
    PacketListBuilder list;
    list.Add(message);
    EmitToDaws(port, *list.List());
    return true;
}

void Router::Replied(std::size_t port, const MIDIPacketList& packets) {
    EmitToDaws(port, packets);
    const MutexLock lock(mMutex);
    if (port < mPorts.size()) {
        mPorts[port].counters.answeredPings += PacketsOf(packets).size();
    }
}

void Router::CopyToTaps(std::size_t port, StreamDirection direction,
                        const MIDIPacketList& packets) {
    if (mTaps.empty()) {
        return;
    }
    const TimePoint now = Clock::now();
    std::erase_if(mTaps, [](const TapPlace& place) { return place.tap.expired(); });
    for (const TapPlace& place : mTaps) {
        const std::shared_ptr<StreamTap> tap = place.tap.lock();
        if (tap == nullptr || place.port != port || place.direction != direction) {
            continue;
        }
        for (const Message packet : PacketsOf(packets)) {
            tap->Add(now, packet);
        }
    }
}

std::vector<PortCounters> Router::Counters() const {
    const MutexLock lock(mMutex);
    std::vector<PortCounters> counters;
    for (std::size_t port = 0; port < mPorts.size(); ++port) {
        PortCounters& copy = counters.emplace_back(mPorts[port].counters);
        copy.forwarding = mPorts[port].forwarding.Summary();
        copy.messagesInDriver = mPorts[port].inDriver.Messages();
        if (port < mPacer.Ports()) {
            const PacingQueue& queue = mPacer.Queue(port);
            copy.queuedMessages = queue.Messages();
            copy.queuedBytes = queue.Bytes();
            copy.delayedMessages += queue.Delayed();
            copy.coalescedMessages += queue.Coalesced();
        }
    }
    return counters;
}

std::uint64_t Router::Stalls() const {
    const MutexLock lock(mMutex);
    return mStalls;
}

Injection Router::Inject(std::size_t port, Message message) {
    Injection result{false, 0};
    {
        const MutexLock lock(mMutex);
        if (port >= mPacer.Ports()) {
            return result;
        }
        const PacingQueue& queue = mPacer.Queue(port);
        result.taken = queue.Empty() || message.size() <= queue.Room();
        if (result.taken) {
            Input input;
            input.event =
                InputEvent{static_cast<std::uint64_t>(
                               std::chrono::nanoseconds(Clock::now().time_since_epoch()).count()),
                           false,
                           {message.begin(), message.end()}};
            AddEvent(input, port);
            input.assembler.NoteLoss();
            AddDropped(input, port);
        }
        result.room = queue.Room();
    }
    mSignal.Raise();
    return result;
}

std::shared_ptr<StreamTap> Router::Tap(std::size_t port, StreamDirection direction,
                                       std::size_t capacity) {
    auto tap = std::make_shared<StreamTap>(capacity);
    const MutexLock lock(mMutex);
    mTaps.push_back({port, direction, tap});
    return tap;
}

} // namespace MidiServer
