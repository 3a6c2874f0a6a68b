// Packet lists carry MIDI data with times.
#pragma once

#include <CoreMIDI/CoreMIDIBase.h>

// A packet holds its time, the length of its data in bytes, and the data. `data` is as long as
// `length` says, which may be more or less than 256.
//
// A list lies at an address that is a multiple of 4. Only MIDIPacketNext knows where the packets
// after the first one begin. This library packs them, so that they lie at any address and their
// fields are read and written as bytes; built with QUORVEL_PAD_PACKETS, it starts each packet at a
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

// Returns the packet after `packet` in its list. `packet` must not be the last one and may lie at
// any address. Any thread may call; the call neither blocks nor allocates.
//
// It is a function of the library, so that a program that is built once runs with packed and with
// padded lists.
COREMIDI_EXPORT MIDIPacket* MIDIPacketNext(const MIDIPacket* packet);

// These two functions build a list in the caller's buffer of `listSize` bytes, 65536 at most. Any
// thread may call, one at a time for each list; the calls neither block nor allocate.
//
//     MIDIPacket* packet = MIDIPacketListInit(list);
//     packet = MIDIPacketListAdd(list, sizeof buffer, packet, 0, sizeof note, note);
//
// Init makes an empty list and returns the place of its first packet, which is the first call's
// `curPacket`. Add appends `nData` bytes (65535 at most) with the time `time` and returns the
// packet that it wrote to, which is the next call's `curPacket`. Data of the same time joins the
// packet before it, unless either of the two holds a System Exclusive message or a part of one. Add
// returns null and leaves the list unchanged if there is not enough room or an argument is null.
COREMIDI_EXPORT MIDIPacket* MIDIPacketListInit(MIDIPacketList* pktlist);
COREMIDI_EXPORT MIDIPacket* MIDIPacketListAdd(MIDIPacketList* pktlist, ByteCount listSize,
                                              MIDIPacket* curPacket, MIDITimeStamp time,
                                              ByteCount nData, const Byte* data);
