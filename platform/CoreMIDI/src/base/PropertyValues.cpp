#include "platform/CoreMIDI/src/base/PropertyValues.h"

#include <limits>
#include <new>

namespace CoreMIDI {

bool IsName(CFTypeRef value) {
    return IsString(value) && CFPropertyListIsValid(value, kCFPropertyListXMLFormat_v1_0);
}

std::optional<std::string> TextOf(CFStringRef string) {
    if (!IsString(string)) {
        return std::nullopt;
    }
    const CFIndex length = CFStringGetLength(string);
    CFIndex bytes = 0;
    const CFRange all = CFRangeMake(0, length);
    CFStringGetBytes(string, all, kCFStringEncodingUTF8, '?', false, nullptr, 0, &bytes);
    std::string text(static_cast<std::size_t>(bytes), '\0');
    CFStringGetBytes(string, all, kCFStringEncodingUTF8, '?', false,
                     reinterpret_cast<UInt8*>(text.data()), bytes, &bytes);
    return text;
}

CFOwned<CFStringRef> CreateString(const std::string& text) noexcept {
    return CFOwned<CFStringRef>(
        CFStringCreateWithBytes(nullptr, reinterpret_cast<const UInt8*>(text.data()),
                                static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8, false));
}

CFOwned<CFStringRef> MakeString(const std::string& text) {
    CFOwned<CFStringRef> string = CreateString(text);
    if (!string) {
        throw std::bad_alloc();
    }
    return string;
}

CFOwned<CFNumberRef> MakeNumber(SInt32 number) {
    CFOwned<CFNumberRef> made(CFNumberCreate(nullptr, kCFNumberSInt32Type, &number));
    if (!made) {
        throw std::bad_alloc();
    }
    return made;
}

std::optional<SInt32> NumberOf(CFTypeRef value) {
    if (value == nullptr || CFGetTypeID(value) != CFNumberGetTypeID()) {
        return std::nullopt;
    }
    const auto* const number = static_cast<CFNumberRef>(value);
    SInt64 wide = 0;
    if (CFNumberIsFloatType(number) || !CFNumberGetValue(number, kCFNumberSInt64Type, &wide) ||
        wide < std::numeric_limits<SInt32>::min() || wide > std::numeric_limits<SInt32>::max()) {
        return std::nullopt;
    }
    return static_cast<SInt32>(wide);
}

} // namespace CoreMIDI
