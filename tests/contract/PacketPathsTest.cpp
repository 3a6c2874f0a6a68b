// The ways of packets: DAW to application through the worker, and the answers back to the DAW.

#include "MidiDriver/PacketPaths.h"

#include "tests/contract/DriverFixture.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/platform/SyslogCapture.h"

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace {

using testing::IsEmpty;
using TestSupport::Bytes;
using TestSupport::MakePacketList;
using TestSupport::PackedOrPadded;
using TestSupport::ReceivedList;
using TestSupport::ReceivedLists;
using TestSupport::WaitForReceivedLists;

const Bytes kNote{0x90, 0x3C, 0x7F};
const Bytes kHUIPing{0x90, 0x00, 0x00};
const Bytes kHUIAnswer{0x90, 0x00, 0x7F};

class PacketPaths : public DriverFixture {
protected:
    PacketPaths() { TestSupport::ClearReceivedLists(); }

    // Lists that went out on `source`, oldest first.
    static std::vector<Bytes> ListsOn(MIDIEndpointRef source) {
        std::vector<Bytes> lists;
        for (const ReceivedList& received : ReceivedLists()) {
            if (received.source == source) {
                lists.push_back(received.list);
            }
        }
        return lists;
    }

    static void Reply(unsigned int port, const Bytes& data) {
        ReplyMIDIPacketList(port, data.data(), static_cast<unsigned int>(data.size()));
    }
};

TEST_F(PacketPaths, ForwardsAListWholeWithZeroedTimeStamps) {
    OpenAndStart();
    const std::vector<Bytes> packets{{0x90, 0x3C, 0x7F}, {}, {0xC0, 0x05}};
    Bytes list = MakePacketList(packets, 0x1122334455667788U);
    const std::size_t size = PackedOrPadded(39, 44);
    ASSERT_EQ(list.size(), size);
    EXPECT_EQ(Send(1, list), noErr);
    // The caller's own list is written to.
    EXPECT_EQ(list, MakePacketList(packets, 0));
    ASSERT_TRUE(WaitForReceivedLists(1));
    const ReceivedList received = ReceivedLists()[0];
    EXPECT_EQ(received.source, VirtualSource(1));
    EXPECT_EQ(received.list, MakePacketList(packets, 0));
    EXPECT_EQ(received.list.size(), size);
    EXPECT_NE(received.thread, std::this_thread::get_id());
}

TEST_F(PacketPaths, ForwardsAListWithoutPackets) {
    OpenAndStart();
    Bytes list = MakePacketList({});
    ASSERT_EQ(list.size(), 4U);
    EXPECT_EQ(Send(0, list), noErr);
    ASSERT_TRUE(WaitForReceivedLists(1));
    EXPECT_EQ(ReceivedLists()[0].list, MakePacketList({}));
}

TEST_F(PacketPaths, ForwardsAListOfTheLargestPackets) {
    OpenAndStart();
    Bytes list = MakePacketList({Bytes(65535, 0x01), Bytes(3, 0x02)}, 5);
    const Bytes expected = MakePacketList({Bytes(65535, 0x01), Bytes(3, 0x02)}, 0);
    EXPECT_EQ(Send(0, list), noErr);
    ASSERT_TRUE(WaitForReceivedLists(1));
    EXPECT_EQ(ReceivedLists()[0].list, expected);
}

TEST_F(PacketPaths, KeepsTheOrderOfWhatIsSent) {
    OpenAndStart();
    std::vector<Bytes> expected;
    for (unsigned char i = 0; i < 100; i++) {
        expected.push_back(MakePacketList({{0xB0, i, 0x01}}));
        EXPECT_EQ(SendMessage(i % 4U, {0xB0, i, 0x01}), noErr);
    }
    ASSERT_TRUE(WaitForReceivedLists(100));
    const auto lists = ReceivedLists();
    for (unsigned int i = 0; i < 100; i++) {
        EXPECT_EQ(lists[i].source, VirtualSource(i % 4));
        EXPECT_EQ(lists[i].list, expected[i]);
    }
}

TEST_F(PacketPaths, RefusesAPortThatHasNoVirtualSource) {
    OpenAndStart();
    Bytes list = MakePacketList({kNote}, 99);
    const Bytes before = list;
    for (const unsigned int port : {4U, 31U, 32U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
        EXPECT_EQ(Send(port, list), -10831) << port;
    }
    EXPECT_EQ(list, before);
    EXPECT_EQ(SendMessage(3, kNote), noErr);
    ASSERT_TRUE(WaitForReceivedLists(1));
    EXPECT_EQ(ReceivedLists().size(), 1U);
}

TEST_F(PacketPaths, DropsWhatIsSentWhileStopped) {
    Open();
    Bytes list = MakePacketList({kHUIPing}, 99);
    const Bytes before = list;
    EXPECT_EQ(Send(0, list), noErr);
    EXPECT_EQ(Send(1000, list), noErr);
    ASSERT_EQ(Start(), noErr);
    ASSERT_EQ(TableStop(mDriver), noErr);
    EXPECT_EQ(Send(0, list), noErr);
    EXPECT_EQ(list, before);
    ASSERT_EQ(Start(), noErr);
    EXPECT_EQ(SendMessage(0, kNote), noErr);
    ASSERT_TRUE(WaitForReceivedLists(1));
    EXPECT_EQ(ReceivedLists()[0].list, MakePacketList({kNote})); // and nothing before it
}

TEST_F(PacketPaths, AnswersAPingOnThePortsOwnSourceAndForwardsItToo) {
    mPreferences.SetApplications({{"1-4", "HUI"}});
    OpenAndStart();
    EXPECT_EQ(SendMessage(2, kHUIPing), noErr);
    // The answer is out before Send returns, on the sender's thread.
    ASSERT_EQ(ListsOn(PortSource(2)), std::vector<Bytes>{MakePacketList({kHUIAnswer})});
    EXPECT_EQ(ReceivedLists()[0].thread, std::this_thread::get_id());
    ASSERT_TRUE(WaitForReceivedLists(2));
    EXPECT_EQ(ListsOn(VirtualSource(2)), std::vector<Bytes>{MakePacketList({kHUIPing})});
    EXPECT_EQ(ReceivedLists().size(), 2U);
}

TEST_F(PacketPaths, AnswersEveryPingOfAList) {
    mPreferences.SetApplications({{"1-4", "HUI"}});
    OpenAndStart();
    Bytes list = MakePacketList({kHUIPing, kNote, kHUIPing});
    EXPECT_EQ(Send(0, list), noErr);
    EXPECT_EQ(ListsOn(PortSource(0)),
              (std::vector<Bytes>{MakePacketList({kHUIAnswer}), MakePacketList({kHUIAnswer})}));
}

TEST_F(PacketPaths, AnswersAMackieControlPing) {
    mPreferences.SetApplications({{"5-8", "MackieControl"}});
    OpenAndStart();
    EXPECT_EQ(SendMessage(4, {0xF0, 0x00, 0x00, 0x66, 0x14, 0x00, 0xF7}), noErr);
    EXPECT_EQ(ListsOn(PortSource(4)),
              std::vector<Bytes>{
                  MakePacketList({{0xF0, 0x00, 0x00, 0x66, 0x14, 0x01, 0x00, 0x03, 0x00, 0x02, 0x01,
                                   0x09, 0x05, 0x07, 0x04, 0x07, 0x07, 0xF7}})});
}

TEST_F(PacketPaths, EmitsAReplyAsOnePacketOnTheEntitysSource) {
    OpenAndStart();
    Reply(2, {0x90, 0x00, 0x7F});
    const auto lists = ReceivedLists();
    ASSERT_EQ(lists.size(), 1U);
    EXPECT_EQ(lists[0].source, PortSource(2));
    EXPECT_EQ(lists[0].list, MakePacketList({{0x90, 0x00, 0x7F}}, 0));
}

TEST_F(PacketPaths, EmitsRepliesOfEveryLengthUpTo255) {
    OpenAndStart();
    for (std::size_t length = 1; length <= 255; length++) {
        const Bytes data(length, static_cast<unsigned char>(length));
        TestSupport::ClearReceivedLists();
        Reply(0, data);
        ASSERT_EQ(ListsOn(PortSource(0)), std::vector<Bytes>{MakePacketList({data})});
    }
}

TEST_F(PacketPaths, RefusesALongerReply) {
    OpenAndStart();
    for (const std::size_t length : {256U, 257U, 511U, 512U, 65536U}) {
        Reply(0, Bytes(length, 0x01));
    }
    EXPECT_THAT(ReceivedLists(), IsEmpty());
}

TEST_F(PacketPaths, EmitsNothingForAnEmptyReply) {
    OpenAndStart();
    const Bytes data{0x90};
    ReplyMIDIPacketList(0, nullptr, 3);
    ReplyMIDIPacketList(0, data.data(), 0);
    ReplyMIDIPacketList(0, nullptr, 0);
    EXPECT_THAT(ReceivedLists(), IsEmpty());
}

TEST_F(PacketPaths, EmitsNoReplyForAPortBeyondTheLast) {
    OpenAndStart();
    for (const unsigned int port : {4U, 32U, 0xFFFFFFFFU}) {
        Reply(port, kHUIAnswer);
    }
    EXPECT_THAT(ReceivedLists(), IsEmpty());
}

TEST_F(PacketPaths, ForwardsNothingForAPortBeyondTheLast) {
    OpenAndStart();
    const Bytes list = MakePacketList({kNote});
    for (const unsigned int port : {4U, 32U, 0xFFFFFFFFU}) {
        ForwardMIDIPacketList(port, list.data(), static_cast<unsigned int>(list.size()), nullptr);
    }
    EXPECT_THAT(ReceivedLists(), IsEmpty());
    ForwardMIDIPacketList(3, list.data(), 0, nullptr); // the list knows its own size
    EXPECT_EQ(ListsOn(VirtualSource(3)), std::vector<Bytes>{list});
}

TEST_F(PacketPaths, ForwardsAndRepliesNothingBeforeThereIsAnInstance) {
    sPluginRef = nullptr;
    const Bytes list = MakePacketList({kNote});
    ForwardMIDIPacketList(0, list.data(), static_cast<unsigned int>(list.size()), nullptr);
    Reply(0, kHUIAnswer);
    EXPECT_THAT(ReceivedLists(), IsEmpty());
}

TEST_F(PacketPaths, ForwardsAndRepliesNothingWhileStopped) {
    Open();
    const Bytes list = MakePacketList({kNote});
    const auto both = [&list] {
        ForwardMIDIPacketList(0, list.data(), static_cast<unsigned int>(list.size()), nullptr);
        Reply(0, kHUIAnswer);
    };
    both();
    ASSERT_EQ(Start(), noErr);
    ASSERT_EQ(TableStop(mDriver), noErr);
    both();
    EXPECT_THAT(ReceivedLists(), IsEmpty());
}

TEST_F(PacketPaths, GoesOnWhenThePlatformDoesNotTakeAList) {
    mPreferences.SetApplications({{"1-4", "HUI"}});
    OpenAndStart();
    TestSupport::ClearSyslogLines();
    TestSupport::SetReceivedStatus(-10841);
    EXPECT_EQ(SendMessage(0, kHUIPing), noErr);
    ASSERT_TRUE(WaitForReceivedLists(2));
    TestSupport::SetReceivedStatus(noErr);
    EXPECT_EQ(SendMessage(0, kHUIPing), noErr);
    ASSERT_TRUE(WaitForReceivedLists(4));
    EXPECT_THAT(TestSupport::SyslogLines(), IsEmpty());
}

// The host may start and stop the driver while its sending thread and the worker are at it:
// nothing is read that is being changed (the thread sanitizer watches), and what arrives is whole.
TEST_F(PacketPaths, SurvivesStartsAndStopsWhilePacketsFlow) {
    mPreferences.SetApplications({{"1-4", "HUI"}});
    OpenAndStart();
    std::atomic<bool> stop{false};
    std::atomic<unsigned int> sent{0};
    std::thread sender([&] {
        while (!stop) {
            for (unsigned int port = 0; port < 6; port++) {
                const OSStatus status = SendMessage(port, kHUIPing);
                EXPECT_TRUE(status == noErr || status == kMIDIInvalidPort) << status;
            }
            sent++;
            // Slow enough that no port comes up to its rate, which would hold the sender back.
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    for (unsigned int round = 0; round < 30; round++) {
        EXPECT_EQ(Start(), noErr);
        const unsigned int before = sent;
        EXPECT_TRUE(
            TestSupport::WaitUntil("two lists are sent", [&] { return sent >= before + 2; }));
        if (round % 2 == 0) {
            EXPECT_EQ(TableStop(mDriver), noErr);
        }
    }
    stop = true;
    sender.join();
    EXPECT_FALSE(ReceivedLists().empty());
    for (const ReceivedList& received : ReceivedLists()) {
        EXPECT_TRUE(received.list == MakePacketList({kHUIPing}) ||
                    received.list == MakePacketList({kHUIAnswer}));
    }
}

// What the worker still holds when the last reference goes is dropped, and nothing is forwarded
// after it.
TEST_F(PacketPaths, EndsWhileTheWorkerStillHoldsData) {
    OpenAndStart();
    for (int i = 0; i < 200; i++) {
        EXPECT_EQ(SendMessage(0, kNote), noErr);
    }
    Close();
    const std::size_t forwarded = ReceivedLists().size();
    EXPECT_LE(forwarded, 200U);
    TestSupport::ClearReceivedLists();
    OpenAndStart();
    EXPECT_EQ(SendMessage(0, {0xC0, 0x01}), noErr);
    ASSERT_TRUE(WaitForReceivedLists(1));
    EXPECT_EQ(ReceivedLists()[0].list, MakePacketList({{0xC0, 0x01}}));
}

} // namespace
