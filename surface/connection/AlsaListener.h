#pragma once

#include "midiserver/backends/InputQueue.h"
#include "midiserver/backends/WakeUpSignal.h"
#include "midiserver/backends/alsa/EventDecoder.h"
#include "midiserver/backends/alsa/PollSignal.h"
#include "midiserver/backends/alsa/SequencerClient.h"
#include "platform/support/Mutex.h"
#include "surface/connection/Listener.h"

#include <atomic>
#include <cstddef>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace Surface {

// Hears private sources in the ALSA sequencer, as the client "Quorvel Surface" with the ports
// "Port 01" and so on, which the usual lists of ports leave out. The service tells where the source
// of a unique ID is.
//
// A thread of its own reads the sequencer into the input queue, while there is one.
class AlsaListener : public Listener {
public:
    // `input` has a port for each source; `changed` is raised when something happens that Attend
    // should see to. Both must outlive the object. Throws std::bad_alloc, and std::system_error if
    // the system has no descriptor left.
    AlsaListener(MidiServer::InputQueue& input, MidiServer::WakeUpSignal& changed);
    ~AlsaListener() override;
    AlsaListener(const AlsaListener&) = delete;
    AlsaListener& operator=(const AlsaListener&) = delete;

    const char* Name() const override { return "alsa"; }
    std::chrono::milliseconds Pace() const override { return std::chrono::seconds(1); }
    void Attend(const MidiServer::ControlClient& service,
                const std::vector<PrivateSource>& sources) override;

private:
    void Open(const std::vector<PrivateSource>& sources);
    void Close();
    // Throws HostError if the sequencer could not be read, which closes it.
    void CheckReader();
    void Read();
    void Take(const snd_seq_event_t& event);

    // Whether each port hears its source, and nobody else.
    bool HearsAll() const;
    void Connect(int port);

    MidiServer::InputQueue& mInput; // the reading thread writes
    MidiServer::WakeUpSignal& mChanged;
    const MidiServer::PollSignal mWake; // wakes the reading thread
    MidiServer::EventDecoder mDecoder;  // the reading thread's

    std::vector<PrivateSource> mSources;             // those of mAddresses
    std::vector<MidiServer::PortAddress> mAddresses; // where the service said that they are

    // Held for all calls to the sequencer, none of which blocks.
    mutable Mutex mMutex;
    std::unique_ptr<MidiServer::SequencerClient> mClient QUORVEL_GUARDED_BY(mMutex);
    std::string mFailure QUORVEL_GUARDED_BY(mMutex); // why nobody reads any more

    // Relaxed: the signal that follows it orders it.
    std::atomic<bool> mStopping{false};
    std::thread mReader; // runs while there is a client
};

} // namespace Surface
