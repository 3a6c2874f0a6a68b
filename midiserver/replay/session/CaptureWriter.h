#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace MidiServer {

// A CaptureWriter turns a recorded stream of MIDI into the lines of a capture (CaptureFile.h).
//
//     CaptureWriter writer;
//     text += writer.Add(250, bytes); // 250 microseconds after the start
//
// Not synchronised.
class CaptureWriter {
public:
    // Adds the next piece of the stream: a message, or a piece of a System Exclusive message, which
    // has a line only once its end is there; its time is that of its beginning. Returns the line
    // that the piece completes, or an empty text. A System Exclusive message that another message
    // cuts off is left out, and so is a piece without a beginning.
    std::string Add(std::uint64_t microseconds, std::span<const std::uint8_t> bytes);

    std::uint64_t Lines() const { return mLines; }
    // How many messages were left out.
    std::uint64_t LeftOut() const { return mLeftOut; }

private:
    std::string Line(std::uint64_t microseconds, std::span<const std::uint8_t> bytes);

    std::vector<std::uint8_t> mUnfinished; // System Exclusive so far; empty if there is none
    std::uint64_t mUnfinishedTime = 0;
    std::uint64_t mLines = 0;
    std::uint64_t mLeftOut = 0;
};

} // namespace MidiServer
