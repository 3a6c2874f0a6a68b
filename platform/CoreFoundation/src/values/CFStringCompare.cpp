#include "platform/CoreFoundation/src/values/CFStringObject.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <limits>

namespace {

// The lower case of letters of one unit; of another alphabet's, the letter itself.
char16_t Fold(char16_t c) {
    const auto shifted = [c](int distance) { return static_cast<char16_t>(c + distance); };
    if (c < 0x80) {
        return c >= u'A' && c <= u'Z' ? shifted(32) : c;
    }
    if (c >= 0xC0 && c <= 0xDE) {
        return c == 0xD7 ? c : shifted(32);
    }
    if (c == 0x178) {
        return 0xFF;
    }
    // Latin Extended-A: pairs, the upper case first, which is even in some runs and odd in others.
    if ((c >= 0x100 && c <= 0x12F) || (c >= 0x132 && c <= 0x137) || (c >= 0x14A && c <= 0x177)) {
        return c % 2 == 0 ? shifted(1) : c;
    }
    if ((c >= 0x139 && c <= 0x148) || (c >= 0x179 && c <= 0x17E)) {
        return c % 2 == 1 ? shifted(1) : c;
    }
    if (c >= 0x391 && c <= 0x3A9 && c != 0x3A2) {
        return shifted(32);
    }
    if (c == 0x3C2) { // the final form of sigma
        return 0x3C3;
    }
    if (c >= 0x400 && c <= 0x40F) {
        return shifted(80);
    }
    if (c >= 0x410 && c <= 0x42F) {
        return shifted(32);
    }
    return c;
}

bool IsSpace(char16_t c) {
    return c == u' ' || (c >= 0x09 && c <= 0x0D);
}

// Whether `part` stands in the string at `offset`, where there is room for it.
bool StandsAt(const __CFString& string, std::size_t offset, const __CFString& part) {
    for (std::size_t i = 0; i < part.Size(); ++i) {
        if (string.At(offset + i) != part.At(i)) {
            return false;
        }
    }
    return true;
}

} // namespace

CFComparisonResult CFStringCompare(CFStringRef theString1, CFStringRef theString2,
                                   CFStringCompareFlags compareOptions) {
    const auto* first = CFRuntimeArgument<__CFString>(theString1, "theString1");
    const auto* second = CFRuntimeArgument<__CFString>(theString2, "theString2");
    if (theString1 == theString2) {
        return kCFCompareEqualTo;
    }
    if (first == nullptr && second == nullptr) {
        return std::less<>{}(theString1, theString2) ? kCFCompareLessThan : kCFCompareGreaterThan;
    }
    if (first == nullptr || second == nullptr) {
        return first == nullptr ? kCFCompareLessThan : kCFCompareGreaterThan;
    }
    const bool fold = (compareOptions & kCFCompareCaseInsensitive) != 0;
    const std::size_t common = std::min(first->Size(), second->Size());
    for (std::size_t i = 0; i < common; ++i) {
        const char16_t left = fold ? Fold(first->At(i)) : first->At(i);
        const char16_t right = fold ? Fold(second->At(i)) : second->At(i);
        if (left != right) {
            return left < right ? kCFCompareLessThan : kCFCompareGreaterThan;
        }
    }
    if (first->Size() == second->Size()) {
        return kCFCompareEqualTo;
    }
    return first->Size() < second->Size() ? kCFCompareLessThan : kCFCompareGreaterThan;
}

Boolean CFStringHasPrefix(CFStringRef theString, CFStringRef prefix) {
    const auto* string = CFRuntimeArgument<__CFString>(theString, "theString");
    const auto* part = CFRuntimeArgument<__CFString>(prefix, "prefix");
    return string != nullptr && part != nullptr && part->Size() <= string->Size() &&
           StandsAt(*string, 0, *part);
}

Boolean CFStringHasSuffix(CFStringRef theString, CFStringRef suffix) {
    const auto* string = CFRuntimeArgument<__CFString>(theString, "theString");
    const auto* part = CFRuntimeArgument<__CFString>(suffix, "suffix");
    return string != nullptr && part != nullptr && part->Size() <= string->Size() &&
           StandsAt(*string, string->Size() - part->Size(), *part);
}

SInt32 CFStringGetIntValue(CFStringRef str) {
    const auto* string = CFRuntimeArgument<__CFString>(str, "str");
    if (string == nullptr) {
        return 0;
    }
    std::size_t i = 0;
    while (IsSpace(string->AtOrNothing(i))) {
        ++i;
    }
    const bool negative = string->AtOrNothing(i) == u'-';
    if (negative || string->AtOrNothing(i) == u'+') {
        ++i;
    }
    constexpr std::int64_t kLargest = std::numeric_limits<SInt32>::max();
    const std::int64_t limit = negative ? kLargest + 1 : kLargest;
    std::int64_t value = 0;
    for (; string->AtOrNothing(i) >= u'0' && string->AtOrNothing(i) <= u'9'; ++i) {
        value = std::min<std::int64_t>(value * 10 + (string->At(i) - u'0'), limit);
    }
    return static_cast<SInt32>(negative ? -value : value);
}
