// Packet lists: MIDI data with times, in the form in which it travels.
#pragma once

#include <CoreMIDI/CoreMIDIBase.h>

// A packet: its time, its length in bytes and so many bytes of data. `data` is as long as `length`
// says, which may be more or less than 256.
//
// A list lies at an address that is a multiple of 4. How its packets lie behind the first one is
// for MIDIPacketNext alone to say: this library packs them, so that they lie at any address and
// their fields are read and written as bytes; built with QUORVEL_PAD_PACKETS it starts each at a
// multiple of 4, as the platform does on ARM.
#pragma pack(push, 4)
typedef struct MIDIPacket {
    MIDITimeStamp timeStamp;
    UInt16 length;
    Byte data[256];
} MIDIPacket;

typedef struct MIDIPacketList {
    UInt32 numPackets;
    MIDIPacket packet[1]; // `numPackets` of them
} MIDIPacketList;
#pragma pack(pop)

// The packet after `packet` in its list, which must not be the last one. `packet` may lie at any
// address. Any thread; no blocking, no allocation.
//
// A function of the library, so that programs built once run with packed and with padded lists.
COREMIDI_EXPORT MIDIPacket* MIDIPacketNext(const MIDIPacket* packet);

// Building a list in a caller's buffer of `listSize` bytes, 65536 at most. Any thread, one at a
// time for each list; no blocking, no allocation.
//
// Init makes an empty list and gives the place of its first packet, to be passed to Add as
// `curPacket`. Add appends `nData` bytes (65535 at most) with time `time` and gives the packet that
// it wrote to, the next call's `curPacket`. Data of the same time joins the packet before it,
// unless either of them holds a System Exclusive message or a part of one. Null when there is not
// enough room, or for a null argument; the list is unchanged then.
COREMIDI_EXPORT MIDIPacket* MIDIPacketListInit(MIDIPacketList* pktlist);
COREMIDI_EXPORT MIDIPacket* MIDIPacketListAdd(MIDIPacketList* pktlist, ByteCount listSize,
                                              MIDIPacket* curPacket, MIDITimeStamp time,
                                              ByteCount nData, const Byte* data);
