#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace MidiServer {

// Tells the service manager (systemd) how the service is. If no service manager listens, the
// functions do nothing. They do not block for long and never fail: a service manager that cannot be
// told does not matter to the service. Any thread may call.
//
//     ServiceManagerNotice::Ready("4 ports; jack");
//     ServiceManagerNotice::Stopping();
class ServiceManagerNotice {
public:
    // The service serves, for the first time or again. `status` is one line for people.
    static void Ready(const std::string& status);
    // The service reloads its configuration; it will be Ready again.
    static void Reloading();
    static void Stopping();
    static void Status(const std::string& line);

    // How often at least the service manager wants to hear that this process is alive; nothing if
    // it does not watch this process.
    static std::optional<std::chrono::microseconds> WatchdogTime();
    static void KeepAlive();
};

} // namespace MidiServer
