// What the host does: the setup's file, and drivers.
#include "platform/CoreMIDI/src/state/DeviceTree.h"
#include "platform/CoreMIDI/src/state/DriverIO.h"

#include <CoreMIDI/MIDIServerHost.h>

#include <algorithm>

namespace CoreMIDI {

namespace {

std::shared_ptr<DriverOutput> FindDriver(const World& world, MIDIDriverRef driver) {
    const auto found = std::ranges::find(world.mDrivers, driver,
                                         [](const auto& attached) { return attached->mDriver; });
    return found == world.mDrivers.end() ? nullptr : *found;
}

// All devices, in the setup or not, for which `condition` holds.
template <typename Condition>
std::vector<Device*> DevicesWhere(const World& world, const Condition& condition) {
    std::vector<Device*> devices;
    for (const auto& [uniqueID, object] : world.mUniqueIDs) {
        auto* const device = dynamic_cast<Device*>(object);
        if (device != nullptr && condition(*device)) {
            devices.push_back(device);
        }
    }
    return devices;
}

} // namespace

} // namespace CoreMIDI

using namespace CoreMIDI;

OSStatus MIDIServerHostOpenSetup(CFStringRef path) {
    return Answer([&]() -> OSStatus {
        if (path != nullptr && !IsString(path)) {
            return paramErr;
        }
        return World::Get().mSetup.Open(TextOf(path));
    });
}

OSStatus MIDIServerHostSaveSetup(void) {
    return Answer([] { return World::Get().mSetup.Save(); });
}

OSStatus MIDIServerHostAttachDriver(MIDIDriverRef driver, CFStringRef identity) {
    return Answer([&]() -> OSStatus {
        const std::optional<std::string> text = TextOf(identity);
        if (driver == nullptr || !text) {
            return paramErr;
        }
        if (!DriverIO::Get().Start()) {
            return kMIDIServerStartErr;
        }
        World& world = World::Get();
        Change change;
        for (const std::shared_ptr<DriverOutput>& attached : world.mDrivers) {
            if (attached->mDriver == driver || attached->mIdentity == *text) {
                return kMIDINotPermitted;
            }
        }
        auto output = std::make_shared<DriverOutput>();
        output->mDriver = driver;
        output->mIdentity = *text;
        world.mDrivers.push_back(output);
        const auto isItsOwn = [&](const Device& device) {
            return device.mOwner == driver ||
                   TextOf(static_cast<CFStringRef>(device.Find(kDriverOwnerProperty))) == text;
        };
        for (Device* device : DevicesWhere(world, isItsOwn)) {
            GiveToDriver(*device, output);
            change.NotifyProperty(*device, kOfflineProperty);
            change.SetupChanged(*device);
        }
        return noErr;
    });
}

MIDIDeviceListRef MIDIServerHostCopyDeviceList(MIDIDriverRef driver) {
    {
        World& world = World::Get();
        const std::lock_guard lock(world.mMutex);
        if (FindDriver(world, driver) == nullptr) {
            return 0;
        }
    }
    return MIDIGetDriverDeviceList(driver);
}

OSStatus MIDIServerHostDetachDriver(MIDIDriverRef driver) {
    return Answer([&]() -> OSStatus {
        if (DriverIO::Get().IsThisThread()) {
            return kMIDIWrongThread;
        }
        std::shared_ptr<DriverOutput> output;
        {
            World& world = World::Get();
            Change change;
            output = FindDriver(world, driver);
            if (output == nullptr) {
                return kMIDIObjectNotFound;
            }
            std::erase(world.mDrivers, output);
            const auto isServed = [&output](const Device& device) {
                return device.mOutput == output;
            };
            for (Device* device : DevicesWhere(world, isServed)) {
                GiveToDriver(*device, nullptr);
                change.NotifyProperty(*device, kOfflineProperty);
            }
        }
        DriverIO::Get().Detach(output);
        return noErr;
    });
}
