// What the host does: the setup's file, and drivers.
#include "platform/CoreMIDI/src/base/OnFailure.h"
#include "platform/CoreMIDI/src/state/DeviceTree.h"
#include "platform/CoreMIDI/src/state/DriverIO.h"

#include <CoreMIDI/MIDIServerHost.h>

#include <algorithm>

namespace CoreMIDI {

namespace {

std::shared_ptr<DriverOutput> FindDriver(const ServerState& state, MIDIDriverRef driver)
    QUORVEL_REQUIRES(sStateMutex) {
    const auto found = std::ranges::find(state.mDrivers, driver,
                                         [](const auto& attached) { return attached->mDriver; });
    return found == state.mDrivers.end() ? nullptr : *found;
}

// All devices, in the setup or not, for which `condition` holds.
template <typename Condition>
std::vector<Device*> DevicesWhere(const ServerState& state, const Condition& condition)
    QUORVEL_REQUIRES(sStateMutex) {
    std::vector<Device*> devices;
    for (const auto& [uniqueID, object] : state.mUniqueIDs) {
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
        return ServerState::Get().mSetup.Open(TextOf(path));
    });
}

OSStatus MIDIServerHostSaveSetup(void) {
    return Answer([] { return ServerState::Get().mSetup.Save(); });
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
        ServerState& state = ServerState::Get();
        Transaction transaction;
        for (const std::shared_ptr<DriverOutput>& attached : state.mDrivers) {
            if (attached->mDriver == driver || attached->mIdentity == *text) {
                return kMIDINotPermitted;
            }
        }
        auto output = std::make_shared<DriverOutput>();
        output->mDriver = driver;
        output->mIdentity = *text;
        state.mDrivers.push_back(output);
        const OnFailure remove([&]() QUORVEL_REQUIRES(sStateMutex) { state.mDrivers.pop_back(); });
        const std::vector<Device*> devices =
            DevicesWhere(state, [&](const Device& device) QUORVEL_REQUIRES(sStateMutex) {
                return device.mOwner == driver ||
                       TextOf(static_cast<CFStringRef>(device.Find(kDriverOwnerProperty))) == text;
            });
        GiveToDriver(devices, output);
        for (const Device* device : devices) {
            transaction.NotifyProperty(*device, kOfflineProperty);
            transaction.SetupChanged(*device);
        }
        return noErr;
    });
}

MIDIDeviceListRef MIDIServerHostCopyDeviceList(MIDIDriverRef driver) {
    const bool isAttached = AnswerOrZero([&] {
        ServerState& state = ServerState::Get();
        const MutexLock lock(sStateMutex);
        return FindDriver(state, driver) != nullptr;
    });
    return isAttached ? MIDIGetDriverDeviceList(driver) : 0;
}

OSStatus MIDIServerHostDetachDriver(MIDIDriverRef driver) {
    return Answer([&]() -> OSStatus {
        if (DriverIO::Get().IsThisThread()) {
            return kMIDIWrongThread;
        }
        std::shared_ptr<DriverOutput> output;
        {
            ServerState& state = ServerState::Get();
            Transaction transaction;
            output = FindDriver(state, driver);
            if (output == nullptr) {
                return kMIDIObjectNotFound;
            }
            std::erase(state.mDrivers, output);
            for (const auto& [uniqueID, object] : state.mUniqueIDs) {
                auto* const device = dynamic_cast<Device*>(object);
                if (device != nullptr && device->mOutput == output) {
                    TakeFromDriver(*device);
                    transaction.NotifyProperty(*device, kOfflineProperty);
                }
            }
        }
        DriverIO::Get().Detach(output);
        return noErr;
    });
}
