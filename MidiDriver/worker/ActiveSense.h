// The detectors of the pings with which a host checks that a control surface is alive.
//
// This contract holds for both detectors and for any other function that is used as one. It is
// called on the thread that sends to the driver; several such threads may call it at once. It does
// not block for long, and it neither allocates nor throws. It reads and writes only what it was
// given.
//
//     const unsigned char ping[] = {0x90, 0x00, 0x00};
//     unsigned char reply[128];
//     unsigned int replyLength = sizeof reply;
//     if (IsHUIActiveSenseFn(0, ping, sizeof ping, reply, &replyLength)) {
//         Send(reply, replyLength); // 90 00 7F
//     }
#pragma once

// Answers one MIDI packet if it is a ping.
//
// `port` is the 0-based port that the packet was sent to, and `data` is its `length` bytes. The
// function writes the answer to `reply`. On entry `*replyLength` is the capacity of `reply` in
// bytes, on return the number of bytes written.
//
// Returns true when the packet is a ping and `reply` holds the answer. Returns false when it is no
// ping, and then leaves `*replyLength` alone. It also returns false when the answer does not fit,
// and then sets `*replyLength` to 0.
using tActiveSenseFn = bool (*)(unsigned int port, const unsigned char* data, unsigned int length,
                                unsigned char* reply, unsigned int* replyLength);

// The detector for HUI. The ping is the three bytes 90 00 00 and nothing else; the answer is 90 00
// 7F.
bool IsHUIActiveSenseFn(unsigned int port, const unsigned char* data, unsigned int length,
                        unsigned char* reply, unsigned int* replyLength);

// The detector for Mackie Control. The ping is a device query F0 00 00 66 m q ... F7 of at least
// seven bytes, where m is 14 or 15 and q is 00 or 1A. The answer is a host connection reply of 18
// bytes.
//
// The answer contains m, q and the port of the first ping of the process and never changes again,
// even if it did not fit that ping's buffer. This is intended for the sake of the hosts, to which
// the process is one surface with one identity.
bool IsMackieControlActiveSenseFn(unsigned int port, const unsigned char* data, unsigned int length,
                                  unsigned char* reply, unsigned int* replyLength);
