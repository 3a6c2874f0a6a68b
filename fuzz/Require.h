// What a fuzz target holds its subject to.
#pragma once

#include <cstdio>
#include <cstdlib>

// Ends the run, with the input kept, when `holds` is false.
inline void Require(bool holds, const char* what) {
    if (!holds) {
        std::fprintf(stderr, "does not hold: %s\n", what);
        std::abort();
    }
}
