#pragma once

#include <CoreMIDI/MIDIDriver.h>

// The three paths of packets through the driver. None of them parses or alters MIDI data, and none
// takes a lock of its own. `port` is the 0-based port index.
//
// All packets go out with the time stamp 0. CoreMIDI defines it as "now" only for packets that are
// sent to a destination. On a source it means that the packet carries no time: MIDIReceived hands
// the packet on at once, as it is, and its reader only has the moment of its arrival.

// The path from a DAW to the output worker. `destRef2` carries the port index. Sets the time stamps
// of all packets to 0 in the caller's list, although the list is passed as constant, and copies it
// into the worker's ring; the caller may reuse `list` afterwards. Pings are answered before the
// call returns.
//
// Exactly one thread of the host calls it. It blocks while the worker holds a port back to its
// rate, and allocates only the buffer of ReplyMIDIPacketList.
//
// Returns kMIDIInvalidPort for a port that has no virtual source, otherwise noErr: also when the
// driver is stopped and drops the list, and when a full ring loses it.
OSStatus MIDIDriverSend(MIDIDriverRef self, const MIDIPacketList* list, void* destRef1,
                        void* destRef2);

// The path from the worker's thread to the port's private virtual source. `data` is a whole packet
// list as MIDIDriverSend took it. The list is dropped when the driver is stopped or the port has no
// virtual source.
void ForwardMIDIPacketList(unsigned int port, const unsigned char* data, unsigned int length,
                           void* refcon);

// The path of the answer to a ping: emits the `length` MIDI bytes of `data` at once, as one packet
// on the port's own source, so that they reach the DAW that sent the ping. Called inside
// MIDIDriverSend, on that one thread. Frees its buffer and allocates a new one for every reply.
//
// The reply is dropped when the driver is stopped, when there is no data or more than 255 bytes of
// it, when the port has no source, and when there is no memory, which is logged.
void ReplyMIDIPacketList(unsigned int port, const unsigned char* data, unsigned int length);

// Frees the reply buffer; the next reply makes a new one. No thread may be inside
// ReplyMIDIPacketList.
void FreeSendPacketBuffer();
