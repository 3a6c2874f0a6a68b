/* The headers are for C as well; this file only has to compile. */
#include <CoreMIDI/MIDIServerHost.h>

_Static_assert(offsetof(MIDIPacketList, packet) == 4, "the first packet follows the count");
_Static_assert(offsetof(MIDIPacket, length) == 8, "the length follows the time");
_Static_assert(offsetof(MIDIPacket, data) == 10, "the data follows the length");
_Static_assert(sizeof(MIDIObjectRef) == 4, "references have 32 bits");

OSStatus CallThroughTable(MIDIDriverRef driver, const MIDIPacketList* list);

OSStatus CallThroughTable(MIDIDriverRef driver, const MIDIPacketList* list) {
    return (*driver)->Send(driver, list, NULL, NULL);
}
