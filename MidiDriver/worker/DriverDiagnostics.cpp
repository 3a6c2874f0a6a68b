#include "MidiDriver/worker/DriverDiagnostics.h"

#include <syslog.h>

#include <array>
#include <cstdarg>
#include <cstdio>

void LogIfError(unsigned int err, const char* format, ...) {
    if (err == 0) {
        return;
    }
    std::array<char, 128> message{};
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(message.data(), message.size(), format, arguments);
    va_end(arguments);
    syslog(LOG_ERR, "Error: %d, %s", static_cast<int>(err), message.data());
}

void LogDebugInfo(const char* /*format*/, ...) {}

void LogThrottleDebugInfo(const char* /*format*/, ...) {}
