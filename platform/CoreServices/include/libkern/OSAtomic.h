// Atomic arithmetic.
#pragma once

#include <stdint.h>

// Adds `amount` to `*value` as one step and returns the new value (modulo 2^32). It is a full
// barrier: no access of this thread moves across it in either direction. Any thread may call; the
// call never blocks.
static inline int32_t OSAtomicAdd32Barrier(int32_t amount, volatile int32_t* value) {
    return __atomic_add_fetch(value, amount, __ATOMIC_SEQ_CST);
}
