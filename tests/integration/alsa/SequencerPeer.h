#pragma once

#include <alsa/asoundlib.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

namespace QuorvelTest {

using Bytes = std::vector<std::uint8_t>;

// Another program at the ALSA sequencer: a DAW or the control-surface application, made of the
// sequencer's library alone. It has one port, "port", and reads only when it is told to. Each
// failure ends the test program.
class SequencerPeer {
public:
    explicit SequencerPeer(const std::string& name);
    ~SequencerPeer();
    SequencerPeer(const SequencerPeer&) = delete;
    SequencerPeer& operator=(const SequencerPeer&) = delete;

    int Id() const { return snd_seq_client_id(mHandle); }

    // Listens to a port, and lets one listen to this one. The port is "Client:Port".
    void ListenTo(const std::string& port);
    void SendTo(const std::string& port);
    // Whether there is such a connection.
    bool ListensTo(const std::string& port) const;
    bool SendsTo(const std::string& port) const;

    // Sends a message, or a piece of System Exclusive, to those that listen. Waits while they have
    // no room. Longer System Exclusive goes as it is, in one event.
    void Send(const Bytes& bytes);

    // Returns when something is there that was not read, or after this time.
    void WaitForInput(std::chrono::milliseconds longest) const;
    // Reads what is there. Returns all bytes so far.
    const Bytes& Read();
    // How often the sequencer has dropped what was not read.
    int Overruns() const { return mOverruns; }
    // The number of events, and the largest, so far.
    std::size_t Events() const { return mEvents; }
    std::size_t LargestEvent() const { return mLargestEvent; }

private:
    bool IsConnected(snd_seq_query_subs_type_t direction, const std::string& port) const;

    snd_seq_t* mHandle = nullptr;
    snd_midi_event_t* mCodec = nullptr;
    Bytes mReceived;
    int mOverruns = 0;
    std::size_t mEvents = 0;
    std::size_t mLargestEvent = 0;
};

// A port that any program has, by "Client:Port".
struct ForeignPort {
    snd_seq_addr_t address;
    unsigned capability;
};
std::vector<ForeignPort> PortsNamed(const std::string& name);

} // namespace QuorvelTest
