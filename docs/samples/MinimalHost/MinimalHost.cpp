// Runs the driver as a MIDI server does, plays a note to its first port as a DAW does, and prints
// what arrives where the control-surface application listens.
#include <CoreFoundation/CFPlugInCOM.h>
#include <CoreFoundation/CoreFoundation.h>
#include <CoreMIDI/CoreMIDI.h>
#include <CoreMIDI/MIDIDriver.h>
#include <CoreMIDI/MIDIServerHost.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <future>

namespace {

// Loads the bundle and asks its factory for a driver; null when a step fails.
MIDIDriverRef LoadDriver(const char* bundle) {
    CFURLRef url =
        CFURLCreateFromFileSystemRepresentation(nullptr, reinterpret_cast<const UInt8*>(bundle),
                                                static_cast<CFIndex>(std::strlen(bundle)), true);
    CFPlugInRef plugIn = CFPlugInCreate(nullptr, url);
    CFRelease(url);
    if (plugIn == nullptr) {
        return nullptr;
    }
    void* driver = nullptr;
    CFArrayRef factories = CFPlugInFindFactoriesForPlugInTypeInPlugIn(kMIDIDriverTypeID, plugIn);
    if (factories != nullptr && CFArrayGetCount(factories) > 0) {
        const auto factory = static_cast<CFUUIDRef>(CFArrayGetValueAtIndex(factories, 0));
        auto** object = static_cast<IUnknownVTbl**>(
            CFPlugInInstanceCreate(nullptr, factory, kMIDIDriverTypeID));
        if (object != nullptr) {
            (*object)->QueryInterface(object, CFUUIDGetUUIDBytes(kMIDIDriverInterface2ID), &driver);
            (*object)->Release(object);
        }
    }
    if (factories != nullptr) {
        CFRelease(factories);
    }
    // The module stays loaded as long as its driver lives.
    CFRelease(plugIn);
    return static_cast<MIDIDriverRef>(driver);
}

// The private source of the first port: the driver's message port gives unique IDs, four at a time.
MIDIObjectRef FindFirstVirtualSource() {
    CFMessagePortRef remote =
        CFMessagePortCreateRemote(nullptr, CFSTR("Quorvel Virtual Source IDs Port"));
    if (remote == nullptr) {
        return 0;
    }
    std::array<SInt32, 4> ids{};
    CFDataRef reply = nullptr;
    if (CFMessagePortSendRequest(remote, 1, nullptr, 10, 10, kCFRunLoopDefaultMode, &reply) ==
            kCFMessagePortSuccess &&
        reply != nullptr) {
        if (CFDataGetLength(reply) == static_cast<CFIndex>(sizeof ids)) {
            std::memcpy(ids.data(), CFDataGetBytePtr(reply), sizeof ids);
        }
        CFRelease(reply);
    }
    CFRelease(remote);
    MIDIObjectRef source = 0;
    MIDIObjectType type = kMIDIObjectType_Other;
    MIDIObjectFindByUniqueID(ids[0], &source, &type);
    return type == kMIDIObjectType_Source ? source : 0;
}

// On a thread of the library.
void Arrived(const MIDIPacketList* list, void* refCon, void*) {
    const MIDIPacket* packet = &list->packet[0];
    std::printf("the application received %02X %02X %02X\n", unsigned{packet->data[0]},
                unsigned{packet->data[1]}, unsigned{packet->data[2]});
    static_cast<std::promise<void>*>(refCon)->set_value();
}

bool PlayNote() {
    const MIDIEntityRef port = MIDIDeviceGetEntity(MIDIGetDevice(0), 0);
    MIDIClientRef client = 0;
    MIDIPortRef in = 0;
    MIDIPortRef out = 0;
    std::promise<void> arrived;
    if (MIDIClientCreate(CFSTR("MinimalHost"), nullptr, nullptr, &client) != noErr ||
        MIDIInputPortCreate(client, CFSTR("In"), Arrived, &arrived, &in) != noErr ||
        MIDIOutputPortCreate(client, CFSTR("Out"), &out) != noErr ||
        MIDIPortConnectSource(in, FindFirstVirtualSource(), nullptr) != noErr) {
        return false;
    }
    const std::array<Byte, 3> note = {0x90, 0x3C, 0x40};
    MIDIPacketList list;
    MIDIPacketListAdd(&list, sizeof list, MIDIPacketListInit(&list), 0, note.size(), note.data());
    const bool sent = MIDISend(out, MIDIEntityGetDestination(port, 0), &list) == noErr;
    const bool done = sent && arrived.get_future().wait_for(std::chrono::seconds(30)) ==
                                  std::future_status::ready;
    MIDIClientDispose(client);
    return done;
}

} // namespace

int main() {
    MIDIServerHostOpenSetup(nullptr); // the setup is not kept in a file
    MIDIDriverRef driver = LoadDriver(PLUGIN_BUNDLE);
    if (driver == nullptr ||
        MIDIServerHostAttachDriver(driver, CFSTR("QuorvelMIDI.plugin")) != noErr) {
        std::fprintf(stderr, "%s cannot be loaded\n", PLUGIN_BUNDLE);
        return 1;
    }
    MIDIDeviceListRef known = MIDIServerHostCopyDeviceList(driver);
    OSStatus status = (*driver)->Start(driver, known);
    MIDIDeviceListDispose(known);

    bool done = false;
    if (status == noErr) {
        std::printf("%u ports\n",
                    static_cast<unsigned>(MIDIDeviceGetNumberOfEntities(MIDIGetDevice(0))));
        done = PlayNote();
    }
    // Nothing of the driver runs any more once it is detached: then it can stop.
    MIDIServerHostDetachDriver(driver);
    if (status == noErr) {
        (*driver)->Stop(driver);
    }
    (*driver)->Release(driver);
    return done ? 0 : 1;
}
