#pragma once

#include "midiserver/replay/session/RecordedSession.h"
#include "midiserver/service/control/ControlClient.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace MidiServer {

// How the replay into a service ended.
struct ServiceReplayReport {
    std::string port; // its name
    std::optional<double> speed;
    std::uint64_t messages = 0; // in the session
    std::uint64_t sent = 0;     // of these
    std::uint64_t heldBack = 0; // how often the port had no room for the next message
    std::chrono::nanoseconds elapsed{};
    bool interrupted = false;
};

// Plays a session, as a DAW, to a port of the service that runs. The service takes a message once
// the port's queue has room for it, so nothing is lost however fast the session is.
//
//     const ServiceReplayReport report = ServiceReplay(recording, "1", 1.0).Run();
class ServiceReplay {
public:
    // `port` is a name or a number; an empty speed means as fast as possible. `recording` must
    // outlive this object. Throws ServiceStateError if no service runs.
    ServiceReplay(const RecordedSession& recording, std::string port, std::optional<double> speed);

    // Plays the session, or what of it comes before an Interrupt. Throws InputError if there is no
    // such port or a message is too long for the control port, ServiceStateError if the service
    // ends, and HostError if it does not answer.
    ServiceReplayReport Run();

private:
    using Clock = std::chrono::steady_clock;

    void SendDue(RecordedSession::Iterator& message, std::uint64_t dueMicroseconds);

    const RecordedSession& mRecording;
    const std::string mPort;
    const ControlClient mService;
    ServiceReplayReport mReport;
};

// Return the summary for people, and as a JSON document; `file` is what the user called it.
std::string SummaryText(const std::string& file, const ServiceReplayReport& report);
std::string SummaryJson(const std::string& file, const ServiceReplayReport& report);

} // namespace MidiServer
