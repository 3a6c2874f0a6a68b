#pragma once

#include "midiserver/backends/InputQueue.h"
#include "midiserver/backends/WakeUpSignal.h"
#include "midiserver/backends/jack/JackClient.h"
#include "midiserver/backends/jack/JackPorts.h"
#include "surface/connection/Listener.h"

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace Surface {

// Hears private sources on a JACK server, or on PipeWire through its JACK library, as the client
// "Quorvel Surface" with the inputs "Port 01" and so on. If there is such a client already, it is
// "Quorvel Surface 2", up to 8. The service tells where the source of a unique ID is.
//
// The input queue is written by the client's process thread.
class JackListener : public Listener {
public:
    // `input` has a port for each source; `changed` is raised when something happens that Attend
    // should see to. Both must outlive the object. Changes the environment if no JACK client was
    // opened before, see PrepareJackLibrary.
    JackListener(std::size_t ports, MidiServer::InputQueue& input,
                 MidiServer::WakeUpSignal& changed);
    ~JackListener() override;
    JackListener(const JackListener&) = delete;
    JackListener& operator=(const JackListener&) = delete;

    const char* Name() const override { return "jack"; }
    std::chrono::milliseconds Pace() const override { return std::chrono::seconds(1); }
    void Attend(const MidiServer::ControlClient& service,
                const std::vector<PrivateSource>& sources) override;

private:
    void Open();
    void Close();
    void Show(const std::vector<PrivateSource>& sources);
    // Whether each port hears its source.
    bool HearsAll() const;

    std::vector<PrivateSource> mSources; // those of mAddresses
    std::vector<std::string> mAddresses; // where the service said that they are

    MidiServer::WakeUpSignal& mChanged;
    MidiServer::JackPorts mPorts;
    std::unique_ptr<MidiServer::JackClient> mClient; // null while there is no server
};

} // namespace Surface
