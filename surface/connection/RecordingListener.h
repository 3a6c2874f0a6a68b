#pragma once

#include "midiserver/backends/InputQueue.h"
#include "surface/connection/Listener.h"

#include <cstdint>
#include <vector>

namespace Surface {

// Hears private sources through the service itself, which records them for whoever asks: the way
// for a service with the embedded backend, whose ports no server shows.
class RecordingListener : public Listener {
public:
    // `input` has a port for each source, and must outlive the object.
    explicit RecordingListener(MidiServer::InputQueue& input) : mInput(input) {}

    const char* Name() const override { return "embedded"; }
    std::chrono::milliseconds Pace() const override { return std::chrono::milliseconds(20); }
    void Attend(const MidiServer::ControlClient& service,
                const std::vector<PrivateSource>& sources) override;

private:
    struct Recording {
        std::uint64_t number;
        std::uint64_t lost; // so far
    };

    void Take(const MidiServer::ControlClient& service, std::size_t index);

    MidiServer::InputQueue& mInput;
    std::vector<Recording> mRecordings; // by source, those that have begun
};

} // namespace Surface
