// The driver's reports of failures, and its two debug channels. Everything goes to syslog under the
// host process's own identity and facility. Any thread; nothing allocates or throws.
#pragma once

#if defined(__GNUC__)
#define QUORVEL_PRINTF(formatIndex, firstArgument)                                                 \
    __attribute__((format(printf, formatIndex, firstArgument)))
#else
#define QUORVEL_PRINTF(formatIndex, firstArgument)
#endif

// Writes "Error: %d, %s" with `err` and the formatted message, cut to its first 127 bytes, at
// LOG_ERR. Does nothing when `err` is 0; the format is not even looked at then.
QUORVEL_PRINTF(2, 3) void LogIfError(unsigned int err, const char* format, ...);

// Debug channels, silent in this build. Callers still pass whole formats and arguments.
QUORVEL_PRINTF(1, 2) void LogDebugInfo(const char* format, ...);
QUORVEL_PRINTF(1, 2) void LogThrottleDebugInfo(const char* format, ...);
