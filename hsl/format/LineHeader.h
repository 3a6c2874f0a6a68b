#pragma once

#include "hsl/format/TextBuffer.h"

#include <cstdint>
#include <optional>
#include <string_view>

namespace HSL {

// Writes the columns that stand before the message in a plain line, as
// printf("%6d  %02d:%02d:%02d.%06d  (%02d.%06d) :  [%-18s]\t") does: the sequence number, the local
// time of the log call, the time since the record before in seconds and microseconds, and the name
// of the context:
//
//     "    42  14:03:07.000250  (01.500000) :  [Main              ]\t"
//
// The collection thread keeps one object for all lines, because most of them have the second of the
// line before, and to convert that to local time costs more than all the rest.
class CLineHeader {
public:
    // Appends the columns, cut at the 65535 bytes of a piece. `delta` is in seconds and may be
    // negative, as the clock may have been set.
    void Append(CTextBuffer& out, std::int32_t sequence, std::uint32_t seconds,
                std::uint32_t microseconds, double delta, std::string_view name);

private:
    void SetTimeOfDay(std::uint32_t seconds);

    std::optional<std::uint32_t> mSecond; // of mTimeOfDay
    char mTimeOfDay[36] = "";
};

} // namespace HSL
