// Loads the bundle as the server does and drives what it makes.
#pragma once

#include "tests/support/platform/CFText.h"
#include "tests/support/platform/PacketLists.h"

#include <CoreFoundation/CFPlugInCOM.h>
#include <CoreFoundation/CFPlugInHost.h>
#include <CoreMIDI/MIDIDriver.h>
#include <CoreMIDI/MIDIServerHost.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <string>

namespace Integration {

// Whether the bundle's module is mapped into the process.
inline bool ModuleIsLoaded() {
    std::ifstream maps("/proc/self/maps");
    std::string line;
    while (std::getline(maps, line)) {
        if (line.find("/Contents/Linux/QuorvelMIDI") != std::string::npos) {
            return true;
        }
    }
    return false;
}

class PluginHost {
public:
    // Null handles where a step failed; Driver() tells whether all went well.
    PluginHost() {
        const std::string path = QUORVEL_PLUGIN_BUNDLE;
        const auto url = CFOwned(CFURLCreateFromFileSystemRepresentation(
            nullptr, reinterpret_cast<const UInt8*>(path.data()), static_cast<CFIndex>(path.size()),
            true));
        mPlugIn = CFOwned(CFPlugInCreate(nullptr, url.Get()));
        if (!mPlugIn) {
            return;
        }
        const auto factories =
            CFOwned(CFPlugInFindFactoriesForPlugInTypeInPlugIn(kMIDIDriverTypeID, mPlugIn.Get()));
        if (!factories || CFArrayGetCount(factories.Get()) != 1) {
            return;
        }
        const auto factory = static_cast<CFUUIDRef>(CFArrayGetValueAtIndex(factories.Get(), 0));
        auto* const object = static_cast<IUnknownVTbl**>(
            CFPlugInInstanceCreate(nullptr, factory, kMIDIDriverTypeID));
        if (object == nullptr) {
            return;
        }
        void* driver = nullptr;
        (*object)->QueryInterface(object, CFUUIDGetUUIDBytes(kMIDIDriverInterface2ID), &driver);
        (*object)->Release(object);
        mDriver = static_cast<MIDIDriverRef>(driver);
        if (mDriver != nullptr) {
            EXPECT_EQ(MIDIServerHostAttachDriver(mDriver, CFSTR("QuorvelMIDI.plugin")), noErr);
        }
    }
    PluginHost(const PluginHost&) = delete;
    PluginHost& operator=(const PluginHost&) = delete;

    // Stops, releases and unloads.
    ~PluginHost() {
        if (mDriver != nullptr) {
            EXPECT_EQ((*mDriver)->Stop(mDriver), noErr);
            EXPECT_EQ(MIDIServerHostDetachDriver(mDriver), noErr);
            EXPECT_EQ((*mDriver)->Release(mDriver), 0U);
        }
    }

    MIDIDriverRef Driver() const { return mDriver; }

    OSStatus Start() {
        const MIDIDeviceListRef devices = MIDIServerHostCopyDeviceList(mDriver);
        const OSStatus status = (*mDriver)->Start(mDriver, devices);
        MIDIDeviceListDispose(devices);
        return status;
    }

    OSStatus Send(unsigned int port, TestSupport::Bytes& list) {
        return (*mDriver)->Send(mDriver, TestSupport::AsPacketList(list), mDriver,
                                reinterpret_cast<void*>(std::uintptr_t{port}));
    }

private:
    CFOwned<CFPlugInRef> mPlugIn;
    MIDIDriverRef mDriver = nullptr;
};

} // namespace Integration
