// Paths that must not allocate.

#include "tests/support/memory/AllocationCounter.h"
#include "tests/support/platform/ControllableClock.h"
#include "tests/unit/MidiDriver/worker/WorkerHarness.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <new>

using namespace TestSupport;

namespace {

constexpr std::size_t kItems = 500;

void IgnoreReply(unsigned int, const unsigned char*, unsigned int) {}

const std::vector<tActiveSenseFn> kDetectors = {IsHUIActiveSenseFn, IsMackieControlActiveSenseFn};

TestWorker::Options WithRate(int rate) {
    TestWorker::Options options;
    options.mElementType = kMIDIPacketList;
    options.mReply = IgnoreReply;
    options.mActiveSense = &kDetectors;
    options.mThrottleRate = rate;
    return options;
}

class WorkerAllocation : public testing::TestWithParam<int> {};

} // namespace

TEST(AllocationCounter, CountsThisThreadsAllocations) {
    const std::uint64_t before = AllocationsOfThisThread();
    // Called by name: a compiler may leave out the allocation of a new expression.
    void* const block = ::operator new(8);
    void* const array = ::operator new[](8);
    void* const plain = allocFunc(8);
    EXPECT_EQ(AllocationsOfThisThread(), before + 3);
    ::operator delete(block);
    ::operator delete[](array);
    freeFunc(plain, 8);
    EXPECT_EQ(AllocationsOfThisThread(), before + 3);
}

TEST_P(WorkerAllocation, NeverHappensOnTheSendersPath) {
    ControllableClock clock;
    TestWorker worker(WithRate(GetParam()));
    worker.Sink().OnlyCount(kItems);
    Bytes list = MakePacketList({{0x90, 0, 0}, {0xF0, 0, 0, 0x66, 0x14, 0, 0xF7}, {0xF8}});
    const auto size = static_cast<unsigned int>(list.size());
    const std::uint64_t before = AllocationsOfThisThread();
    for (unsigned int i = 0; i < kItems; ++i) {
        WriteCBBytes(worker.Get(), i % 4, list.data(), size - 11, false);
        WriteCBBytes(worker.Get(), i % 4, list.data() + size - 11, 11, true);
    }
    EXPECT_EQ(AllocationsOfThisThread(), before);
    ASSERT_TRUE(worker.Sink().WaitForCount(kItems));
}

TEST_P(WorkerAllocation, NeverHappensInSteadyForwarding) {
    ControllableClock clock;
    TestWorker worker(WithRate(GetParam()));
    worker.Sink().OnlyCount(kItems);
    const Bytes list = MakePacketList({Bytes(40, 1), {}});
    for (std::size_t i = 0; i < kItems; ++i) {
        worker.Write(static_cast<unsigned int>(i % 4), list);
    }
    ASSERT_TRUE(worker.Sink().WaitForCount(kItems));
    const std::vector<std::uint64_t> allocations = worker.Sink().Allocations();
    ASSERT_EQ(allocations.size(), kItems);
    // The lines on exceeded rates are formatted by syslog, ten in all; after them there is nothing.
    EXPECT_EQ(allocations.back(), allocations[kItems / 2]);
    if (GetParam() == 0) {
        EXPECT_EQ(allocations.back(), allocations.front());
    }
}

INSTANTIATE_TEST_SUITE_P(Unlimited, WorkerAllocation, testing::Values(0));
INSTANTIATE_TEST_SUITE_P(Throttled, WorkerAllocation, testing::Values(100));
