// A host with the driver in it: preferences, message ports and the MIDI setup are the test's own.
#pragma once

#include "MidiDriver/MidiPlugin.h"
#include "tests/contract/PluginTable.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/platform/PacketLists.h"
#include "tests/support/platform/PlatformFaults.h"
#include "tests/support/platform/ReceivedLists.h"
#include "tests/support/platform/SyslogCapture.h"
#include "tests/support/platform/TestPreferences.h"

#include <CoreMIDI/MIDIServerHost.h>

#include <gtest/gtest.h>

#include <stdlib.h>

#include <cstdint>
#include <string>
#include <vector>

class DriverFixture : public testing::Test {
protected:
    DriverFixture() {
        setenv("QUORVEL_RUNTIME_DIR", mRuntime.Path().c_str(), 1);
        EXPECT_EQ(MIDIServerHostOpenSetup(nullptr), noErr);
        TestSupport::ResetPlatformFaults();
        TestSupport::ClearSyslogLines();
    }

    ~DriverFixture() override { Close(); }

    void Open() {
        mDriver = TableOpen();
        ASSERT_NE(mDriver, nullptr);
        ASSERT_EQ(MIDIServerHostAttachDriver(mDriver, CFSTR("QuorvelMIDI.plugin")), noErr);
        TestSupport::ResetPlatformFaults();
    }

    // With the devices of the last run, as a server starts a driver.
    OSStatus Start() {
        const MIDIDeviceListRef devices = MIDIServerHostCopyDeviceList(mDriver);
        const OSStatus status = TableStart(mDriver, devices);
        MIDIDeviceListDispose(devices);
        return status;
    }

    // With no device of a last run.
    OSStatus StartAfresh() { return TableStart(mDriver, 0); }

    void OpenAndStart() {
        Open();
        ASSERT_EQ(Start(), noErr);
    }

    void Close() {
        if (mDriver != nullptr) {
            EXPECT_EQ(TableStop(mDriver), noErr);
            EXPECT_EQ(MIDIServerHostDetachDriver(mDriver), noErr);
            EXPECT_EQ(TableRelease(mDriver), 0U);
            mDriver = nullptr;
        }
    }

    OSStatus Send(unsigned int port, TestSupport::Bytes& list) {
        return TableSend(mDriver, TestSupport::AsPacketList(list), mDriver,
                         reinterpret_cast<void*>(std::uintptr_t{port}));
    }

    OSStatus SendMessage(unsigned int port, const TestSupport::Bytes& message) {
        TestSupport::Bytes list = TestSupport::MakePacketList({message});
        return Send(port, list);
    }

    const MIDIPlugin& Plugin() const { return *PluginOf(mDriver); }
    MIDIDeviceRef Device() const { return Plugin().device.load(); }

    MIDIEndpointRef PortSource(unsigned int port) const {
        return MIDIEntityGetSource(MIDIDeviceGetEntity(Device(), port), 0);
    }

    MIDIEndpointRef VirtualSource(unsigned int port) const {
        return Plugin().virtualSources.At(port).value_or(0);
    }

    TemporaryDirectory mRuntime;
    TestSupport::TestPreferences mPreferences;
    MIDIDriverRef mDriver = nullptr;
};
