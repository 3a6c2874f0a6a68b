#include "midiserver/routing/Router.h"

#include "midiserver/log/LogCategories.h"
#include "midiserver/log/Logging.h"
#include "midiserver/midi/MessageAssembler.h"
#include "midiserver/midi/PacketList.h"
#include "midiserver/routing/DriverLimits.h"
#include "midiserver/routing/DriverPorts.h"
#include "midiserver/routing/InputThread.h"
#include "midiserver/routing/LatencyHistogram.h"
#include "midiserver/routing/ListsInDriver.h"
#include "midiserver/routing/PingRestorer.h"
#include "midiserver/routing/PrivateSources.h"
#include "midiserver/routing/StallWatch.h"
#include "midiserver/routing/pacing/Pacer.h"
#include "platform/support/Mutex.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

namespace MidiServer {

namespace {

using Clock = std::chrono::steady_clock;
using TimePoint = Clock::time_point;
using Message = std::span<const std::uint8_t>;

// A backend's server may smooth its times, which then lie a little ahead.
TimePoint ArrivalTime(std::uint64_t nanoseconds) {
    return std::min(TimePoint(std::chrono::nanoseconds(nanoseconds)), Clock::now());
}

std::int32_t UniqueIdOf(MIDIEndpointRef endpoint) {
    SInt32 id = 0;
    MIDIObjectGetIntegerProperty(endpoint, kMIDIPropertyUniqueID, &id);
    return id;
}

} // namespace

class Router::Routing {
public:
    Routing(std::vector<RoutedBackend> backends, WakeUpSignal& signal, const RouterOptions& options,
            std::function<void()> stalled);
    ~Routing() { Stop(); }
    Routing(const Routing&) = delete;
    Routing& operator=(const Routing&) = delete;

    void Start(const std::vector<DriverPort>& ports, std::span<const Protocol> protocols);
    void Suspend();
    void Stop();
    std::vector<PortCounters> Counters() const;
    const std::vector<BackendPort>& ShownPorts() const { return mShownPorts; }
    std::uint64_t Stalls() const;
    Injection Inject(std::size_t port, Message message);
    std::shared_ptr<StreamTap> Tap(std::size_t port, StreamDirection direction,
                                   std::size_t capacity);

private:
    // What comes from one backend on one port.
    struct Input {
        MessageAssembler assembler;
        InputEvent event;                  // read from the queue last
        bool isHeld = false;               // the event waits for room in the pacing queue
        MessageAssembler::Dropped counted; // what of the assembler's counts is in the port's
    };

    struct Port {
        Protocol protocol = Protocol::kNone;
        PortCounters counters;
        LatencyHistogram forwarding;
        ListsInDriver inDriver;
        bool hasToldOfRestoredPing = false;
        bool hasToldOfFullQueue = false; // since the queue was empty last
    };

    struct TapPlace {
        std::size_t port;
        StreamDirection direction;
        std::weak_ptr<StreamTap> tap;
    };

    // The input thread's.
    TimePoint Pass();
    bool TakeList(TimePoint now, PacedList& list) QUORVEL_REQUIRES(mMutex);
    void Refused(std::size_t port);
    bool IsStalledNow(TimePoint now) QUORVEL_REQUIRES(mMutex);

    void TakeInput() QUORVEL_REQUIRES(mMutex);
    void TakeInput(const RoutedBackend& backend, Input& input, std::size_t port)
        QUORVEL_REQUIRES(mMutex);
    bool IsRoomFor(const Input& input, std::size_t port) const QUORVEL_REQUIRES(mMutex);
    void AddEvent(Input& input, std::size_t port) QUORVEL_REQUIRES(mMutex);
    void AddDropped(Input& input, std::size_t port) QUORVEL_REQUIRES(mMutex);
    void AddMessage(std::size_t port, Message message, TimePoint arrived) QUORVEL_REQUIRES(mMutex);
    void TellOfRestoredPing(std::size_t port) QUORVEL_REQUIRES(mMutex);

    // The driver's threads'.
    void Forwarded(std::size_t port, const MIDIPacketList& packets);
    void Replied(std::size_t port, const MIDIPacketList& packets);

    void CopyToTaps(std::size_t port, StreamDirection direction, const MIDIPacketList& packets)
        QUORVEL_REQUIRES(mMutex);
    void CountLostInDriver(Port& port, const std::vector<ListsInDriver::List>& lists, TimePoint now)
        QUORVEL_REQUIRES(mMutex);
    void SetPorts(std::size_t count, std::span<const Protocol> protocols) QUORVEL_REQUIRES(mMutex);
    void DropWaiting(std::size_t port) QUORVEL_REQUIRES(mMutex);
    std::vector<BackendPort> PortsToShow(const std::vector<DriverPort>& ports) const;
    void DisconnectFromDriver();
    void WaitForDriver();

