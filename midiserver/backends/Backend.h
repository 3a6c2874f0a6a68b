#pragma once

#include "hsl/CategoryHolder.h"
#include "platform/support/Mutex.h"

#include <CoreMIDI/MIDIServices.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace MidiServer {

// The clients under which a backend shows the ports to DAWs, and the private sources to the
// control-surface application.
inline constexpr const char* kClientName = "Quorvel MIDI";
inline constexpr const char* kPrivateClientName = "Quorvel MIDI private";

// A port of the driver as a backend shows it to DAWs, and the private source of the same number as
// it shows it to the control-surface application.
struct BackendPort {
    std::string name;       // "Quorvel Port 1"
    std::int32_t sourceId;  // unique ID of what carries MIDI to DAWs
    std::int32_t privateId; // unique ID of the private source "Quorvel Virtual Source 1"
};

// A connection between a port of ours and one of another program.
struct BackendConnection {
    std::string port; // ours, as the backend's users see it
    std::string peer; // the other program's, in the backend's own spelling
};

// Where an application finds a private source.
struct PrivateSourceAddress {
    std::int32_t uniqueId;
    std::string address; // in the backend's own spelling
};

// The state of a backend at one moment.
struct BackendState {
    bool isUp;          // its server answers and the ports are shown
    std::string detail; // one line: the server and its settings, or why the backend is down
};

// A backend shows the driver's ports to other programs and carries MIDI both ways. What DAWs send
// goes into an InputQueue, which the backend gets when it is made; what the driver emits comes
// through the two Emit functions.
//
//     JackBackend backend(inputQueue, options);
//     backend.Publish(ports);
//     backend.EmitFromPort(0, packets);
//     backend.Withdraw();
//
// A server that is not there, or that ends, is no error: the backend waits for it, shows the ports
// when it comes and restores the connections that they had.
//
// The service's main thread constructs, publishes, withdraws, connects and destroys. The Emit
// functions are called by the driver's threads and the main thread, each port's by one thread at a
// time, and only between Publish and Withdraw.
class Backend {
public:
    virtual ~Backend() = default;

    // "jack", "alsa" or "embedded".
    virtual std::string Name() const = 0;
    // Any thread may call; does not wait for the server.
    BackendState State() const;

    // Shows the ports; their index is the driver's. Ports that were published before and are in the
    // new list keep their connections.
    virtual void Publish(const std::vector<BackendPort>& ports) = 0;
    // Takes the ports away from other programs. No Emit call may go on.
    virtual void Withdraw() = 0;

    // Carry what is emitted on a port's own source to the DAWs, and what the driver emitted on the
    // private source to the control-surface application. They do not block and do not wait for any
    // other program; what does not fit is dropped whole and counted.
    virtual void EmitFromPort(std::size_t port, const MIDIPacketList& packets) = 0;
    virtual void EmitFromPrivateSource(std::size_t port, const MIDIPacketList& packets) = 0;

    // The connections that exist now, and the ports of other programs that a port can be connected
    // to. They block for a round trip to the server.
    virtual std::vector<BackendConnection> Connections() const = 0;
    virtual std::vector<std::string> Peers() const = 0;
    // Where other programs find the private sources that are shown now. Does not ask the server.
    virtual std::vector<PrivateSourceAddress> PrivateSources() const { return {}; }
    // Connect and disconnect the port with this index, in each direction that the peer has. Throw
    // an InputError that lists the peers if there is none of that name, and a HostError if the
    // server refuses.
    virtual void Connect(std::size_t port, const std::string& peer) = 0;
    virtual void Disconnect(std::size_t port, const std::string& peer) = 0;
    // Makes no connections again of the port and its private source with a peer, which may not be
    // there. Returns whether it would have. Does not ask the server.
    virtual bool Forget(std::size_t port, const std::string& peer) = 0;

    // Messages that were lost between the driver and other programs since the start: by the
    // backend's own queues and by its server.
    virtual std::uint64_t LostToDaws() const = 0;

protected:
    explicit Backend(BackendState state = {false, "not started"}) : mState(std::move(state)) {}

    // Logs the state's detail under `category` if the state is another one than before.
    void SetState(const HSL::CCategoryHolder& category, bool isUp, const std::string& detail);

private:
    mutable Mutex mStateMutex; // never held during calls
    BackendState mState QUORVEL_GUARDED_BY(mStateMutex);
};

} // namespace MidiServer
