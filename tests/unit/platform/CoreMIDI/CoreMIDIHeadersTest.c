/* The headers are for C as well; this file only has to compile. */
#include <CoreMIDI/MIDIServerHost.h>

_Static_assert(offsetof(MIDIPacketList, packet) == 4, "the first packet follows the count");
_Static_assert(offsetof(MIDIPacket, length) == 8, "the length follows the time");
_Static_assert(offsetof(MIDIPacket, data) == 10, "the data follows the length");
_Static_assert(sizeof(MIDIPacket) == 268, "up to a multiple of 4");
_Static_assert(sizeof(MIDIPacketList) == 272, "one packet behind the count");
_Static_assert(_Alignof(MIDIPacket) == 4, "as the platform packs it");
_Static_assert(_Alignof(MIDIPacketList) == 4, "as the platform packs it");
_Static_assert(sizeof(ItemCount) == sizeof(long), "counts are longs");
_Static_assert(sizeof(ByteCount) == sizeof(long), "counts are longs");
_Static_assert(offsetof(MIDIDriverInterface, Monitor) == 11 * sizeof(void*),
               "the last of version 2");
_Static_assert(sizeof(MIDIDriverInterface) == 14 * sizeof(void*), "with those for event lists");
_Static_assert(sizeof(MIDIObjectRef) == 4, "references have 32 bits");

OSStatus CallThroughTable(MIDIDriverRef driver, const MIDIPacketList* list);

OSStatus CallThroughTable(MIDIDriverRef driver, const MIDIPacketList* list) {
    return (*driver)->Send(driver, list, NULL, NULL);
}
