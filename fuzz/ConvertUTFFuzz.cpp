// Runs the six conversions on arbitrary units with a target of arbitrary size.
//
// An input is a byte that picks the conversion, one for the flags, one for the size of the targets
// in the piecewise conversion, and the text. Sources and targets lie in memory of just their size,
// so that the address sanitizer sees a unit too many.
#include "runtime/string/ConvertUTF.h"

#include "fuzz/Require.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

using namespace NYPL;

namespace {

template <typename Source, typename Target>
using Converter = ConversionResult (*)(const Source**, const Source*, Target**, Target*,
                                       ConversionFlags);

template <typename Target>
struct Converted {
    ConversionResult result;
    std::vector<Target> output;
    std::size_t consumed;
};

// Converts the units after the first `skip` ones into a target of `room` units.
template <typename Source, typename Target>
Converted<Target> Convert(Converter<Source, Target> convert, const std::vector<Source>& text,
                          std::size_t skip, std::size_t room, ConversionFlags flags) {
    std::vector<Target> target(room);
    const Source* const start = text.data() + skip;
    const Source* const end = text.data() + text.size();
    const Source* source = start;
    Target* written = target.data();
    const ConversionResult result =
        convert(&source, end, &written, target.data() + target.size(), flags);
    Require(source >= start && source <= end, "the source pointer stays inside");
    Require(written >= target.data() && written <= target.data() + target.size(),
            "the target pointer stays inside");
    Require(result >= conversionOK && result <= sourceIllegal, "the result is one of the four");
    Require(result != conversionOK || source == end, "success converts everything");
    Require((result != sourceExhausted && result != targetExhausted) || source < end,
            "what is exhausted leaves a rest");
    target.resize(static_cast<std::size_t>(written - target.data()));
    return {result, std::move(target), static_cast<std::size_t>(source - start)};
}

constexpr bool IsSurrogate(UTF32 unit) {
    return unit >= 0xD800 && unit <= 0xDFFF;
}

bool IsLegal(const std::vector<UTF8>& text) {
    for (std::size_t i = 0; i < text.size();) {
        if (!isLegalUTF8Sequence(text.data() + i, text.data() + text.size())) {
            return false;
        }
        i += text[i] < 0x80 ? 1U : text[i] < 0xE0 ? 2U : text[i] < 0xF0 ? 3U : 4U;
    }
    return true;
}
bool IsLegal(const std::vector<UTF16>& text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (IsSurrogate(text[i])) {
            const bool isPair = text[i] < 0xDC00 && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
                                text[i + 1] <= 0xDFFF;
            if (!isPair) {
                return false;
            }
            ++i;
        }
    }
    return true;
}
bool IsLegal(const std::vector<UTF32>& text) {
    return std::all_of(text.begin(), text.end(),
                       [](UTF32 unit) { return unit <= 0x10FFFF && !IsSurrogate(unit); });
}

// The largest number of target units that one source unit can become.
template <typename Source, typename Target>
constexpr std::size_t kGrowth = 4 / sizeof(Target) + 1;

