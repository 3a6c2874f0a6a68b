#include "midiserver/backends/InputQueue.h"

#include <sys/mman.h>

#include <new>
#include <utility>

namespace MidiServer {

namespace {

// Stands before the bytes of every event in a ring.
struct EventHeader {
    std::uint64_t time;
    std::uint32_t length;
    std::uint32_t followsLoss;
};
static_assert(sizeof(EventHeader) == InputQueue::kRingBytes - InputQueue::kLargestEvent);

constexpr int kHeaderBytes = sizeof(EventHeader);

} // namespace

InputQueue::InputQueue(std::size_t ports, WakeUpSignal& reader)
    : mPorts(ports), mRings(std::make_unique<PortRing[]>(ports)), mReader(reader) {
    for (std::size_t port = 0; port < ports; ++port) {
        if (mRings[port].ring.GetRing() == nullptr) {
            throw std::bad_alloc();
        }
    }
}

bool InputQueue::LockMemory() noexcept {
    bool locked =
        mlock(mRings.get(), mPorts * sizeof(PortRing)) == 0 && mlock(this, sizeof *this) == 0;
    for (std::size_t port = 0; port < mPorts; ++port) {
        locked =
            mlock(mRings[port].ring.GetRing(), cb_calc_buffer_size(1, kRingBytes)) == 0 && locked;
    }
    return locked;
}

std::optional<std::size_t> InputQueue::Room(std::size_t port) const noexcept {
    if (port >= mPorts) {
        return std::nullopt;
    }
    // The reader only ever makes more room, so what fits now still fits in Write.
    const std::size_t room = kRingBytes - cb_get_num_elem_used(mRings[port].ring.GetRing());
    return room < kHeaderBytes ? std::nullopt : std::optional(room - kHeaderBytes);
}

bool InputQueue::Write(std::size_t port, std::uint64_t time,
                       std::span<const std::uint8_t> bytes) noexcept {
    if (port >= mPorts) {
        return false;
    }
    PortRing& to = mRings[port];
    mChanged = true;
    to.isInUse = true;
    const std::optional<std::size_t> room = Room(port);
    if (!room || bytes.size() > *room) {
        to.lossPending = true;
        to.noRoom.fetch_add(1, std::memory_order_relaxed);
        return false;
    }
    const EventHeader header{time, static_cast<std::uint32_t>(bytes.size()), to.lossPending};
    to.lossPending = false;
    int count = kHeaderBytes;
    to.ring.Write(&header, count);
    count = static_cast<int>(bytes.size());
    if (count > 0) {
        to.ring.Write(bytes.data(), count);
    }
    return true;
}

void InputQueue::CountLost(std::size_t port, std::uint32_t events) noexcept {
    if (port >= mPorts || events == 0) {
        return;
    }
    mRings[port].lossPending = true;
    mRings[port].upstream.fetch_add(events, std::memory_order_relaxed);
    mChanged = true;
}

void InputQueue::CountLostSomewhere() noexcept {
    for (std::size_t port = 0; port < mPorts; ++port) {
        if (std::exchange(mRings[port].isInUse, false)) {
            CountLost(port, 1);
        }
    }
}

void InputQueue::Wake() noexcept {
    if (mChanged) {
        mChanged = false;
        mReader.Raise();
    }
}

bool InputQueue::Read(std::size_t port, InputEvent& event) {
    if (port >= mPorts) {
        return false;
    }
    CCircularBuffer& ring = mRings[port].ring;
    EventHeader header{};
    int count = kHeaderBytes;
    ring.Peek(0, &header, count);
    // The writer stores the header before the bytes, so the event may still be incomplete.
    if (count < kHeaderBytes ||
        cb_get_num_elem_used(ring.GetRing()) < sizeof header + header.length) {
        return false;
    }
    ring.Read(&header, count);
    event.time = header.time;
    event.followsLoss = header.followsLoss != 0;
    event.bytes.resize(header.length);
    count = static_cast<int>(header.length);
    ring.Read(event.bytes.data(), count);
    return true;
}

InputLoss InputQueue::TakeLoss(std::size_t port) noexcept {
    if (port >= mPorts) {
        return {};
    }
    return {mRings[port].noRoom.exchange(0, std::memory_order_relaxed),
            mRings[port].upstream.exchange(0, std::memory_order_relaxed)};
}

} // namespace MidiServer
