// Every allocation of every exported function fails once. A function that adds or changes something
// answers memFullErr and has changed nothing, or has done all; one that takes something away has
// done so; one that looks needs no memory, or gives memFullErr.
#include "platform/support/CFOwned.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/memory/AllocationFaults.h"
#include "tests/unit/platform/CoreMIDI/FakeDriver.h"
#include "tests/unit/platform/CoreMIDI/Told.h"

#include <CoreFoundation/CFRuntimeHost.h>

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <sstream>

using namespace MidiTest;

namespace {

constexpr int kMostAllocations = 5000;
constexpr const char* kLongName = "a name that is too long to lie within a string object itself";

// Makes the call with the n-th allocation failing, on this thread and in libraries too.
struct Outcome {
    OSStatus status = noErr;
    bool hasFailed = false; // it made so many
};
template <typename Call>
Outcome CallWithFault(int n, const Call& call) {
    Outcome outcome;
    TestSupport::WatchAllAllocations(n);
    outcome.status = call();
    outcome.hasFailed = TestSupport::AllocationFailed();
    TestSupport::WatchAllAllocations();
    return outcome;
}

// Clients' values, made before any allocation fails.
CFDataRef SomeData() {
    static const std::array<UInt8, 64> bytes{1, 2, 3};
    static const CFDataRef data = CFDataCreate(nullptr, bytes.data(), bytes.size());
    return data;
}
CFDictionaryRef SomeDictionary() {
    static const void* const keys[] = {CFSTR("data"), CFSTR("text")};
    static const void* const values[] = {SomeData(), Text(kLongName)};
    static const CFDictionaryRef dictionary = CFDictionaryCreate(
        nullptr, const_cast<const void**>(keys), const_cast<const void**>(values), 2,
        &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
    return dictionary;
}
const List& ListNow() {
    static const List list({{0, {0xC0, 0x01}}, {0, {0xC0, 0x02}}});
    return list;
}
const List& ListLater() {
    static const List list({{0, {0xC0, 0x01}}, {Now() + kHour, {1}}, {Now() + 2 * kHour, {2}}});
    return list;
}
const List& ListAllLater() {
    static const List list({{Now() + kHour, {1}}, {Now() + 2 * kHour, {2}}});
    return list;
}

std::string PropertiesOf(MIDIObjectRef object) {
    CFPropertyListRef properties = nullptr;
    if (MIDIObjectGetProperties(object, &properties, true) != noErr) {
        return "none";
    }
    const CFOwned<CFPropertyListRef> owned(properties);
    const CFOwned<CFDataRef> data(
        CFPropertyListCreateData(nullptr, properties, kCFPropertyListXMLFormat_v1_0, 0, nullptr));
    std::string text(reinterpret_cast<const char*>(CFDataGetBytePtr(data.Get())),
                     static_cast<std::size_t>(CFDataGetLength(data.Get())));
    return text;
}

// Two clients with endpoints, ports and connections, a device in the setup and one that is not, and
// a driver that serves both.
struct Studio {
    Studio() {
        ListNow();
        ListLater();
        ListAllLater();
        EXPECT_EQ(MIDIServerHostOpenSetup(nullptr), noErr);
        EXPECT_EQ(MIDIServerHostAttachDriver(mDriver.Ref(), CFSTR("driver")), noErr);
        EXPECT_EQ(MIDIClientCreate(CFSTR("studio"), Told::Notify, &mTold, &mClient), noErr);
        EXPECT_EQ(MIDIClientCreate(CFSTR("other"), nullptr, nullptr, &mOtherClient), noErr);
        mSource = MakeSource(mClient);
        mDestination = MakeDestination(mClient, mReceived);
        mInput = MakeInput(mClient, mReceived);
        mOutput = MakeOutput(mClient);
        mOtherInput = MakeInput(mOtherClient, mReceived);
        mDevice = MakeDevice(mDriver.Ref(), 2);
        EXPECT_EQ(MIDISetupAddDevice(mDevice), noErr);
        mLoose = MakeDevice(mDriver.Ref(), 1, "Loose");
        EXPECT_EQ(MIDIObjectSetIntegerProperty(mLoose, kMIDIPropertyAdvanceScheduleTimeMuSec, 1000),
                  noErr);
        mWaiting = MakeDevice(mOtherDriver.Ref(), 2, "Waiting");
        EXPECT_EQ(MIDISetupAddDevice(mWaiting), noErr);
        EXPECT_EQ(MIDIPortConnectSource(mInput, mSource, nullptr), noErr);
        EXPECT_EQ(MIDIPortConnectSource(mInput, SourceOf(mDevice, 0), nullptr), noErr);
        EXPECT_EQ(MIDIPortConnectSource(mInput, SourceOf(mWaiting, 1), nullptr), noErr);
        EXPECT_EQ(MIDIPortConnectSource(mOtherInput, mSource, nullptr), noErr);
        EXPECT_EQ(MIDIObjectSetIntegerProperty(mDevice, Text(kLongName), 1), noErr);
        EXPECT_EQ(MIDIObjectSetDataProperty(mDevice, CFSTR("data"), SomeData()), noErr);
        EXPECT_EQ(MIDIObjectSetDictionaryProperty(mDevice, CFSTR("dict"), SomeDictionary()), noErr);
        mList = MIDIGetDriverDeviceList(mDriver.Ref());
        EXPECT_EQ(MIDIObjectGetProperties(mDevice, &mProperties, true), noErr);
        mTold.All();
    }
    ~Studio() {
        MIDIServerHostDetachDriver(mOtherDriver.Ref()); // if it was attached
        MIDIServerHostDetachDriver(mDriver.Ref());      // unless it was detached
        MIDIClientDispose(mClient);
        MIDIClientDispose(mOtherClient);
        MIDIClientDispose(mNewClient);
        MIDIDeviceDispose(mNewDevice);
        MIDIDeviceListDispose(mList);
        CFRelease(mProperties);
        MIDIDeviceDispose(mLoose);
        EXPECT_EQ(MIDIServerHostOpenSetup(nullptr), noErr);
    }
    Studio(const Studio&) = delete;
    Studio& operator=(const Studio&) = delete;

    // The sources that the driver has been told to enable, once it has taken all that was queued
    // for it; nothing when it does not serve the device.
    static std::string Enabled(MIDIPortRef output, FakeDriver& driver, MIDIDeviceRef device) {
        Byte last = 0;
        for (const FakeDriver::Call& call : driver.Calls("Send")) {
            last = std::max(last, call.mPackets.back().second.back());
        }
        const List list({{0, {0xC0, ++last}}});
        if (MIDISend(output, DestinationOf(device, 0), list.Get()) != noErr) {
            return "not served";
        }
        const auto hasCome = [&] {
            const auto calls = driver.Calls("Send");
            return !calls.empty() && calls.back().mPackets.back().second.back() == last;
        };
        for (std::size_t calls = driver.Calls("Send").size(); !hasCome();) {
            driver.WaitForCalls("Send", ++calls);
        }
        return std::to_string(driver.Calls("Enable").size()) + " - " +
               std::to_string(driver.Calls("Disable").size());
    }

    // What can be seen of it all, the same for each studio in the same state but for what `names`
    // adds: references and unique IDs.
    std::vector<std::string> State(bool names) {
        std::vector<std::string> state;
        const auto add = [&state](const std::string& what, const std::string& value) {
            state.push_back(what + ": " + value);
        };
        const auto count = [&add](const std::string& what, ItemCount number) {
            add(what, std::to_string(number));
        };
        count("devices", MIDIGetNumberOfDevices());
        count("sources", MIDIGetNumberOfSources());
        count("destinations", MIDIGetNumberOfDestinations());
        count("device list", MIDIDeviceListGetNumberOfDevices(mList));
        const std::pair<const char*, MIDIObjectRef> objects[] = {{"device", mDevice},
                                                                 {"loose", mLoose},
                                                                 {"waiting", mWaiting},
                                                                 {"source", mSource},
                                                                 {"destination", mDestination}};
        for (const auto& [name, object] : objects) {
            std::string properties = PropertiesOf(object);
            if (!names) {
                for (auto at = properties.find("<key>uniqueID</key>"); at != std::string::npos;
                     at = properties.find("<key>uniqueID</key>", at + 1)) {
                    const auto begin = properties.find("<integer>", at);
                    properties.erase(begin, properties.find("</integer>", begin) - begin);
                }
            }
            add(name, properties);
            SInt32 uniqueID = 0;
            MIDIObjectRef found = 0;
            if (names &&
                MIDIObjectGetIntegerProperty(object, kMIDIPropertyUniqueID, &uniqueID) == noErr) {
                MIDIObjectFindByUniqueID(uniqueID, &found, nullptr);
                EXPECT_EQ(found, object);
            }
        }
        void* refCon = nullptr;
        EXPECT_EQ(MIDIEndpointGetRefCons(SourceOf(mLoose, 0), &refCon, nullptr), noErr);
        add("refCons", refCon != nullptr ? "set" : "none");
        add("enabled", Enabled(mOutput, mDriver, mLoose));
        add("enabled", Enabled(mOutput, mOtherDriver, mWaiting));
        // The ways that packets take.
        const auto lists = [&](MIDIEndpointRef source) {
            const int before = mReceived.Lists();
            const OSStatus status = MIDIReceived(source, ListNow().Get());
            add("received",
                std::to_string(status) + " " + std::to_string(mReceived.Lists() - before));
        };
        lists(mSource);
        lists(SourceOf(mDevice, 0));
        lists(SourceOf(mDevice, 1));
        lists(SourceOf(mWaiting, 1));
        const int before = mReceived.Lists();
        const OSStatus sent = MIDISend(mOutput, mDestination, ListNow().Get());
        add("sent", std::to_string(sent) + " " + std::to_string(mReceived.Lists() - before));
        return state;
    }

    Told mTold;
    FakeDriver mDriver;
    FakeDriver mOtherDriver;
    Received mReceived;
    MIDIClientRef mClient = 0;
    MIDIClientRef mOtherClient = 0;
    MIDIEndpointRef mSource = 0;
    MIDIEndpointRef mDestination = 0;
    MIDIPortRef mInput = 0;
    MIDIPortRef mOtherInput = 0;
    MIDIPortRef mOutput = 0;
    MIDIDeviceRef mDevice = 0;
    MIDIDeviceRef mLoose = 0;
    MIDIDeviceRef mWaiting = 0; // in the setup, for a driver that is yet to be attached
    MIDIDeviceListRef mList = 0;
    CFPropertyListRef mProperties = nullptr; // of the device
    // What a call makes.
    MIDIClientRef mNewClient = 0;
    MIDIDeviceRef mNewDevice = 0;
};

struct Call {
    const char* name;
    OSStatus (*call)(Studio& studio);
};

template <typename Reference>
OSStatus Give(OSStatus status, Reference reference) {
    if (status == noErr) {
        CFRelease(reference);
    }
    return status;
}

const Call kAdding[] = {
    {"ClientCreate",
     [](Studio& studio) {
         return MIDIClientCreate(CFSTR("another"), Told::Notify, &studio.mTold, &studio.mNewClient);
     }},
    {"SourceCreate",
     [](Studio& studio) {
         MIDIEndpointRef source = 0;
         return MIDISourceCreate(studio.mClient, CFSTR("new"), &source);
     }},
    {"DestinationCreate",
     [](Studio& studio) {
         MIDIEndpointRef destination = 0;
         return MIDIDestinationCreate(studio.mClient, CFSTR("new"), Received::Read,
                                      &studio.mReceived, &destination);
     }},
    {"InputPortCreate",
     [](Studio& studio) {
         MIDIPortRef port = 0;
         return MIDIInputPortCreate(studio.mClient, CFSTR("new"), Received::Read, &studio.mReceived,
                                    &port);
     }},
    {"OutputPortCreate",
     [](Studio& studio) {
         MIDIPortRef port = 0;
         return MIDIOutputPortCreate(studio.mClient, CFSTR("new"), &port);
     }},
    {"PortConnectSource",
     [](Studio& studio) {
         return MIDIPortConnectSource(studio.mInput, SourceOf(studio.mDevice, 1), nullptr);
     }},
    {"PortConnectSourceAgain",
     [](Studio& studio) { return MIDIPortConnectSource(studio.mInput, studio.mSource, &studio); }},
    {"DeviceCreate",
     [](Studio& studio) {
         return MIDIDeviceCreate(studio.mDriver.Ref(), CFSTR("a"), CFSTR("b"), CFSTR("c"),
                                 &studio.mNewDevice);
     }},
    {"DeviceAddEntity",
     [](Studio& studio) {
         return MIDIDeviceAddEntity(studio.mDevice, CFSTR("new"), false, 3, 3, nullptr);
     }},
    {"DeviceListAddDevice",
     [](Studio& studio) { return MIDIDeviceListAddDevice(studio.mList, studio.mLoose); }},
    {"SetupAddDevice", [](Studio& studio) { return MIDISetupAddDevice(studio.mLoose); }},
    {"EndpointSetRefCons",
     [](Studio& studio) {
         return MIDIEndpointSetRefCons(SourceOf(studio.mLoose, 0), &studio, nullptr);
     }},
    {"SetIntegerProperty",
     [](Studio& studio) {
         return MIDIObjectSetIntegerProperty(studio.mDevice, Text(kLongName), 2);
     }},
    {"SetIntegerPropertyAnew",
     [](Studio& studio) {
         return MIDIObjectSetIntegerProperty(studio.mSource, Text(kLongName), 2);
     }},
    {"SetAdvanceScheduleTime",
     [](Studio& studio) {
         return MIDIObjectSetIntegerProperty(studio.mDevice, kMIDIPropertyAdvanceScheduleTimeMuSec,
                                             1000);
     }},
    {"SetUniqueID",
     [](Studio& studio) {
         SInt32 value = 0;
         const OSStatus status =
             MIDIObjectGetIntegerProperty(studio.mDevice, kMIDIPropertyUniqueID, &value);
         return status != noErr ? status
                                : MIDIObjectSetIntegerProperty(studio.mDevice,
                                                               kMIDIPropertyUniqueID, value ^ 1);
     }},
    {"SetStringProperty",
     [](Studio& studio) {
         return MIDIObjectSetStringProperty(studio.mSource, kMIDIPropertyName, Text(kLongName));
     }},
    {"SetDataProperty",
     [](Studio& studio) {
         return MIDIObjectSetDataProperty(studio.mDevice, CFSTR("new"), SomeData());
     }},
    {"SetDictionaryProperty",
     [](Studio& studio) {
         return MIDIObjectSetDictionaryProperty(studio.mDevice, CFSTR("new"), SomeDictionary());
     }},
    {"RemoveProperty",
     [](Studio& studio) { return MIDIObjectRemoveProperty(studio.mDevice, Text(kLongName)); }},
    {"RemoveAdvanceScheduleTime",
     [](Studio& studio) {
         return MIDIObjectRemoveProperty(studio.mLoose, kMIDIPropertyAdvanceScheduleTimeMuSec);
     }},
    {"AttachDriver",
     [](Studio& studio) {
         return MIDIServerHostAttachDriver(studio.mOtherDriver.Ref(), CFSTR("another driver"));
     }},
    {"OpenSetup", [](Studio&) { return MIDIServerHostOpenSetup(nullptr); }},
    // These look, or send.
    {"GetIntegerProperty",
     [](Studio& studio) {
         SInt32 value = 0;
         return MIDIObjectGetIntegerProperty(studio.mDevice, Text(kLongName), &value);
     }},
    {"GetStringProperty",
     [](Studio& studio) {
         CFStringRef name = nullptr;
         const OSStatus status = MIDIObjectGetStringProperty(DestinationOf(studio.mDevice, 0),
                                                             kMIDIPropertyDisplayName, &name);
         return Give(status, name);
     }},
    {"GetDataProperty",
     [](Studio& studio) {
         CFDataRef data = nullptr;
         const OSStatus status = MIDIObjectGetDataProperty(studio.mDevice, CFSTR("data"), &data);
         return Give(status, data);
     }},
    {"GetDictionaryProperty",
     [](Studio& studio) {
         CFDictionaryRef dictionary = nullptr;
         const OSStatus status =
             MIDIObjectGetDictionaryProperty(studio.mDevice, CFSTR("dict"), &dictionary);
         return Give(status, dictionary);
     }},
    {"GetProperties",
     [](Studio& studio) {
         CFPropertyListRef properties = nullptr;
         const OSStatus status = MIDIObjectGetProperties(studio.mDevice, &properties, true);
         const bool isWhole = status != noErr || CFEqual(properties, studio.mProperties);
         return isWhole ? Give(status, properties) : OSStatus{paramErr};
     }},
    {"GetDriverDeviceList",
     [](Studio& studio) -> OSStatus {
         const MIDIDeviceListRef list = MIDIGetDriverDeviceList(studio.mDriver.Ref());
         return list == 0 ? OSStatus{memFullErr} : MIDIDeviceListDispose(list);
     }},
    {"CopyDeviceList",
     [](Studio& studio) -> OSStatus {
         const MIDIDeviceListRef list = MIDIServerHostCopyDeviceList(studio.mDriver.Ref());
         return list == 0 ? OSStatus{memFullErr} : MIDIDeviceListDispose(list);
     }},
    {"SendToADriver",
     [](Studio& studio) {
         return MIDISend(studio.mOutput, DestinationOf(studio.mDevice, 0), ListNow().Get());
     }},
    {"SendForLater",
     [](Studio& studio) {
         return MIDISend(studio.mOutput, DestinationOf(studio.mDevice, 0), ListLater().Get());
     }},
    {"SendToADestinationForLater",
     [](Studio& studio) {
         // Nothing that is due: the read procedure of these tests allocates.
         return MIDISend(studio.mOutput, studio.mDestination, ListAllLater().Get());
     }},
    {"FlushOutput", [](Studio&) { return MIDIFlushOutput(0); }},
};

const Call kRemoving[] = {
    {"ClientDispose", [](Studio& studio) { return MIDIClientDispose(studio.mClient); }},
    {"EndpointDispose", [](Studio& studio) { return MIDIEndpointDispose(studio.mSource); }},
    {"DestinationDispose", [](Studio& studio) { return MIDIEndpointDispose(studio.mDestination); }},
    {"PortDispose", [](Studio& studio) { return MIDIPortDispose(studio.mInput); }},
    {"PortDisconnectSource",
     [](Studio& studio) {
         return MIDIPortDisconnectSource(studio.mInput, SourceOf(studio.mDevice, 0));
     }},
    {"DeviceListDispose", [](Studio& studio) { return MIDIDeviceListDispose(studio.mList); }},
    {"DeviceRemoveEntity",
     [](Studio& studio) {
         return MIDIDeviceRemoveEntity(studio.mDevice, MIDIDeviceGetEntity(studio.mDevice, 0));
     }},
    {"SetupRemoveDevice", [](Studio& studio) { return MIDISetupRemoveDevice(studio.mDevice); }},
    {"DetachDriver",
     [](Studio& studio) { return MIDIServerHostDetachDriver(studio.mDriver.Ref()); }},
};

void PrintTo(const Call& call, std::ostream* out) {
    *out << call.name;
}

std::string NameOf(const testing::TestParamInfo<Call>& call) {
    return call.param.name;
}

// The state after the call when there is memory, and what clients are told.
struct Expected {
    std::vector<std::string> mState;
    std::vector<std::string> mTold;
};
Expected After(const Call& call) {
    Studio studio;
    EXPECT_EQ(call.call(studio), noErr);
    return {studio.State(false), studio.mTold.All()};
}

// What clients are told of a change for which there was memory, but perhaps not for the details.
void ExpectTold(const std::vector<std::string>& told, const Expected& expected) {
    EXPECT_TRUE(told == expected.mTold ||
                (!expected.mTold.empty() && told == std::vector<std::string>{"changed"}))
        << testing::PrintToString(told);
}

class AddingWithoutMemory : public testing::TestWithParam<Call> {};

TEST_P(AddingWithoutMemory, DoesAllOrNothing) {
    const Call& call = GetParam();
    const Expected expected = After(call);
    for (int n = 1; n < kMostAllocations; ++n) {
        SCOPED_TRACE("allocation " + std::to_string(n));
        Studio studio;
        const std::vector<std::string> before = studio.State(true);
        const CFIndex objects = CFRuntimeHostLiveObjectCount(0);
        const Outcome outcome = CallWithFault(n, [&] { return call.call(studio); });
        if (outcome.status == noErr) {
            ASSERT_EQ(studio.State(false), expected.mState);
            ExpectTold(studio.mTold.All(), expected);
            if (!outcome.hasFailed) {
                return;
            }
            continue;
        }
        ASSERT_EQ(outcome.status, OSStatus{memFullErr});
        // Without a leak: what failures keep to be used again they keep once, and the library's
        // table of objects grows by one block now and then.
        constexpr int kAttempts = 4;
        const long blocks = TestSupport::BlocksHeld();
        bool hasFailed = true;
        for (int i = 0; i < kAttempts && hasFailed; ++i) {
            hasFailed = CallWithFault(n, [&] { return call.call(studio); }).status != noErr;
        }
        if (!hasFailed) {
            continue;
        }
        ASSERT_LE(TestSupport::BlocksHeld(), blocks + 1);
        ASSERT_EQ(CFRuntimeHostLiveObjectCount(0), objects);
        ASSERT_EQ(studio.State(true), before);
        ASSERT_EQ(studio.mTold.All(), std::vector<std::string>{});
        ASSERT_EQ(call.call(studio), noErr) << "the second time";
        ASSERT_EQ(studio.State(false), expected.mState);
    }
    FAIL() << "still allocates after so many";
}

INSTANTIATE_TEST_SUITE_P(EveryFunction, AddingWithoutMemory, testing::ValuesIn(kAdding), NameOf);

class RemovingWithoutMemory : public testing::TestWithParam<Call> {};

TEST_P(RemovingWithoutMemory, IsDone) {
    const Call& call = GetParam();
    const Expected expected = After(call);
    for (int n = 1; n < kMostAllocations; ++n) {
        SCOPED_TRACE("allocation " + std::to_string(n));
        Studio studio;
        const Outcome outcome = CallWithFault(n, [&] { return call.call(studio); });
        ASSERT_EQ(outcome.status, noErr);
        ASSERT_EQ(studio.State(false), expected.mState);
        ExpectTold(studio.mTold.All(), expected);
        if (!outcome.hasFailed) {
            return;
        }
    }
    FAIL() << "still allocates after so many";
}

INSTANTIATE_TEST_SUITE_P(EveryFunction, RemovingWithoutMemory, testing::ValuesIn(kRemoving),
                         NameOf);

TEST(CoreMIDIMemory, LooksAtObjectsAndHandsListsOnWithoutAny) {
    Studio studio;
    const MIDIEntityRef entity = MIDIDeviceGetEntity(studio.mDevice, 0);
    const MIDIEndpointRef source = SourceOf(studio.mDevice, 0);
    const SInt32 uniqueID = IntegerProperty(studio.mDevice, kMIDIPropertyUniqueID);
    MIDIDeviceRef device = 0;
    MIDIEntityRef parent = 0;
    MIDIObjectRef found = 0;
    MIDIObjectType type = 0;
    SInt32 embedded = -1;
    void* refCon = nullptr;
    std::array<Byte, 256> bytes{};
    auto* const list = reinterpret_cast<MIDIPacketList*>(bytes.data());
    const std::array<Byte, 3> message{0x90, 60, 100};
    const Outcome outcome = CallWithFault(1, [&]() -> OSStatus {
        const bool isRight =
            MIDIGetNumberOfDevices() == 2 && MIDIGetDevice(0) == studio.mDevice &&
            MIDIGetNumberOfSources() == 5 && MIDIGetSource(4) == studio.mSource &&
            MIDIGetNumberOfDestinations() == 5 && MIDIGetDestination(4) == studio.mDestination &&
            MIDIDeviceGetNumberOfEntities(studio.mDevice) == 2 &&
            MIDIDeviceGetEntity(studio.mDevice, 0) == entity &&
            MIDIEntityGetNumberOfSources(entity) == 1 && MIDIEntityGetSource(entity, 0) == source &&
            MIDIEntityGetNumberOfDestinations(entity) == 1 &&
            MIDIEntityGetDestination(entity, 0) != 0 &&
            MIDIEntityGetDevice(entity, &device) == noErr && device == studio.mDevice &&
            MIDIEndpointGetEntity(source, &parent) == noErr && parent == entity &&
            MIDIEndpointGetRefCons(source, &refCon, &refCon) == noErr &&
            MIDIObjectFindByUniqueID(uniqueID, &found, &type) == noErr && found == studio.mDevice &&
            MIDIObjectGetIntegerProperty(entity, CFSTR("embedded"), &embedded) == noErr &&
            MIDIDeviceListGetNumberOfDevices(studio.mList) == 1 &&
            MIDIDeviceListGetDevice(studio.mList, 0) == studio.mDevice &&
            MIDIGetDriverIORunLoop() != nullptr && MIDIDeviceDispose(studio.mLoose) == noErr;
        MIDIPacket* const packet = MIDIPacketListAdd(list, bytes.size(), MIDIPacketListInit(list),
                                                     0, message.size(), message.data());
        return isRight && MIDIPacketNext(packet) > packet ? noErr : paramErr;
    });
    EXPECT_EQ(outcome.status, noErr);
    EXPECT_FALSE(outcome.hasFailed);

    std::array<int, 2> calls{};
    const auto read = [](const MIDIPacketList*, void* counter, void*) {
        ++*static_cast<int*>(counter);
    };
    MIDIPortRef port = 0;
    MIDIEndpointRef destination = 0;
    ASSERT_EQ(MIDIInputPortCreate(studio.mOtherClient, CFSTR("in"), read, &calls[0], &port), noErr);
    ASSERT_EQ(
        MIDIDestinationCreate(studio.mOtherClient, CFSTR("to"), read, &calls[1], &destination),
        noErr);
    MIDIEndpointRef own = MakeSource(studio.mOtherClient);
    ASSERT_EQ(MIDIPortConnectSource(port, own, nullptr), noErr);
    const Outcome handed = CallWithFault(1, [&] {
        const OSStatus status = MIDIReceived(own, ListNow().Get());
        return status != noErr ? status : MIDISend(studio.mOutput, destination, ListNow().Get());
    });
    EXPECT_EQ(handed.status, noErr);
    EXPECT_FALSE(handed.hasFailed);
    EXPECT_EQ(calls, (std::array<int, 2>{1, 1}));
}

TEST(CoreMIDIMemory, AnswersTheFirstCallOfAll) {
    // Each attempt in a process of its own, in which nothing has been made yet.
    const CFStringRef name = Text(kLongName);
    for (int n = 1, hasFailed = 1; hasFailed != 0; ++n) {
        ASSERT_LT(n, kMostAllocations);
        const pid_t child = fork();
        if (child == 0) {
            MIDIClientRef client = 0;
            const Outcome outcome =
                CallWithFault(n, [&] { return MIDIClientCreate(name, nullptr, nullptr, &client); });
            const bool isRight = outcome.hasFailed ? outcome.status == memFullErr && client == 0
                                                   : outcome.status == noErr;
            const bool isRightNext =
                isRight && MIDIClientCreate(name, nullptr, nullptr, &client) == noErr;
            _exit(!isRightNext ? 2 : outcome.hasFailed ? 1 : 0);
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFEXITED(status)) << "allocation " << n;
        hasFailed = WEXITSTATUS(status);
        ASSERT_NE(hasFailed, 2) << "allocation " << n;
    }
}

// Counts notices without memory of its own.
struct Counts {
    static void Notify(const MIDINotification* message, void* counts) {
        ++static_cast<Counts*>(counts)->mOf[static_cast<std::size_t>(message->messageID)];
    }
    std::array<int, 8> mOf{};
};

TEST(CoreMIDIMemory, TellsClientsThatSomethingHasChangedIfNotWhat) {
    EXPECT_EQ(MIDIServerHostOpenSetup(nullptr), noErr);
    for (int n = 1;; ++n) {
        ASSERT_LT(n, kMostAllocations);
        SCOPED_TRACE("allocation " + std::to_string(n));
        Counts counts;
        MIDIClientRef client = 0;
        ASSERT_EQ(MIDIClientCreate(CFSTR("told"), Counts::Notify, &counts, &client), noErr);
        const MIDIEndpointRef source = MakeSource(client);
        ASSERT_EQ(MIDIObjectSetStringProperty(source, kMIDIPropertyName, CFSTR("new")), noErr);
        const auto run = [] {
            while (CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0, true) ==
                   kCFRunLoopRunHandledSource) {
            }
            return OSStatus{noErr};
        };
        const Outcome outcome = CallWithFault(n, run);
        run();
        EXPECT_EQ(counts.mOf[kMIDIMsgObjectAdded], 1);
        EXPECT_GE(counts.mOf[kMIDIMsgPropertyChanged], outcome.hasFailed ? 0 : 1);
        EXPECT_EQ(counts.mOf[kMIDIMsgPropertyChanged] + counts.mOf[kMIDIMsgSetupChanged], 3);
        EXPECT_EQ(MIDIClientDispose(client), noErr);
        if (!outcome.hasFailed) {
            return;
        }
    }
}

// A driver whose Send fails, and whose thread then finds no memory for the notice of that.
struct FailingDriver {
    FailingDriver() {
        mFunctions.Send = [](MIDIDriverRef, const MIDIPacketList*, void*, void*) {
            TestSupport::WatchAllAllocations(1);
            return OSStatus{-1};
        };
        mFunctions.EnableSource = [](MIDIDriverRef, MIDIEndpointRef, Boolean) {
            return OSStatus{noErr};
        };
        mFunctions.Flush = [](MIDIDriverRef, MIDIEndpointRef, void*, void*) {
            return OSStatus{noErr};
        };
    }
    MIDIDriverInterface mFunctions{};
    MIDIDriverInterface* mTable = &mFunctions;
};

TEST(CoreMIDIMemory, ReportsADriversFailureAsAChangeWithoutAny) {
    EXPECT_EQ(MIDIServerHostOpenSetup(nullptr), noErr);
    FailingDriver driver;
    Counts counts;
    MIDIClientRef client = 0;
    ASSERT_EQ(MIDIClientCreate(CFSTR("told"), Counts::Notify, &counts, &client), noErr);
    ASSERT_EQ(MIDIServerHostAttachDriver(&driver.mTable, CFSTR("failing")), noErr);
    const MIDIDeviceRef device = MakeDevice(&driver.mTable, 1);
    const MIDIPortRef port = MakeOutput(client);
    // As many as surely need more memory than a queue has at first.
    constexpr int kFailures = 64;
    for (int i = 0; i < kFailures; ++i) {
        ASSERT_EQ(MIDISend(port, DestinationOf(device, 0), ListNow().Get()), noErr);
    }
    EXPECT_EQ(MIDIServerHostDetachDriver(&driver.mTable), noErr); // has waited for the calls
    while (CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0, true) == kCFRunLoopRunHandledSource) {
    }
    EXPECT_EQ(counts.mOf[kMIDIMsgSetupChanged], 1);
    EXPECT_EQ(counts.mOf[kMIDIMsgIOError], 0);
    EXPECT_EQ(MIDIDeviceDispose(device), noErr);
    EXPECT_EQ(MIDIClientDispose(client), noErr);
}

