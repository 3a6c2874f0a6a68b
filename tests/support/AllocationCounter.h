// Watches the memory allocations of the test program and of all modules that it loads, those of
// operator new included; also under the sanitizers, which lend their own hooks. Any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace TestSupport {

// How many blocks this thread has allocated since it started.
std::uint64_t AllocationsOfThisThread();

// Keeps what all threads allocate while it exists, and which of that is freed. One at a time.
class AllocationRecorder {
public:
    AllocationRecorder();
    ~AllocationRecorder();
    AllocationRecorder(const AllocationRecorder&) = delete;
    AllocationRecorder& operator=(const AllocationRecorder&) = delete;

    // The blocks of exactly so many bytes, freed ones included, in order of allocation.
    std::vector<void*> BlocksOf(std::size_t size) const;
    std::size_t FreedBlocksOf(std::size_t size) const;
};

// The sanitizers' allocators cannot be made to fail: false there.
bool CanFailMalloc();

// The next `times` calls of malloc for exactly `size` bytes return null.
void FailMallocOf(std::size_t size, int times);

} // namespace TestSupport
