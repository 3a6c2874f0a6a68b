#include "MidiDriver/MidiDriverPlugin.h"

#include "MidiDriver/DeviceSetup.h"
#include "MidiDriver/MidiConfigFile.h"
#include "MidiDriver/MidiPlugin.h"
#include "MidiDriver/PacketPaths.h"
#include "MidiDriver/worker/ActiveSense.h"
#include "MidiDriver/worker/MidiCallbackWorker.h"
#include "runtime/thread/NyInit.h"

#include <syslog.h>

#include <cstddef>
#include <type_traits>
#include <vector>

const CFStringRef kDeviceName = CFSTR("Quorvel MIDI");
const CFStringRef kManufName = CFSTR("Quorvel");
const CFStringRef kModelName = CFSTR("Control Surface");
const CFStringRef kReceivePortName = CFSTR("Quorvel Virtual Source IDs Port");

std::atomic<MIDIPlugin*> sPluginRef{nullptr};
UniqueIDList sVirtualSourceIDs;
static_assert(std::is_trivially_destructible_v<UniqueIDList>); // a run loop may read it to the end

void ThrowIfError(long err) {
    if (err != 0) {
        throw err;
    }
}

void ThrowIfNull(const void* p) {
    if (p == nullptr) {
        throw -1;
    }
}

