#include "MidiDriver/DeviceSetup.h"

#include "MidiDriver/MidiConfigFile.h"
#include "MidiDriver/MidiDriverPlugin.h"
#include "MidiDriver/MidiPlugin.h"
#include "MidiDriver/VirtualSourceIDPort.h"

#include <CoreMIDI/MIDISetup.h>

#include <cstdint>
#include <cstdio>

namespace {

constexpr unsigned int kDefaultPorts = 4;

unsigned int PortCount() {
    const unsigned int configured = GetMidiConfigNumPorts();
    return configured == 0 || configured > kMaxPorts ? kDefaultPorts : configured;
}

// Takes the device of the last run over if it fits; otherwise removes all devices of that run and
// returns false.
bool ReuseDevice(MIDIPlugin& plugin, MIDIDeviceListRef devices, unsigned int numPorts) {
    const ItemCount count = MIDIDeviceListGetNumberOfDevices(devices);
    if (count > 0) {
        MIDIDeviceRef device = MIDIDeviceListGetDevice(devices, 0);
        plugin.device.store(device, std::memory_order_release);
        if (MIDIDeviceGetNumberOfEntities(device) == numPorts) {
            return true;
        }
    }
    for (ItemCount i = 0; i < count; i++) {
        ThrowIfError(MIDISetupRemoveDevice(MIDIDeviceListGetDevice(devices, i)));
    }
    plugin.device.store(MIDIDeviceRef{}, std::memory_order_release);
    return false;
}

void CreateDevice(MIDIDriverRef self, MIDIPlugin& plugin, unsigned int numPorts) {
    MIDIDeviceRef device{};
    ThrowIfError(MIDIDeviceCreate(self, kDeviceName, kManufName, kModelName, &device));
    plugin.device.store(device, std::memory_order_release);
    for (unsigned int i = 1; i <= numPorts; i++) {
        char text[64];
        std::snprintf(text, sizeof text, "Quorvel Port %d", static_cast<int>(i));
        CFStringRef name = CFStringCreateWithCString(nullptr, text, kCFStringEncodingMacRoman);
        ThrowIfNull(name);
        MIDIEntityRef entity{};
        const OSStatus err = MIDIDeviceAddEntity(device, name, false, 1, 1, &entity);
        CFRelease(name);
        ThrowIfError(err);
    }
    ThrowIfError(MIDISetupAddDevice(device));
}

// Gives each destination its port index and adds each source to the list.
void CollectEndpoints(MIDIDriverRef self, MIDIPlugin& plugin, MIDIDeviceRef device) {
    plugin.portSources.Clear();
    const ItemCount count = MIDIDeviceGetNumberOfEntities(device);
    for (ItemCount i = 0; i < count; i++) {
        const MIDIEntityRef entity = MIDIDeviceGetEntity(device, i);
        if (entity == MIDIEntityRef{}) {
            continue;
        }
        const MIDIEndpointRef destination = MIDIEntityGetDestination(entity, 0);
        if (destination != MIDIEndpointRef{}) {
            ThrowIfError(MIDIEndpointSetRefCons(destination, self,
                                                reinterpret_cast<void*>(std::uintptr_t{i})));
        }
        // A null source is added too, so that the later sources have the index of their port. The
        // list may be full for an entity beyond the most ports; that one is not ours anyway.
        plugin.portSources.Append(MIDIEntityGetSource(entity, 0));
    }
}

void CreateVirtualSources(MIDIPlugin& plugin, unsigned int numPorts) {
    plugin.virtualSources.Clear();
    sVirtualSourceIDs.Clear();
    for (unsigned int i = 1; i <= numPorts; i++) {
        CFStringRef name = CFStringCreateWithFormat(
            kCFAllocatorDefault, nullptr, CFSTR("Quorvel Virtual Source %d"), static_cast<int>(i));
        ThrowIfNull(name);
        MIDIEndpointRef source{};
        const OSStatus err = MIDISourceCreate(plugin.client, name, &source);
        CFRelease(name);
        ThrowIfError(err);
        // Private sources do not show in other applications' lists. The control-surface application
        // finds them by their unique IDs.
        ThrowIfError(MIDIObjectSetIntegerProperty(source, kMIDIPropertyPrivate, 1));
        plugin.virtualSources.Append(source);
        SInt32 uniqueID = 0;
        ThrowIfError(MIDIObjectGetIntegerProperty(source, kMIDIPropertyUniqueID, &uniqueID));
        sVirtualSourceIDs.Append(uniqueID);
    }
}

// Gives up silently when something cannot be made. A further start finds the port and its source
// made and only adds the source to the current run loop.
void OpenMessagePort(MIDIPlugin& plugin) {
    if (plugin.messagePort == nullptr) {
        CFMessagePortContext context{};
        Boolean shouldFreeInfo = false;
        plugin.messagePort = CFMessagePortCreateLocal(
            nullptr, kReceivePortName, MessagePortListenerProc, &context, &shouldFreeInfo);
        if (plugin.messagePort == nullptr) {
            return;
        }
    }
    if (plugin.runLoopSource == nullptr) {
        plugin.runLoopSource = CFMessagePortCreateRunLoopSource(nullptr, plugin.messagePort, 0);
        if (plugin.runLoopSource == nullptr) {
            return;
        }
    }
    CFRunLoopAddSource(CFRunLoopGetCurrent(), plugin.runLoopSource, kCFRunLoopDefaultMode);
}

} // namespace

OSStatus MIDIDriverStart(MIDIDriverRef self, MIDIDeviceListRef devices) {
    try {
        MIDIPlugin& plugin = *PluginOf(self);
        const unsigned int numPorts = PortCount();
        if (!ReuseDevice(plugin, devices, numPorts)) {
            CreateDevice(self, plugin, numPorts);
        }
        const MIDIDeviceRef device = plugin.device.load(std::memory_order_relaxed);
        if (device == MIDIDeviceRef{}) {
            throw -1;
        }
        CollectEndpoints(self, plugin, device);
        CreateVirtualSources(plugin, numPorts);
        OpenMessagePort(plugin);
        return noErr;
    } catch (...) {
        return kMIDINoCurrentSetup;
    }
}

OSStatus MIDIDriverStop(MIDIDriverRef self) {
    MIDIPlugin& plugin = *PluginOf(self);
    if (plugin.messagePort != nullptr) {
        CFMessagePortInvalidate(plugin.messagePort);
        if (plugin.runLoopSource != nullptr) {
            CFRunLoopSourceInvalidate(plugin.runLoopSource);
            CFRelease(plugin.runLoopSource);
            plugin.runLoopSource = nullptr;
        }
        CFRelease(plugin.messagePort);
        plugin.messagePort = nullptr;
    }
    plugin.device.store(MIDIDeviceRef{}, std::memory_order_release);
    return noErr;
}
