// Measures the most memory that is allocated at any time, by the sanitizer's count.
#pragma once

#include <sanitizer/allocator_interface.h>

#include <algorithm>
#include <cstddef>

class AllocationPeak {
public:
    // Begins to measure. A program has one at a time, on the only thread that allocates.
    AllocationPeak() {
        [[maybe_unused]] static const int installed =
            __sanitizer_install_malloc_and_free_hooks(OnAllocation, OnFree);
        msAllocated = 0;
        msPeak = 0;
    }

    // Returns the largest number of bytes that were allocated beyond those at the start.
    std::size_t Bytes() const { return static_cast<std::size_t>(msPeak); }

private:
    static void OnAllocation(const volatile void* /*address*/, std::size_t size) {
        msAllocated += static_cast<std::ptrdiff_t>(size);
        msPeak = std::max(msPeak, msAllocated);
    }
    static void OnFree(const volatile void* address) {
        if (address != nullptr) {
            msAllocated -= static_cast<std::ptrdiff_t>(
                __sanitizer_get_allocated_size(const_cast<const void*>(address)));
        }
    }

    static inline std::ptrdiff_t msAllocated = 0;
    static inline std::ptrdiff_t msPeak = 0;
};
