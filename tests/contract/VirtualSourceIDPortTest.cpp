// The message port through which the control-surface application learns the virtual sources' IDs.

#include "tests/contract/DriverFixture.h"
#include "tests/support/platform/CFText.h"

#include <gmock/gmock.h>

#include <array>
#include <cstring>
#include <limits>
#include <optional>

namespace {

using testing::ElementsAre;
using TestSupport::Bytes;

using IDs = std::array<SInt32, 4>;

class VirtualSourceIDPort : public DriverFixture {
protected:
    void StartWithPorts(const char* block) {
        mPreferences.SetApplications({{block, "None"}});
        OpenAndStart();
        const auto name = TestSupport::MakeString("Quorvel Virtual Source IDs Port");
        mRemote = CFOwned(CFMessagePortCreateRemote(nullptr, name.Get()));
        ASSERT_TRUE(mRemote);
    }

    // Asks through the port, whose source is on this thread's run loop.
    IDs Ask(SInt32 msgid, CFDataRef data = nullptr) {
        IDs ids{-1, -1, -1, -1};
        CFDataRef reply = nullptr;
        EXPECT_EQ(CFMessagePortSendRequest(mRemote.Get(), msgid, data, 60, 60,
                                           kCFRunLoopDefaultMode, &reply),
                  kCFMessagePortSuccess);
        const auto held = CFOwned(reply);
        EXPECT_NE(reply, nullptr);
        if (reply != nullptr) {
            EXPECT_EQ(CFDataGetLength(reply), 16);
            std::memcpy(
                ids.data(), CFDataGetBytePtr(reply),
                std::min<std::size_t>(16, static_cast<std::size_t>(CFDataGetLength(reply))));
        }
        return ids;
    }

    SInt32 IDOf(unsigned int portNumber) {
        SInt32 id = 0;
        EXPECT_EQ(
            MIDIObjectGetIntegerProperty(VirtualSource(portNumber - 1), kMIDIPropertyUniqueID, &id),
            noErr);
        EXPECT_NE(id, 0);
        return id;
    }

    CFOwned<CFMessagePortRef> mRemote;
};

TEST_F(VirtualSourceIDPort, GivesTheFourIDsOfABlockInPortOrder) {
    StartWithPorts("5-8");
    EXPECT_THAT(Ask(5), ElementsAre(IDOf(5), IDOf(6), IDOf(7), IDOf(8)));
    EXPECT_THAT(Ask(1), ElementsAre(IDOf(1), IDOf(2), IDOf(3), IDOf(4)));
}

TEST_F(VirtualSourceIDPort, GivesFourIDsFromAnyPortOn) {
    StartWithPorts("29-32");
    for (unsigned int port = 1; port <= 29; port++) {
        EXPECT_THAT(Ask(static_cast<SInt32>(port)),
                    ElementsAre(IDOf(port), IDOf(port + 1), IDOf(port + 2), IDOf(port + 3)));
    }
}

TEST_F(VirtualSourceIDPort, IgnoresTheRequestsData) {
    StartWithPorts("1-4");
    const IDs ids = Ask(1);
    for (const std::size_t size : {0U, 1U, 16U, 5000U}) {
        const Bytes bytes(size, 0xA5);
        const auto data = CFOwned(CFDataCreate(nullptr, bytes.data(), static_cast<CFIndex>(size)));
        EXPECT_EQ(Ask(1, data.Get()), ids);
    }
}

TEST_F(VirtualSourceIDPort, GivesZeroForEachPortThatThereIsNot) {
    StartWithPorts("1-4");
    EXPECT_THAT(Ask(4), ElementsAre(IDOf(4), 0, 0, 0));
    EXPECT_THAT(Ask(0), ElementsAre(0, IDOf(1), IDOf(2), IDOf(3)));
    EXPECT_THAT(Ask(-2), ElementsAre(0, 0, 0, IDOf(1)));
    for (const SInt32 msgid :
         {5, -3, 33, std::numeric_limits<SInt32>::max(), std::numeric_limits<SInt32>::min()}) {
        EXPECT_THAT(Ask(msgid), ElementsAre(0, 0, 0, 0)) << msgid;
    }
}

TEST_F(VirtualSourceIDPort, GivesTheIDsOfTheLatestStart) {
    StartWithPorts("1-4");
    const IDs earlier = Ask(1);
    ASSERT_EQ(Start(), noErr);
    EXPECT_NE(Ask(1), earlier);
    EXPECT_THAT(Ask(1), ElementsAre(IDOf(1), IDOf(2), IDOf(3), IDOf(4)));
}

} // namespace
