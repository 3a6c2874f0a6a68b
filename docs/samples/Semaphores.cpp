#include "runtime/sync/NySemaphore.h"

#include <gtest/gtest.h>

TEST(RuntimeSamples, Semaphores) {
    NySemaphore places(2, 3); // two free, never more than three
    EXPECT_TRUE(places.Wait(0));
    EXPECT_TRUE(places.Wait(0));
    EXPECT_FALSE(places.Wait(10)); // none left within 10 ms

    EXPECT_TRUE(places.Raise());
    EXPECT_TRUE(places.Raise());
    EXPECT_TRUE(places.Raise());
    EXPECT_FALSE(places.Raise()); // above the maximum
}
