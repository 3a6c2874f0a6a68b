#pragma once

#include "midiserver/backends/Backend.h"
#include "midiserver/backends/InputQueue.h"
#include "midiserver/backends/WakeUpSignal.h"
#include "midiserver/host/Host.h"
#include "midiserver/midi/MessageAssembler.h"
#include "midiserver/preferences/PortConfiguration.h"
#include "midiserver/routing/DriverConnection.h"
#include "midiserver/routing/InputThread.h"
#include "midiserver/routing/LatencyHistogram.h"
#include "midiserver/routing/ListsInDriver.h"
#include "midiserver/routing/PortCounters.h"
#include "midiserver/routing/StallWatch.h"
#include "midiserver/routing/StreamTap.h"
#include "midiserver/routing/pacing/Pacer.h"
#include "platform/support/Mutex.h"

#include <bitset>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace MidiServer {

// A backend and the queue that it writes into.
struct RoutedBackend {
    Backend* backend;
    InputQueue* input;
    // What waits in the input queue stays there while the port's pacing queue is full, so that the
    // backend can hold its senders back. Without it, messages that find the pacing queue full are
    // dropped.
    bool holdsBack = false;
};

struct RouterOptions {
    // The ports, by index, on which values that a later one supersedes are dropped while they wait.
    std::bitset<kMaximumPorts> coalescing{};
    // The driver counts as stalled if it forwards nothing for so long although it was sent
    // messages. It is far beyond what pacing and a busy machine cause.
    std::chrono::nanoseconds stallTime = std::chrono::seconds(10);
    // How long Suspend and Stop wait for what the driver still has.
    std::chrono::nanoseconds drainTime = std::chrono::milliseconds(300);
};

// What became of an injected message.
struct Injection {
    bool taken;       // otherwise nothing of it was, and the sender tries again later
    std::size_t room; // the bytes that the port's pacing queue takes now
};

// The router carries MIDI between the backends and a driver that runs. What DAWs send goes through
// a pacing queue for each port, at a little below the driver's own limit, so that a port that
// floods holds up no other one (see Pacer.h). What the driver emits goes to every backend.
//
//     WakeUpSignal signal;
//     InputQueue input(kMaximumPorts, signal);
//     JackBackend jack(input, ...);
//     Router router({{&jack, &input}}, signal, {}, [&control] { control.Post(RestartDriver); });
//     host.Start();
//     router.Start(host.Ports(), configuration.protocols);
//     ...
//     router.Suspend(); // a restart of the driver: the ports stay as they are shown
//     host.Stop();      // and so on
//     router.Start(host.Ports(), configuration.protocols);
//     ...
//     router.Stop();
//     host.Stop();
//
// Threads: one thread (the service's main thread) constructs, starts, suspends, stops and destroys.
// All others but ShownPorts and Emit may be called by any thread at any time between construction
// and destruction.
class Router {
public:
    // `backends` and `signal` must outlive the router; `signal` is the one that all input queues
    // were made with. `stalled` is called on the input thread, at most once after each Start, when
    // the driver forwards nothing any more: only a new driver recovers. It must not block and must
    // not call the router's Suspend or Stop.
    Router(std::vector<RoutedBackend> backends, WakeUpSignal& signal, const RouterOptions& options,
           std::function<void()> stalled);
    // Stops.
    ~Router() { Stop(); }
    Router(const Router&) = delete;
    Router& operator=(const Router&) = delete;

    // Finds the driver's private sources, listens to them and to the ports' own sources, publishes
    // the ports on every backend and starts to take what DAWs send. `protocols` are those of the
    // ports by index; missing ones are kNone. What waited during a suspension goes on; what waited
    // on ports that are not there any more is dropped and counted.
    //
    // The driver must have started. Meanwhile the caller's run loop runs in the default mode, so
    // posted control work may run. Throws HostError, with nothing started, if the sources or the
    // ports cannot be connected to; the backends' ports then stay as they were.
    void Start(const std::vector<DriverPort>& ports, std::span<const Protocol> protocols);

    // Stops sending to the driver, waits up to `drainTime` for what it still has, and lets go of
    // its sources. The backends go on showing the ports. What DAWs send meanwhile waits in the
    // input queues, which drop and count what does not fit. What the driver did not forward in time
    // is counted as lost in it. Does nothing if not started.
    void Suspend();

    // Withdraws the ports from every backend, then does what Suspend does. What still waits is
    // dropped and counted. Does nothing if the router has never been started.
    void Stop();

    // The counters of the ports that the router has been started with so far, by index. They go on
    // over suspensions. Blocks for less than a millisecond.
    std::vector<PortCounters> Counters() const;

    // The ports as the last Start published them. The main thread calls.
    const std::vector<BackendPort>& ShownPorts() const { return mShownPorts; }

    // How often `stalled` was called.
    std::uint64_t Stalls() const;

    // Sends a message to a port as a DAW would. It must be one whole message; anything else is
    // taken and counted as malformed or incomplete. Not taken if the port is not there or its queue
    // has no room, which always has room for one message when it is empty.
    Injection Inject(std::size_t port, std::span<const std::uint8_t> message);

    // Emits a message on a port's own source, to DAWs, as the surface does that stands behind it.
    // It must be one whole message of at most kLongestEmitted bytes. What a DAW has no room for is
    // lost and counted in the backend. Returns false, with nothing emitted, if the port is not
    // shown. The main thread calls; it waits for the driver's threads while these emit.
    static constexpr std::size_t kLongestEmitted = 65535;
    bool Emit(std::size_t port, std::span<const std::uint8_t> message);

    // Begins to copy a stream of a port, which need not be there yet. The copying ends when the
    // caller lets go of the tap. `capacity` is in bytes.
    std::shared_ptr<StreamTap> Tap(std::size_t port, StreamDirection direction,
                                   std::size_t capacity);

private:
    using Clock = std::chrono::steady_clock;
    using TimePoint = Clock::time_point;
    using Message = std::span<const std::uint8_t>;

    // What comes from one backend on one port.
    struct Input {
        MessageAssembler assembler;
        InputEvent event;    // read from the queue last
        bool isHeld = false; // the event waits for room in the pacing queue
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

    void EmitToDaws(std::size_t port, const MIDIPacketList& packets) QUORVEL_EXCLUDES(mEmission);
    void CopyToTaps(std::size_t port, StreamDirection direction, const MIDIPacketList& packets)
        QUORVEL_REQUIRES(mMutex);
    void CountLostInDriver(Port& port, const std::vector<ListsInDriver::List>& lists, TimePoint now)
        QUORVEL_REQUIRES(mMutex);
    void SetPorts(std::size_t count, std::span<const Protocol> protocols) QUORVEL_REQUIRES(mMutex);
    void DropWaiting(std::size_t port) QUORVEL_REQUIRES(mMutex);
    std::vector<BackendPort> PortsToShow(const std::vector<DriverPort>& ports) const;
    void WaitForDriver();

    const std::vector<RoutedBackend> mBackends;
    WakeUpSignal& mSignal;
    const RouterOptions mOptions;
    const std::function<void()> mStalled;

    // Held while the backends take what goes to DAWs, from the driver's threads or the main thread,
    // which they do without waiting. Never together with the other.
    Mutex mEmission;
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
    std::optional<DriverConnection> mDriver;
    PacedList mList;                                // the input thread's
    RealTimePriority mPriority{"the input thread"}; // likewise
    std::optional<InputThread> mThread;
};

} // namespace MidiServer
