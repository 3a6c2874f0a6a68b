// Lists of devices.
#include "platform/CoreMIDI/src/state/ServerState.h"

#include <CoreMIDI/MIDIDriver.h>

using namespace CoreMIDI;

ItemCount MIDIDeviceListGetNumberOfDevices(MIDIDeviceListRef devList) {
    ItemCount count = 0;
    WithObject<DeviceList>(devList, noErr,
                           [&](const DeviceList& list) QUORVEL_REQUIRES(sStateMutex) {
                               count = static_cast<ItemCount>(list.mDevices.size());
                               return noErr;
                           });
    return count;
}

MIDIDeviceRef MIDIDeviceListGetDevice(MIDIDeviceListRef devList, ItemCount index0) {
    MIDIDeviceRef device = 0;
    WithObject<DeviceList>(devList, noErr,
                           [&](const DeviceList& list) QUORVEL_REQUIRES(sStateMutex) {
                               device = index0 < list.mDevices.size() ? list.mDevices[index0] : 0;
                               return noErr;
                           });
    return device;
}

OSStatus MIDIDeviceListAddDevice(MIDIDeviceListRef devList, MIDIDeviceRef dev) {
    return WithObject<DeviceList>(devList, kMIDIObjectNotFound,
                                  [&](DeviceList& list) QUORVEL_REQUIRES(sStateMutex) -> OSStatus {
                                      if (ServerState::Get().Find<Device>(dev) == nullptr) {
                                          return kMIDIObjectNotFound;
                                      }
                                      list.mDevices.push_back(dev);
                                      return noErr;
                                  });
}

OSStatus MIDIDeviceListDispose(MIDIDeviceListRef devList) {
    return WithObject<DeviceList>(devList, kMIDIObjectNotFound,
                                  [](DeviceList& list) QUORVEL_REQUIRES(sStateMutex) {
                                      ServerState::Get().Remove(list);
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
