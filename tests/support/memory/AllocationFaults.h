// Watches the allocations that are made with operator new and makes them fail.
//
// Takes the place of operator new and delete for the whole program. It notes and fails only calls
// on the thread that called WatchAllocations and, unless told otherwise, only those of the
// program's own code, not those of libraries.
#pragma once

#include <cstddef>
#include <vector>

namespace TestSupport {

// Begins to note the calling thread's allocations and makes the one with the number `failing`,
// counted from 1, fail: it throws std::bad_alloc or, in the form that does not throw, returns null.
// With 0 none fails.
void WatchAllocations(int failing = 0);
// Does the same for the calls of the program and of libraries.
void WatchAllAllocations(int failing = 0);

// Ends the watch and returns the sizes that were asked for meanwhile, in order, including that of
// the failed one. It keeps at most 64.
std::vector<std::size_t> AllocationsWatched();

// Whether the allocation that was to fail has been asked for since the last watch began.
bool AllocationFailed();

// Returns how many more blocks the calling thread has allocated than freed.
long BlocksHeld();

} // namespace TestSupport
