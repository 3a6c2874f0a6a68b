// Counts the blocks of memory that the process holds.
//
// Takes the place of malloc and the related functions for the whole program, and therefore does not
// work together with a sanitizer. Any thread may call; the counts are exact if no other thread
// allocates meanwhile.
#pragma once

#include <cstddef>

namespace TestSupport {

// The number of blocks that exist. Those of the watched size are counted apart from the others.
struct BlockCounts {
    long watched = 0;
    long others = 0;

    friend bool operator==(const BlockCounts&, const BlockCounts&) = default;
};

// Makes blocks of about this size (as asked for, give or take 64 bytes) the watched ones. Call it
// before the first of them is allocated.
void WatchBlocksOfSize(std::size_t size);

// Returns the number of blocks that were allocated since the program's start and not freed.
BlockCounts LiveBlocks();

} // namespace TestSupport