namespace {

constexpr int kDataElementSize = 1;
constexpr int kInfoElementSize = 4;
constexpr int kThrottleElementSize = 12;
constexpr int kThrottleRate = 14336; // bytes per second and port

void LogDisposeFailure(OSStatus err, const char* text) {
    syslog(LOG_ERR, "Error: %d, %s", static_cast<int>(err), text);
}

tActiveSenseFn ActiveSenseFnFor(CFStringRef protocol) {
    if (CFStringCompare(protocol, CFSTR("HUI"), 0) == kCFCompareEqualTo) {
        return IsHUIActiveSenseFn;
    }
    if (CFStringCompare(protocol, CFSTR("MackieControl"), 0) == kCFCompareEqualTo) {
        return IsMackieControlActiveSenseFn;
    }
    return nullptr;
}

void ReadActiveSenseFns(std::vector<tActiveSenseFn>& functions) {
    std::vector<CFStringRef> protocols(kMaxPorts, nullptr);
    CopyEmulatedProtocols(&protocols);
    functions.assign(kMaxPorts, nullptr);
    for (std::size_t port = 0; port < protocols.size(); port++) {
        if (protocols[port] != nullptr) {
            functions[port] = ActiveSenseFnFor(protocols[port]);
            CFRelease(protocols[port]);
        }
    }
}

// Takes an instance down, whether it was built completely or only in part.
//
// The removal of the factory's instance comes first. It may bring the module's count to 0, although
// more of the module's code runs afterwards. That is safe: CoreFoundation unloads a plug-in's
// module with the last reference to the plug-in, and never within this call, because every instance
// makes the call from code of its own module. The host holds such a reference while it calls
// Release and gives it back when Release has returned.
void DeallocMIDIPluginInstance(MIDIPlugin* plugin) {
    if (plugin == nullptr) {
        return;
    }
    if (plugin->factoryID != nullptr) {
        CFPlugInRemoveInstanceForFactory(plugin->factoryID);
        CFRelease(plugin->factoryID);
    }
    // The endpoints themselves belong to the device and stay.
    plugin->portSources.Clear();
    const std::size_t numSources = plugin->virtualSources.Size();
    for (std::size_t port = 0; port < numSources; port++) {
        const OSStatus err =
            MIDIEndpointDispose(plugin->virtualSources.At(port).value_or(MIDIEndpointRef{}));
        if (err != noErr) {
            LogDisposeFailure(err, "DeallocMIDIPluginInstance: Error when disposing MIDI Virtual "
                                   "Source Endpoints\n");
        }
    }
    // Cleared before the worker ends: what it still forwards finds no endpoint and is dropped.
    plugin->virtualSources.Clear();
    if (plugin->client != MIDIClientRef{}) {
        const OSStatus err = MIDIClientDispose(plugin->client);
        if (err != noErr) {
            LogDisposeFailure(err, "DeallocMIDIPluginInstance: Error when disposing MIDI Client\n");
        }
    }
    if (plugin->worker != nullptr) {
        ShutDown(plugin->worker);
        DeleteMidiCallbackWorker(plugin->worker);
    }
    // The worker has ended and the host no longer sends, so no thread replies any more. The bundle
    // may be unloaded next.
    FreeSendPacketBuffer();
    delete plugin;
}

HRESULT MIDIPluginQueryInterface(void* self, CFUUIDBytes iid, void** ppv) {
    CFUUIDRef interfaceID = CFUUIDCreateFromUUIDBytes(nullptr, iid);
    // Either is null when memory has run out, which the platform's functions do not take.
    CFUUIDRef driverInterfaceID = kMIDIDriverInterface2ID;
    // The driver answers the second version only. It leaves out the first version and IUnknown on
    // purpose, because CoreMIDI has no use for them.
    const bool known = interfaceID != nullptr && driverInterfaceID != nullptr &&
                       CFEqual(interfaceID, driverInterfaceID);
    if (known) {
        PluginOf(self)->interface->AddRef(self);
        *ppv = self;
    } else {
        *ppv = nullptr;
    }
    if (interfaceID != nullptr) {
        CFRelease(interfaceID);
    }
    return known ? S_OK : E_NOINTERFACE;
}

ULONG MIDIPluginAddRef(void* self) {
    return ++PluginOf(self)->refCount;
}

ULONG MIDIPluginRelease(void* self) {
    const UInt32 refCount = --PluginOf(self)->refCount;
    if (refCount == 0) {
        DeallocMIDIPluginInstance(PluginOf(self));
    }
    return refCount;
}

// The driver manages its one device itself, in Start, so these entries have nothing to do.

OSStatus MIDIDriverFindDevices(MIDIDriverRef /*self*/, MIDIDeviceListRef /*devices*/) {
    return noErr;
}

OSStatus MIDIDriverConfigure(MIDIDriverRef /*self*/, MIDIDeviceRef /*device*/) {
    return noErr;
}

OSStatus MIDIDriverEnableSource(MIDIDriverRef /*self*/, MIDIEndpointRef /*source*/,
                                Boolean /*enabled*/) {
    return noErr;
}

OSStatus MIDIDriverFlush(MIDIDriverRef /*self*/, MIDIEndpointRef /*destination*/,
                         void* /*destRef1*/, void* /*destRef2*/) {
    return noErr;
}

OSStatus MIDIDriverMonitor(MIDIDriverRef /*self*/, MIDIEndpointRef /*destination*/,
                           const MIDIPacketList* /*list*/) {
    return noErr;
}

// The members are filled by name, because systems differ in those that follow Monitor. Those stay
// null.
constexpr MIDIDriverInterface MakeDriverInterface() {
    MIDIDriverInterface table{};
    table.QueryInterface = MIDIPluginQueryInterface;
    table.AddRef = MIDIPluginAddRef;
    table.Release = MIDIPluginRelease;
    table.FindDevices = MIDIDriverFindDevices;
    table.Start = MIDIDriverStart;
    table.Stop = MIDIDriverStop;
    table.Configure = MIDIDriverConfigure;
    table.Send = MIDIDriverSend;
    table.EnableSource = MIDIDriverEnableSource;
    table.Flush = MIDIDriverFlush;
    table.Monitor = MIDIDriverMonitor;
    return table;
}

constinit MIDIDriverInterface sDriverInterface = MakeDriverInterface();

void BuildInstance(MIDIPlugin& plugin, CFUUIDRef factoryID) {
    plugin.receiver.SetEndpoint(MIDIEndpointRef{});
    plugin.interface = &sDriverInterface;
    CFRetain(factoryID);
    plugin.factoryID = factoryID;
    CFPlugInAddInstanceForFactory(factoryID);
    plugin.refCount = 1;

    // Without a client the driver still publishes its device, and Start then fails at the virtual
    // sources.
    if (MIDIClientCreate(CFSTR("QuorvelMIDIClient driver"), nullptr, nullptr, &plugin.client) !=
        noErr) {
        syslog(LOG_ERR, "AllocMIDIPluginInstance: Error when creating MIDI Client\n");
    }
    ReadActiveSenseFns(plugin.activeSenseFns);
    plugin.worker = CreateMidiCallbackWorker(kMIDIPacketList, kDataElementSize, kInfoElementSize,
                                             kThrottleElementSize, ForwardMIDIPacketList,
                                             ReplyMIDIPacketList, &plugin.activeSenseFns, nullptr,
                                             kThrottleRate, static_cast<int>(kMaxPorts));
}

MIDIPlugin* AllocMIDIPluginInstance(CFUUIDRef factoryID) {
    auto* const plugin = new MIDIPlugin;
    try {
        BuildInstance(*plugin, factoryID);
    } catch (...) {
        DeallocMIDIPluginInstance(plugin);
        throw;
    }
    return plugin;
}

} // namespace

void* MIDIPluginFactory(CFAllocatorRef /*allocator*/, CFUUIDRef typeID) {
    try {
        NyInit();
        CFUUIDRef driverTypeID = kMIDIDriverTypeID;
        ThrowIfNull(driverTypeID);
        if (!CFEqual(typeID, driverTypeID)) {
            return nullptr;
        }
        // The reference that this Create returns is never released. The instance takes one of its
        // own.
        CFUUIDRef factoryID =
            CFUUIDCreateFromString(CFAllocatorGetDefault(), CFSTR(QUORVEL_FACTORY_UUID));
        ThrowIfNull(factoryID);
        MIDIPlugin* const plugin = AllocMIDIPluginInstance(factoryID);
        sPluginRef.store(plugin, std::memory_order_release);
        return plugin;
    } catch (...) {
        // No exception may leave the plug-in. Only the allocation of memory can fail here.
        return nullptr;
    }
}
