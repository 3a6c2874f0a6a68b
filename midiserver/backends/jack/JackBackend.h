#pragma once

#include "midiserver/backends/Backend.h"
#include "midiserver/backends/ConnectionKeeper.h"
#include "midiserver/backends/InputQueue.h"
#include "midiserver/backends/SavedConnections.h"
#include "midiserver/backends/WakeUpSignal.h"
#include "midiserver/backends/jack/JackClient.h"
#include "midiserver/backends/jack/JackPorts.h"
#include "platform/support/Mutex.h"

#include <atomic>
#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace MidiServer {

// Shows the driver's ports on a JACK server, or on PipeWire through its JACK library. Client
// "Quorvel MIDI" has, for each port, the input "Quorvel Port NN in", to which DAWs send, and the
// output "Quorvel Port NN out"; client "Quorvel MIDI private" has, for each private source, the
// output "Quorvel Virtual Source NN". Outputs carry the unique ID of what they show in their
// metadata ("urn:quorvel:midi:unique-id") and as the alias "Quorvel MIDI ID:<number>".
//
// A thread of the backend looks after the server: while none answers, it tries again every second.
// The server is the one that JACK_DEFAULT_SERVER names, as with every JACK client.
class JackBackend : public Backend {
public:
    // `input` must outlive the backend, and says how many ports it can have. Connections are kept
    // in `savedConnections` (see SavedConnections.h). Changes the environment if no JACK client was
    // opened before, see PrepareJackLibrary. Throws std::bad_alloc.
    JackBackend(InputQueue& input, const std::filesystem::path& savedConnections);
    ~JackBackend() override;
    JackBackend(const JackBackend&) = delete;
    JackBackend& operator=(const JackBackend&) = delete;

    std::string Name() const override { return "jack"; }
    void Publish(const std::vector<BackendPort>& ports) override;
    void Withdraw() override;
    void EmitFromPort(std::size_t port, const MIDIPacketList& packets) override;
    void EmitFromPrivateSource(std::size_t port, const MIDIPacketList& packets) override;
    std::vector<BackendConnection> Connections() const override;
    std::vector<std::string> Peers() const override;
    std::vector<PrivateSourceAddress> PrivateSources() const override;
    void Connect(std::size_t port, const std::string& peer) override;
    void Disconnect(std::size_t port, const std::string& peer) override;
    bool Forget(std::size_t port, const std::string& peer) override;
    std::uint64_t LostToDaws() const override;

private:
    using Time = std::chrono::steady_clock::time_point;
    // One of the two clients, with what it has to show.
    struct Side {
        Side(std::size_t count, std::size_t queueBytes, InputQueue* input)
            : ports(count, queueBytes, input) {}

        JackPorts ports;
        std::unique_ptr<JackClient> client; // null while there is no server
    };

    void Supervise();
    // Each of these does a part of what the supervising thread has to do, and returns when there is
    // more to do even if nothing happens.
    Time Attend() QUORVEL_REQUIRES(mMutex);
    Time SeekServer(Time now) QUORVEL_REQUIRES(mMutex);
    Time KeepConnections(Time now) QUORVEL_REQUIRES(mMutex);

    void GiveUp(const std::string& why) QUORVEL_REQUIRES(mMutex);
    void WaitUntilBothHaveHeard() const QUORVEL_REQUIRES(mMutex);

    void Open() QUORVEL_REQUIRES(mMutex);
    void Close() QUORVEL_REQUIRES(mMutex);
    void ShowPorts() QUORVEL_REQUIRES(mMutex);
    // What the server refuses of a port is said once and tried again every second.
    void ShowPort(std::size_t index) QUORVEL_REQUIRES(mMutex);
    void ShowIncompletePorts() QUORVEL_REQUIRES(mMutex);
    void HidePorts(std::size_t first) QUORVEL_REQUIRES(mMutex);
    void UpdateConnections(Time now) QUORVEL_REQUIRES(mMutex);
    void StoreConnections() QUORVEL_REQUIRES(mMutex);
    std::vector<BackendConnection> ConnectionsNow() const QUORVEL_REQUIRES(mMutex);
    std::vector<std::string> PeersNow() const QUORVEL_REQUIRES(mMutex);
    // Returns our port and the peer as the ends of a connection.
    struct Link {
        std::string from;
        std::string to;
        std::string ours;
    };
    Link LinkWith(std::size_t port, const std::string& peer) const QUORVEL_REQUIRES(mMutex);

    SavedConnections mSaved;
    WakeUpSignal mWake;

    // Held during calls to the server, so they are made one after the other: JACK's library sends
    // the requests of several threads over one socket, and mixes them up.
    mutable Mutex mMutex;
    Side mDaws;    // the ports are shared with the process threads and those that emit
    Side mPrivate; // likewise
    ConnectionKeeper mKeeper QUORVEL_GUARDED_BY(mMutex);
    std::vector<BackendPort> mPublished QUORVEL_GUARDED_BY(mMutex);
    // Ports of which the server has refused something, and when they are shown again.
    std::set<std::size_t> mIncomplete QUORVEL_GUARDED_BY(mMutex);
    Time mNextShow QUORVEL_GUARDED_BY(mMutex){};
    Time mNextAttempt QUORVEL_GUARDED_BY(mMutex){};
    std::optional<Time> mNextLook QUORVEL_GUARDED_BY(mMutex); // at the connections
    Time mLastLook QUORVEL_GUARDED_BY(mMutex){};
    int mRetries QUORVEL_GUARDED_BY(mMutex) = 0; // to connect, since the graph changed

    std::atomic<bool> mStopping{false};
    std::thread mSupervisor;
};

} // namespace MidiServer
