#include "tests/contract/PluginTable.h"

#include <CoreMIDI/MIDIDriver.h>

#include <stddef.h>

MIDIDriverRef TableOpen(void) {
    IUnknownVTbl** const object = MIDIPluginFactory(NULL, kMIDIDriverTypeID);
    void* driver = NULL;
    if (object == NULL) {
        return NULL;
    }
    if ((*object)->QueryInterface(object, CFUUIDGetUUIDBytes(kMIDIDriverInterface2ID), &driver) !=
        S_OK) {
        driver = NULL;
    }
    (*object)->Release(object);
    return driver;
}

HRESULT TableQueryInterface(MIDIDriverRef driver, CFUUIDBytes iid, void** ppv) {
    return (*driver)->QueryInterface(driver, iid, ppv);
}

ULONG TableAddRef(MIDIDriverRef driver) {
    return (*driver)->AddRef(driver);
}

ULONG TableRelease(MIDIDriverRef driver) {
    return (*driver)->Release(driver);
}

OSStatus TableFindDevices(MIDIDriverRef driver, MIDIDeviceListRef devices) {
    return (*driver)->FindDevices(driver, devices);
}

OSStatus TableStart(MIDIDriverRef driver, MIDIDeviceListRef devices) {
    return (*driver)->Start(driver, devices);
}

OSStatus TableStop(MIDIDriverRef driver) {
    return (*driver)->Stop(driver);
}

OSStatus TableConfigure(MIDIDriverRef driver, MIDIDeviceRef device) {
    return (*driver)->Configure(driver, device);
}

OSStatus TableSend(MIDIDriverRef driver, const MIDIPacketList* list, void* destRef1,
                   void* destRef2) {
    return (*driver)->Send(driver, list, destRef1, destRef2);
}

OSStatus TableEnableSource(MIDIDriverRef driver, MIDIEndpointRef source, Boolean enabled) {
    return (*driver)->EnableSource(driver, source, enabled);
}

OSStatus TableFlush(MIDIDriverRef driver, MIDIEndpointRef destination, void* destRef1,
                    void* destRef2) {
    return (*driver)->Flush(driver, destination, destRef1, destRef2);
}

OSStatus TableMonitor(MIDIDriverRef driver, MIDIEndpointRef destination,
                      const MIDIPacketList* list) {
    return (*driver)->Monitor(driver, destination, list);
}

const void* TableReserved(MIDIDriverRef driver) {
    return (*driver)->_reserved;
}

int TableCountNullEntries(MIDIDriverRef driver) {
    const MIDIDriverInterface* const table = *driver;
    return (table->QueryInterface == NULL) + (table->AddRef == NULL) + (table->Release == NULL) +
           (table->FindDevices == NULL) + (table->Start == NULL) + (table->Stop == NULL) +
           (table->Configure == NULL) + (table->Send == NULL) + (table->EnableSource == NULL) +
           (table->Flush == NULL) + (table->Monitor == NULL);
}
