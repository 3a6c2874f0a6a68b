// Watches the allocations that the program's own code makes with operator new and makes them fail.
//
// Takes the place of operator new and delete for the whole program. Noted and failed are only calls
// from the program's code on the thread that called WatchAllocations, not those of libraries.
#pragma once

#include <cstddef>
#include <vector>

namespace TestSupport {

// Begins to note the calling thread's allocations; the n-th fails (throws std::bad_alloc, or gives
// null in the form that does not throw), 0 for none.
void WatchAllocations(int failing = 0);

// Ends it: the sizes asked for meanwhile, in order, that of a failed one included. At most 64.
std::vector<std::size_t> AllocationsWatched();

} // namespace TestSupport