class SetupWithoutMemory : public testing::Test {
protected:
    // A file that holds a device of that name, and nothing open.
    void WriteSetup(const char* device) {
        ASSERT_EQ(MIDIServerHostOpenSetup(mPathString), noErr);
        mDevice = MakeDevice(nullptr, 1, device);
        ASSERT_EQ(MIDISetupAddDevice(mDevice), noErr);
        mUniqueID = IntegerProperty(mDevice, kMIDIPropertyUniqueID);
    }
    ~SetupWithoutMemory() override { EXPECT_EQ(MIDIServerHostOpenSetup(nullptr), noErr); }

    std::string Contents() const {
        std::ostringstream text;
        text << std::ifstream(mPath).rdbuf();
        return text.str();
    }
    std::size_t Files() const {
        std::size_t files = 0;
        for ([[maybe_unused]] const auto& file :
             std::filesystem::directory_iterator(std::filesystem::path(mPath).parent_path())) {
            ++files;
        }
        return files;
    }
    // Whether changes are written to the file.
    bool IsOpen() const { return MIDIServerHostSaveSetup() == noErr; }

    const TemporaryDirectory mFolder;
    const std::string mPath = mFolder.Path() + "/a folder/setup.plist";
    const CFStringRef mPathString = Text(mPath.c_str());
    MIDIDeviceRef mDevice = 0;
    SInt32 mUniqueID = 0;
};

