#pragma once

#include <CoreMIDI/MIDIDriver.h>

// The three ways that packets take through the driver. None parses or alters MIDI data, none takes
// a lock of its own. `port` is the 0-based port index.
//
// All packets go out with the time stamp 0. CoreMIDI defines that as "now" for what is sent to a
// destination only. On a source it means that the packet carries no time: MIDIReceived hands it on
// at once, as it is, and whoever reads it has the moment of its arrival to go by.

// From a DAW to the output worker; destRef2 carries the port index. Exactly one thread of the host
// calls it. Sets the time stamps of all packets to 0 in the caller's list, although that
// is passed as constant, and copies the list into the worker's ring; `list` may be reused
// afterwards. Answers pings before it returns. Blocks while the worker holds a port back to its
// rate; allocates nothing but ReplyMIDIPacketList's buffer.
//
// Returns noErr, also when the driver is stopped and drops the list, or kMIDIInvalidPort for a
// port that has no virtual source. What a full ring loses is not reported here.
OSStatus MIDIDriverSend(MIDIDriverRef self, const MIDIPacketList* list, void* destRef1,
                        void* destRef2);

// From the worker's thread to the port's private virtual source: `data` is a whole packet list as
// MIDIDriverSend took it. Drops it when the driver is stopped or the port has no virtual source.
void ForwardMIDIPacketList(unsigned int port, const unsigned char* data, unsigned int length,
                           void* refcon);

// Emits the `length` MIDI bytes of `data` at once as one packet on the port's own source, so that
// they reach the DAW that sent the ping. Called inside MIDIDriverSend, on that one thread. Frees
// its buffer and allocates a new one for every reply. Drops the reply when there is no data, more
// than 255 bytes of it, no source for the port, no memory (logged), or the driver is stopped.
void ReplyMIDIPacketList(unsigned int port, const unsigned char* data, unsigned int length);

// Frees the reply buffer. Only when no thread is inside ReplyMIDIPacketList; the next reply makes
// a new one.
void FreeSendPacketBuffer();
