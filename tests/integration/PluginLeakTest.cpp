// The bundle loaded, used and unloaded over and over: what it leaves behind is what it leaves on
// purpose, counted piece by piece, and nothing else.

#include "tests/integration/PluginRounds.h"
#include "tests/support/memory/LiveBlocks.h"

namespace {

using Integration::LiveObjects;
using TestSupport::BlockCounts;

// The number of blocks of one object of the kind that `make` makes.
template <typename Make>
long BlocksOf(Make make) {
    CFRelease(make()); // what its kind needs once, it has now
    const long before = TestSupport::LiveBlocks().others;
    const CFOwned object(make());
    return TestSupport::LiveBlocks().others - before;
}

class PluginLeak : public Integration::PluginRounds {};

TEST_F(PluginLeak, LeavesOfAThousandRoundsWhatIsLeftOnPurposeAndNothingElse) {
    // Till every slot of CoreMIDI's table of objects has been used once, and all else that is made
    // once per process is made.
    constexpr int kWarmUpRounds = 500;
    constexpr int kRounds = 1000;
    TestSupport::WatchBlocksOfSize(Integration::kListSize);
    ASSERT_NO_FATAL_FAILURE(Rounds(kWarmUpRounds));
    ASSERT_FALSE(Integration::ModuleIsLoaded());
    const LiveObjects objectsBefore;
    const BlockCounts blocksBefore = TestSupport::LiveBlocks();
    ASSERT_NO_FATAL_FAILURE(Rounds(kRounds));
    ASSERT_FALSE(Integration::ModuleIsLoaded());
    const BlockCounts blocksAfter = TestSupport::LiveBlocks();
    ExpectLeftOnPurpose(objectsBefore, LiveObjects(), kRounds);

    const long perString = BlocksOf(
        [] { return CFStringCreateWithCString(nullptr, "Overwritten", kCFStringEncodingUTF8); });
    const long perUUID = BlocksOf([] {
        return CFUUIDCreateFromString(nullptr, CFSTR("5D0A7B52-7D6C-4C41-8F4E-0C6E5A5D2B11"));
    });
    // The buffers that the worker's loop lets go when it ends.
    EXPECT_EQ(blocksAfter.watched - blocksBefore.watched, kRounds);
    EXPECT_EQ(blocksAfter.others - blocksBefore.others, kRounds * (perString + perUUID))
        << perString << " blocks for a string, " << perUUID << " for a UUID";
}

} // namespace
