// What the creating functions answer when there is no memory for the first of their objects. Each
// test is the first in its process to make one, since records are never given back.
#include "tests/support/memory/AllocationFaults.h"

#include <CoreServices/CoreServices.h>

#include <gtest/gtest.h>

namespace {

template <typename Identifier, typename Create>
void ExpectNoneWithoutMemory(const Create& create) {
    // Enough of them to need memory, however many records there are.
    Identifier identifier = nullptr;
    TestSupport::WatchAllAllocations(1);
    OSStatus status = noErr;
    for (int i = 0; i < 1000 && status == noErr; i++) {
        status = create(&identifier);
    }
    const bool failed = TestSupport::AllocationFailed();
    TestSupport::WatchAllAllocations();
    EXPECT_TRUE(failed);
    EXPECT_EQ(status, kMPInsufficientResourcesErr);
    EXPECT_EQ(identifier, nullptr);
    EXPECT_EQ(create(&identifier), noErr);
    EXPECT_NE(identifier, nullptr);
}

TEST(CoreServicesMemory, SemaphoreIsMadeOrNot) {
    ExpectNoneWithoutMemory<MPSemaphoreID>(
        [](MPSemaphoreID* semaphore) { return MPCreateSemaphore(1, 0, semaphore); });
}

TEST(CoreServicesMemory, CriticalRegionIsMadeOrNot) {
    ExpectNoneWithoutMemory<MPCriticalRegionID>(
        [](MPCriticalRegionID* region) { return MPCreateCriticalRegion(region); });
}

} // namespace
