// The factory, the interface look-up, the reference count and the instance's life.

#include "MidiDriver/MidiReceiver.h"
#include "runtime/thread/NyThread.h"
#include "tests/contract/DriverFixture.h"
#include "tests/support/platform/CFText.h"
#include "tests/support/platform/SyslogCapture.h"

#include <gmock/gmock.h>

#include <syslog.h>

#include <algorithm>
#include <thread>

namespace {

using testing::Contains;
using testing::IsEmpty;
using TestSupport::Bytes;
using TestSupport::ClearSyslogLines;
using TestSupport::FailPlatformCall;

using TestSupport::SyslogLine;
using TestSupport::SyslogLines;

const Bytes kHUIPing{0x90, 0x00, 0x00};
const Bytes kMackiePing{0xF0, 0x00, 0x00, 0x66, 0x14, 0x00, 0xF7};

std::vector<SyslogLine> ErrorLines() {
    std::vector<SyslogLine> errors;
    for (const SyslogLine& line : SyslogLines()) {
        if (line.mPriority == LOG_ERR) {
            errors.push_back(line);
        }
    }
    return errors;
}

class PluginInstance : public DriverFixture {
protected:
    PluginInstance() { TestSupport::ClearReceivedLists(); }

    // Whether the port answers each of the two protocols' pings.
    std::pair<bool, bool> Answers(unsigned int port) {
        const auto answers = [this, port](const Bytes& ping) {
            TestSupport::ClearReceivedLists();
            EXPECT_EQ(SendMessage(port, ping), noErr);
            // The reply is there when Send returns; what is forwarded comes on other sources.
            const auto lists = TestSupport::ReceivedLists();
            return std::any_of(lists.begin(), lists.end(), [this, port](const auto& received) {
                return received.source == PortSource(port);
            });
        };
        const bool hui = answers(kHUIPing);
        return {hui, answers(kMackiePing)};
    }
};

constexpr std::pair kNoAnswers{false, false};
constexpr std::pair kAnswersHUI{true, false};
constexpr std::pair kAnswersMackie{false, true};

TEST_F(PluginInstance, FactoryRefusesAnotherTypeButInitialisesTheRuntime) {
    MIDIPlugin* const before = sPluginRef.load();
    // The runtime takes the thread that initialises it for the main one.
    std::thread([] {
        EXPECT_FALSE(NyThread::IsMainThread());
        EXPECT_EQ(MIDIPluginFactory(nullptr, kMIDIDriverInterface2ID), nullptr);
        EXPECT_TRUE(NyThread::IsMainThread());
    }).join();
    EXPECT_EQ(sPluginRef.load(), before);
}

TEST_F(PluginInstance, FactoryBuildsAStoppedInstanceWithOneReference) {
    void* const made = MIDIPluginFactory(nullptr, kMIDIDriverTypeID);
    ASSERT_NE(made, nullptr);
    EXPECT_TRUE(NyThread::IsMainThread());
    EXPECT_EQ(sPluginRef.load(), made);
    const MIDIPlugin& plugin = *static_cast<MIDIPlugin*>(made);
    EXPECT_EQ(*static_cast<MIDIDriverInterface**>(made), plugin.interface);
    EXPECT_EQ(plugin.refCount, 1U);
    EXPECT_EQ(plugin.device.load(), 0U);
    EXPECT_EQ(plugin.portSources.Size(), 0U);
    EXPECT_EQ(plugin.virtualSources.Size(), 0U);
    EXPECT_EQ(plugin.messagePort, nullptr);
    EXPECT_EQ(plugin.runLoopSource, nullptr);
    EXPECT_NE(plugin.client, 0U);
    EXPECT_NE(plugin.worker, nullptr);
    EXPECT_EQ(TableRelease(static_cast<MIDIDriverRef>(made)), 0U);
}

TEST_F(PluginInstance, TableHasEveryEntryAndANullReservedWord) {
    Open();
    EXPECT_EQ(TableReserved(mDriver), nullptr);
    EXPECT_EQ(TableCountNullEntries(mDriver), 0);
}

TEST_F(PluginInstance, QueryInterfaceAddsAReferenceForTheDriverInterface) {
    Open();
    void* found = nullptr;
    EXPECT_EQ(TableQueryInterface(mDriver, CFUUIDGetUUIDBytes(kMIDIDriverInterface2ID), &found),
              S_OK);
    EXPECT_EQ(found, static_cast<void*>(mDriver));
    EXPECT_EQ(TableRelease(mDriver), 1U);
}

TEST_F(PluginInstance, QueryInterfaceRefusesEverythingElseIUnknownAndTheFirstVersionIncluded) {
    Open();
    for (CFUUIDRef other : {IUnknownUUID, kMIDIDriverInterfaceID, kMIDIDriverTypeID}) {
        void* found = mDriver;
        EXPECT_EQ(TableQueryInterface(mDriver, CFUUIDGetUUIDBytes(other), &found), E_NOINTERFACE);
        EXPECT_EQ(found, nullptr);
    }
    EXPECT_EQ(static_cast<UInt32>(E_NOINTERFACE), 0x80000004U);
    EXPECT_EQ(TableAddRef(mDriver), 2U);
    EXPECT_EQ(TableRelease(mDriver), 1U);
}

TEST_F(PluginInstance, QueryInterfaceRefusesEverythingWhenItsUUIDsCannotBeMade) {
    Open();
    const CFUUIDBytes iid = CFUUIDGetUUIDBytes(kMIDIDriverInterface2ID);
    for (const char* function : {"CFUUIDCreateFromUUIDBytes", "CFUUIDGetConstantUUIDWithBytes"}) {
        FailPlatformCall(function);
        void* found = mDriver;
        EXPECT_EQ(TableQueryInterface(mDriver, iid, &found), E_NOINTERFACE) << function;
        EXPECT_EQ(found, nullptr) << function;
    }
    EXPECT_EQ(TableAddRef(mDriver), 2U);
    EXPECT_EQ(TableRelease(mDriver), 1U);
}

TEST_F(PluginInstance, FactoryMakesNothingWhenItsUUIDsCannotBeMade) {
    const MIDIPlugin* const before = sPluginRef.load();
    CFUUIDRef type = kMIDIDriverTypeID;
    for (const char* function : {"CFUUIDCreateFromString", "CFUUIDGetConstantUUIDWithBytes"}) {
        FailPlatformCall(function);
        EXPECT_EQ(MIDIPluginFactory(nullptr, type), nullptr) << function;
    }
    EXPECT_EQ(sPluginRef.load(), before);
}

TEST_F(PluginInstance, ThirdReleaseAfterTwoAddRefsDestroysTheInstance) {
    Open();
    ASSERT_EQ(Start(), noErr);
    const MIDIEndpointRef virtualSource = VirtualSource(0);
    ASSERT_EQ(TableStop(mDriver), noErr);
    ASSERT_EQ(MIDIServerHostDetachDriver(mDriver), noErr);
    EXPECT_EQ(TableAddRef(mDriver), 2U);
    EXPECT_EQ(TableAddRef(mDriver), 3U);
    EXPECT_EQ(TableRelease(mDriver), 2U);
    EXPECT_EQ(TableRelease(mDriver), 1U);
    SInt32 uniqueID = 0;
    EXPECT_EQ(MIDIObjectGetIntegerProperty(virtualSource, kMIDIPropertyUniqueID, &uniqueID), noErr);
    EXPECT_EQ(TableRelease(mDriver), 0U);
    mDriver = nullptr;
    EXPECT_NE(MIDIObjectGetIntegerProperty(virtualSource, kMIDIPropertyUniqueID, &uniqueID), noErr);
    EXPECT_THAT(ErrorLines(), IsEmpty());
}

TEST_F(PluginInstance, ReleaseLeavesTheDeviceInTheSetup) {
    OpenAndStart();
    const ItemCount devices = MIDIGetNumberOfDevices();
    EXPECT_EQ(devices, 1U);
    Close();
    EXPECT_EQ(MIDIGetNumberOfDevices(), devices);
}

TEST_F(PluginInstance, CanBeMadeAgainAfterItsEnd) {
    for (int round = 0; round < 3; round++) {
        OpenAndStart();
        EXPECT_EQ(SendMessage(0, {0x90, 0x3C, 0x7F}), noErr);
        Close();
    }
}

TEST_F(PluginInstance, EntriesWithoutATaskSucceedAndChangeNothing) {
    OpenAndStart();
    const MIDIDeviceListRef devices = MIDIServerHostCopyDeviceList(mDriver);
    const ItemCount count = MIDIDeviceListGetNumberOfDevices(devices);
    EXPECT_EQ(TableFindDevices(mDriver, devices), noErr);
    EXPECT_EQ(MIDIDeviceListGetNumberOfDevices(devices), count);
    MIDIDeviceListDispose(devices);
    Bytes list = TestSupport::MakePacketList({kHUIPing});
    const MIDIEndpointRef destination =
        MIDIEntityGetDestination(MIDIDeviceGetEntity(Device(), 0), 0);
    EXPECT_EQ(TableConfigure(mDriver, Device()), noErr);
    EXPECT_EQ(TableEnableSource(mDriver, PortSource(0), true), noErr);
    EXPECT_EQ(TableEnableSource(mDriver, PortSource(0), false), noErr);
    EXPECT_EQ(TableFlush(mDriver, destination, mDriver, nullptr), noErr);
    EXPECT_EQ(TableMonitor(mDriver, destination, TestSupport::AsPacketList(list)), noErr);
    EXPECT_THAT(TestSupport::ReceivedLists(), IsEmpty());
}

TEST_F(PluginInstance, GivesEachPortTheDetectorOfItsProtocol) {
    mPreferences.SetApplications({{"1-4", "HUI"}, {"5-8", "MackieControl"}, {"9-12", "Other"}});
    OpenAndStart();
    EXPECT_EQ(Plugin().activeSenseFns.size(), 32U);
    for (unsigned int port = 0; port < 12; port++) {
        SCOPED_TRACE(port);
        EXPECT_EQ(Answers(port), port < 4 ? kAnswersHUI : port < 8 ? kAnswersMackie : kNoAnswers);
    }
}

TEST_F(PluginInstance, GivesNoDetectorForANameThatDiffersInCaseOrSpacing) {
    mPreferences.SetApplications({{"29-32", "x"},
                                  {"1-1", "hui"},
                                  {"2-2", "HUI "},
                                  {"3-3", " HUI"},
                                  {"4-4", "Mackiecontrol"},
                                  {"5-5", "Mackie Control"},
                                  {"6-6", "HU"},
                                  {"7-7", "MackieControl"}});
    OpenAndStart();
    for (unsigned int port = 0; port < 6; port++) {
        SCOPED_TRACE(port);
        EXPECT_EQ(Answers(port), kNoAnswers);
    }
    EXPECT_EQ(Answers(6), kAnswersMackie);
}

TEST_F(PluginInstance, HasNoDetectorsButAWorkerWithoutPreferences) {
    Open();
    EXPECT_THAT(Plugin().activeSenseFns, testing::SizeIs(32));
    EXPECT_THAT(Plugin().activeSenseFns, testing::Each(testing::IsNull()));
    EXPECT_NE(Plugin().worker, nullptr);
    ASSERT_EQ(Start(), noErr);
    EXPECT_EQ(Answers(0), kNoAnswers);
    EXPECT_TRUE(TestSupport::WaitForReceivedLists(1)); // forwarded all the same
}

TEST_F(PluginInstance, KeepsTheDetectorsThatItWasBuiltWith) {
    mPreferences.SetApplications({{"1-4", "HUI"}});
    Open();
    mPreferences.SetApplications({{"1-4", "MackieControl"}});
    ASSERT_EQ(Start(), noErr);
    EXPECT_EQ(Answers(0), kAnswersHUI);
}

TEST_F(PluginInstance, GoesOnWithoutAClientAndLogsIt) {
    FailPlatformCall("MIDIClientCreate");
    Open();
    EXPECT_THAT(ErrorLines(),
                testing::ElementsAre(SyslogLine{
                    LOG_ERR, "AllocMIDIPluginInstance: Error when creating MIDI Client\n"}));
    EXPECT_EQ(Plugin().client, 0U);
    EXPECT_NE(Plugin().worker, nullptr);
    EXPECT_EQ(Start(), kMIDINoCurrentSetup); // the virtual sources need it
    EXPECT_EQ(MIDIDeviceGetNumberOfEntities(Device()), 4U);
    ClearSyslogLines();
    Close();
    EXPECT_THAT(ErrorLines(), IsEmpty());
}

TEST_F(PluginInstance, LogsEachSourceThatCannotBeDisposedAndDisposesOfTheOthers) {
    OpenAndStart();
    const MIDIEndpointRef kept = VirtualSource(1);
    const MIDIEndpointRef last = VirtualSource(3);
    FailPlatformCall("MIDIEndpointDispose", 2, -10835);
    // So that only the instance's own calls take the sources away.
    FailPlatformCall("MIDIClientDispose", 1, -10830);
    Close();
    EXPECT_THAT(
        ErrorLines(),
        testing::ElementsAre(
            SyslogLine{LOG_ERR, "Error: -10835, DeallocMIDIPluginInstance: Error when disposing "
                                "MIDI Virtual Source Endpoints\n"},
            SyslogLine{LOG_ERR, "Error: -10830, DeallocMIDIPluginInstance: Error when disposing "
                                "MIDI Client\n"}));
    SInt32 uniqueID = 0;
    EXPECT_EQ(MIDIObjectGetIntegerProperty(kept, kMIDIPropertyUniqueID, &uniqueID), noErr);
    EXPECT_NE(MIDIObjectGetIntegerProperty(last, kMIDIPropertyUniqueID, &uniqueID), noErr);
}

TEST_F(PluginInstance, ReceiverWithoutAnEndpointEmitsNothing) {
    Open();
    Bytes bytes{0x90, 0x3C, 0x7F, 0xF8};
    MidiReceiver receiver(false);
    receiver.FeedBytes(1, bytes.data(), 4);
    EXPECT_THAT(TestSupport::ReceivedLists(), IsEmpty());
    PluginOf(mDriver)->receiver.FeedBytes(1, bytes.data(), 4);
    EXPECT_THAT(TestSupport::ReceivedLists(), IsEmpty());
}

TEST_F(PluginInstance, ReceiverWithAnEndpointEmitsThere) {
    OpenAndStart();
    Bytes bytes{0x90, 0x3C, 0xF8, 0x7F};
    MidiReceiver receiver(false);
    receiver.SetEndpoint(PortSource(2));
    receiver.FeedBytes(77, bytes.data(), 4);
    const auto lists = TestSupport::ReceivedLists();
    ASSERT_EQ(lists.size(), 2U);
    EXPECT_EQ(lists[0].source, PortSource(2));
    EXPECT_EQ(lists[0].list, TestSupport::MakePacketList({{0xF8}}, 77));
    EXPECT_EQ(lists[1].source, PortSource(2));
    EXPECT_EQ(lists[1].list, TestSupport::MakePacketList({{0x90, 0x3C, 0x7F}}, 77));
}

TEST(Throwing, ThrowsAnErrorsStatusAsALong) {
    EXPECT_NO_THROW(ThrowIfError(0));
    try {
        ThrowIfError(-10835);
        FAIL();
    } catch (long err) {
        EXPECT_EQ(err, -10835);
    }
}

TEST(Throwing, ThrowsMinusOneAsAnIntForNull) {
    const int something = 0;
    EXPECT_NO_THROW(ThrowIfNull(&something));
    try {
        ThrowIfNull(nullptr);
        FAIL();
    } catch (int err) {
        EXPECT_EQ(err, -1);
    }
}

} // namespace
