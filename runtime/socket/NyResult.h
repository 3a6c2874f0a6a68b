// The runtime's result codes for failed system calls.
#pragma once

enum tNyResult {
    kNyOK = 0,
    kNyAlreadyOpen = 4,
    kNyNoSocket = 5,
    kNyUnknownError = 7,
    kNyAlreadyBound = 8,
    kNyNotForThisSocketType = 35,
};

// Returns the result code for an error number: 60, a time-out, gives 54. The error numbers are
// those of the driver's first platform on every host; HostErrorToPlatformError in HostSocket.h
// converts a host's own. A number that has no result of its own gives kNyUnknownError.
//
// Any thread may call it; it neither blocks nor allocates.
int OSToNyResult(int error);
