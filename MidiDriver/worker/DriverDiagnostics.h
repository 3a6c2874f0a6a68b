// The driver's reports of failures, and its two debug channels. Reports go to syslog under the host
// process's own identity and facility. Any thread may call these functions; they neither allocate
// nor throw.
//
//     LogIfError(static_cast<unsigned int>(err), "no client for %s", "the driver");
#pragma once

#if defined(__GNUC__)
#define QUORVEL_PRINTF(formatIndex, firstArgument)                                                 \
    __attribute__((format(printf, formatIndex, firstArgument)))
#else
#define QUORVEL_PRINTF(formatIndex, firstArgument)
#endif

// Writes a line "Error: %d, %s" at LOG_ERR, with `err` and the first 127 bytes of the formatted
// message. Does nothing when `err` is 0; it does not look at the format then.
QUORVEL_PRINTF(2, 3) void LogIfError(unsigned int err, const char* format, ...);

// The debug channels, which write nothing in this build. Callers still pass whole formats and
// arguments.
QUORVEL_PRINTF(1, 2) void LogDebugInfo(const char* format, ...);
QUORVEL_PRINTF(1, 2) void LogThrottleDebugInfo(const char* format, ...);
