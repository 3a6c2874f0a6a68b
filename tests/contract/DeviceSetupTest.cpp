// What Start publishes and what Stop takes down.

#include "tests/contract/DriverFixture.h"
#include "tests/support/platform/CFText.h"
#include "tests/support/platform/SyslogCapture.h"

#include <gmock/gmock.h>

#include <map>
#include <set>

namespace {

using testing::IsEmpty;
using TestSupport::Bytes;
using TestSupport::FailPlatformCall;

using TestSupport::PlatformCalls;

std::string NameOf(MIDIObjectRef object, CFStringRef property = kMIDIPropertyName) {
    CFStringRef name = nullptr;
    EXPECT_EQ(MIDIObjectGetStringProperty(object, property, &name), noErr);
    return TestSupport::TextOf(CFOwned(name).Get());
}

SInt32 IntegerOf(MIDIObjectRef object, CFStringRef property) {
    SInt32 value = 0;
    EXPECT_EQ(MIDIObjectGetIntegerProperty(object, property, &value), noErr);
    return value;
}

// What a list of blocks is to lead to.
std::vector<TestSupport::Application> PortsConfigured(unsigned int numPorts) {
    if (numPorts == 0) {
        return {};
    }
    return {{std::to_string(numPorts - 3) + "-" + std::to_string(numPorts), "None"}};
}

class DeviceSetup : public DriverFixture {
protected:
    DeviceSetup() { TestSupport::ClearReceivedLists(); }

    void Configure(unsigned int numPorts) {
        mPreferences.SetApplications(PortsConfigured(numPorts));
    }

    void ExpectPublished(unsigned int numPorts) {
        const MIDIDeviceRef device = Device();
        ASSERT_NE(device, 0U);
        EXPECT_EQ(NameOf(device), "Quorvel MIDI");
        EXPECT_EQ(NameOf(device, kMIDIPropertyManufacturer), "Quorvel");
        EXPECT_EQ(NameOf(device, kMIDIPropertyModel), "Control Surface");
        ASSERT_EQ(MIDIDeviceGetNumberOfEntities(device), numPorts);
        ASSERT_EQ(Plugin().portSources.Size(), numPorts);
        ASSERT_EQ(Plugin().virtualSources.Size(), numPorts);
        ASSERT_EQ(sVirtualSourceIDs.Size(), numPorts);
        std::set<SInt32> ids;
        for (unsigned int i = 0; i < numPorts; i++) {
            ExpectPort(i);
            ids.insert(sVirtualSourceIDs.At(i).value_or(0));
        }
        EXPECT_EQ(ids.size(), numPorts);
    }

    void ExpectPort(unsigned int port) {
        SCOPED_TRACE(port);
        const std::string number = std::to_string(port + 1);
        const MIDIEntityRef entity = MIDIDeviceGetEntity(Device(), port);
        EXPECT_EQ(NameOf(entity), "Quorvel Port " + number);
        EXPECT_EQ(MIDIEntityGetNumberOfSources(entity), 1U);
        EXPECT_EQ(MIDIEntityGetNumberOfDestinations(entity), 1U);
        EXPECT_EQ(Plugin().portSources.At(port), MIDIEntityGetSource(entity, 0));
        SInt32 embedded = 0;
        MIDIObjectGetIntegerProperty(entity, kMIDIPropertyIsEmbeddedEntity, &embedded);
        EXPECT_EQ(embedded, 0);
        void* ref1 = nullptr;
        void* ref2 = nullptr;
        EXPECT_EQ(MIDIEndpointGetRefCons(MIDIEntityGetDestination(entity, 0), &ref1, &ref2), noErr);
        EXPECT_EQ(ref1, static_cast<void*>(mDriver));
        EXPECT_EQ(ref2, reinterpret_cast<void*>(std::uintptr_t{port}));

        const MIDIEndpointRef virtualSource = VirtualSource(port);
        EXPECT_EQ(NameOf(virtualSource), "Quorvel Virtual Source " + number);
        EXPECT_EQ(IntegerOf(virtualSource, kMIDIPropertyPrivate), 1);
        EXPECT_EQ(sVirtualSourceIDs.At(port), IntegerOf(virtualSource, kMIDIPropertyUniqueID));
        MIDIObjectRef found = 0;
        MIDIObjectType type = kMIDIObjectType_Other;
        EXPECT_EQ(MIDIObjectFindByUniqueID(sVirtualSourceIDs.At(port).value_or(0), &found, &type),
                  noErr);
        EXPECT_EQ(found, virtualSource);
        for (ItemCount i = 0; i < MIDIGetNumberOfSources(); i++) {
            EXPECT_NE(MIDIGetSource(i), virtualSource);
        }
    }

