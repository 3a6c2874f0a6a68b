#include "midiserver/replay/session/CaptureWriter.h"

#include "midiserver/midi/HexText.h"
#include "midiserver/midi/MidiMessage.h"

#include <fmt/format.h>

namespace MidiServer {

std::string CaptureWriter::Add(std::uint64_t microseconds, std::span<const std::uint8_t> bytes) {
    if (bytes.empty()) {
        return {};
    }
    const std::uint8_t first = bytes.front();
    if (IsRealTime(first)) { // may come amidst System Exclusive
        return Line(microseconds, bytes);
    }
    const bool continues = ContinuesExclusive(bytes);
    if (mUnfinished.empty() == continues) { // cut off, or without a beginning
        ++mLeftOut;
        mUnfinished.clear();
        if (continues) {
            return {};
        }
    }
    if (!continues && first != kStartOfExclusive) {
        return Line(microseconds, bytes);
    }
    if (!continues) {
        mUnfinishedTime = microseconds;
    }
    mUnfinished.insert(mUnfinished.end(), bytes.begin(), bytes.end());
    if (bytes.back() != kEndOfExclusive) {
        return {};
    }
    std::string line = Line(mUnfinishedTime, mUnfinished);
    mUnfinished.clear();
    return line;
}

std::string CaptureWriter::Line(std::uint64_t microseconds, std::span<const std::uint8_t> bytes) {
    ++mLines;
    return fmt::format("{} {}\n", microseconds, HexText(bytes));
}

} // namespace MidiServer
