#include "tests/unit/platform/CoreMIDI/FakeDriver.h"

#include <atomic>
#include <cstdint>

using namespace MidiTest;

namespace {

const Bytes kNote{0x90, 0x3C, 0x7F};

class DriverIOTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(MIDIServerHostAttachDriver(mDriver.Ref(), CFSTR("com.example.fake")), noErr);
        mDevice = MakeDevice(mDriver.Ref(), 2);
        ASSERT_EQ(MIDISetupAddDevice(mDevice), noErr);
        for (ItemCount i = 0; i < 2; ++i) {
            ASSERT_EQ(
                MIDIEndpointSetRefCons(DestinationOf(mDevice, i), &mDriver,
                                       reinterpret_cast<void*>(static_cast<std::uintptr_t>(i))),
                noErr);
        }
        mOutput = MakeOutput(MakeClient());
    }
    void TearDown() override {
        mDriver.LetGo();
        MIDIServerHostDetachDriver(mDriver.Ref());
    }

    OSStatus Send(ItemCount entity, const Packets& packets) {
        const List list(packets);
        return MIDISend(mOutput, DestinationOf(mDevice, entity), list.Get());
    }

    FakeDriver mDriver;
    MIDIDeviceRef mDevice = 0;
    MIDIPortRef mOutput = 0;
};

} // namespace

TEST_F(DriverIOTest, HandsPacketsToSendWithTheDestinationsRefCons) {
    const Packets packets{{0, kNote}, {1, {}}, {2, {0xC0, 0x05}}};
    ASSERT_EQ(Send(1, packets), noErr);
    mDriver.WaitForCalls("Send", 1);
    const auto calls = mDriver.Calls("Send");
    EXPECT_EQ(calls[0].mPackets, packets);
    EXPECT_EQ(calls[0].mRefCon1, &mDriver);
    EXPECT_EQ(calls[0].mRefCon2, reinterpret_cast<void*>(1));
}

TEST_F(DriverIOTest, CallsSendOnOneThreadWhoeverSends) {
    constexpr int kThreads = 4;
    constexpr int kEach = 50;
    std::vector<std::thread> senders;
    for (int t = 0; t < kThreads; ++t) {
        senders.emplace_back([&, t] {
            for (int i = 0; i < kEach; ++i) {
                EXPECT_EQ(Send(0, {{0, {0xC0, static_cast<Byte>(t), static_cast<Byte>(i)}}}),
                          noErr);
            }
        });
    }
    for (std::thread& sender : senders) {
        sender.join();
    }
    mDriver.WaitForCalls("Send", kThreads * kEach);
    const auto calls = mDriver.Calls("Send");
    std::vector<int> next(kThreads, 0);
    for (const auto& call : calls) {
        EXPECT_EQ(call.mThread, calls[0].mThread);
        EXPECT_NE(call.mThread, std::this_thread::get_id());
        const Bytes& data = call.mPackets[0].second;
        EXPECT_EQ(data[2], next[data[1]]++) << "the order of one sender is kept";
    }
}

TEST_F(DriverIOTest, LeavesTheCallersListAlone) {
    const List list({{7, kNote}});
    ASSERT_EQ(MIDISend(mOutput, DestinationOf(mDevice, 0), list.Get()), noErr);
    mDriver.WaitForCalls("Send", 1);
    EXPECT_EQ(PacketsOf(list.Get()), (Packets{{7, kNote}})) << "the driver sets times in its copy";
}

