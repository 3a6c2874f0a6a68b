#include "tests/support/memory/LiveBlocks.h"

#include <malloc.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>

// The C library's own, under the names that it keeps for whoever takes the others' place.
extern "C" void* __libc_malloc(std::size_t size);
extern "C" void* __libc_calloc(std::size_t count, std::size_t size);
extern "C" void* __libc_realloc(void* block, std::size_t size);
extern "C" void* __libc_memalign(std::size_t alignment, std::size_t size);
extern "C" void __libc_free(void* block);

namespace {

constexpr std::size_t kTolerance = 64; // the library rounds sizes up

// Relaxed: each stands for itself.
std::atomic<std::size_t> sWatchedSize{0};
std::atomic<long> sWatched{0};
std::atomic<long> sOthers{0};

void Count(void* block, long change) {
    if (block != nullptr) {
        const std::size_t size = malloc_usable_size(block);
        const std::size_t watched = sWatchedSize.load(std::memory_order_relaxed);
        const bool isWatched =
            watched != 0 && size + kTolerance >= watched && size <= watched + kTolerance;
        (isWatched ? sWatched : sOthers).fetch_add(change, std::memory_order_relaxed);
    }
}

void* Counted(void* block) {
    Count(block, 1);
    return block;
}

} // namespace

namespace TestSupport {

void WatchBlocksOfSize(std::size_t size) {
    sWatchedSize = size;
}

BlockCounts LiveBlocks() {
    return {sWatched, sOthers};
}

} // namespace TestSupport

#define QUORVEL_INTERPOSED extern "C" __attribute__((visibility("default")))

QUORVEL_INTERPOSED void* malloc(std::size_t size) {
    return Counted(__libc_malloc(size));
}

QUORVEL_INTERPOSED void* calloc(std::size_t count, std::size_t size) {
    return Counted(__libc_calloc(count, size));
}

QUORVEL_INTERPOSED void* realloc(void* block, std::size_t size) {
    // Counted as gone before it may be, since its size cannot be asked for afterwards.
    Count(block, -1);
    void* const moved = __libc_realloc(block, size);
    if (moved == nullptr && size != 0) {
        Count(block, 1);
    }
    return Counted(moved);
}

QUORVEL_INTERPOSED void free(void* block) {
    Count(block, -1);
    __libc_free(block);
}

QUORVEL_INTERPOSED void* memalign(std::size_t alignment, std::size_t size) {
    return Counted(__libc_memalign(alignment, size));
}

QUORVEL_INTERPOSED void* aligned_alloc(std::size_t alignment, std::size_t size) {
    return Counted(__libc_memalign(alignment, size));
}

QUORVEL_INTERPOSED int posix_memalign(void** block, std::size_t alignment, std::size_t size) {
    *block = Counted(__libc_memalign(alignment, size));
    return *block == nullptr ? ENOMEM : 0;
}
