#include "tests/support/memory/ArrayNewFaults.h"

#include <atomic>
#include <new>

namespace TestSupport {

namespace {

constinit std::atomic<std::size_t> sFailSize{0};
constinit std::atomic<int> sFailures{0};

} // namespace

void FailArrayNewOf(std::size_t size, int times) {
    sFailSize = size;
    sFailures = times;
}

// The linker's names for the operator: the one that callers reach and the one it stands for.
void* WrappedArrayNew(std::size_t size, const std::nothrow_t& tag) noexcept
    __asm__("__wrap_" QUORVEL_ARRAY_NEW);
void* RealArrayNew(std::size_t size, const std::nothrow_t& tag) noexcept
    __asm__("__real_" QUORVEL_ARRAY_NEW);

void* WrappedArrayNew(std::size_t size, const std::nothrow_t& tag) noexcept {
    if (sFailures > 0 && sFailSize == size && sFailures-- > 0) {
        return nullptr;
    }
    return RealArrayNew(size, tag);
}

} // namespace TestSupport