TEST_F(DriverIOTest, BlocksSendersWhileTheQueueIsFull) {
    mDriver.HoldSend();
    ASSERT_EQ(Send(0, {{0, kNote}}), noErr);
    mDriver.WaitUntilHeld();
    std::atomic<int> sent = 0;
    constexpr int kLists = 10;
    std::thread sender([&] {
        for (int i = 0; i < kLists; ++i) {
            EXPECT_EQ(Send(0, {{0, Bytes(20000, static_cast<Byte>(i))}}), noErr);
            ++sent;
            sent.notify_all();
        }
    });
    // 3 of 20014 bytes and the one of 17 bytes that is held fit into 65536.
    for (int seen = sent; seen < 3; seen = sent) {
        sent.wait(seen);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(sent, 3);
    mDriver.LetGo();
    sender.join();
    mDriver.WaitForCalls("Send", kLists + 1);
    const auto calls = mDriver.Calls("Send");
    for (int i = 0; i < kLists; ++i) {
        EXPECT_EQ(calls[static_cast<std::size_t>(i) + 1].mPackets[0].second[0], i);
    }
}

TEST_F(DriverIOTest, HoldsPacketsOfTheFutureAndLetsOthersPass) {
    const MIDITimeStamp due = Now() + kAhead;
    ASSERT_EQ(Send(0, {{due, {0xC0, 0x02}}, {0, {0xC0, 0x01}}}), noErr);
    mDriver.WaitForCalls("Send", 2);
    const auto calls = mDriver.Calls("Send");
    EXPECT_EQ(calls[0].mPackets, (Packets{{0, {0xC0, 0x01}}}));
    EXPECT_EQ(calls[1].mPackets, (Packets{{due, {0xC0, 0x02}}}));
    EXPECT_GE(calls[1].mTime, due);
}

TEST_F(DriverIOTest, FlushDropsTheFutureAndTellsTheDriver) {
    ASSERT_EQ(Send(1, {{Now() + kHour, kNote}}), noErr);
    EXPECT_EQ(MIDIFlushOutput(DestinationOf(mDevice, 1)), noErr);
    mDriver.WaitForCalls("Flush", 1);
    auto calls = mDriver.Calls("Flush");
    EXPECT_EQ(calls[0].mEndpoint, DestinationOf(mDevice, 1));
    EXPECT_EQ(calls[0].mRefCon2, reinterpret_cast<void*>(1));
    EXPECT_EQ(MIDIFlushOutput(0), noErr);
    mDriver.WaitForCalls("Flush", 2);
    calls = mDriver.Calls("Flush");
    EXPECT_EQ(calls[1].mEndpoint, 0U);
    EXPECT_EQ(mDriver.Calls("Send").size(), 0U);
}

TEST_F(DriverIOTest, TellsTheDriverOfFirstAndLastListeners) {
    Received received;
    const MIDIClientRef client = MakeClient();
    const MIDIPortRef first = MakeInput(client, received);
    const MIDIPortRef second = MakeInput(client, received);
    const MIDIEndpointRef source = SourceOf(mDevice, 0);
    ASSERT_EQ(MIDIPortConnectSource(first, source, nullptr), noErr);
    ASSERT_EQ(MIDIPortConnectSource(second, source, nullptr), noErr);
    ASSERT_EQ(MIDIPortDisconnectSource(first, source), noErr);
    ASSERT_EQ(MIDIPortDispose(second), noErr);
    mDriver.WaitForCalls("Disable", 1);
    ASSERT_EQ(mDriver.Calls("Enable").size(), 1U);
    EXPECT_EQ(mDriver.Calls("Enable")[0].mEndpoint, source);
    EXPECT_EQ(mDriver.Calls("Disable")[0].mEndpoint, source);
}

TEST_F(DriverIOTest, DrainsTheQueueBeforeDetachReturns) {
    mDriver.HoldSend();
    for (Byte i = 0; i < 10; ++i) {
        ASSERT_EQ(Send(0, {{0, {0xC0, i}}}), noErr);
    }
    ASSERT_EQ(Send(0, {{Now() + kHour, kNote}}), noErr);
    mDriver.WaitUntilHeld();
    std::thread detacher([this] { EXPECT_EQ(MIDIServerHostDetachDriver(mDriver.Ref()), noErr); });
    mDriver.LetGo();
    detacher.join();
    EXPECT_EQ(mDriver.Calls("Send").size(), 10U) << "all that was due, nothing that was to wait";
    EXPECT_EQ(Send(0, {{0, kNote}}), kMIDIMessageSendErr);
    EXPECT_EQ(IntegerProperty(mDevice, kMIDIPropertyOffline), 1);
    EXPECT_EQ(MIDIGetNumberOfDestinations(), 0U);
    EXPECT_EQ(MIDIServerHostDetachDriver(mDriver.Ref()), kMIDIObjectNotFound);
}

TEST_F(DriverIOTest, ReleasesBlockedSendersWhenTheDriverIsDetached) {
    mDriver.HoldSend();
    ASSERT_EQ(Send(0, {{0, Bytes(65522, 0x11)}}), noErr);
    mDriver.WaitUntilHeld();
    std::atomic<bool> hasBegun = false;
    std::thread sender([&] {
        hasBegun = true;
        hasBegun.notify_all();
        EXPECT_EQ(Send(0, {{0, kNote}}), kMIDIMessageSendErr);
    });
    hasBegun.wait(false);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    std::thread detacher([this] { EXPECT_EQ(MIDIServerHostDetachDriver(mDriver.Ref()), noErr); });
    sender.join();
    mDriver.LetGo();
    detacher.join();
}

TEST_F(DriverIOTest, ServesADriverAgainThatIsAttachedAgain) {
    ASSERT_EQ(MIDIServerHostDetachDriver(mDriver.Ref()), noErr);
    FakeDriver successor;
    ASSERT_EQ(MIDIServerHostAttachDriver(successor.Ref(), CFSTR("com.example.fake")), noErr);
    EXPECT_EQ(IntegerProperty(mDevice, kMIDIPropertyOffline), 0);
    const MIDIDeviceListRef devices = MIDIServerHostCopyDeviceList(successor.Ref());
    ASSERT_EQ(MIDIDeviceListGetNumberOfDevices(devices), 1U);
    EXPECT_EQ(MIDIDeviceListGetDevice(devices, 0), mDevice);
    EXPECT_EQ(MIDIDeviceListDispose(devices), noErr);
    ASSERT_EQ(Send(0, {{0, kNote}}), noErr);
    successor.WaitForCalls("Send", 1);
    EXPECT_EQ(mDriver.Calls("Send").size(), 0U);
    EXPECT_EQ(MIDIServerHostDetachDriver(successor.Ref()), noErr);
}

TEST_F(DriverIOTest, RefusesToAttachTwice) {
    EXPECT_EQ(MIDIServerHostAttachDriver(mDriver.Ref(), CFSTR("another")), kMIDINotPermitted);
    FakeDriver other;
    EXPECT_EQ(MIDIServerHostAttachDriver(other.Ref(), CFSTR("com.example.fake")),
              kMIDINotPermitted);
    EXPECT_EQ(MIDIServerHostAttachDriver(nullptr, CFSTR("x")), paramErr);
    EXPECT_EQ(MIDIServerHostAttachDriver(other.Ref(), nullptr), paramErr);
    EXPECT_EQ(MIDIServerHostCopyDeviceList(other.Ref()), 0U);
}

TEST_F(DriverIOTest, GivesDevicesMadeBeforeAttachingTheirDriver) {
    FakeDriver other;
    const MIDIDeviceRef early = MakeDevice(other.Ref(), 1, "Early");
    const List list({{0, kNote}});
    EXPECT_EQ(MIDISend(mOutput, DestinationOf(early, 0), list.Get()), kMIDIMessageSendErr);
    ASSERT_EQ(MIDIServerHostAttachDriver(other.Ref(), CFSTR("other")), noErr);
    EXPECT_EQ(StringProperty(early, kMIDIPropertyDriverOwner), "other");
    EXPECT_EQ(StringProperty(mDevice, kMIDIPropertyDriverOwner), "com.example.fake");
    EXPECT_EQ(MIDISend(mOutput, DestinationOf(early, 0), list.Get()), noErr);
    EXPECT_EQ(MIDIServerHostDetachDriver(other.Ref()), noErr);
    EXPECT_EQ(other.Calls("Send").size(), 1U);
}

TEST_F(DriverIOTest, RefusesToDetachOnTheDriverIOThread) {
    struct Detaching {
        MIDIDriverRef mDriver;
        std::atomic<OSStatus> mStatus{1};
    } detaching{mDriver.Ref()};
    MIDIEndpointRef destination = 0;
    const auto detach = [](const MIDIPacketList*, void* refCon, void*) {
        auto& self = *static_cast<Detaching*>(refCon);
        self.mStatus = MIDIServerHostDetachDriver(self.mDriver);
        self.mStatus.notify_all();
    };
    ASSERT_EQ(MIDIDestinationCreate(MakeClient(), CFSTR("d"), detach, &detaching, &destination),
              noErr);
    const List list({{Now() + kAhead, kNote}});
    ASSERT_EQ(MIDISend(mOutput, destination, list.Get()), noErr);
    detaching.mStatus.wait(1);
    EXPECT_EQ(detaching.mStatus, kMIDIWrongThread);
    EXPECT_EQ(Send(0, {{0, kNote}}), noErr) << "still attached";
}

TEST_F(DriverIOTest, RunsSourcesThatADriverPutsIntoItsRunLoop) {
    const CFRunLoopRef loop = MIDIGetDriverIORunLoop();
    ASSERT_NE(loop, nullptr);
    EXPECT_EQ(MIDIGetDriverIORunLoop(), loop);
    std::atomic<bool> hasRun = false;
    CFRunLoopSourceContext context{};
    context.info = &hasRun;
    context.perform = [](void* info) {
        *static_cast<std::atomic<bool>*>(info) = true;
        static_cast<std::atomic<bool>*>(info)->notify_all();
    };
    CFRunLoopSourceRef source = CFRunLoopSourceCreate(nullptr, 0, &context);
    CFRunLoopAddSource(loop, source, kCFRunLoopDefaultMode);
    CFRunLoopSourceSignal(source);
    CFRunLoopWakeUp(loop);
    hasRun.wait(false);
    CFRunLoopSourceInvalidate(source);
    CFRelease(source);
    ASSERT_EQ(Send(0, {{0, kNote}}), noErr);
    mDriver.WaitForCalls("Send", 1);
}
