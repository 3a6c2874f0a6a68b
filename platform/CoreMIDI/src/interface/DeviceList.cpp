// Lists of devices.
#include "platform/CoreMIDI/src/state/ServerState.h"

#include <CoreMIDI/MIDIDriver.h>

using namespace CoreMIDI;

ItemCount MIDIDeviceListGetNumberOfDevices(MIDIDeviceListRef devList) {
    return AnswerOrZero([&]() -> ItemCount {
        ServerState& state = ServerState::Get();
        const MutexLock lock(sStateMutex);
        const auto* const list = state.Find<DeviceList>(devList);
        return list == nullptr ? 0 : static_cast<ItemCount>(list->mDevices.size());
    });
}

MIDIDeviceRef MIDIDeviceListGetDevice(MIDIDeviceListRef devList, ItemCount index0) {
    return AnswerOrZero([&]() -> MIDIDeviceRef {
        ServerState& state = ServerState::Get();
        const MutexLock lock(sStateMutex);
        const auto* const list = state.Find<DeviceList>(devList);
        return list == nullptr || index0 >= list->mDevices.size() ? 0 : list->mDevices[index0];
    });
}

OSStatus MIDIDeviceListAddDevice(MIDIDeviceListRef devList, MIDIDeviceRef dev) {
    return Answer([&]() -> OSStatus {
        ServerState& state = ServerState::Get();
        const MutexLock lock(sStateMutex);
        auto* const list = state.Find<DeviceList>(devList);
        if (list == nullptr || state.Find<Device>(dev) == nullptr) {
            return kMIDIObjectNotFound;
        }
        list->mDevices.push_back(dev);
        return noErr;
    });
}

OSStatus MIDIDeviceListDispose(MIDIDeviceListRef devList) {
    return Answer([&]() -> OSStatus {
        ServerState& state = ServerState::Get();
        const MutexLock lock(sStateMutex);
        auto* const list = state.Find<DeviceList>(devList);
        if (list == nullptr) {
            return kMIDIObjectNotFound;
        }
        state.Remove(*list);
        return noErr;
    });
}

MIDIDeviceListRef MIDIGetDriverDeviceList(MIDIDriverRef driver) {
    return AnswerOrZero([&]() -> MIDIDeviceListRef {
        ServerState& state = ServerState::Get();
        const MutexLock lock(sStateMutex);
        auto& list = state.Add<DeviceList>(Kind::kDeviceList);
        const OnFailure remove([&]() QUORVEL_REQUIRES(sStateMutex) { state.Remove(list); });
        for (const Device* device : state.mSetupDevices) {
            if (driver != nullptr && device->mOwner == driver) {
                list.mDevices.push_back(device->mReference);
            }
        }
        return list.mReference;
    });
}
