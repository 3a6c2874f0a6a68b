#include "tests/support/platform/PlatformFaults.h"

#include "tests/support/ProgramCode.h"

#include <CoreFoundation/CoreFoundation.h>
#include <CoreMIDI/MIDIDriver.h>
#include <CoreMIDI/MIDISetup.h>

#include <dlfcn.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <optional>

namespace TestSupport {

namespace {

struct Calls {
    int count = 0;
    int failing = 0; // 0 when none is to fail
    OSStatus status = noErr;
};

std::mutex sMutex;

// Never destroyed: threads may call while the process ends.
std::map<std::string, Calls>& AllCalls() {
    static auto* const calls = new std::map<std::string, Calls>;
    return *calls;
}

// Counts the call if `caller`, its return address, lies in the program; its status if it is to
// fail.
std::optional<OSStatus> Fault(const char* function, const void* caller) {
    if (!IsInProgram(caller)) {
        return std::nullopt;
    }
    const std::lock_guard lock(sMutex);
    Calls& calls = AllCalls()[function];
    calls.count++;
    if (calls.count != calls.failing) {
        return std::nullopt;
    }
    return calls.status;
}

template <typename Function>
Function* RealFunction(Function* /*same type*/, const char* name) {
    void* const real = dlsym(RTLD_NEXT, name);
    if (real == nullptr) {
        std::fprintf(stderr, "PlatformFaults: no %s to pass the call on to\n", name);
        std::abort();
    }
    return reinterpret_cast<Function*>(real);
}

} // namespace

void FailPlatformCall(const std::string& function, int n, OSStatus status) {
    const std::lock_guard lock(sMutex);
    Calls& calls = AllCalls()[function];
    calls.failing = calls.count + n;
    calls.status = status;
}

void ResetPlatformFaults() {
    const std::lock_guard lock(sMutex);
    AllCalls().clear();
}

int PlatformCalls(const std::string& function) {
    const std::lock_guard lock(sMutex);
    return AllCalls()[function].count;
}

} // namespace TestSupport

using TestSupport::Fault;
using TestSupport::RealFunction;

OSStatus MIDIClientCreate(CFStringRef name, MIDINotifyProc notifyProc, void* notifyRefCon,
                          MIDIClientRef* outClient) {
    const auto fault = Fault("MIDIClientCreate", __builtin_return_address(0));
    return fault ? *fault
                 : RealFunction(MIDIClientCreate, "MIDIClientCreate")(name, notifyProc,
                                                                      notifyRefCon, outClient);
}

OSStatus MIDIClientDispose(MIDIClientRef client) {
    const auto fault = Fault("MIDIClientDispose", __builtin_return_address(0));
    return fault ? *fault : RealFunction(MIDIClientDispose, "MIDIClientDispose")(client);
}

OSStatus MIDIDeviceCreate(MIDIDriverRef owner, CFStringRef name, CFStringRef manufacturer,
                          CFStringRef model, MIDIDeviceRef* outDevice) {
    const auto fault = Fault("MIDIDeviceCreate", __builtin_return_address(0));
    return fault ? *fault
                 : RealFunction(MIDIDeviceCreate, "MIDIDeviceCreate")(owner, name, manufacturer,
                                                                      model, outDevice);
}

OSStatus MIDIDeviceAddEntity(MIDIDeviceRef device, CFStringRef name, Boolean embedded,
                             ItemCount numSourceEndpoints, ItemCount numDestinationEndpoints,
                             MIDIEntityRef* newEntity) {
    const auto fault = Fault("MIDIDeviceAddEntity", __builtin_return_address(0));
    return fault ? *fault
                 : RealFunction(MIDIDeviceAddEntity,
                                "MIDIDeviceAddEntity")(device, name, embedded, numSourceEndpoints,
                                                       numDestinationEndpoints, newEntity);
}

OSStatus MIDISetupAddDevice(MIDIDeviceRef device) {
    const auto fault = Fault("MIDISetupAddDevice", __builtin_return_address(0));
    return fault ? *fault : RealFunction(MIDISetupAddDevice, "MIDISetupAddDevice")(device);
}

OSStatus MIDISetupRemoveDevice(MIDIDeviceRef device) {
    const auto fault = Fault("MIDISetupRemoveDevice", __builtin_return_address(0));
    return fault ? *fault : RealFunction(MIDISetupRemoveDevice, "MIDISetupRemoveDevice")(device);
}

MIDIEntityRef MIDIDeviceGetEntity(MIDIDeviceRef device, ItemCount entityIndex0) {
    const auto fault = Fault("MIDIDeviceGetEntity", __builtin_return_address(0));
    return fault ? 0
                 : RealFunction(MIDIDeviceGetEntity, "MIDIDeviceGetEntity")(device, entityIndex0);
}

MIDIEndpointRef MIDIEntityGetDestination(MIDIEntityRef entity, ItemCount destIndex0) {
    const auto fault = Fault("MIDIEntityGetDestination", __builtin_return_address(0));
    return fault ? 0
                 : RealFunction(MIDIEntityGetDestination, "MIDIEntityGetDestination")(entity,
                                                                                      destIndex0);
}

MIDIEndpointRef MIDIEntityGetSource(MIDIEntityRef entity, ItemCount sourceIndex0) {
    const auto fault = Fault("MIDIEntityGetSource", __builtin_return_address(0));
    return fault ? 0
                 : RealFunction(MIDIEntityGetSource, "MIDIEntityGetSource")(entity, sourceIndex0);
}

