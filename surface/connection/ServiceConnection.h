#pragma once

#include "midiserver/backends/InputQueue.h"
#include "midiserver/backends/WakeUpSignal.h"
#include "midiserver/midi/MessageAssembler.h"
#include "midiserver/service/control/ControlClient.h"
#include "platform/support/Mutex.h"
#include "surface/connection/Listener.h"
#include "surface/feed/Feed.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <thread>
#include <vector>

namespace Surface {

// A ServiceConnection is the surface's way to the service that runs, of this user and runtime
// folder. It hears the private sources of the ports, whose unique IDs it asks the driver for, and
// sends what the surface does through the ports' own sources.
//
//     ServiceConnection connection({1, 2}, "auto");
//     connection.Take([&](std::size_t index, auto time, auto message) { ... });
//     connection.Send(0, message);
//
// It waits for a service, or a sound server, that is not there, and comes back when one of them was
// started anew; it tries again every second.
//
// A thread of its own does all that can block. One other thread uses the object, which never waits
// for the service, but for the destructor: that ends when the request that goes on is answered.
class ServiceConnection : public Feed {
public:
    // The backends that this program was built with; "auto" takes the first that the service has.
    static std::vector<std::string> Backends();

    // `ports` are numbers from 1; everywhere else a port is known by its index in them. `backend`
    // is one of Backends or "auto". JACK's library is configured, which takes that from the
    // environment, so no other thread may run yet.
    ServiceConnection(std::vector<std::size_t> ports, std::string backend);
    ~ServiceConnection() override;
    ServiceConnection(const ServiceConnection&) = delete;
    ServiceConnection& operator=(const ServiceConnection&) = delete;

    FeedState State() const override;
    // Since the construction.
    SurfaceModel::Time Now() const override;
    void Take(const Receive& receive) override;
    // While there is no connection, or kMostWaiting messages wait, it is counted as unsent.
    void Send(std::size_t index, std::span<const std::uint8_t> message) override;
    void Wait(std::chrono::milliseconds longest) override;

    static constexpr std::size_t kMostWaiting = 4096;

private:
    using Clock = std::chrono::steady_clock;
    using TimePoint = Clock::time_point;

    struct Outgoing {
        std::size_t index;
        std::vector<std::uint8_t> message;
    };
    struct Arrived {
        std::size_t index;
        TimePoint time;
        std::vector<std::uint8_t> message;
    };

    // The thread's.
    void Run();
    TimePoint Attend();
    void LookAtSources();
    void ChooseListener(const std::vector<std::string>& offered);
    std::unique_ptr<Listener> MakeListener(const std::string& backend);
    void SendWhatWaits();
    void SetState(bool isThere, const std::string& detail);
    void CountUnsent(std::size_t messages);

    const std::vector<std::size_t> mPorts;
    const std::string mBackend;
    const TimePoint mStart = Clock::now();

    MidiServer::WakeUpSignal mArrived; // wakes the user
    MidiServer::WakeUpSignal mChanged; // wakes the thread
    MidiServer::InputQueue mInput;

    // The user's.
    std::vector<MidiServer::MessageAssembler> mAssemblers;
    std::vector<Arrived> mTaken;
    MidiServer::InputEvent mEvent;

    mutable Mutex mMutex; // never held during calls
    FeedState mState QUORVEL_GUARDED_BY(mMutex);
    std::deque<Outgoing> mOutgoing QUORVEL_GUARDED_BY(mMutex);

    // The thread's.
    std::optional<MidiServer::ControlClient> mService;
    std::vector<PrivateSource> mSources; // of the driver that runs; empty until they are known
    std::unique_ptr<Listener> mListener;
    TimePoint mNextLook{};

    // Relaxed: the signal that follows it orders it.
    std::atomic<bool> mStopping{false};
    std::thread mThread; // last: it uses the others
};

} // namespace Surface