TEST_F(SetupWithoutMemory, IsOpenedOrTheOneBeforeStays) {
    WriteSetup("of the file");
    const std::string contents = Contents();
    for (int n = 1;; ++n) {
        ASSERT_LT(n, kMostAllocations);
        SCOPED_TRACE("allocation " + std::to_string(n));
        ASSERT_EQ(MIDIServerHostOpenSetup(nullptr), noErr);
        const MIDIDeviceRef before = MakeDevice(nullptr, 1, "before");
        ASSERT_EQ(MIDISetupAddDevice(before), noErr);
        const CFIndex objects = CFRuntimeHostLiveObjectCount(0);
        const Outcome outcome =
            CallWithFault(n, [&] { return MIDIServerHostOpenSetup(mPathString); });
        ASSERT_EQ(MIDIGetNumberOfDevices(), 1U);
        if (outcome.status != noErr) {
            ASSERT_EQ(outcome.status, OSStatus{memFullErr});
            EXPECT_EQ(CFRuntimeHostLiveObjectCount(0), objects);
            EXPECT_EQ(MIDIGetDevice(0), before);
            EXPECT_FALSE(IsOpen());
            EXPECT_EQ(Contents(), contents);
            continue;
        }
        EXPECT_EQ(StringProperty(MIDIGetDevice(0), kMIDIPropertyName), "of the file");
        EXPECT_EQ(IntegerProperty(MIDIGetDevice(0), kMIDIPropertyUniqueID), mUniqueID);
        EXPECT_TRUE(IsOpen());
        EXPECT_EQ(Contents(), contents);
        if (!outcome.hasFailed) {
            return;
        }
    }
}

