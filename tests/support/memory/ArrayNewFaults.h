// Makes `new (std::nothrow) T[n]` fail in the code that is linked into the test program itself. The
// linker redirects the call, so that it also works beside the sanitizers' own operators. Any thread
// may call.
#pragma once

#include <cstddef>

namespace TestSupport {

// Makes the next `times` such allocations of exactly `size` bytes return null.
void FailArrayNewOf(std::size_t size, int times);

} // namespace TestSupport
