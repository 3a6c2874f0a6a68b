#include "platform/CoreFoundation/src/values/CFStringObject.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <limits>

namespace {

bool IsSpace(char16_t c) {
    return c == u' ' || (c >= 0x09 && c <= 0x0D);
}

} // namespace

CFComparisonResult CFStringCompare(CFStringRef theString1, CFStringRef theString2,
                                   CFStringCompareFlags /*compareOptions*/) {
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
    const std::size_t common = std::min(first->Size(), second->Size());
    for (std::size_t i = 0; i < common; ++i) {
        if (first->At(i) != second->At(i)) {
            return first->At(i) < second->At(i) ? kCFCompareLessThan : kCFCompareGreaterThan;
        }
    }
    if (first->Size() == second->Size()) {
        return kCFCompareEqualTo;
    }
    return first->Size() < second->Size() ? kCFCompareLessThan : kCFCompareGreaterThan;
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
