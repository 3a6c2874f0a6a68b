#pragma once

#include "platform/support/Mutex.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <span>
#include <vector>

namespace MidiServer {

// Which of a port's streams a tap copies.
enum class StreamDirection {
    kFromDaw, // what DAWs send, as it goes to the driver
    kToDaw,   // what the port's own source carries: the driver's answers, and what is emitted there
    kToSurface, // what the driver emits on the private source
};

struct TappedMessage {
    std::chrono::steady_clock::time_point time;
    std::vector<std::uint8_t> bytes; // a packet of the stream: a message, or a piece of a long one
};

// A StreamTap keeps a copy of a port's stream until somebody takes it, up to a number of bytes. A
// packet that does not fit is counted and not kept, so that a slow reader holds nothing up.
//
//     tap.Add(now, packet);                           // whoever carries the stream
//     for (const TappedMessage& message : tap.Take(4096)) { ... } // whoever records it
//
// Any thread may call any function.
class StreamTap {
public:
    explicit StreamTap(std::size_t capacity) : mCapacity(capacity) {}

    void Add(std::chrono::steady_clock::time_point time, std::span<const std::uint8_t> bytes);

    // Takes the oldest packets, up to `bytes` of them but at least one if there is one.
    std::vector<TappedMessage> Take(std::size_t bytes);
    // How many packets were not kept, since the start.
    std::uint64_t Lost() const;

private:
    const std::size_t mCapacity;
    mutable Mutex mMutex;
    std::deque<TappedMessage> mKept QUORVEL_GUARDED_BY(mMutex);
    std::size_t mKeptBytes QUORVEL_GUARDED_BY(mMutex) = 0;
    std::uint64_t mLost QUORVEL_GUARDED_BY(mMutex) = 0;
};

} // namespace MidiServer
