#pragma once

#include "midiserver/backends/WakeUpSignal.h"
#include "midiserver/backends/jack/JackProcess.h"
#include "midiserver/host/Host.h"
#include "platform/support/Mutex.h"

#include <jack/jack.h>

#include <atomic>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace MidiServer {

// A client of a JACK server: an open one, from construction to destruction.
//
//     JackClient client("Quorvel MIDI", process, changed);
//     jack_port_t* port = client.RegisterPort("Quorvel Port 01 in", JackPortIsInput);
//     client.Activate(); // process is called in every period from now on
//
// One thread at a time uses an object, and in a process one at a time makes or destroys one. The
// calls block for a round trip to the server. When the server ends, they fail; the object then has
// to be destroyed, and all others of the process too, before a new one can be made.
class JackClient {
public:
    // Opens a client with exactly this name, of a server that runs already; PrepareJackLibrary has
    // been called before. `process` is called on the client's own real-time thread; `changed` is
    // raised when the server has ended, when ports or connections have changed and when `process`
    // is called no more. Both must outlive the object. Throws HostError with a line that says why
    // there is no client.
    JackClient(const std::string& name, JackProcess& process, WakeUpSignal& changed);
    // Closes the client. `process` is not called any more when this returns, which is some time
    // later if the server has ended: its library is given that to come to an end itself.
    ~JackClient();
    JackClient(const JackClient&) = delete;
    JackClient& operator=(const JackClient&) = delete;

    // `process` is called from now on; with PipeWire it returns when that has happened, or after a
    // second. Throws HostError if the server refuses.
    void Activate();

    // Shows a MIDI port to other programs. Returns null if the server refuses.
    jack_port_t* RegisterPort(const std::string& name, JackPortFlags direction);
    // Takes it away. `process` must not use it any more, see WaitForPeriod. Throws HostError if the
    // server refuses, and then the port is there until the object is destroyed.
    void UnregisterPort(jack_port_t* port);
    // Gives a port a further name, which other programs can connect it by, and what else they may
    // show or search for. Returns whether the server has taken all of it; the same call may be made
    // again.
    bool DescribePort(jack_port_t* port, const std::string& alias, const std::string& prettyName,
                      const std::string& uniqueId);

    // Returns when a period that began after the call has ended, or, as the server may stop
    // at any time, after a second.
    void WaitForPeriod() const;

    // The port's whole name; empty if the server does not know it any more.
    static std::string NameOf(const jack_port_t* port);
    // Connections of a port with others, by their names.
    std::vector<std::string> ConnectionsOf(jack_port_t* port) const;
    // The names of all MIDI ports of the server with these flags.
    std::vector<std::string> PortNames(unsigned long flags) const;
    // The port of this name or alias; null if there is none.
    jack_port_t* FindPort(const std::string& name) const;
    // Return 0 or an error of errno; two ports that are connected already are no error.
    int Connect(const std::string& from, const std::string& to);
    int Disconnect(const std::string& from, const std::string& to);

    // Any thread may ask: whether the server has ended; whether the library calls `process` no more
    // although it has not; the server's settings at present; and whether ports or connections have
    // changed since the last call.
    bool ServerHasEnded() const { return mEnded.load(std::memory_order_acquire); }
    bool HasStopped() const { return mStopped.load(std::memory_order_acquire); }
    jack_nframes_t PeriodFrames() const { return mPeriodFrames.load(std::memory_order_relaxed); }
    jack_nframes_t SampleRate() const { return mSampleRate.load(std::memory_order_relaxed); }
    // The names of the ports that were taken away from the server since the last call.
    std::set<std::string> TakeRemovedPorts();
    bool TakeGraphChange() { return mGraphChanged.exchange(false, std::memory_order_acquire); }

private:
    static void* RunProcessThread(void* self);
    void RunPeriod(jack_nframes_t frames);
    void SetCallbacks();
    void ActivateOnce();
    void GraphChanged();
    void SettingChanged(std::atomic<jack_nframes_t> JackClient::*setting, jack_nframes_t value);
    void NoteRemoval(const jack_port_t* port);

    JackProcess& mProcess;
    WakeUpSignal& mChanged;
    jack_client_t* mClient = nullptr;
    std::vector<jack_port_t*> mPorts; // those that are registered
    Mutex mRemovedMutex;
    std::set<std::string> mRemoved QUORVEL_GUARDED_BY(mRemovedMutex);
    // From the server's clock to the monotonic one, in nanoseconds: they are the same unless the
    // server was told to use another.
    std::int64_t mClockOffset = 0;
    std::atomic<bool> mEnded{false};
    std::atomic<bool> mStopped{false};
    std::atomic<bool> mGraphChanged{true};
    std::atomic<jack_nframes_t> mPeriodFrames{0};
    std::atomic<jack_nframes_t> mSampleRate{0};
    // Counts the beginnings and the ends of periods: odd while one goes on.
    std::atomic<std::uint32_t> mPeriods{0};
};

} // namespace MidiServer
