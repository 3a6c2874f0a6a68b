#pragma once

#include <CoreFoundation/CoreFoundation.h>

// The callout of the message port "Quorvel Virtual Source IDs Port". Through this port the
// control-surface application finds the private virtual sources.
//
// `msgid` is a 1-based port number p. The reply always has 16 bytes, four 32-bit numbers in the
// host's byte order. They are the unique IDs of the virtual sources of the ports p, p+1, p+2 and
// p+3, and 0 for a port that does not exist. The data of the message is ignored. The caller owns
// the reply, which is null when there was no memory for it.
//
// Runs on the run loop of the thread that called Start and takes no lock.
CFDataRef MessagePortListenerProc(CFMessagePortRef port, SInt32 msgid, CFDataRef data, void* info);