template <typename Source, typename Target>
void Check(Converter<Source, Target> convert, Converter<Target, Source> back,
           const std::uint8_t* data, std::size_t size, ConversionFlags flags, std::size_t room) {
    std::vector<Source> text(size / sizeof(Source));
    if (!text.empty()) {
        std::memcpy(text.data(), data, text.size() * sizeof(Source));
    }

    const std::size_t enough = text.size() * kGrowth<Source, Target>;
    const Converted<Target> whole = Convert<Source, Target>(convert, text, 0, enough, flags);
    Require(whole.result != targetExhausted, "enough room is enough");

    // Converting on from where a full target stopped gives the same text in the end.
    std::vector<Target> output;
    std::size_t consumed = 0;
    bool sawIllegal = false;
    Converted<Target> piece{targetExhausted, {}, 0};
    while (piece.result == targetExhausted) {
        piece = Convert<Source, Target>(convert, text, consumed, room, flags);
        output.insert(output.end(), piece.output.begin(), piece.output.end());
        consumed += piece.consumed;
        if (piece.result == targetExhausted && piece.consumed == 0) {
            // Not even one character fits.
            Require(room < kGrowth<Source, Target>, "room for a character makes progress");
            break;
        }
    }
    // Only UTF-32 has values that are reported and passed over, so that a piece may end well, or
    // for want of room, although an earlier one held such a value.
    const bool complete = piece.result != targetExhausted;
    if (complete) {
        sawIllegal = sizeof(Source) == sizeof(UTF32) && whole.result == sourceIllegal;
        Require(piece.result == whole.result || (sawIllegal && piece.result == conversionOK),
                "pieces end with the result of the whole");
        Require(consumed == whole.consumed, "pieces take what the whole takes");
    }
    Require(output.size() <= whole.output.size() &&
                std::equal(output.begin(), output.end(), whole.output.begin()) &&
                (!complete || output.size() == whole.output.size()),
            "pieces give the text of the whole");

    // Text is legal if it converts strictly, and legal text converts back to itself.
    const std::vector<Source> taken(text.begin(),
                                    text.begin() + static_cast<std::ptrdiff_t>(whole.consumed));
    if (IsLegal(text)) {
        Require(whole.result == conversionOK, "a legal text converts");
    } else if (flags == strictConversion) {
        Require(whole.result != conversionOK, "an illegal text does not convert strictly");
    }
    if (IsLegal(taken)) {
        Require(IsLegal(whole.output), "a legal text becomes a legal text");
        const Converted<Source> again = Convert<Target, Source>(
            back, whole.output, 0, whole.output.size() * kGrowth<Target, Source>, strictConversion);
        Require(again.result == conversionOK && again.output == taken, "a legal text comes back");
    } else {
        Require(flags == lenientConversion || sizeof(Source) == sizeof(UTF32),
                "what is taken strictly is legal, but for skipped values of UTF-32");
    }
}

// Checks that UTF-8 becomes the same UTF-32 directly and by way of UTF-16.
void CheckTriangle(const std::uint8_t* data, std::size_t size) {
    const std::vector<UTF8> text(data, data + size);
    const auto straight =
        Convert<UTF8, UTF32>(ConvertUTF8toUTF32, text, 0, text.size(), strictConversion);
    const auto first =
        Convert<UTF8, UTF16>(ConvertUTF8toUTF16, text, 0, text.size(), strictConversion);
    const auto second = Convert<UTF16, UTF32>(ConvertUTF16toUTF32, first.output, 0,
                                              first.output.size(), strictConversion);
    Require(straight.result == first.result && straight.consumed == first.consumed,
            "both ways stop at the same place for the same reason");
    Require(second.result == conversionOK && second.output == straight.output,
            "both ways give the same text");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 3) {
        return 0;
    }
    const unsigned conversion = data[0] % 7;
    const ConversionFlags flags = data[1] % 2 == 0 ? strictConversion : lenientConversion;
    const std::size_t room = data[2];
    data += 3;
    size -= 3;
    switch (conversion) {
    case 0:
        Check<UTF32, UTF16>(ConvertUTF32toUTF16, ConvertUTF16toUTF32, data, size, flags, room);
        break;
    case 1:
        Check<UTF16, UTF32>(ConvertUTF16toUTF32, ConvertUTF32toUTF16, data, size, flags, room);
        break;
    case 2:
        Check<UTF16, UTF8>(ConvertUTF16toUTF8, ConvertUTF8toUTF16, data, size, flags, room);
        break;
    case 3:
        Check<UTF8, UTF16>(ConvertUTF8toUTF16, ConvertUTF16toUTF8, data, size, flags, room);
        break;
    case 4:
        Check<UTF32, UTF8>(ConvertUTF32toUTF8, ConvertUTF8toUTF32, data, size, flags, room);
        break;
    case 5:
        Check<UTF8, UTF32>(ConvertUTF8toUTF32, ConvertUTF32toUTF8, data, size, flags, room);
        break;
    default:
        CheckTriangle(data, size);
        break;
    }
    return 0;
}
