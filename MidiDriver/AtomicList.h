#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <optional>

// A list of 32-bit values that one thread at a time changes while any thread reads it.
//
// It stands where a vector would, because the host's sending thread and the worker's thread look
// endpoints up while a further Start empties and refills the lists. A vector's storage could move
// or go away under them; here it is fixed and every access is atomic. A reader sees each entry
// either as it was before the change or after it, which is all that the packet paths need: they
// take one entry per message, and an endpoint of an earlier start stays a valid one.
//
// No call blocks, allocates or throws. A list is trivially destructible, so that a global one may
// be read until the process is gone.
//
//     AtomicList<MIDIEndpointRef, 32> sources;
//     sources.Append(source);                       // on the changing thread
//     if (const auto first = sources.At(0)) { ... } // on any thread
template <typename T, std::size_t Capacity>
class AtomicList {
public:
    static_assert(std::atomic<T>::is_always_lock_free);

    // The number of entries. Any thread may call it.
    std::size_t Size() const { return mSize.load(std::memory_order_acquire); }

    // The entry, or nothing when `index` is not below the size. Any thread may call it.
    std::optional<T> At(std::size_t index) const {
        // The size is acquired here and released by Append: a thread that sees the size also sees
        // the entries below it.
        if (index >= Size()) {
            return std::nullopt;
        }
        return mEntries[index].load(std::memory_order_relaxed);
    }

    // Adds an entry. Returns false, with nothing changed, when the list is full. Only the changing
    // thread may call it.
    bool Append(T value) {
        const std::size_t size = mSize.load(std::memory_order_relaxed);
        if (size == Capacity) {
            return false;
        }
        mEntries[size].store(value, std::memory_order_relaxed);
        mSize.store(size + 1, std::memory_order_release);
        return true;
    }

    // Removes all entries. Only the changing thread may call it.
    void Clear() { mSize.store(0, std::memory_order_release); }

private:
    std::array<std::atomic<T>, Capacity> mEntries{};
    std::atomic<std::size_t> mSize{0};
};
