// The runtime's result codes for failed system calls.
//
// Pure function of its argument: any thread, no allocation.
#pragma once

enum tNyResult {
    kNyOK = 0,
    kNyAlreadyOpen = 4,
    kNyNoSocket = 5,
    kNyUnknownError = 7,
    kNyAlreadyBound = 8,
    kNyNotForThisSocketType = 35,
};

// Maps an error number to a result. Error numbers are those of the driver's first platform,
// whatever the host's own are: see HostSocket.h for the way from one to the other. A number that
// has no result of its own gives kNyUnknownError.
int OSToNyResult(int error);
