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
// The host knows it as a MIDIDriverRef, a pointer to a pointer to a function table: the instance's
// address is that reference because its first word points to the table. `(*ref)->Start(ref, ...)`
// hence reaches MIDIDriverStart with the instance as its first argument.
//
// The host drives the plug-in on one thread (factory, QueryInterface to Release, Start, Stop). Two
// more threads read the record meanwhile: the host's sending thread (MIDIDriverSend, and through
// it ReplyMIDIPacketList) and the worker's thread (ForwardMIDIPacketList). What they read is
// atomic (device, the two endpoint lists) or set before the instance is published and fixed until
// it is destroyed (worker, activeSenseFns). No thread may be inside Send when the last reference
// goes.
struct MIDIPlugin {
    MIDIDriverInterface* interface = nullptr; // must be the first word
    CFUUIDRef factoryID = nullptr;
    UInt32 refCount = 0; // a plain integer: counted on the driving thread only

    // The running flag of all packet paths, 0 while stopped. Start sets it before it fills the
    // lists; a packet that comes in between finds no entry for its port. Stored with release and
    // loaded with acquire, so that a thread that is told of the start by it sees the lists of any
    // earlier start whole.
    std::atomic<MIDIDeviceRef> device{MIDIDeviceRef{}};

    EndpointList portSources;     // one per entity of the device, in entity order
    MidiReceiver receiver{false}; // has no endpoint and so emits nothing
    MIDIClientRef client{};       // the driver's own client; 0 when it could not be made
    EndpointList virtualSources;  // one per port, index = port index
    CFMessagePortRef messagePort = nullptr;
    CFRunLoopSourceRef runLoopSource = nullptr;
    std::vector<tActiveSenseFn> activeSenseFns; // 32 entries, null where a port emulates nothing
    void* worker = nullptr;                     // made by CreateMidiCallbackWorker
};

// The one instance, which is how the worker's callbacks find it. Set by the factory and never
// cleared: after the last Release it points at the freed record, and nothing calls back any more.
extern std::atomic<MIDIPlugin*> sPluginRef;

// The unique IDs of the virtual sources, in port order. Written by Start, read by the message
// port.
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
