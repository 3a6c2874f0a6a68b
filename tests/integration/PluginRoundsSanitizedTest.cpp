// A few rounds of the bundle's life under a sanitizer, which keeps the memory to itself: the
// objects are counted here, the blocks by the sanitizer at the program's end.

#include "tests/integration/PluginRounds.h"

namespace {

using Integration::LiveObjects;

class PluginRoundsSanitized : public Integration::PluginRounds {};

TEST_F(PluginRoundsSanitized, LeavesOfTwentyRoundsTheObjectsThatAreLeftOnPurposeAndNoOthers) {
    constexpr int kRounds = 20;
    ASSERT_NO_FATAL_FAILURE(Rounds(3));
    const LiveObjects before;
    ASSERT_NO_FATAL_FAILURE(Rounds(kRounds));
    ExpectLeftOnPurpose(before, LiveObjects(), kRounds);
}

} // namespace
