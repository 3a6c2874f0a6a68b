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
    const int order = first->mText.compare(second->mText);
    return order == 0 ? kCFCompareEqualTo : order < 0 ? kCFCompareLessThan : kCFCompareGreaterThan;
}

SInt32 CFStringGetIntValue(CFStringRef str) {
    const auto* string = CFRuntimeArgument<__CFString>(str, "str");
    if (string == nullptr) {
        return 0;
    }
    const char16_t* place = string->mText.c_str(); // which ends with a NUL
    while (IsSpace(*place)) {
        ++place;
    }
    const bool negative = *place == u'-';
    if (negative || *place == u'+') {
        ++place;
    }
    constexpr std::int64_t kLargest = std::numeric_limits<SInt32>::max();
    const std::int64_t limit = negative ? kLargest + 1 : kLargest;
    std::int64_t value = 0;
    for (; *place >= u'0' && *place <= u'9'; ++place) {
        value = std::min<std::int64_t>(value * 10 + (*place - u'0'), limit);
    }
    return static_cast<SInt32>(negative ? -value : value);
}
