#include "midiserver/replay/session/CaptureWriter.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace MidiServer {

namespace {

constexpr std::uint8_t kStartOfExclusive = 0xF0;
constexpr std::uint8_t kEndOfExclusive = 0xF7;
constexpr std::uint8_t kFirstRealTime = 0xF8;
constexpr std::uint8_t kFirstStatus = 0x80;

} // namespace

std::string CaptureWriter::Add(std::uint64_t microseconds, std::span<const std::uint8_t> bytes) {
    if (bytes.empty()) {
        return {};
    }
    const std::uint8_t first = bytes.front();
    if (first >= kFirstRealTime) { // may come amidst System Exclusive
        return Line(microseconds, bytes);
    }
    const bool continues = first < kFirstStatus || first == kEndOfExclusive;
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
    return fmt::format("{} {:02X}\n", microseconds, fmt::join(bytes, " "));
}

} // namespace MidiServer
