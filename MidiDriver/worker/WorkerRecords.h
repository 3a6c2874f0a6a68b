// The records that the output worker keeps in its rings, in the host's byte order.
#pragma once

#include <CoreServices/CoreServices.h>

#include <cstdint>
#include <cstring>

// The record of one queued item: its port, and how many bytes of the data ring belong to it.
struct InfoRecord {
    static constexpr unsigned int kHighestPort = 0xFF;
    static constexpr unsigned int kLongestItem = 0xFFFFFF;

    std::uint32_t mWord = 0; // bits 31..24 the port, bits 23..0 the length

    static InfoRecord Make(unsigned int port, unsigned int length) {
        return {(port << 24) | (length & kLongestItem)};
    }
    unsigned int Port() const { return mWord >> 24; }
    unsigned int Length() const { return mWord & kLongestItem; }
};
static_assert(sizeof(InfoRecord) == 4);

// The record of one released item: when it was released, and how many of its bytes count towards
// the port's rate.
struct ThrottleRecord {
    UnsignedWide mTime{};         // on the clock of `UpTime`, in host ticks
    std::uint32_t mBytesWord = 0; // bits 31..8 the counted bytes; bits 7..0 mean nothing

    static ThrottleRecord Make(UnsignedWide time, unsigned int bytes) { return {time, bytes << 8}; }
    unsigned int Bytes() const { return mBytesWord >> 8; }
};
static_assert(sizeof(ThrottleRecord) == 12 && alignof(ThrottleRecord) == 4);

// Returns the number that an UnsignedWide stands for, which is also how it lies in memory.
inline std::uint64_t ToNumber(UnsignedWide wide) {
    std::uint64_t number = 0;
    static_assert(sizeof number == sizeof wide);
    std::memcpy(&number, &wide, sizeof number);
    return number;
}