TEST_F(SetupWithoutMemory, ThatIsOpenIsOpenedAgainOrStays) {
    WriteSetup("twice");
    const std::string contents = Contents();
    for (int n = 1;; ++n) {
        ASSERT_LT(n, kMostAllocations);
        SCOPED_TRACE("allocation " + std::to_string(n));
        const Outcome outcome =
            CallWithFault(n, [&] { return MIDIServerHostOpenSetup(mPathString); });
        ASSERT_EQ(MIDIGetNumberOfDevices(), 1U);
        ASSERT_TRUE(outcome.status == noErr || outcome.status == memFullErr);
        EXPECT_EQ(MIDIGetDevice(0) == mDevice, outcome.status != noErr);
        mDevice = MIDIGetDevice(0);
        EXPECT_EQ(IntegerProperty(MIDIGetDevice(0), kMIDIPropertyUniqueID), mUniqueID);
        EXPECT_TRUE(IsOpen());
        EXPECT_EQ(Contents(), contents);
        if (!outcome.hasFailed) {
            return;
        }
    }
}

TEST_F(SetupWithoutMemory, IsNotTakenForABrokenOne) {
    const std::filesystem::path folder = std::filesystem::path(mPath).parent_path();
    for (int n = 1;; ++n) {
        ASSERT_LT(n, kMostAllocations);
        SCOPED_TRACE("allocation " + std::to_string(n));
        ASSERT_EQ(MIDIServerHostOpenSetup(nullptr), noErr);
        std::filesystem::remove_all(folder); // with what was moved aside
        std::filesystem::create_directories(folder);
        std::ofstream(mPath) << "not a setup";
        const Outcome outcome =
            CallWithFault(n, [&] { return MIDIServerHostOpenSetup(mPathString); });
        if (outcome.status == memFullErr) {
            EXPECT_EQ(Contents(), "not a setup");
            EXPECT_EQ(Files(), 1U);
            continue;
        }
        EXPECT_EQ(outcome.status, OSStatus{kMIDISetupFormatErr});
        EXPECT_FALSE(std::filesystem::exists(mPath));
        if (!outcome.hasFailed) {
            return;
        }
    }
}

