#include "tests/support/WaitUntil.h"
#include "tests/unit/platform/CoreMIDI/MidiTestSupport.h"

#include <atomic>
#include <functional>
#include <thread>

using namespace MidiTest;

namespace {

const Bytes kNote{0x90, 0x3C, 0x7F};

// A read procedure that runs a function; as refCon.
using Action = std::function<void(const MIDIPacketList*)>;
void RunAction(const MIDIPacketList* list, void* action, void*) {
    (*static_cast<Action*>(action))(list);
}

MIDIPortRef MakeActionInput(MIDIClientRef client, Action& action) {
    MIDIPortRef port = 0;
    EXPECT_EQ(MIDIInputPortCreate(client, CFSTR("in"), RunAction, &action, &port), noErr);
    return port;
}

// Waits until a condition holds that other threads bring about.
void WaitUntilSet(const char* what, const std::atomic<bool>& flag) {
    EXPECT_TRUE(TestSupport::WaitUntil(what, [&flag] { return flag.load(); }));
}

} // namespace

TEST(RoutingTest, DeliversToAllConnectedPortsBeforeReceivedReturns) {
    Received first;
    Received second;
    Received unconnected;
    const MIDIClientRef client = MakeClient();
    const MIDIEndpointRef source = MakeSource(client);
    int refCon = 0;
    ASSERT_EQ(MIDIPortConnectSource(MakeInput(client, first), source, &refCon), noErr);
    ASSERT_EQ(MIDIPortConnectSource(MakeInput(MakeClient(), second), source, nullptr), noErr);
    MakeInput(client, unconnected);
    const List list({{0, kNote}, {77, {0xF8}}});
    EXPECT_EQ(MIDIReceived(source, list.Get()), noErr);
    EXPECT_EQ(first.All(), (Packets{{0, kNote}, {77, {0xF8}}}));
    EXPECT_EQ(first.LastConnection(), &refCon);
    EXPECT_EQ(second.All(), first.All());
    EXPECT_EQ(unconnected.Lists(), 0);
}

TEST(RoutingTest, ReplacesTheRefConWhenConnectingAgain) {
    Received received;
    const MIDIClientRef client = MakeClient();
    const MIDIEndpointRef source = MakeSource(client);
    const MIDIPortRef input = MakeInput(client, received);
    int refCon = 0;
    ASSERT_EQ(MIDIPortConnectSource(input, source, nullptr), noErr);
    ASSERT_EQ(MIDIPortConnectSource(input, source, &refCon), noErr);
    const List list({{0, kNote}});
    EXPECT_EQ(MIDIReceived(source, list.Get()), noErr);
    EXPECT_EQ(received.Lists(), 1);
    EXPECT_EQ(received.LastConnection(), &refCon);
    EXPECT_EQ(MIDIPortDisconnectSource(input, source), noErr);
    EXPECT_EQ(MIDIPortDisconnectSource(input, source), kMIDINoConnection);
    EXPECT_EQ(MIDIReceived(source, list.Get()), noErr);
    EXPECT_EQ(received.Lists(), 1);
}

TEST(RoutingTest, SendsToVirtualDestinationsOnTheSendersThread) {
    Received received;
    const MIDIClientRef client = MakeClient();
    const MIDIEndpointRef destination = MakeDestination(client, received);
    const MIDIPortRef output = MakeOutput(MakeClient());
    const List list({{0, kNote}, {Now(), {0xC0, 0x01}}});
    EXPECT_EQ(MIDISend(output, destination, list.Get()), noErr);
    EXPECT_EQ(received.All(), PacketsOf(list.Get()));
    EXPECT_EQ(received.Lists(), 1) << "one list stays one list";
    EXPECT_EQ(received.LastConnection(), nullptr);
}

TEST(RoutingTest, AcceptsListsWithoutPacketsAndSendsNothing) {
    Received received;
    const MIDIClientRef client = MakeClient();
    const MIDIEndpointRef source = MakeSource(client);
    ASSERT_EQ(MIDIPortConnectSource(MakeInput(client, received), source, nullptr), noErr);
    const List empty({});
    EXPECT_EQ(MIDIReceived(source, empty.Get()), noErr);
    EXPECT_EQ(MIDISend(MakeOutput(client), MakeDestination(client, received), empty.Get()), noErr);
    EXPECT_EQ(received.Lists(), 0);
}

