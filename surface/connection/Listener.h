#pragma once

#include "midiserver/service/control/ControlClient.h"

#include <fmt/format.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Surface {

// The name under which the surface is a client of a server.
inline constexpr const char* kSurfaceClientName = "Quorvel Surface";

// A private source of the service's driver that the surface wants to hear.
struct PrivateSource {
    std::size_t port;      // the driver's, from 1
    std::int32_t uniqueId; // with the driver that runs now

    bool operator==(const PrivateSource&) const = default;
};

// The name of the surface's own port that hears it.
inline std::string NameOfInput(const PrivateSource& source) {
    return fmt::format("Port {:02}", source.port);
}

// A Listener carries what private sources send to an InputQueue, whose ports are the sources in
// their order. There is one for each way to reach them.
//
//     listener.Attend(service, sources); // again and again: it keeps what there is, and makes what
//     is missing
//
// One thread makes, calls and destroys it.
class Listener {
public:
    virtual ~Listener() = default;

    // "jack", "alsa" or "embedded".
    virtual const char* Name() const = 0;

    // How soon to call Attend again if nothing happens.
    virtual std::chrono::milliseconds Pace() const = 0;

    // Sees to it that all these sources of the service are heard, which are always of the same
    // ports. May block for some round trips to a server.
    // Throws MidiServer::HostError and InputError with what is missing; it is tried anew at the
    // next call.
    virtual void Attend(const MidiServer::ControlClient& service,
                        const std::vector<PrivateSource>& sources) = 0;
};

} // namespace Surface
