#include "midiserver/host/Host.h"

#include "midiserver/errors/Errors.h"
#include "midiserver/errors/NoThreadText.h"
#include "midiserver/host/CFText.h"
#include "midiserver/log/LogCategories.h"
#include "midiserver/log/Logging.h"

#include <CoreFoundation/CFMessagePortHost.h>
#include <CoreMIDI/MIDIServerHost.h>

#include <fmt/format.h>

namespace MidiServer {

namespace {

void RequireNoErr(OSStatus status, const char* what) {
    if (status != noErr) {
        throw HostError(fmt::format("{} (status {})", what, status));
    }
}

// A driver whose own port failed must not be taken for the one that another process serves under
// the same name.
void RequireMessagePort() {
    const CFOwned<CFStringRef> name = MakeCFString(kMessagePortName);
    const CFOwned<CFStringRef> failure(CFMessagePortHostCopyLocalFailure(name.Get()));
    if (failure) {
        throw HostError(fmt::format("the driver's message port \"{}\" cannot be made: {}",
                                    kMessagePortName, TextOf(failure.Get())));
    }
}

std::string NameOf(MIDIObjectRef object, CFStringRef property) {
    CFStringRef value = nullptr;
    if (MIDIObjectGetStringProperty(object, property, &value) != noErr) {
        return {};
    }
    return TextOf(CFOwned<CFStringRef>(value).Get());
}

std::optional<std::int32_t> UniqueIdOf(MIDIObjectRef object) {
    SInt32 id = 0;
    if (MIDIObjectGetIntegerProperty(object, kMIDIPropertyUniqueID, &id) != noErr) {
        return std::nullopt;
    }
    return id;
}

} // namespace

Host::Host(const std::filesystem::path& bundle, const Setup& setup)
    : mLoader(bundle), mSetup(setup) {
    const CFOwned<CFStringRef> identity = MakeCFString(mLoader.Identity());
    const OSStatus status = MIDIServerHostAttachDriver(mLoader.Driver(), identity.Get());
    if (status == kMIDIServerStartErr) {
        throw HostError(NoThreadText("the one that calls the driver"));
    }
    if (status == kMIDINotPermitted) {
        throw InputError(fmt::format(
            "plug-in {}: another one with the same identifier ({}) runs already in this program; "
            "give only one of them, or an identifier of its own to the other",
            bundle.string(), mLoader.Identity()));
    }
    RequireNoErr(status, "the driver cannot be attached");
    mAttached = true;
    Log(kHostLog[HSL::kChatty], "attached driver %s", mLoader.Identity());
}

Host::~Host() {
    Stop();
    if (mAttached) {
        MIDIServerHostDetachDriver(mLoader.Driver());
    }
}

void Host::Start() {
    MIDIDriverRef driver = mLoader.Driver();
    const MIDIDeviceListRef devices = MIDIServerHostCopyDeviceList(driver);
    const OSStatus status = (*driver)->Start(driver, devices);
    MIDIDeviceListDispose(devices);
    RequireNoErr(status, "the driver did not start");
    mRunning = true;
    RequireMessagePort();
    Log(kHostLog[HSL::kInfo], "started driver %s", mLoader.Identity());
    ListPorts();
    Log(kHostLog[HSL::kInfo], "ports found: %u", mPorts.size());
    mSetup.Save();
}

void Host::Stop() {
    if (!mRunning) {
        return;
    }
    mRunning = false;
    mPorts.clear();
    // Detaching drains what DAWs have sent, so the driver still gets it before it stops.
    MIDIDriverRef driver = mLoader.Driver();
    mAttached = false;
    MIDIServerHostDetachDriver(driver);
    (*driver)->Stop(driver);
    Log(kHostLog[HSL::kInfo], "stopped driver %s", mLoader.Identity());
}

void Host::ListPorts() {
    mPorts.clear();
    for (ItemCount d = 0; d < MIDIGetNumberOfDevices(); ++d) {
        const MIDIDeviceRef device = MIDIGetDevice(d);
        if (NameOf(device, kMIDIPropertyDriverOwner) != mLoader.Identity()) {
            continue;
        }
        for (ItemCount e = 0; e < MIDIDeviceGetNumberOfEntities(device); ++e) {
            if (mPorts.empty()) {
                mDeviceName = NameOf(device, kMIDIPropertyName);
                mDeviceId = UniqueIdOf(device);
            }
            const MIDIEntityRef entity = MIDIDeviceGetEntity(device, e);
            const MIDIEndpointRef source = MIDIEntityGetSource(entity, 0);
            const MIDIEndpointRef destination = MIDIEntityGetDestination(entity, 0);
            mPorts.push_back({NameOf(entity, kMIDIPropertyName), source, destination,
                              UniqueIdOf(source), UniqueIdOf(destination)});
            Log(kHostLog[HSL::kChatty], "port %u: %s", mPorts.size(), mPorts.back().name);
        }
    }
}

} // namespace MidiServer
