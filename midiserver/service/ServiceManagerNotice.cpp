#include "midiserver/service/ServiceManagerNotice.h"

#include "midiserver/errors/Errors.h"

#include <fmt/format.h>

#include <systemd/sd-daemon.h>

#include <cstdint>

namespace MidiServer {

namespace {

// The service manager reads a line for each assignment.
void Tell(const std::string& assignments) {
    ::sd_notify(0, assignments.c_str());
}

std::string StatusLine(const std::string& text) {
    return "STATUS=" + OneLine(text);
}

} // namespace

void ServiceManagerNotice::Ready(const std::string& status) {
    Tell("READY=1\n" + StatusLine(status));
}

void ServiceManagerNotice::Reloading() {
    const auto now = std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::steady_clock::now().time_since_epoch());
    // With the time, the service manager can tell this reload's Ready from an earlier one.
    Tell(fmt::format("RELOADING=1\nMONOTONIC_USEC={}\n{}", now.count(),
                     StatusLine("restarting the driver")));
}

void ServiceManagerNotice::Stopping() {
    Tell("STOPPING=1\n" + StatusLine("stopping"));
}

void ServiceManagerNotice::Status(const std::string& line) {
    Tell(StatusLine(line));
}

std::optional<std::chrono::microseconds> ServiceManagerNotice::WatchdogTime() {
    std::uint64_t microseconds = 0;
    if (::sd_watchdog_enabled(0, &microseconds) <= 0) {
        return std::nullopt;
    }
    return std::chrono::microseconds(microseconds);
}

void ServiceManagerNotice::KeepAlive() {
    Tell("WATCHDOG=1");
}

} // namespace MidiServer
