#pragma once

#include <CoreMIDI/MIDIServices.h>

#include <functional>
#include <memory>
#include <vector>

namespace MidiServer {

// Listens to the driver's private sources as the control-surface application does: asks the
// driver's message port for their unique IDs, finds each source by its ID and connects to it.
//
//     PrivateSources sources([](unsigned port, const MIDIPacketList& packets) { ... });
//     sources.Connect(4); // to the sources of ports 0 to 3
//     sources.Disconnect();
class PrivateSources {
public:
    // Receives the packets that the driver forwards for a port (0-based). It is called on the
    // driver's worker thread, which waits meanwhile. `packets` is valid during the call.
    using Received = std::function<void(unsigned port, const MIDIPacketList& packets)>;

    explicit PrivateSources(Received received);
    ~PrivateSources();
    PrivateSources(const PrivateSources&) = delete;
    PrivateSources& operator=(const PrivateSources&) = delete;

    // Connects to the sources of ports 0 to portCount - 1. Blocks until the driver has answered;
    // meanwhile the calling thread's run loop runs in the default mode, so the thread that serves
    // the driver's message port may call as well. Throws a HostError that says what failed.
    void Connect(unsigned portCount);
    // Ends the connections; Received is not called any more once this has returned. Does nothing if
    // there are none.
    void Disconnect();

    // The unique IDs of the sources that are connected, by port.
    const std::vector<SInt32>& UniqueIds() const { return mUniqueIds; }

private:
    struct Connection;

    static void ReadProcedure(const MIDIPacketList* packets, void* sources, void* connection);

    Received mReceived;
    MIDIClientRef mClient = 0;
    MIDIPortRef mInput = 0;
    std::vector<std::unique_ptr<Connection>> mConnections;
    std::vector<SInt32> mUniqueIds;
};

} // namespace MidiServer
