// A driver plug-in that does what the real one does for four HUI ports, but for one fault that the
// environment variable FAULTY_DRIVER names: it shows that the host notices.

#include "platform/packetlist/PacketListWalk.h"

#include <CoreFoundation/CFMessagePort.h>
#include <CoreFoundation/CFPlugInCOM.h>
#include <CoreFoundation/CFRunLoop.h>
#include <CoreFoundation/CoreFoundation.h>
#include <CoreMIDI/MIDIDriver.h>
#include <CoreMIDI/MIDISetup.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr unsigned kPorts = 4;
constexpr unsigned kFaultyList = 3; // the list, counted from 1, that the fault befalls

struct FaultyDriver {
    MIDIDriverInterface* interface = nullptr; // first: the driver is a pointer to this
    ULONG references = 1;
    std::string fault;
    MIDIClientRef client = 0;
    std::array<MIDIEndpointRef, kPorts> ownSources{};
    std::array<MIDIEndpointRef, kPorts> privateSources{};
    std::array<SInt32, kPorts> ids{};
    CFMessagePortRef messagePort = nullptr;
    CFRunLoopSourceRef runLoopSource = nullptr;
    unsigned lists = 0;
    std::vector<std::uint8_t> kept; // the list that is to come late
};

FaultyDriver* sDriver = nullptr;

FaultyDriver* Self(void* object) {
    return static_cast<FaultyDriver*>(object);
}

CFDataRef AnswerWithIds(CFMessagePortRef, SInt32 port, CFDataRef, void*) {
    std::array<SInt32, 4> reply{};
    for (unsigned i = 0; i < reply.size(); ++i) {
        const unsigned index = static_cast<unsigned>(port) - 1 + i;
        reply[i] = index < kPorts && sDriver->fault != "no-ids" ? sDriver->ids[index] : 0;
    }
    const CFIndex length = sDriver->fault == "short-ids" ? 4 : CFIndex{sizeof reply};
    return CFDataCreate(nullptr, reinterpret_cast<const UInt8*>(reply.data()), length);
}

HRESULT QueryInterface(void* object, REFIID, LPVOID* result) {
    FaultyDriver* driver = Self(object);
    if (driver->fault == "no-interface") {
        *result = nullptr;
        return E_NOINTERFACE;
    }
    ++driver->references;
    *result = object;
    return S_OK;
}

ULONG AddRef(void* object) {
    return ++Self(object)->references;
}

ULONG Release(void* object) {
    FaultyDriver* driver = Self(object);
    if (--driver->references > 0) {
        return driver->references;
    }
    if (driver->client != 0) {
        MIDIClientDispose(driver->client);
    }
    delete driver;
    sDriver = nullptr;
    return 0;
}

MIDIEntityRef AddPort(const FaultyDriver& driver, MIDIDeviceRef device, unsigned index) {
    CFStringRef name = CFStringCreateWithFormat(
        nullptr, nullptr, driver.fault == "no-names" ? CFSTR("Port %d") : CFSTR("Quorvel Port %d"),
        static_cast<int>(index + 1));
    MIDIEntityRef entity = 0;
    MIDIDeviceAddEntity(device, name, false, 1, 1, &entity);
    CFRelease(name);
    return entity;
}

OSStatus Start(MIDIDriverRef self, MIDIDeviceListRef devices) {
    FaultyDriver* driver = Self(self);
    if (driver->fault == "no-start") {
        return -1;
    }
    // The device of the last start serves again.
    const bool isNew = MIDIDeviceListGetNumberOfDevices(devices) == 0;
    MIDIDeviceRef device = isNew ? 0 : MIDIDeviceListGetDevice(devices, 0);
    if (isNew) {
        MIDIDeviceCreate(self, CFSTR("Faulty"), CFSTR("Quorvel"), CFSTR("Test"), &device);
    }
    MIDIClientCreate(CFSTR("faulty driver"), nullptr, nullptr, &driver->client);
    for (unsigned i = 0; i < kPorts; ++i) {
        const MIDIEntityRef entity =
            isNew ? AddPort(*driver, device, i) : MIDIDeviceGetEntity(device, i);
        MIDIEndpointSetRefCons(MIDIEntityGetDestination(entity, 0), driver,
                               reinterpret_cast<void*>(std::uintptr_t{i}));
        driver->ownSources[i] = MIDIEntityGetSource(entity, 0);
        MIDISourceCreate(driver->client, CFSTR("private"), &driver->privateSources[i]);
        MIDIObjectGetIntegerProperty(driver->privateSources[i], kMIDIPropertyUniqueID,
                                     &driver->ids[i]);
    }
    if (isNew) {
        MIDISetupAddDevice(device);
    }
    if (driver->fault != "no-message-port") {
        driver->messagePort = CFMessagePortCreateLocal(
            nullptr, CFSTR("Quorvel Virtual Source IDs Port"), AnswerWithIds, nullptr, nullptr);
        driver->runLoopSource = CFMessagePortCreateRunLoopSource(nullptr, driver->messagePort, 0);
        CFRunLoopAddSource(CFRunLoopGetCurrent(), driver->runLoopSource, kCFRunLoopDefaultMode);
    }
    return noErr;
}

