#pragma once

#include <alsa/asoundlib.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace MidiServer {

// The place of a port in the ALSA sequencer. Its numbers depend on the order in which programs
// start, so it means nothing beyond the moment.
struct PortAddress {
    int client;
    int port;

    friend auto operator<=>(const PortAddress&, const PortAddress&) = default;
};

// As the sequencer's users write it, "128:0".
std::string AddressText(PortAddress address);
// Returns the address that such a text means. Throws InputError if it means none.
PortAddress AddressOfText(const std::string& text);

// The capabilities of a port that others listen to, and of one that others send to.
inline constexpr unsigned kReadablePort = SND_SEQ_PORT_CAP_READ | SND_SEQ_PORT_CAP_SUBS_READ;
inline constexpr unsigned kWritablePort = SND_SEQ_PORT_CAP_WRITE | SND_SEQ_PORT_CAP_SUBS_WRITE;

// A port of any program, as the sequencer lists it.
struct SequencerPort {
    PortAddress address;
    std::string name; // "Client:Port", as other programs' users see it
    unsigned capability;
};

// A client of the ALSA sequencer that never blocks. It is there until it is destroyed.
//
//     SequencerClient client("Quorvel MIDI");
//     client.CreatePort(0, "Quorvel Port 1", SND_SEQ_PORT_CAP_READ | SND_SEQ_PORT_CAP_SUBS_READ);
//
// Every call is a system call or a few. One thread at a time uses the object. What returns an int
// returns 0 or more for success, and otherwise a negative error number of the system.
class SequencerClient {
public:
    // Throws HostError, in one line, if there is no sequencer or if it refuses.
    explicit SequencerClient(const std::string& name);

    int Id() const { return mId; }
    // Becomes readable when ReceiveAll has something.
    int Descriptor() const { return mDescriptor; }

    // Makes the port with this number.
    int CreatePort(int number, const std::string& name, unsigned capability);
    int DeletePort(int number);

    // Sends an event from its source port, at once and past all queues, to all that listen to that
    // port. An error says that at least one of them had no room; the others have it.
    int Send(snd_seq_event_t& event);
    // Hands over all that has come, in order. `take` gets each event, which is valid during the
    // call; `lose` is called where the sequencer had no room for more and has dropped all that
    // waited. Throws HostError if the sequencer cannot be read.
    using Take = std::function<void(const snd_seq_event_t& event)>;
    void ReceiveAll(const Take& take, const std::function<void()>& lose);

    int Connect(PortAddress sender, PortAddress receiver);
    int Disconnect(PortAddress sender, PortAddress receiver);
    // Those that listen to a port of this client, and those that it listens to.
    std::vector<PortAddress> Receivers(int port) const;
    std::vector<PortAddress> Senders(int port) const;

    // Returns whether a client has room for an event of so many cells (see EventCells). One of the
    // kernel's always has. `freeCells` is set to what is free.
    bool HasRoom(int client, unsigned cells, unsigned& freeCells) const;

    // Returns the ports of all clients, in the sequencer's order.
    std::vector<SequencerPort> Ports() const;
    // Returns the port's name as in SequencerPort, or an empty text if there is no such port.
    std::string NameOf(PortAddress address) const;

private:
    struct Close {
        void operator()(snd_seq_t* handle) const { snd_seq_close(handle); }
    };

    std::vector<PortAddress> Connected(int port, snd_seq_query_subs_type_t direction) const;

    std::unique_ptr<snd_seq_t, Close> mHandle;
    int mId = -1;
    int mDescriptor = -1;
};

// Returns how much of its receivers' memory an event takes.
unsigned EventCells(const snd_seq_event_t& event);

} // namespace MidiServer