    const std::vector<RoutedBackend> mBackends;
    WakeUpSignal& mSignal;
    const RouterOptions mOptions;
    const std::function<void()> mStalled;

    mutable Mutex mMutex;
    ConditionVariable mDriverIsEmpty;
    std::vector<Port> mPorts QUORVEL_GUARDED_BY(mMutex); // never fewer than before
    Pacer mPacer QUORVEL_GUARDED_BY(mMutex);             // its ports are those that there are now
    std::vector<std::vector<Input>> mInputs QUORVEL_GUARDED_BY(mMutex); // by backend, then by port
    StallWatch mStallWatch QUORVEL_GUARDED_BY(mMutex);
    std::size_t mBytesInDriver QUORVEL_GUARDED_BY(mMutex) = 0;
    bool mIsDriverFull QUORVEL_GUARDED_BY(mMutex) = false; // the input thread waits for room in it
    bool mHasStalled QUORVEL_GUARDED_BY(mMutex) = false;   // since the start
    std::uint64_t mStalls QUORVEL_GUARDED_BY(mMutex) = 0;
    std::vector<TapPlace> mTaps QUORVEL_GUARDED_BY(mMutex);

    // The main thread's, and in between the threads' that the members themselves make.
    bool mIsPublished = false;
    std::vector<BackendPort> mShownPorts;
    std::optional<PrivateSources> mPrivateSources;
    std::optional<DriverPorts> mDriverPorts;
    PacedList mList;                                // the input thread's
    RealTimePriority mPriority{"the input thread"}; // likewise
    std::optional<InputThread> mThread;
};

Router::Routing::Routing(std::vector<RoutedBackend> backends, WakeUpSignal& signal,
                         const RouterOptions& options, std::function<void()> stalled)
    : mBackends(std::move(backends)),
      mSignal(signal),
      mOptions(options),
      mStalled(std::move(stalled)),
      mInputs(mBackends.size()),
      mStallWatch(options.stallTime) {}

void Router::Routing::Start(const std::vector<DriverPort>& ports,
                            std::span<const Protocol> protocols) {
    Suspend();
    mPrivateSources.emplace(
        [this](unsigned port, const MIDIPacketList& packets) { Forwarded(port, packets); });
    mDriverPorts.emplace(
        [this](std::size_t port, const MIDIPacketList& packets) { Replied(port, packets); });
    try {
        mPrivateSources->Connect(static_cast<unsigned>(ports.size()));
        mDriverPorts->Connect(ports);
    } catch (...) {
        DisconnectFromDriver();
        throw;
    }
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

void Router::Routing::SetPorts(std::size_t count, std::span<const Protocol> protocols) {
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

std::vector<BackendPort> Router::Routing::PortsToShow(const std::vector<DriverPort>& ports) const {
    const std::vector<SInt32>& privateIds = mPrivateSources->UniqueIds();
    std::vector<BackendPort> shown;
    for (std::size_t port = 0; port < ports.size(); ++port) {
        shown.push_back({ports[port].name, UniqueIdOf(ports[port].source), privateIds[port]});
    }
    return shown;
}

void Router::Routing::Suspend() {
    if (!mThread) {
        return;
    }
    mThread.reset();
    WaitForDriver();
    DisconnectFromDriver();
    const MutexLock lock(mMutex);
    for (Port& port : mPorts) {
        CountLostInDriver(port, port.inDriver.TakeAll(), Clock::now());
    }
}

void Router::Routing::WaitForDriver() {
    const TimePoint deadline = Clock::now() + mOptions.drainTime;
    const MutexLock lock(mMutex);
    while (mBytesInDriver > 0 && mDriverIsEmpty.WaitUntil(mMutex, deadline)) {
    }
}

// What the driver's threads are just handing over is handed over when this returns.
void Router::Routing::DisconnectFromDriver() {
    mPrivateSources.reset();
    mDriverPorts.reset();
}

void Router::Routing::Stop() {
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

void Router::Routing::DropWaiting(std::size_t port) {
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
TimePoint Router::Routing::Pass() {
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
        if (mDriverPorts->Send(mList.port, *mList.list.List()) != noErr) {
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

bool Router::Routing::TakeList(TimePoint now, PacedList& list) {
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

void Router::Routing::Refused(std::size_t port) {
    const MutexLock lock(mMutex);
    if (const std::optional<ListsInDriver::List> list = mPorts[port].inDriver.TakeLast()) {
        mPorts[port].counters.dropped.refused += list->arrived.size();
        mBytesInDriver -= list->listBytes;
        mStallWatch.Done(Clock::now(), 1);
    }
}

bool Router::Routing::IsStalledNow(TimePoint now) {
    if (mHasStalled || now < mStallWatch.Deadline()) {
        return false;
    }
    mHasStalled = true;
    ++mStalls;
    return true;
}

void Router::Routing::TakeInput() {
    for (std::size_t backend = 0; backend < mBackends.size(); ++backend) {
        for (std::size_t port = 0; port < mPacer.Ports(); ++port) {
            TakeInput(mBackends[backend], mInputs[backend][port], port);
        }
    }
}

void Router::Routing::TakeInput(const RoutedBackend& backend, Input& input, std::size_t port) {
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
bool Router::Routing::IsRoomFor(const Input& input, std::size_t port) const {
    return mPacer.Queue(port).Empty() ||
           input.assembler.PendingBytes() + input.event.bytes.size() <= mPacer.Queue(port).Room();
}

void Router::Routing::AddEvent(Input& input, std::size_t port) {
    if (input.event.followsLoss) {
        input.assembler.NoteLoss();
    }
    const TimePoint arrived = ArrivalTime(input.event.time);
    input.assembler.Add(input.event.bytes, [&](Message message) QUORVEL_REQUIRES(mMutex) {
        AddMessage(port, message, arrived);
    });
    AddDropped(input, port);
}

void Router::Routing::AddDropped(Input& input, std::size_t port) {
    const MessageAssembler::Dropped& now = input.assembler.Counts();
    DroppedMessages& dropped = mPorts[port].counters.dropped;
    dropped.tooLong += now.tooLong - input.counted.tooLong;
    dropped.incomplete += now.incomplete - input.counted.incomplete;
    dropped.malformed += now.malformed - input.counted.malformed;
    input.counted = now;
}

void Router::Routing::AddMessage(std::size_t port, Message message, TimePoint arrived) {
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

void Router::Routing::TellOfRestoredPing(std::size_t port) {
    if (!std::exchange(mPorts[port].hasToldOfRestoredPing, true)) {
        Log(kRoutingLog[HSL::kWarning],
            "port %u: a bridge turns the HUI pings into note-offs; they are turned back", port + 1);
    }
}

void Router::Routing::Forwarded(std::size_t port, const MIDIPacketList& packets) {
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

void Router::Routing::CountLostInDriver(Port& port, const std::vector<ListsInDriver::List>& lists,
                                        TimePoint now) {
    for (const ListsInDriver::List& list : lists) {
        port.counters.dropped.lostInDriver += list.arrived.size();
        Log(kRoutingLog[HSL::kError], "the driver lost %u messages", list.arrived.size());
        mBytesInDriver -= list.listBytes;
        mStallWatch.Done(now, 1);
    }
}

void Router::Routing::Replied(std::size_t port, const MIDIPacketList& packets) {
    for (const RoutedBackend& routed : mBackends) {
        routed.backend->EmitFromPort(port, packets);
    }
    const MutexLock lock(mMutex);
    CopyToTaps(port, StreamDirection::kToDaw, packets);
    if (port < mPorts.size()) {
        mPorts[port].counters.answeredPings += PacketsOf(packets).size();
    }
}

void Router::Routing::CopyToTaps(std::size_t port, StreamDirection direction,
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

std::vector<PortCounters> Router::Routing::Counters() const {
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

std::uint64_t Router::Routing::Stalls() const {
    const MutexLock lock(mMutex);
    return mStalls;
}

Injection Router::Routing::Inject(std::size_t port, Message message) {
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

std::shared_ptr<StreamTap> Router::Routing::Tap(std::size_t port, StreamDirection direction,
                                                std::size_t capacity) {
    auto tap = std::make_shared<StreamTap>(capacity);
    const MutexLock lock(mMutex);
    mTaps.push_back({port, direction, tap});
    return tap;
}

Router::Router(std::vector<RoutedBackend> backends, WakeUpSignal& signal,
               const RouterOptions& options, std::function<void()> stalled)
    : mRouting(
          std::make_unique<Routing>(std::move(backends), signal, options, std::move(stalled))) {}

Router::~Router() = default;

void Router::Start(const std::vector<DriverPort>& ports, std::span<const Protocol> protocols) {
    mRouting->Start(ports, protocols);
}

void Router::Suspend() {
    mRouting->Suspend();
}

void Router::Stop() {
    mRouting->Stop();
}

std::vector<PortCounters> Router::Counters() const {
    return mRouting->Counters();
}

const std::vector<BackendPort>& Router::ShownPorts() const {
    return mRouting->ShownPorts();
}

std::uint64_t Router::Stalls() const {
    return mRouting->Stalls();
}

Injection Router::Inject(std::size_t port, std::span<const std::uint8_t> message) {
    return mRouting->Inject(port, message);
}

std::shared_ptr<StreamTap> Router::Tap(std::size_t port, StreamDirection direction,
                                       std::size_t capacity) {
    return mRouting->Tap(port, direction, capacity);
}

} // namespace MidiServer
