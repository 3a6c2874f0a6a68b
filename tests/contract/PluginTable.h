// The driver as a host written in C sees it: nothing but the factory's result, a pointer to a
// pointer to a table of functions.
#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <CoreMIDI/MIDIDriver.h>

#if defined(__cplusplus)
extern "C" {
#endif

// The factory that the bundle exports.
void* MIDIPluginFactory(CFAllocatorRef allocator, CFUUIDRef typeID);

// The factory's instance asked for the driver interface, holding that one reference; null when
// either fails.
MIDIDriverRef TableOpen(void);

HRESULT TableQueryInterface(MIDIDriverRef driver, CFUUIDBytes iid, void** ppv);
ULONG TableAddRef(MIDIDriverRef driver);
ULONG TableRelease(MIDIDriverRef driver);
OSStatus TableFindDevices(MIDIDriverRef driver, MIDIDeviceListRef devices);
OSStatus TableStart(MIDIDriverRef driver, MIDIDeviceListRef devices);
OSStatus TableStop(MIDIDriverRef driver);
OSStatus TableConfigure(MIDIDriverRef driver, MIDIDeviceRef device);
OSStatus TableSend(MIDIDriverRef driver, const MIDIPacketList* list, void* destRef1,
                   void* destRef2);
OSStatus TableEnableSource(MIDIDriverRef driver, MIDIEndpointRef source, Boolean enabled);
OSStatus TableFlush(MIDIDriverRef driver, MIDIEndpointRef destination, void* destRef1,
                    void* destRef2);
OSStatus TableMonitor(MIDIDriverRef driver, MIDIEndpointRef destination,
                      const MIDIPacketList* list);

// The word before the functions, and how many of them are null.
const void* TableReserved(MIDIDriverRef driver);
int TableCountNullEntries(MIDIDriverRef driver);

#if defined(__cplusplus)
}
#endif