TEST(RoutingTest, RefusesListsPastTheLimitWithoutReadingOn) {
    Received received;
    const MIDIClientRef client = MakeClient();
    const MIDIEndpointRef destination = MakeDestination(client, received);
    const MIDIPortRef output = MakeOutput(client);
    const List fits({{0, Bytes(65536 - 14, 0x11)}});
    EXPECT_EQ(MIDISend(output, destination, fits.Get()), noErr);
    const List tooLong({{0, Bytes(65536 - 13, 0x11)}});
    EXPECT_EQ(MIDISend(output, destination, tooLong.Get()), kMIDIMessageSendErr);
    // A count that lies: the packets that follow the limit are not there.
    Bytes block(65536 + 10, 0);
    block.shrink_to_fit();
    const UInt32 lie = 0xFFFFFFFF;
    std::memcpy(block.data(), &lie, sizeof lie);
    EXPECT_EQ(MIDISend(output, destination, reinterpret_cast<MIDIPacketList*>(block.data())),
              kMIDIMessageSendErr);
    EXPECT_EQ(MIDISend(output, destination, nullptr), paramErr);
    EXPECT_EQ(received.Lists(), 1);
}

TEST(RoutingTest, HoldsPacketsOfTheFutureUntilTheyAreDue) {
    Received received;
    const MIDIClientRef client = MakeClient();
    const MIDIEndpointRef destination = MakeDestination(client, received);
    const MIDIPortRef output = MakeOutput(client);
    const MIDITimeStamp due = Now() + kAhead;
    const List list(
        {{due, {0xC0, 0x03}}, {0, {0xC0, 0x01}}, {due - 20 * kMillisecond, {0xC0, 0x02}}});
    EXPECT_EQ(MIDISend(output, destination, list.Get()), noErr);
    EXPECT_EQ(received.All(), (Packets{{0, {0xC0, 0x01}}})) << "what is due goes at once";
    received.WaitFor(3);
    EXPECT_EQ(
        received.All(),
        (Packets{{0, {0xC0, 0x01}}, {due - 20 * kMillisecond, {0xC0, 0x02}}, {due, {0xC0, 0x03}}}));
    EXPECT_GE(received.Times()[1], due - 20 * kMillisecond);
    EXPECT_GE(received.Times()[2], due);
}

TEST(RoutingTest, KeepsTheOrderOfPacketsOfOneTime) {
    Received received;
    const MIDIClientRef client = MakeClient();
    const MIDIEndpointRef destination = MakeDestination(client, received);
    const MIDIPortRef output = MakeOutput(client);
    const MIDITimeStamp due = Now() + kAhead;
    Packets expected;
    for (Byte i = 0; i < 20; ++i) {
        expected.push_back({due, {0xC0, i}});
        const List list({expected.back()});
        ASSERT_EQ(MIDISend(output, destination, list.Get()), noErr);
    }
    received.WaitFor(20);
    EXPECT_EQ(received.All(), expected);
}

TEST(RoutingTest, LeavesTimesToDestinationsThatScheduleThemselves) {
    Received received;
    const MIDIClientRef client = MakeClient();
    const MIDIEndpointRef destination = MakeDestination(client, received);
    ASSERT_EQ(
        MIDIObjectSetIntegerProperty(destination, kMIDIPropertyAdvanceScheduleTimeMuSec, 1000),
        noErr);
    const List list({{Now() + kHour, kNote}});
    EXPECT_EQ(MIDISend(MakeOutput(client), destination, list.Get()), noErr);
    EXPECT_EQ(received.All(), PacketsOf(list.Get()));
}

