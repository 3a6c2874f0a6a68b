// Watches the memory allocations of the test program and of all modules that it loads, including
// those of operator new. It works under the sanitizers too, which lend their own hooks. Any thread
// may call.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace TestSupport {

// How many blocks this thread has allocated since it started.
std::uint64_t AllocationsOfThisThread();

// While a recorder exists, it records the blocks that all threads allocate, and which of them are
// freed. A program has one at a time.
//
//     const AllocationRecorder recorder;
//     worker.Write(0, note);
//     EXPECT_EQ(recorder.BlocksOf(256).size(), 1U);
class AllocationRecorder {
public:
    AllocationRecorder();
    ~AllocationRecorder();
    AllocationRecorder(const AllocationRecorder&) = delete;
    AllocationRecorder& operator=(const AllocationRecorder&) = delete;

    // Returns the blocks of exactly `size` bytes, freed ones included, in order of allocation.
    std::vector<void*> BlocksOf(std::size_t size) const;
    std::size_t FreedBlocksOf(std::size_t size) const;
};

// Whether FailMallocOf works. Under the sanitizers, whose allocators cannot be made to fail, it
// does not.
bool CanFailMalloc();

// Makes the next `times` calls of malloc for exactly `size` bytes return null.
void FailMallocOf(std::size_t size, int times);

} // namespace TestSupport