OSStatus Stop(MIDIDriverRef self) {
    FaultyDriver* driver = Self(self);
    if (driver->messagePort != nullptr) {
        CFMessagePortInvalidate(driver->messagePort);
        CFRelease(driver->runLoopSource);
        CFRelease(driver->messagePort);
        driver->messagePort = nullptr;
    }
    return noErr;
}

// The bytes of a list that holds one packet, as this driver is sent them.
constexpr std::size_t kFirstData = kPacketListHeaderSize + kPacketHeaderSize;

void Emit(MIDIEndpointRef source, const std::vector<std::uint8_t>& list) {
    MIDIReceived(source, reinterpret_cast<const MIDIPacketList*>(list.data()));
}

void AnswerPing(const FaultyDriver& driver, unsigned port, std::vector<std::uint8_t> list) {
    constexpr std::array<std::uint8_t, 3> kPing = {0x90, 0x00, 0x00};
    if (list.size() != kFirstData + kPing.size() ||
        std::memcmp(&list[kFirstData], kPing.data(), kPing.size()) != 0 ||
        driver.fault == "no-reply") {
        return;
    }
    list[kFirstData + 2] = driver.fault == "wrong-reply" ? 0x7E : 0x7F;
    Emit(driver.ownSources[port], list);
    if (driver.fault == "two-replies") {
        Emit(driver.ownSources[port], list);
    }
}

OSStatus Send(MIDIDriverRef self, const MIDIPacketList* packets, void*, void* refCon) {
    FaultyDriver& driver = *Self(self);
    const auto port = static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(refCon));
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(packets);
    std::vector<std::uint8_t> list(bytes, bytes + PacketListSize(packets));
    AnswerPing(driver, port, list);
    ++driver.lists;
    if (driver.fault == "stall" && driver.lists >= kFaultyList) {
        return noErr;
    }
    if (driver.lists == kFaultyList) {
        if (driver.fault == "drop") {
            return noErr;
        }
        if (driver.fault == "alter") {
            list[kFirstData + 1] ^= 0x40;
        } else if (driver.fault == "repeat") {
            Emit(driver.privateSources[port], list);
        } else if (driver.fault == "wrong-port") {
            Emit(driver.privateSources[port + 1], list);
            return noErr;
        } else if (driver.fault == "reorder") {
            driver.kept = list;
            return noErr;
        }
    }
    Emit(driver.privateSources[port], list);
    if (!driver.kept.empty()) {
        Emit(driver.privateSources[port], driver.kept);
        driver.kept.clear();
    }
    return noErr;
}

OSStatus DoNothingWithDevices(MIDIDriverRef, MIDIDeviceListRef) {
    return noErr;
}
OSStatus DoNothingWithDevice(MIDIDriverRef, MIDIDeviceRef) {
    return noErr;
}
OSStatus DoNothingWithSource(MIDIDriverRef, MIDIEndpointRef, Boolean) {
    return noErr;
}
OSStatus DoNothingWithDestination(MIDIDriverRef, MIDIEndpointRef, void*, void*) {
    return noErr;
}
OSStatus DoNothingWithPackets(MIDIDriverRef, MIDIEndpointRef, const MIDIPacketList*) {
    return noErr;
}

constexpr MIDIDriverInterface MakeInterface() {
    MIDIDriverInterface table{};
    table.QueryInterface = QueryInterface;
    table.AddRef = AddRef;
    table.Release = Release;
    table.FindDevices = DoNothingWithDevices;
    table.Start = Start;
    table.Stop = Stop;
    table.Configure = DoNothingWithDevice;
    table.Send = Send;
    table.EnableSource = DoNothingWithSource;
    table.Flush = DoNothingWithDestination;
    table.Monitor = DoNothingWithPackets;
    return table;
}

constinit MIDIDriverInterface sInterface = MakeInterface();

} // namespace

extern "C" __attribute__((visibility("default"))) void* FaultyDriverFactory(CFAllocatorRef,
                                                                            CFUUIDRef type) {
    const char* fault = std::getenv("FAULTY_DRIVER");
    if (fault == nullptr || std::strcmp(fault, "no-instance") == 0 ||
        !CFEqual(type, kMIDIDriverTypeID)) {
        return nullptr;
    }
    sDriver = new FaultyDriver();
    sDriver->interface = &sInterface;
    sDriver->fault = fault;
    return sDriver;
}
