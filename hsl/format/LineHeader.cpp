#include "hsl/format/LineHeader.h"

#include "hsl/FormatString.h"
#include "runtime/time/NyTime.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdio>
#include <iterator>

namespace HSL {

namespace {

// That of 64 bits, with its sign.
constexpr std::size_t kLongestNumber = 20;
// The columns without the name: four numbers, the time of day and what is between them.
constexpr std::size_t kLongestColumns = 5 * kLongestNumber + 36;
constexpr std::size_t kNameWidth = 18;

// Writes a number as printf's "%*d" and "%0*d" do, blanks before the sign and zeros behind it, and
// returns the end.
char* PutPadded(char* to, std::int64_t number, std::ptrdiff_t width, char pad) {
    char text[kLongestNumber];
    const char* const end = std::to_chars(text, std::end(text), number).ptr;
    const char* digits = text;
    const std::ptrdiff_t padding = std::max<std::ptrdiff_t>(width - (end - text), 0);
    if (number < 0 && pad == '0') {
        *to++ = *digits++;
    }
    return std::copy(digits, end, std::fill_n(to, padding, pad));
}

char* PutText(char* to, std::string_view text) {
    return std::copy(text.begin(), text.end(), to);
}

} // namespace

void CLineHeader::SetTimeOfDay(std::uint32_t seconds) {
    NyTimeOfDay time;
    NyClockTime::GetTime(time, seconds);
    std::snprintf(mTimeOfDay, sizeof mTimeOfDay, "%02d:%02d:%02d", time.mHour, time.mMinute,
                  time.mSecond);
    mSecond = seconds;
}

void CLineHeader::Append(CTextBuffer& out, std::int32_t sequence, std::uint32_t seconds,
                         std::uint32_t microseconds, double delta, std::string_view name) {
    if (mSecond != seconds) {
        SetTimeOfDay(seconds);
    }
    // 64 bits: the clock may have been set by more seconds than 31 bits hold.
    const auto deltaSeconds = static_cast<std::int64_t>(delta);
    const auto deltaMicroseconds =
        static_cast<std::int32_t>((delta - static_cast<double>(deltaSeconds)) * 1e6);

    const std::size_t start = out.Size();
    char* end = out.Room(kLongestColumns + std::max(name.size(), kNameWidth));
    end = PutPadded(end, sequence, 6, ' ');
    end = PutText(end, "  ");
    end = PutText(end, mTimeOfDay);
    end = PutText(end, ".");
    end = PutPadded(end, static_cast<std::int32_t>(microseconds), 6, '0');
    end = PutText(end, "  (");
    end = PutPadded(end, deltaSeconds, 2, '0');
    end = PutText(end, ".");
    end = PutPadded(end, deltaMicroseconds, 6, '0');
    end = PutText(end, ") :  [");
    end = PutText(end, name);
    if (name.size() < kNameWidth) {
        end = std::fill_n(end, kNameWidth - name.size(), ' ');
    }
    out.SetEnd(PutText(end, "]\t"));
    CutPiece(out, start);
}

} // namespace HSL
