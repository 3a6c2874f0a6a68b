#pragma once

#include "midiserver/backends/Backend.h"
#include "midiserver/backends/ConnectionKeeper.h"
#include "midiserver/backends/InputQueue.h"
#include "midiserver/backends/SavedConnections.h"
#include "midiserver/backends/WakeUpSignal.h"
#include "midiserver/backends/alsa/EventDecoder.h"
#include "midiserver/backends/alsa/EventEncoder.h"
#include "midiserver/backends/alsa/PollSignal.h"
#include "midiserver/backends/alsa/PortOutput.h"
#include "midiserver/backends/alsa/SenderTurns.h"
#include "midiserver/backends/alsa/SequencerClient.h"
#include "midiserver/host/Host.h"
#include "platform/support/Mutex.h"

#include <atomic>
#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace MidiServer {

// Shows the driver's ports in the ALSA sequencer. Client "Quorvel MIDI" has a port for each of the
// driver's, by the same name, to which DAWs send and to which they listen; client "Quorvel MIDI
// private" has, for each private source, a port "Quorvel Virtual Source 1" to listen to, which the
// usual lists of ports leave out.
//
// Connections are kept by the names of both ports and the direction ("Quorvel Port 1 in": from the
// other program; "out": to it), as the numbers of clients depend on who came first. Of two programs
// of the same name, the first is taken.
//
// One thread of the backend carries MIDI and looks after the sequencer: while there is none, it
// tries again every five seconds. Another keeps the connections.
class AlsaBackend : public Backend {
public:
    // `input` must outlive the backend, and says how many ports it can have. Connections are kept
    // in `savedConnections` (see SavedConnections.h). Throws std::bad_alloc, and std::system_error
    // if the system has no descriptor or no thread left.
    AlsaBackend(InputQueue& input, const std::filesystem::path& savedConnections);
    ~AlsaBackend() override;
    AlsaBackend(const AlsaBackend&) = delete;
    AlsaBackend& operator=(const AlsaBackend&) = delete;

    std::string Name() const override { return "alsa"; }
    // Also looks for the sequencer at once, so the state is known afterwards.
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

    using Outputs = std::vector<std::unique_ptr<PortOutput>>;

    // A connection as the sequencer knows it, and as it is kept.
    struct Link {
        PortAddress sender;
        PortAddress receiver;
        BackendConnection connection;
    };

    void Stop();
    void CarryMidi();
    void KeepConnections();

    // What the carrying thread does in turn; Attend and Play return when there is more to do even
    // if nothing happens.
    Time Attend(Time now) QUORVEL_REQUIRES(mMutex);
    Time Play(SequencerClient& client, const Outputs& outputs, Time now) QUORVEL_REQUIRES(mMutex);
    void Receive(SequencerClient& client, Time now) QUORVEL_REQUIRES(mMutex);
    void Take(const SequencerClient& client, const snd_seq_event_t& event, Time now)
        QUORVEL_REQUIRES(mMutex);
    void TakeOverflow(Time now) QUORVEL_REQUIRES(mMutex);
    SenderTurns::Deliver DeliverTo(std::size_t port) QUORVEL_REQUIRES(mMutex);

    void SeekSequencer(Time now) QUORVEL_REQUIRES(mMutex);
    void Open() QUORVEL_REQUIRES(mMutex);
    void Close() QUORVEL_REQUIRES(mMutex);
    void Fail(const HostError& error, Time now) QUORVEL_REQUIRES(mMutex);
    void ShowPorts() QUORVEL_REQUIRES(mMutex);
    void HidePorts(std::size_t first) QUORVEL_REQUIRES(mMutex);
    void FindReceivers() QUORVEL_REQUIRES(mMutex);
    void UpdateConnections(Time now) QUORVEL_REQUIRES(mMutex);

    bool IsOurs(PortAddress address) const QUORVEL_REQUIRES(mMutex);
    std::vector<SequencerPort> OtherPorts() const QUORVEL_REQUIRES(mMutex);
    // The connections that our ports have with these.
    std::vector<Link> Links(const std::vector<SequencerPort>& others) const
        QUORVEL_REQUIRES(mMutex);
    // Those that the port of this number can have with another one.
    std::vector<Link> PossibleLinks(std::size_t port, const SequencerPort& other) const
        QUORVEL_REQUIRES(mMutex);
    // Those of them that DAWs use. Throws InputError if there is no port of this name.
    std::vector<Link> LinksWith(std::size_t port, const std::string& peer) const
        QUORVEL_REQUIRES(mMutex);
    std::vector<std::string> PeersNow() const QUORVEL_REQUIRES(mMutex);
    void Restore(const BackendConnection& missing, const std::vector<SequencerPort>& others)
        QUORVEL_REQUIRES(mMutex);

    InputQueue& mInput; // the carrying thread writes
    SavedConnections mSaved;
    const PollSignal mWake; // makes the carrying thread look for what there is to do
    WakeUpSignal mGraphChange;

    // Held for all calls to the sequencer, none of which blocks.
    mutable Mutex mMutex;
    std::unique_ptr<SequencerClient> mDaws QUORVEL_GUARDED_BY(mMutex);    // both are there, or
    std::unique_ptr<SequencerClient> mPrivate QUORVEL_GUARDED_BY(mMutex); // neither is
    std::size_t mShown QUORVEL_GUARDED_BY(mMutex) = 0;                    // so many of mPublished
    // One for each port that there can be. The vectors never change; of an output, the threads that
    // emit use the stream's own part only, and the rest is used under the mutex.
    const Outputs mToDaws;
    const Outputs mToPrivate;
    std::vector<SenderTurns> mTurns QUORVEL_GUARDED_BY(mMutex);
    EventEncoder mEncoder QUORVEL_GUARDED_BY(mMutex);
    EventDecoder mDecoder QUORVEL_GUARDED_BY(mMutex);
    std::vector<BackendPort> mPublished QUORVEL_GUARDED_BY(mMutex);
    ConnectionKeeper mKeeper QUORVEL_GUARDED_BY(mMutex);
    Time mNextAttempt QUORVEL_GUARDED_BY(mMutex){};
    Time mNextOverflowLine QUORVEL_GUARDED_BY(mMutex){};

    std::atomic<bool> mStopping{false};
    std::thread mCarrier;
    std::thread mConnectionKeeper;
};

} // namespace MidiServer
