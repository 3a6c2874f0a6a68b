#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>

namespace MidiServer {

// An EventSplitter splits what a driver emits on a port into events as other programs want them. An
// event is a whole message with its status byte, or a piece of a System Exclusive message. The
// message's first piece begins with 0xF0, and its last one ends with 0xF7. A real-time message in
// the midst of another one becomes an event of its own, ahead of what is left of the other.
//
//     splitter.Split(bytes, [&](std::span<const std::uint8_t> event) { queue.Write(event); });
//
// The stream may be cut anywhere: an unfinished message and the running status are kept between the
// calls. One thread uses the object; it allocates nothing.
class EventSplitter {
public:
    using Visit = std::function<void(std::span<const std::uint8_t> event)>;

    // Calls `visit` for each event in these bytes, in order. Data bytes that belong to no message
    // are passed over.
    void Split(std::span<const std::uint8_t> bytes, const Visit& visit);

private:
    void TakeStatus(std::uint8_t status, const Visit& visit);
    void TakeData(std::uint8_t data, const Visit& visit);

    bool mInSystemExclusive = false;
    std::uint8_t mRunningStatus = 0;
    std::array<std::uint8_t, 3> mMessage{}; // the unfinished one
    std::size_t mFilled = 0;                // of it; 0: there is none
    std::size_t mLength = 0;
};

} // namespace MidiServer
