#include "platform/CoreFoundation/src/values/Utf8String.h"

std::optional<std::string> Utf8Of(CFStringRef string) {
    if (string == nullptr || CFGetTypeID(string) != CFStringGetTypeID()) {
        return std::nullopt;
    }
    const CFRange all = CFRangeMake(0, CFStringGetLength(string));
    CFIndex size = 0;
    if (CFStringGetBytes(string, all, kCFStringEncodingUTF8, 0, false, nullptr, 0, &size) !=
        all.length) {
        return std::nullopt;
    }
    std::string text(static_cast<std::size_t>(size), '\0');
    CFStringGetBytes(string, all, kCFStringEncodingUTF8, 0, false,
                     reinterpret_cast<UInt8*>(text.data()), size, nullptr);
    return text;
}

CFStringRef CopyUtf8String(const std::string& text) {
    return CFStringCreateWithBytes(nullptr, reinterpret_cast<const UInt8*>(text.data()),
                                   static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8, false);
}
