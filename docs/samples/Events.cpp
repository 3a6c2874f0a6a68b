#include "runtime/sync/NyEvent.h"

#include <gtest/gtest.h>

TEST(RuntimeSamples, Events) {
    // One signal lets one waiter pass.
    NyEvent wakeUp(NyEvent::kAutoReset, NyEvent::kNotSignaled, "wake up");
    EXPECT_FALSE(wakeUp.Wait(0)); // polls
    wakeUp.Signal();
    EXPECT_TRUE(wakeUp.Wait(1000)); // up to 1000 ms
    EXPECT_FALSE(wakeUp.Wait(0));

    // A gate stays open until it is reset.
    NyEvent gate(NyEvent::kManualReset, NyEvent::kSignaled, "gate");
    EXPECT_TRUE(gate.Wait(0));
    EXPECT_TRUE(gate.Wait(0));
    gate.Reset();
    EXPECT_FALSE(gate.Wait(0));
}
