#pragma once

#include "MidiDriver/AtomicList.h"
#include "MidiDriver/MidiReceiver.h"
#include "MidiDriver/worker/ActiveSense.h"

#include <CoreFoundation/CFPlugInCOM.h>
#include <CoreFoundation/CoreFoundation.h>
#include <CoreMIDI/MIDIDriver.h>

#include <atomic>
#include <cstddef>
#include <vector>

// The most ports that the driver publishes.
inline constexpr unsigned int kMaxPorts = 32;

using EndpointList = AtomicList<MIDIEndpointRef, kMaxPorts>;
using UniqueIDList = AtomicList<SInt32, kMaxPorts>;

// The driver instance.
//
// The host knows the instance as a MIDIDriverRef, which is a pointer to a pointer to a function
// table. The instance's address is such a reference, because its first word points to the table. So
// `(*ref)->Start(ref, ...)` calls MIDIDriverStart with the instance as its first argument.
//
// The host drives the plug-in on one thread: the factory, QueryInterface to Release, Start and
// Stop. Two more threads read the record meanwhile. The host's sending thread runs MIDIDriverSend
// and, through it, ReplyMIDIPacketList; the worker's thread runs ForwardMIDIPacketList. What they
// read is either atomic (the device and the two endpoint lists), or it is set before the instance
// is published and stays until it is destroyed (worker and activeSenseFns). No thread may be inside
// Send when the last reference is released.
struct MIDIPlugin {
    MIDIDriverInterface* interface = nullptr; // must be the first word
    CFUUIDRef factoryID = nullptr;
    UInt32 refCount = 0; // a plain integer: counted on the driving thread only

    // The published device, and the running flag of all packet paths: 0 while the driver is
    // stopped. Start sets it before it fills the lists; a packet that comes in between finds no
    // entry for its port. It is stored with release and loaded with acquire, so that a thread that
    // learns of a start from it sees the lists of any earlier start whole.
    std::atomic<MIDIDeviceRef> device{MIDIDeviceRef{}};

    EndpointList portSources;     // one per entity of the device, in entity order
    MidiReceiver receiver{false}; // has no endpoint and so emits nothing
    MIDIClientRef client{};       // the driver's own client; 0 when it could not be made
    EndpointList virtualSources;  // one per port, at the port's index
    CFMessagePortRef messagePort = nullptr;
    CFRunLoopSourceRef runLoopSource = nullptr;
    std::vector<tActiveSenseFn> activeSenseFns; // 32 entries, null where a port emulates nothing
    void* worker = nullptr;                     // made by CreateMidiCallbackWorker
};

// The one instance; the worker's callbacks find it here. The factory sets it and nothing clears it:
// after the last Release it points to the freed record, and nothing calls back any more.
extern std::atomic<MIDIPlugin*> sPluginRef;

// The unique IDs of the virtual sources, in the order of the ports. Start writes them, and the
// message port reads them.
extern UniqueIDList sVirtualSourceIDs;

// Throws `err` as a long when it is non-zero.
void ThrowIfError(long err);

// Throws the int -1 when `p` is null.
void ThrowIfNull(const void* p);

inline MIDIPlugin* PluginOf(void* self) {
    return static_cast<MIDIPlugin*>(self);
}

inline MIDIPlugin* PluginOf(MIDIDriverRef self) {
    return reinterpret_cast<MIDIPlugin*>(self);
}
