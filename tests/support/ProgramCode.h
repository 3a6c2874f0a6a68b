// Tells the calls of the test program, and of the code linked into it, from those of libraries.
#pragma once

#include <cstdint>

// The bounds of the program's code, set by the linker.
extern "C" const char __executable_start;
extern "C" const char etext;

namespace TestSupport {

// Whether a call with this return address came from the program's own code.
inline bool IsInProgram(const void* returnAddress) {
    const auto at = reinterpret_cast<std::uintptr_t>(returnAddress);
    return at >= reinterpret_cast<std::uintptr_t>(&__executable_start) &&
           at < reinterpret_cast<std::uintptr_t>(&etext);
}

} // namespace TestSupport
