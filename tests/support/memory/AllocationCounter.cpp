#include "tests/support/memory/AllocationCounter.h"

#include "tests/support/Sanitized.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>

#if defined(QUORVEL_SANITIZED)
#include <sanitizer/allocator_interface.h>
#endif

namespace TestSupport {

namespace {

struct Block {
    std::atomic<void*> mAddress;
    std::atomic<std::size_t> mSize;
    std::atomic<bool> mFreed;
};

// Nothing here may allocate, nor be destroyed while threads still run.
constexpr std::size_t kMostBlocks = 65536;
constinit std::array<Block, kMostBlocks> sBlocks{};
constinit std::atomic<std::size_t> sNumBlocks{0};
constinit std::atomic<std::size_t> sNextFree{0};
constinit std::atomic<bool> sRecording{false};
constinit thread_local std::uint64_t tlsAllocations = 0;

std::size_t NumBlocks() {
    return std::min(sNumBlocks.load(), kMostBlocks);
}

void OnAllocation(void* address, std::size_t size) {
    ++tlsAllocations;
    if (!sRecording || address == nullptr) {
        return;
    }
    const std::size_t index = sNumBlocks++;
    if (index < kMostBlocks) {
        sBlocks[index].mSize = size;
        sBlocks[index].mFreed = false;
        sBlocks[index].mAddress = address;
    }
}

void OnFree(void* address) {
    if (!sRecording || address == nullptr) {
        return;
    }
    // Blocks are mostly freed in the order of their allocation, so the search goes on from the last
    // one found. Of several blocks at one address all but the latest have been freed.
    const std::size_t numBlocks = NumBlocks();
    const std::size_t first = sNextFree;
    for (std::size_t i = 0; i < numBlocks; ++i) {
        const std::size_t index = (first + i) % numBlocks;
        Block& block = sBlocks[index];
        if (block.mAddress == address && !block.mFreed) {
            block.mFreed = true;
            sNextFree = index + 1;
            return;
        }
    }
}

} // namespace

std::uint64_t AllocationsOfThisThread() {
    return tlsAllocations;
}

AllocationRecorder::AllocationRecorder() {
    sNumBlocks = 0;
    sNextFree = 0;
    sRecording = true;
}

AllocationRecorder::~AllocationRecorder() {
    sRecording = false;
}

std::vector<void*> AllocationRecorder::BlocksOf(std::size_t size) const {
    std::vector<void*> blocks;
    const std::size_t numBlocks = NumBlocks();
    for (std::size_t index = 0; index < numBlocks; ++index) {
        if (sBlocks[index].mSize == size && sBlocks[index].mAddress != nullptr) {
            blocks.push_back(sBlocks[index].mAddress);
        }
    }
    return blocks;
}

std::size_t AllocationRecorder::FreedBlocksOf(std::size_t size) const {
    const auto end = sBlocks.begin() + static_cast<std::ptrdiff_t>(NumBlocks());
    return static_cast<std::size_t>(std::count_if(sBlocks.begin(), end, [size](const Block& block) {
        return block.mSize == size && block.mFreed;
    }));
}

#if defined(QUORVEL_SANITIZED)

namespace {

[[maybe_unused]] const int kInstalled = __sanitizer_install_malloc_and_free_hooks(
    [](const volatile void* address, std::size_t size) {
        OnAllocation(const_cast<void*>(address), size);
    },
    [](const volatile void* address) { OnFree(const_cast<void*>(address)); });

} // namespace

bool CanFailMalloc() {
    return false;
}

void FailMallocOf(std::size_t, int) {}

} // namespace TestSupport

#else

namespace {

constinit std::atomic<std::size_t> sFailSize{0};
constinit std::atomic<int> sFailures{0};

} // namespace

bool CanFailMalloc() {
    return true;
}

void FailMallocOf(std::size_t size, int times) {
    sFailSize = size;
    sFailures = times;
}

} // namespace TestSupport

#define QUORVEL_INTERPOSED extern "C" __attribute__((visibility("default")))

extern "C" void* __libc_malloc(std::size_t size);
extern "C" void* __libc_calloc(std::size_t count, std::size_t size);
extern "C" void* __libc_realloc(void* block, std::size_t size);
extern "C" void* __libc_memalign(std::size_t alignment, std::size_t size);
extern "C" void __libc_free(void* block);

using TestSupport::OnAllocation;

QUORVEL_INTERPOSED void* malloc(std::size_t size) {
    if (TestSupport::sFailures > 0 && TestSupport::sFailSize == size &&
        TestSupport::sFailures-- > 0) {
        errno = ENOMEM;
        return nullptr;
    }
    void* const block = __libc_malloc(size);
    OnAllocation(block, size);
    return block;
}

QUORVEL_INTERPOSED void* calloc(std::size_t count, std::size_t size) {
    void* const block = __libc_calloc(count, size);
    OnAllocation(block, count * size);
    return block;
}

QUORVEL_INTERPOSED void* realloc(void* block, std::size_t size) {
    TestSupport::OnFree(block);
    void* const moved = __libc_realloc(block, size);
    OnAllocation(moved, size);
    return moved;
}

QUORVEL_INTERPOSED void* aligned_alloc(std::size_t alignment, std::size_t size) {
    void* const block = __libc_memalign(alignment, size);
    OnAllocation(block, size);
    return block;
}

QUORVEL_INTERPOSED int posix_memalign(void** block, std::size_t alignment, std::size_t size) {
    void* const allocated = __libc_memalign(alignment, size);
    OnAllocation(allocated, size);
    if (allocated == nullptr) {
        return ENOMEM;
    }
    *block = allocated;
    return 0;
}

QUORVEL_INTERPOSED void free(void* block) {
    TestSupport::OnFree(block);
    __libc_free(block);
}

#endif