OSStatus MIDIEndpointSetRefCons(MIDIEndpointRef endpt, void* ref1, void* ref2) {
    const auto fault = Fault("MIDIEndpointSetRefCons", __builtin_return_address(0));
    return fault
               ? *fault
               : RealFunction(MIDIEndpointSetRefCons, "MIDIEndpointSetRefCons")(endpt, ref1, ref2);
}

OSStatus MIDISourceCreate(MIDIClientRef client, CFStringRef name, MIDIEndpointRef* outSrc) {
    const auto fault = Fault("MIDISourceCreate", __builtin_return_address(0));
    return fault ? *fault
                 : RealFunction(MIDISourceCreate, "MIDISourceCreate")(client, name, outSrc);
}

OSStatus MIDIEndpointDispose(MIDIEndpointRef endpt) {
    const auto fault = Fault("MIDIEndpointDispose", __builtin_return_address(0));
    return fault ? *fault : RealFunction(MIDIEndpointDispose, "MIDIEndpointDispose")(endpt);
}

OSStatus MIDIObjectSetIntegerProperty(MIDIObjectRef obj, CFStringRef propertyID, SInt32 value) {
    const auto fault = Fault("MIDIObjectSetIntegerProperty", __builtin_return_address(0));
    return fault ? *fault
                 : RealFunction(MIDIObjectSetIntegerProperty,
                                "MIDIObjectSetIntegerProperty")(obj, propertyID, value);
}

OSStatus MIDIObjectGetIntegerProperty(MIDIObjectRef obj, CFStringRef propertyID, SInt32* outValue) {
    const auto fault = Fault("MIDIObjectGetIntegerProperty", __builtin_return_address(0));
    return fault ? *fault
                 : RealFunction(MIDIObjectGetIntegerProperty,
                                "MIDIObjectGetIntegerProperty")(obj, propertyID, outValue);
}

CFStringRef CFStringCreateWithCString(CFAllocatorRef alloc, const char* cStr,
                                      CFStringEncoding encoding) {
    const auto fault = Fault("CFStringCreateWithCString", __builtin_return_address(0));
    return fault ? nullptr
                 : RealFunction(CFStringCreateWithCString, "CFStringCreateWithCString")(alloc, cStr,
                                                                                        encoding);
}

CFStringRef CFStringCreateWithFormat(CFAllocatorRef alloc, CFDictionaryRef formatOptions,
                                     CFStringRef format, ...) {
    if (Fault("CFStringCreateWithFormat", __builtin_return_address(0))) {
        return nullptr;
    }
    va_list arguments;
    va_start(arguments, format);
    CFStringRef text =
        CFStringCreateWithFormatAndArguments(alloc, formatOptions, format, arguments);
    va_end(arguments);
    return text;
}

CFUUIDRef CFUUIDCreateFromString(CFAllocatorRef alloc, CFStringRef uuidStr) {
    const auto fault = Fault("CFUUIDCreateFromString", __builtin_return_address(0));
    return fault ? nullptr
                 : RealFunction(CFUUIDCreateFromString, "CFUUIDCreateFromString")(alloc, uuidStr);
}

CFUUIDRef CFUUIDCreateFromUUIDBytes(CFAllocatorRef alloc, CFUUIDBytes bytes) {
    const auto fault = Fault("CFUUIDCreateFromUUIDBytes", __builtin_return_address(0));
    return fault
               ? nullptr
               : RealFunction(CFUUIDCreateFromUUIDBytes, "CFUUIDCreateFromUUIDBytes")(alloc, bytes);
}

CFUUIDRef CFUUIDGetConstantUUIDWithBytes(CFAllocatorRef alloc, UInt8 byte0, UInt8 byte1,
                                         UInt8 byte2, UInt8 byte3, UInt8 byte4, UInt8 byte5,
                                         UInt8 byte6, UInt8 byte7, UInt8 byte8, UInt8 byte9,
                                         UInt8 byte10, UInt8 byte11, UInt8 byte12, UInt8 byte13,
                                         UInt8 byte14, UInt8 byte15) {
    const auto fault = Fault("CFUUIDGetConstantUUIDWithBytes", __builtin_return_address(0));
    return fault ? nullptr
                 : RealFunction(CFUUIDGetConstantUUIDWithBytes, "CFUUIDGetConstantUUIDWithBytes")(
                       alloc, byte0, byte1, byte2, byte3, byte4, byte5, byte6, byte7, byte8, byte9,
                       byte10, byte11, byte12, byte13, byte14, byte15);
}

CFMessagePortRef CFMessagePortCreateLocal(CFAllocatorRef allocator, CFStringRef name,
                                          CFMessagePortCallBack callout,
                                          CFMessagePortContext* context, Boolean* shouldFreeInfo) {
    const auto fault = Fault("CFMessagePortCreateLocal", __builtin_return_address(0));
    return fault ? nullptr
                 : RealFunction(CFMessagePortCreateLocal, "CFMessagePortCreateLocal")(
                       allocator, name, callout, context, shouldFreeInfo);
}

CFRunLoopSourceRef CFMessagePortCreateRunLoopSource(CFAllocatorRef allocator,
                                                    CFMessagePortRef local, CFIndex order) {
    const auto fault = Fault("CFMessagePortCreateRunLoopSource", __builtin_return_address(0));
    return fault ? nullptr
                 : RealFunction(CFMessagePortCreateRunLoopSource,
                                "CFMessagePortCreateRunLoopSource")(allocator, local, order);
}
