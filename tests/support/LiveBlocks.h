// Counts the blocks of memory that the process holds.
//
// Takes the place of malloc and its kin for the whole program, so not together with a sanitizer.
// Any thread; the counts are exact when no other thread allocates meanwhile.
#pragma once

#include <cstddef>

namespace TestSupport {

// How many blocks there are; those of watched size are counted apart from the others.
struct BlockCounts {
    long watched = 0;
    long others = 0;

    friend bool operator==(const BlockCounts&, const BlockCounts&) = default;
};

// From now on blocks of about this size (as asked for, give or take 64 bytes) are the watched ones.
// To be called before the first of them is allocated.
void WatchBlocksOfSize(std::size_t size);

// The blocks allocated and not freed since the program's start.
BlockCounts LiveBlocks();

} // namespace TestSupport