TEST_F(SetupWithoutMemory, IsWrittenWholeOrNotAtAll) {
    WriteSetup("one");
    for (int n = 1;; ++n) {
        ASSERT_LT(n, kMostAllocations);
        SCOPED_TRACE("allocation " + std::to_string(n));
        ASSERT_EQ(MIDIObjectSetIntegerProperty(mDevice, CFSTR("number"), 0), noErr);
        const std::string before = Contents();
        // Changed in memory or not, never in the file alone.
        const Outcome changed = CallWithFault(
            n, [&] { return MIDIObjectSetIntegerProperty(mDevice, CFSTR("number"), 1); });
        ASSERT_TRUE(changed.status == noErr || changed.status == memFullErr);
        EXPECT_EQ(IntegerProperty(mDevice, CFSTR("number")), changed.status == noErr ? 1 : 0);
        const bool isWritten = Contents() != before;
        EXPECT_TRUE(!isWritten || changed.status == noErr);
        EXPECT_TRUE(isWritten || changed.hasFailed);
        EXPECT_EQ(Files(), 1U);

        const Outcome saved = CallWithFault(n, [] { return MIDIServerHostSaveSetup(); });
        EXPECT_EQ(saved.status, saved.hasFailed ? OSStatus{memFullErr} : OSStatus{noErr});
        EXPECT_EQ(Files(), 1U);
        ASSERT_EQ(MIDIServerHostSaveSetup(), noErr);
        EXPECT_EQ(Contents() != before, changed.status == noErr);
        if (!changed.hasFailed && !saved.hasFailed) {
            return;
        }
    }
}

} // namespace