    bool MessagePortAnswers() {
        const auto name = TestSupport::MakeString("Quorvel Virtual Source IDs Port");
        const auto remote = CFOwned(CFMessagePortCreateRemote(nullptr, name.Get()));
        if (!remote) {
            return false;
        }
        CFDataRef reply = nullptr;
        const SInt32 result = CFMessagePortSendRequest(remote.Get(), 1, nullptr, 60, 60,
                                                       kCFRunLoopDefaultMode, &reply);
        const auto held = CFOwned(reply);
        return result == kCFMessagePortSuccess && reply != nullptr && CFDataGetLength(reply) == 16;
    }
};

class DeviceSetupForPortCount : public DeviceSetup,
                                public testing::WithParamInterface<unsigned int> {};

TEST_P(DeviceSetupForPortCount, PublishesTheConfiguredPorts) {
    Configure(GetParam());
    OpenAndStart();
    ExpectPublished(GetParam());
    EXPECT_EQ(MIDIGetNumberOfSources(), GetParam());
    EXPECT_EQ(MIDIGetNumberOfDestinations(), GetParam());
    EXPECT_TRUE(MessagePortAnswers());
}

INSTANTIATE_TEST_SUITE_P(Blocks, DeviceSetupForPortCount, testing::Values(4U, 8U, 20U, 32U));

TEST_F(DeviceSetup, PublishesFourPortsWithoutPreferences) {
    OpenAndStart();
    ExpectPublished(4);
}

TEST_F(DeviceSetup, PublishesFourPortsForARangeThatIsNoBlock) {
    mPreferences.SetApplications({{"1-2", "HUI"}});
    OpenAndStart();
    ExpectPublished(4);
}

TEST_F(DeviceSetup, ReusesTheLastRunsDeviceOfTheSameSize) {
    Configure(8);
    OpenAndStart();
    const MIDIDeviceRef device = Device();
    const MIDIEndpointRef virtualSource = VirtualSource(0);
    Close();
    Open();
    ASSERT_EQ(Start(), noErr);
    EXPECT_EQ(Device(), device);
    EXPECT_EQ(PlatformCalls("MIDIDeviceCreate"), 0);
    EXPECT_EQ(PlatformCalls("MIDISetupAddDevice"), 0);
    EXPECT_EQ(PlatformCalls("MIDISetupRemoveDevice"), 0);
    EXPECT_EQ(PlatformCalls("MIDISourceCreate"), 8);
    EXPECT_NE(VirtualSource(0), virtualSource);
    EXPECT_EQ(MIDIGetNumberOfDevices(), 1U);
    ExpectPublished(8);
}

TEST_F(DeviceSetup, ReplacesTheLastRunsDevicesOfAnotherSize) {
    Configure(4);
    OpenAndStart();
    const MIDIDeviceRef first = Device();
    ASSERT_EQ(StartAfresh(), noErr); // a second device of four
    ASSERT_NE(Device(), first);
    ASSERT_EQ(MIDIGetNumberOfDevices(), 2U);
    Close();
    Configure(8);
    Open();
    ASSERT_EQ(Start(), noErr);
    EXPECT_EQ(PlatformCalls("MIDISetupRemoveDevice"), 2);
    EXPECT_EQ(PlatformCalls("MIDIDeviceCreate"), 1);
    EXPECT_EQ(PlatformCalls("MIDISetupAddDevice"), 1);
    EXPECT_EQ(MIDIGetNumberOfDevices(), 1U);
    ExpectPublished(8);
}

TEST_F(DeviceSetup, LooksAtTheFirstOfSeveralDevicesOnly) {
    Configure(4);
    OpenAndStart();
    const MIDIDeviceRef first = Device();
    Configure(8);
    ASSERT_EQ(StartAfresh(), noErr);
    Close();
    Configure(4);
    Open();
    ASSERT_EQ(Start(), noErr);
    EXPECT_EQ(Device(), first);
    EXPECT_EQ(MIDIGetNumberOfDevices(), 2U);
    ExpectPublished(4);
}

TEST_F(DeviceSetup, ReadsThePortCountAtEachStart) {
    Configure(4);
    OpenAndStart();
    Configure(12);
    ASSERT_EQ(Start(), noErr);
    ExpectPublished(12);
    EXPECT_EQ(MIDIGetNumberOfDevices(), 1U);
    Configure(4);
    ASSERT_EQ(TableStop(mDriver), noErr);
    ASSERT_EQ(Start(), noErr);
    ExpectPublished(4);
}

TEST_F(DeviceSetup, SecondStartKeepsThePortAndLeavesTheEarlierSourcesAllocated) {
    OpenAndStart();
    const MIDIEndpointRef earlier = VirtualSource(0);
    const SInt32 earlierID = sVirtualSourceIDs.At(0).value_or(0);
    CFMessagePortRef const port = Plugin().messagePort;
    CFRunLoopSourceRef const source = Plugin().runLoopSource;
    ASSERT_EQ(Start(), noErr);
    ExpectPublished(4);
    EXPECT_EQ(Plugin().messagePort, port);
    EXPECT_EQ(Plugin().runLoopSource, source);
    EXPECT_EQ(PlatformCalls("CFMessagePortCreateLocal"), 1);
    EXPECT_EQ(PlatformCalls("CFMessagePortCreateRunLoopSource"), 1);
    EXPECT_NE(VirtualSource(0), earlier);
    EXPECT_EQ(IntegerOf(earlier, kMIDIPropertyUniqueID), earlierID);
    EXPECT_TRUE(MessagePortAnswers());
}

TEST_F(DeviceSetup, StopClosesThePortAndKeepsAllElse) {
    OpenAndStart();
    const MIDIDeviceRef device = Device();
    const MIDIEndpointRef virtualSource = VirtualSource(0);
    EXPECT_EQ(TableStop(mDriver), noErr);
    EXPECT_EQ(Device(), 0U);
    EXPECT_EQ(Plugin().messagePort, nullptr);
    EXPECT_EQ(Plugin().runLoopSource, nullptr);
    EXPECT_FALSE(MessagePortAnswers());
    EXPECT_EQ(MIDIDeviceGetNumberOfEntities(device), 4U);
    EXPECT_EQ(IntegerOf(virtualSource, kMIDIPropertyPrivate), 1);
    EXPECT_EQ(Plugin().virtualSources.Size(), 4U);
    EXPECT_EQ(Plugin().portSources.Size(), 4U);
    EXPECT_NE(Plugin().client, 0U);
    EXPECT_NE(Plugin().worker, nullptr);
}

TEST_F(DeviceSetup, StopIsHarmlessTwiceAndBeforeAnyStart) {
    Open();
    EXPECT_EQ(TableStop(mDriver), noErr);
    ASSERT_EQ(Start(), noErr);
    EXPECT_EQ(TableStop(mDriver), noErr);
    EXPECT_EQ(TableStop(mDriver), noErr);
    EXPECT_EQ(Device(), 0U);
}

TEST_F(DeviceSetup, StartsAgainAfterAStop) {
    OpenAndStart();
    ASSERT_EQ(TableStop(mDriver), noErr);
    ASSERT_EQ(Start(), noErr);
    ExpectPublished(4);
    EXPECT_TRUE(MessagePortAnswers());
}

TEST_F(DeviceSetup, RunsWithoutAMessagePortThatCannotBeMade) {
    Open();
    FailPlatformCall("CFMessagePortCreateLocal");
    EXPECT_EQ(Start(), noErr);
    ExpectPublished(4);
    EXPECT_EQ(Plugin().messagePort, nullptr);
    EXPECT_FALSE(MessagePortAnswers());
    EXPECT_EQ(Start(), noErr); // the next start tries again
    EXPECT_TRUE(MessagePortAnswers());
}

TEST_F(DeviceSetup, RunsWithoutARunLoopSourceThatCannotBeMade) {
    Open();
    FailPlatformCall("CFMessagePortCreateRunLoopSource");
    EXPECT_EQ(Start(), noErr);
    ExpectPublished(4);
    EXPECT_NE(Plugin().messagePort, nullptr);
    EXPECT_EQ(Plugin().runLoopSource, nullptr);
    EXPECT_EQ(TableStop(mDriver), noErr);
    EXPECT_EQ(Plugin().messagePort, nullptr);
    EXPECT_EQ(Start(), noErr);
    EXPECT_TRUE(MessagePortAnswers());
}

TEST_F(DeviceSetup, KeepsANullSourceInItsPlaceAndSkipsANullDestination) {
    Open();
    FailPlatformCall("MIDIEntityGetSource", 2);
    FailPlatformCall("MIDIEntityGetDestination", 3);
    EXPECT_EQ(Start(), noErr);
    EXPECT_EQ(PlatformCalls("MIDIEndpointSetRefCons"), 3);
    EXPECT_EQ(Plugin().portSources.Size(), 4U);
    EXPECT_EQ(Plugin().portSources.At(1), MIDIEndpointRef{0});
    EXPECT_EQ(Plugin().portSources.At(2), PortSource(2));
}

TEST_F(DeviceSetup, SkipsANullEntity) {
    Open();
    FailPlatformCall("MIDIDeviceGetEntity", 1);
    EXPECT_EQ(Start(), noErr);
    EXPECT_EQ(Plugin().portSources.Size(), 3U);
    EXPECT_EQ(Plugin().portSources.At(0), PortSource(1));
}

TEST_F(DeviceSetup, FailedStartLeavesWhatItMadeAndTakesPacketsForThosePorts) {
    Open();
    FailPlatformCall("MIDISourceCreate", 3);
    EXPECT_EQ(Start(), kMIDINoCurrentSetup);
    EXPECT_NE(Device(), 0U);
    EXPECT_EQ(Plugin().portSources.Size(), 4U);
    EXPECT_EQ(Plugin().virtualSources.Size(), 2U);
    EXPECT_EQ(sVirtualSourceIDs.Size(), 2U);
    EXPECT_EQ(Plugin().messagePort, nullptr);
    EXPECT_EQ(SendMessage(1, {0x90, 0x3C, 0x7F}), noErr);
    EXPECT_EQ(SendMessage(2, {0x90, 0x3C, 0x7F}), kMIDIInvalidPort);
    EXPECT_TRUE(TestSupport::WaitForReceivedLists(1));
    EXPECT_EQ(TestSupport::ReceivedLists()[0].source, VirtualSource(1));
}

TEST_F(DeviceSetup, FailedStartAtTheLastPropertyKeepsTheSourceWithoutItsID) {
    Open();
    FailPlatformCall("MIDIObjectGetIntegerProperty", 2);
    EXPECT_EQ(Start(), kMIDINoCurrentSetup);
    EXPECT_EQ(Plugin().virtualSources.Size(), 2U);
    EXPECT_EQ(sVirtualSourceIDs.Size(), 1U);
}

struct FailingCall {
    const char* function;
    int n;
};

void PrintTo(const FailingCall& call, std::ostream* out) {
    *out << call.function << " call " << call.n;
}

class DeviceSetupFault : public DeviceSetup, public testing::WithParamInterface<FailingCall> {};

TEST_P(DeviceSetupFault, FailsWithOneStatusLogsNothingAndCanStartAgain) {
    // A device of another size to be removed, so that every call of Start is made.
    Configure(8);
    OpenAndStart();
    ASSERT_EQ(TableStop(mDriver), noErr);
    Configure(4);
    TestSupport::ResetPlatformFaults();
    TestSupport::ClearSyslogLines();
    FailPlatformCall(GetParam().function, GetParam().n, -10841);
    EXPECT_EQ(Start(), -10837);
    EXPECT_EQ(PlatformCalls(GetParam().function), GetParam().n);
    EXPECT_EQ(PlatformCalls("CFMessagePortCreateLocal"), 0);
    EXPECT_THAT(TestSupport::SyslogLines(), IsEmpty());
    ASSERT_EQ(TableStop(mDriver), noErr);
    EXPECT_EQ(Start(), noErr);
    ExpectPublished(4);
}

INSTANTIATE_TEST_SUITE_P(
    EachCallOfStart, DeviceSetupFault,
    testing::Values(
        FailingCall{"MIDISetupRemoveDevice", 1}, FailingCall{"MIDIDeviceCreate", 1},
        FailingCall{"CFStringCreateWithCString", 1}, FailingCall{"CFStringCreateWithCString", 4},
        FailingCall{"MIDIDeviceAddEntity", 1}, FailingCall{"MIDIDeviceAddEntity", 4},
        FailingCall{"MIDISetupAddDevice", 1}, FailingCall{"MIDIEndpointSetRefCons", 1},
        FailingCall{"MIDIEndpointSetRefCons", 4}, FailingCall{"CFStringCreateWithFormat", 1},
        FailingCall{"CFStringCreateWithFormat", 4}, FailingCall{"MIDISourceCreate", 1},
        FailingCall{"MIDISourceCreate", 4}, FailingCall{"MIDIObjectSetIntegerProperty", 1},
        FailingCall{"MIDIObjectSetIntegerProperty", 4},
        FailingCall{"MIDIObjectGetIntegerProperty", 1},
        FailingCall{"MIDIObjectGetIntegerProperty", 4}));

} // namespace
