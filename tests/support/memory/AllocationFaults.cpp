#include "tests/support/memory/AllocationFaults.h"

#include "tests/support/ProgramCode.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <new>

namespace {

struct Watch {
    bool active = false;
    bool everybody = false;
    int failing = 0;
    int count = 0;
    std::array<std::size_t, 64> sizes{};
};

constexpr std::size_t kPlainAlignment = __STDCPP_DEFAULT_NEW_ALIGNMENT__;

thread_local Watch tlsWatch;
thread_local long tlsBlocks = 0;

void* Allocate(std::size_t size, std::size_t alignment, const void* caller) {
    Watch& watch = tlsWatch;
    if (watch.active && (watch.everybody || TestSupport::IsInProgram(caller))) {
        if (static_cast<std::size_t>(watch.count) < watch.sizes.size()) {
            watch.sizes[static_cast<std::size_t>(watch.count)] = size;
        }
        watch.count++;
        if (watch.count == watch.failing) {
            return nullptr;
        }
    }
    tlsBlocks++;
    if (alignment <= kPlainAlignment) {
        return std::malloc(size);
    }
    return std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment);
}

void Free(void* memory) {
    if (memory != nullptr) {
        tlsBlocks--;
        std::free(memory);
    }
}

void* AllocateOrThrow(std::size_t size, std::size_t alignment, const void* caller) {
    if (void* const memory = Allocate(size, alignment, caller)) {
        return memory;
    }
    throw std::bad_alloc();
}

} // namespace

namespace TestSupport {

void WatchAllocations(int failing) {
    tlsWatch = Watch{};
    tlsWatch.failing = failing;
    tlsWatch.active = true;
}

void WatchAllAllocations(int failing) {
    WatchAllocations(failing);
    tlsWatch.everybody = true;
}

bool AllocationFailed() {
    return tlsWatch.failing != 0 && tlsWatch.count >= tlsWatch.failing;
}

long BlocksHeld() {
    return tlsBlocks;
}

std::vector<std::size_t> AllocationsWatched() {
    tlsWatch.active = false;
    const auto count = std::min(static_cast<std::size_t>(tlsWatch.count), tlsWatch.sizes.size());
    const auto* const begin = tlsWatch.sizes.data();
    return {begin, begin + count};
}

} // namespace TestSupport

void* operator new(std::size_t size) {
    return AllocateOrThrow(size, kPlainAlignment, __builtin_return_address(0));
}

void* operator new[](std::size_t size) {
    return AllocateOrThrow(size, kPlainAlignment, __builtin_return_address(0));
}

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return Allocate(size, kPlainAlignment, __builtin_return_address(0));
}

void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return Allocate(size, kPlainAlignment, __builtin_return_address(0));
}

void* operator new(std::size_t size, std::align_val_t alignment) {
    return AllocateOrThrow(size, static_cast<std::size_t>(alignment), __builtin_return_address(0));
}

void* operator new(std::size_t size, std::align_val_t alignment,
                   const std::nothrow_t& /*tag*/) noexcept {
    return Allocate(size, static_cast<std::size_t>(alignment), __builtin_return_address(0));
}

void operator delete(void* memory) noexcept {
    Free(memory);
}
void operator delete[](void* memory) noexcept {
    Free(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
    Free(memory);
}
void operator delete[](void* memory, std::size_t /*size*/) noexcept {
    Free(memory);
}
void operator delete(void* memory, std::align_val_t /*alignment*/) noexcept {
    Free(memory);
}
void operator delete(void* memory, std::size_t /*size*/, std::align_val_t /*alignment*/) noexcept {
    Free(memory);
}