TEST(RoutingTest, FlushDropsWhatWaitsForItsTime) {
    Received first;
    Received second;
    const MIDIClientRef client = MakeClient();
    const MIDIPortRef output = MakeOutput(client);
    const MIDIEndpointRef flushed = MakeDestination(client, first);
    const MIDIEndpointRef other = MakeDestination(client, second);
    const MIDITimeStamp due = Now() + kAhead;
    const List list({{due, kNote}});
    ASSERT_EQ(MIDISend(output, flushed, list.Get()), noErr);
    ASSERT_EQ(MIDISend(output, other, list.Get()), noErr);
    EXPECT_EQ(MIDIFlushOutput(flushed), noErr);
    second.WaitFor(1);
    EXPECT_EQ(first.Lists(), 0);
    const List later({{Now() + kHour, kNote}});
    ASSERT_EQ(MIDISend(output, other, later.Get()), noErr);
    EXPECT_EQ(MIDIFlushOutput(0), noErr);
}

TEST(RoutingTest, RefusesMoreOfTheFutureThanItKeeps) {
    Received received;
    const MIDIClientRef client = MakeClient();
    const MIDIEndpointRef destination = MakeDestination(client, received);
    const MIDIPortRef output = MakeOutput(client);
    const List big({{Now() + kHour, Bytes(60000, 0x11)}});
    int accepted = 0;
    while (accepted < 100 && MIDISend(output, destination, big.Get()) == noErr) {
        ++accepted;
    }
    EXPECT_EQ(accepted, (1 << 20) / 60014);
    const List mixed({{0, kNote}, {Now() + kHour, Bytes(60000, 0x11)}});
    EXPECT_EQ(MIDISend(output, destination, mixed.Get()), kMIDIMessageSendErr);
    EXPECT_EQ(received.Lists(), 0) << "nothing of a refused list is sent";
    const List now({{0, kNote}});
    EXPECT_EQ(MIDISend(output, destination, now.Get()), noErr) << "what is due still goes";
    EXPECT_EQ(MIDIFlushOutput(destination), noErr);
    EXPECT_EQ(MIDISend(output, destination, big.Get()), noErr) << "room again";
}

TEST(RoutingTest, LetsReadProceduresSendReceiveAndDispose) {
    Received received;
    const MIDIClientRef client = MakeClient();
    const MIDIEndpointRef source = MakeSource(client);
    const MIDIEndpointRef echo = MakeSource(client);
    const MIDIEndpointRef destination = MakeDestination(client, received);
    const MIDIPortRef output = MakeOutput(client);
    MIDIPortRef input = 0;
    ASSERT_EQ(MIDIPortConnectSource(MakeInput(client, received), echo, nullptr), noErr);
    Action action = [&](const MIDIPacketList* list) {
        EXPECT_EQ(MIDISend(output, destination, list), noErr);
        EXPECT_EQ(MIDIReceived(echo, list), noErr);
        EXPECT_EQ(MIDIPortDispose(input), noErr) << "its own port, without waiting for itself";
    };
    input = MakeActionInput(client, action);
    ASSERT_EQ(MIDIPortConnectSource(input, source, nullptr), noErr);
    const List list({{0, kNote}});
    EXPECT_EQ(MIDIReceived(source, list.Get()), noErr);
    EXPECT_EQ(received.Lists(), 2);
    EXPECT_EQ(MIDIReceived(source, list.Get()), noErr);
    EXPECT_EQ(received.Lists(), 2) << "the port is gone";
}

TEST(RoutingTest, LetsAReadProcedureDisposeOfItsClientAndSource) {
    const MIDIClientRef client = MakeClient();
    const MIDIEndpointRef source = MakeSource(client);
    int calls = 0;
    Action action = [&](const MIDIPacketList*) {
        ++calls;
        EXPECT_EQ(MIDIClientDispose(client), noErr);
    };
    ASSERT_EQ(MIDIPortConnectSource(MakeActionInput(client, action), source, nullptr), noErr);
    const List list({{0, kNote}});
    EXPECT_EQ(MIDIReceived(source, list.Get()), noErr);
    EXPECT_EQ(MIDIReceived(source, list.Get()), kMIDIUnknownEndpoint);
    EXPECT_EQ(calls, 1);
}

