// Lists of devices.
#include "platform/CoreMIDI/src/state/World.h"

#include <CoreMIDI/MIDIDriver.h>

using namespace CoreMIDI;

ItemCount MIDIDeviceListGetNumberOfDevices(MIDIDeviceListRef devList) {
    return AnswerOrZero([&]() -> ItemCount {
        World& world = World::Get();
        const MutexLock lock(sStateMutex);
        const auto* const list = world.Find<DeviceList>(devList);
        return list == nullptr ? 0 : static_cast<ItemCount>(list->mDevices.size());
    });
}

MIDIDeviceRef MIDIDeviceListGetDevice(MIDIDeviceListRef devList, ItemCount index0) {
    return AnswerOrZero([&]() -> MIDIDeviceRef {
        World& world = World::Get();
        const MutexLock lock(sStateMutex);
        const auto* const list = world.Find<DeviceList>(devList);
        return list == nullptr || index0 >= list->mDevices.size() ? 0 : list->mDevices[index0];
    });
}

OSStatus MIDIDeviceListAddDevice(MIDIDeviceListRef devList, MIDIDeviceRef dev) {
    return Answer([&]() -> OSStatus {
        World& world = World::Get();
        const MutexLock lock(sStateMutex);
        auto* const list = world.Find<DeviceList>(devList);
        if (list == nullptr || world.Find<Device>(dev) == nullptr) {
            return kMIDIObjectNotFound;
        }
        list->mDevices.push_back(dev);
        return noErr;
    });
}

OSStatus MIDIDeviceListDispose(MIDIDeviceListRef devList) {
    return Answer([&]() -> OSStatus {
        World& world = World::Get();
        const MutexLock lock(sStateMutex);
        auto* const list = world.Find<DeviceList>(devList);
        if (list == nullptr) {
            return kMIDIObjectNotFound;
        }
        world.Remove(*list);
        return noErr;
    });
}

MIDIDeviceListRef MIDIGetDriverDeviceList(MIDIDriverRef driver) {
    return AnswerOrZero([&]() -> MIDIDeviceListRef {
        World& world = World::Get();
        const MutexLock lock(sStateMutex);
        auto& list = world.Add<DeviceList>(Kind::kDeviceList);
        const OnFailure remove([&]() QUORVEL_REQUIRES(sStateMutex) { world.Remove(list); });
        for (const Device* device : world.mSetupDevices) {
            if (driver != nullptr && device->mOwner == driver) {
                list.mDevices.push_back(device->mReference);
            }
        }
        return list.mReference;
    });
}
