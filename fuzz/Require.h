// Checks a fuzz target's expectations.
#pragma once

#include <cstdio>
#include <cstdlib>

// Ends the run if `holds` is false; libFuzzer then keeps the input.
inline void Require(bool holds, const char* what) {
    if (!holds) {
        std::fprintf(stderr, "does not hold: %s\n", what);
        std::abort();
    }
}
