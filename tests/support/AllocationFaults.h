// Watches the allocations that are made with operator new and makes them fail.
//
// Takes the place of operator new and delete for the whole program. Noted and failed are only calls
// on the thread that called WatchAllocations, and unless told otherwise only those from the
// program's own code, not those of libraries.
#pragma once

#include <cstddef>
#include <vector>

namespace TestSupport {

// Begins to note the calling thread's allocations; the n-th fails (throws std::bad_alloc, or gives
// null in the form that does not throw), 0 for none.
void WatchAllocations(int failing = 0);
// The same for the calls of libraries too.
void WatchAllAllocations(int failing = 0);

// Ends it: the sizes asked for meanwhile, in order, that of a failed one included. At most 64.
std::vector<std::size_t> AllocationsWatched();

// Whether the one that was to fail has been asked for since the last watch began.
bool AllocationFailed();

// The blocks that the calling thread has allocated, less those that it has freed.
long BlocksHeld();

} // namespace TestSupport
