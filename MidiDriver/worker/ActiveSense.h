// Detectors of the pings with which a host checks that a control surface is alive.
//
// Contract of both detectors and of any function used as one: called on the thread that sends to
// the driver, also by several at once; never blocks for long, never allocates, never throws; reads
// and writes only what it was given.
#pragma once

// Answers one MIDI packet if it is a ping.
//
// `port` is the 0-based port that the packet was sent to, `data` its `length` bytes. `reply` takes
// the answer; `*replyLength` is its capacity in bytes on entry and the number of bytes written on
// return.
//
// True when the packet is a ping and the answer is in `reply`. False when it is no ping
// (`*replyLength` is left alone) or when the answer does not fit (`*replyLength` is 0).
using tActiveSenseFn = bool (*)(unsigned int port, const unsigned char* data, unsigned int length,
                                unsigned char* reply, unsigned int* replyLength);

// HUI: the three bytes 90 00 00 and nothing else, answered with 90 00 7F.
bool IsHUIActiveSenseFn(unsigned int port, const unsigned char* data, unsigned int length,
                        unsigned char* reply, unsigned int* replyLength);

// Mackie Control: a device query F0 00 00 66 m q ... F7 with m 14 or 15 and q 00 or 1A, of at
// least seven bytes, answered with a host connection reply of 18 bytes.
//
// Intended: the first ping of the process fixes the answer for good (m, q and port in it), even
// when that answer did not fit its buffer.
bool IsMackieControlActiveSenseFn(unsigned int port, const unsigned char* data, unsigned int length,
                                  unsigned char* reply, unsigned int* replyLength);
