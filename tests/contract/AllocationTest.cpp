// What the driver allocates on its packet paths, and what it does when there is no memory.

#include "MidiDriver/PacketPaths.h"
#include "tests/contract/DriverFixture.h"
#include "tests/support/memory/AllocationFaults.h"
#include "tests/support/platform/SyslogCapture.h"

#include <gmock/gmock.h>

#include <syslog.h>

#include <atomic>

namespace {

std::atomic<std::size_t> sReceived{0};

} // namespace

// In the place of the platform's: counts and allocates nothing.
OSStatus MIDIReceived(MIDIEndpointRef /*src*/, const MIDIPacketList* /*pktlist*/) {
    sReceived++;
    return noErr;
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using TestSupport::AllocationsWatched;
using TestSupport::Bytes;
using TestSupport::MakePacketList;
using TestSupport::WatchAllocations;

class Allocation : public DriverFixture {
protected:
    Allocation() { sReceived = 0; }

    // Replies, and returns what that allocated.
    static std::vector<std::size_t> Reply(const Bytes& data, int failing = 0) {
        WatchAllocations(failing);
        ReplyMIDIPacketList(0, data.data(), static_cast<unsigned int>(data.size()));
        return AllocationsWatched();
    }
};

TEST_F(Allocation, FirstReplyMakesABufferOfSixteenBytesEvenWhenThereIsNothingToReply) {
    OpenAndStart();
    WatchAllocations();
    ReplyMIDIPacketList(0, nullptr, 0);
    EXPECT_THAT(AllocationsWatched(), ElementsAre(16));
    WatchAllocations();
    ReplyMIDIPacketList(0, nullptr, 0);
    EXPECT_THAT(AllocationsWatched(), IsEmpty());
}

TEST_F(Allocation, EmptyOrRefusedReplyDoesNotTouchTheBuffer) {
    OpenAndStart();
    Reply({0x90, 0x00, 0x7F});
    EXPECT_THAT(Reply({}), IsEmpty());
    EXPECT_THAT(Reply(Bytes(256, 0x01)), IsEmpty());
    ASSERT_EQ(TableStop(mDriver), noErr);
    EXPECT_THAT(Reply({0x90, 0x00, 0x7F}), IsEmpty());
}

TEST_F(Allocation, EachReplyAllocatesItsLengthAndSixteen) {
    OpenAndStart();
    ReplyMIDIPacketList(0, nullptr, 0);
    for (const std::size_t length : {3U, 3U, 18U, 1U, 255U}) {
        EXPECT_THAT(Reply(Bytes(length, 0x01)), ElementsAre(length + 16));
    }
}

TEST_F(Allocation, ReplyWithoutMemoryIsLoggedAndDropped) {
    OpenAndStart();
    Reply({0x90, 0x00, 0x7F});
    ASSERT_EQ(sReceived.load(), 1U);
    TestSupport::ClearSyslogLines();
    // The first one fails; what follows is the capture of the syslog line.
    EXPECT_EQ(Reply({0x90, 0x00, 0x7F}, 1).front(), 19U);
    EXPECT_EQ(sReceived.load(), 1U);
    EXPECT_THAT(
        TestSupport::SyslogLines(),
        ElementsAre(TestSupport::SyslogLine{
            LOG_ERR, "ReplyMIDIPacketList: Error dynamically allocating sendPacketBuffer"}));
    EXPECT_THAT(Reply({0x90, 0x00, 0x7F}), ElementsAre(19));
    EXPECT_EQ(sReceived.load(), 2U);
}

TEST_F(Allocation, SendAllocatesNothingButTheReply) {
    mPreferences.SetApplications({{"1-4", "HUI"}});
    OpenAndStart();
    ReplyMIDIPacketList(0, nullptr, 0);
    Bytes note = MakePacketList({{0x90, 0x3C, 0x7F}, Bytes(2000, 0x01)});
    WatchAllocations();
    EXPECT_EQ(Send(0, note), noErr);
    EXPECT_THAT(AllocationsWatched(), IsEmpty());
    Bytes ping = MakePacketList({{0x90, 0x00, 0x00}});
    WatchAllocations();
    EXPECT_EQ(Send(0, ping), noErr);
    EXPECT_THAT(AllocationsWatched(), ElementsAre(19));
}

TEST_F(Allocation, FactoryReturnsNullWhereverMemoryRunsOut) {
    MIDIPlugin* const before = sPluginRef.load();
    const CFUUIDRef typeID = kMIDIDriverTypeID; // made while there is memory
    int failed = 0;
    void* made = nullptr;
    while (made == nullptr) {
        ASSERT_LT(failed, 200);
        WatchAllocations(failed + 1);
        EXPECT_NO_THROW(made = MIDIPluginFactory(nullptr, typeID));
        AllocationsWatched();
        if (made == nullptr) {
            EXPECT_EQ(sPluginRef.load(), before);
            failed++;
        }
    }
    EXPECT_GT(failed, 3); // the record, the vectors and the worker
    mDriver = static_cast<MIDIDriverRef>(made);
    EXPECT_EQ(TableRelease(mDriver), 0U);
    mDriver = nullptr;
}

} // namespace