namespace {

// Runs `end` on another thread while a read procedure is in progress, and checks that it returns
// only after that.
void ExpectWaitsForReadProcedure(MIDIEndpointRef source, std::atomic<bool>& isInside,
                                 std::atomic<bool>& mayLeave, std::atomic<bool>& hasLeft,
                                 const std::function<void()>& end) {
    std::thread deliverer([source] {
        const List list({{0, kNote}});
        MIDIReceived(source, list.Get());
    });
    WaitUntilSet("the read procedure is called", isInside);
    std::atomic<bool> hasEnded = false;
    std::thread ender([&] {
        end();
        EXPECT_TRUE(hasLeft) << "returned while the read procedure was running";
        hasEnded = true;
    });
    // Cannot be waited for: that something does not happen.
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(hasEnded);
    mayLeave = true;
    ender.join();
    deliverer.join();
}

struct SlowReader {
    std::atomic<bool> mIsInside{false};
    std::atomic<bool> mMayLeave{false};
    std::atomic<bool> mHasLeft{false};
    Action mAction = [this](const MIDIPacketList*) {
        mIsInside = true;
        WaitUntilSet("the read procedure may return", mMayLeave);
        mHasLeft = true;
    };
};

} // namespace

TEST(RoutingTest, WaitsForReadProceduresWhenAPortIsDisposed) {
    SlowReader reader;
    const MIDIClientRef client = MakeClient();
    const MIDIEndpointRef source = MakeSource(client);
    const MIDIPortRef input = MakeActionInput(client, reader.mAction);
    ASSERT_EQ(MIDIPortConnectSource(input, source, nullptr), noErr);
    ExpectWaitsForReadProcedure(source, reader.mIsInside, reader.mMayLeave, reader.mHasLeft,
                                [&] { EXPECT_EQ(MIDIPortDispose(input), noErr); });
}

TEST(RoutingTest, WaitsForReadProceduresWhenASourceIsDisconnected) {
    SlowReader reader;
    const MIDIClientRef client = MakeClient();
    const MIDIEndpointRef source = MakeSource(client);
    const MIDIPortRef input = MakeActionInput(client, reader.mAction);
    ASSERT_EQ(MIDIPortConnectSource(input, source, nullptr), noErr);
    ExpectWaitsForReadProcedure(source, reader.mIsInside, reader.mMayLeave, reader.mHasLeft,
                                [&] { EXPECT_EQ(MIDIPortDisconnectSource(input, source), noErr); });
}

TEST(RoutingTest, DoesNotHoldChangesUpWhileAReadProcedureRuns) {
    SlowReader reader;
    Received received;
    const MIDIClientRef client = MakeClient();
    const MIDIEndpointRef source = MakeSource(client);
    ASSERT_EQ(MIDIPortConnectSource(MakeActionInput(client, reader.mAction), source, nullptr),
              noErr);
    std::thread deliverer([source] {
        const List list({{0, kNote}});
        MIDIReceived(source, list.Get());
    });
    WaitUntilSet("the read procedure is called", reader.mIsInside);
    // Each of these would never return if it waited for the read procedure.
    const MIDIEndpointRef other = MakeSource(client);
    const MIDIPortRef input = MakeInput(client, received);
    EXPECT_EQ(MIDIPortConnectSource(input, other, nullptr), noErr);
    EXPECT_EQ(MIDIPortConnectSource(input, source, nullptr), noErr);
    const List list({{0, kNote}});
    EXPECT_EQ(MIDIReceived(other, list.Get()), noErr);
    EXPECT_EQ(received.Lists(), 1);
    EXPECT_EQ(MIDIPortDispose(input), noErr);
    reader.mMayLeave = true;
    deliverer.join();
}

TEST(RoutingTest, WaitsForReadProceduresWhenADestinationIsDisposed) {
    SlowReader reader;
    const MIDIClientRef client = MakeClient();
    const MIDIPortRef output = MakeOutput(client);
    MIDIEndpointRef destination = 0;
    ASSERT_EQ(MIDIDestinationCreate(client, CFSTR("d"), RunAction, &reader.mAction, &destination),
              noErr);
    std::thread sender([&] {
        const List list({{0, kNote}});
        EXPECT_EQ(MIDISend(output, destination, list.Get()), noErr);
    });
    WaitUntilSet("the read procedure is called", reader.mIsInside);
    std::thread disposer([&] {
        EXPECT_EQ(MIDIEndpointDispose(destination), noErr);
        EXPECT_TRUE(reader.mHasLeft);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    reader.mMayLeave = true;
    disposer.join();
    sender.join();
}
