#pragma once

#include "midiserver/backends/OutputStream.h"
#include "midiserver/backends/alsa/EventEncoder.h"
#include "midiserver/backends/alsa/Patience.h"
#include "midiserver/backends/alsa/SequencerClient.h"

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>

namespace MidiServer {

// Sends what the driver emits on one port to the programs that listen to that port.
//
// A receiver that reads too late loses all that waits for it, so each event is sent only when all
// of them have room. A receiver that does not make room is not waited for any longer (see
// Patience.h): what it has no room for is lost to it, counted here, and the sequencer tells it.
// Other ports never wait. The sequencer connects a receiver before it tells of it, so an event is
// sent also while nobody is known to listen.
//
// One thread at a time makes all calls, except for what the driver's threads do with the stream.
class PortOutput {
public:
    using Time = std::chrono::steady_clock::time_point;

    static constexpr std::chrono::milliseconds kTryAgain{1};

    // Throws std::bad_alloc. `queueBytes` as OutputStream takes it.
    explicit PortOutput(std::size_t queueBytes) : mStream(queueBytes) {}

    // What the driver's threads write to.
    OutputStream& Stream() { return mStream; }

    // The port is there, and is gone. What is emitted while it is not there is lost.
    void Open() { mStream.Open(); }
    void Close();

    // Takes note of who listens to the port, which is the client's port of that number.
    void FindReceivers(const SequencerClient& client, int port);

    // Sends what waits, or as much of it as a port may send in one turn. Returns when to call again
    // even if nothing new comes, or nothing if all is sent.
    std::optional<Time> Play(SequencerClient& client, int port, EventEncoder& encoder, Time now);

    // Messages that were lost so far. Any thread may call.
    std::uint64_t Lost() const { return mStream.Lost() + mRefused.load(std::memory_order_relaxed); }

private:
    bool Next();
    bool WaitsForRoom(const SequencerClient& client, unsigned cells, Time now);
    void CountRefused();

    OutputStream mStream;
    std::map<int, Patience> mReceivers; // by client
    std::array<std::uint8_t, EventEncoder::kPieceBytes> mBytes{};
    std::size_t mFilled = 0;        // the event in mBytes that is not sent yet; 0: there is none
    bool mMessageIsCounted = false; // the System Exclusive message that goes on, among the lost
    std::atomic<std::uint64_t> mRefused{0}; // relaxed: it orders nothing
};

} // namespace MidiServer
