#pragma once

#include <CoreFoundation/CoreFoundation.h>

// The callout of the message port "Quorvel Virtual Source IDs Port", by which the control-surface
// application finds the private virtual sources.
//
// `msgid` is a 1-based port number p. The reply is always 16 bytes: the unique IDs of the virtual
// sources of the ports p, p+1, p+2 and p+3, four 32-bit numbers in the host's byte order, 0 for a
// port that there is not. Whatever data comes along is ignored. The caller owns the reply; null
// when no memory was left for it. Runs on the run loop of the thread that called Start; takes no
// lock.
CFDataRef MessagePortListenerProc(CFMessagePortRef port, SInt32 msgid, CFDataRef data, void* info);
