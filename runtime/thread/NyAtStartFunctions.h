#pragma once

#include <array>
#include <atomic>
#include <cstddef>

// A list of plain functions that only grows, up to `kCapacity` entries.
//
// It is built at compile time, owns no memory and has no destructor, so that a thread that starts
// while the process ends or the module is unloaded still finds it whole. Any thread may call; no
// operation blocks or allocates.
class NyAtStartFunctions {
public:
    using Function = void (*)();
    static constexpr std::size_t kCapacity = 32;

    // Adds a function at the end. False, and nothing changes, when the list is full or the function
    // is null.
    bool Append(Function function);

    bool Contains(Function function) const;
    std::size_t Size() const;

    // The function at `index`, null beyond the last.
    Function At(std::size_t index) const;

private:
    // Filled from the front; an entry is set once. Release and acquire: who finds a function finds
    // what it was to work on.
    std::array<std::atomic<Function>, kCapacity> mFunctions{};
};
