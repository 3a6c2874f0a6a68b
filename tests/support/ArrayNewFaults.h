// Makes `new (std::nothrow) T[n]` fail in what is linked into the test program itself; the linker
// redirects the call, so that it also works beside the sanitizers' own operators. Any thread.
#pragma once

#include <cstddef>

namespace TestSupport {

// The next `times` such allocations of exactly `size` bytes return null.
void FailArrayNewOf(std::size_t size, int times);

} // namespace TestSupport
