// Short ways to make and look at values in the tests of this folder.
#pragma once

#include "tests/support/CFHandle.h"

#include <CoreFoundation/CoreFoundation.h>

#include <array>
#include <string>
#include <vector>

inline CFHandle<CFStringRef> Text(const std::string& utf8) {
    return CFHandle<CFStringRef>(
        CFStringCreateWithBytes(nullptr, reinterpret_cast<const UInt8*>(utf8.data()),
                                static_cast<CFIndex>(utf8.size()), kCFStringEncodingUTF8, false));
}

inline CFHandle<CFNumberRef> Integer(SInt64 value) {
    return CFHandle<CFNumberRef>(CFNumberCreate(nullptr, kCFNumberSInt64Type, &value));
}

inline CFHandle<CFNumberRef> Real(double value) {
    return CFHandle<CFNumberRef>(CFNumberCreate(nullptr, kCFNumberFloat64Type, &value));
}

inline CFHandle<CFDataRef> Bytes(const std::string& bytes) {
    return CFHandle<CFDataRef>(CFDataCreate(nullptr, reinterpret_cast<const UInt8*>(bytes.data()),
                                            static_cast<CFIndex>(bytes.size())));
}

inline CFHandle<CFMutableArrayRef> Array() {
    return CFHandle<CFMutableArrayRef>(CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks));
}

inline CFHandle<CFMutableDictionaryRef> Dictionary() {
    return CFHandle<CFMutableDictionaryRef>(CFDictionaryCreateMutable(
        nullptr, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
}

// The text in UTF-8, "<not a string>" for anything else.
inline std::string Read(CFTypeRef reference) {
    const auto* string = static_cast<CFStringRef>(reference);
    std::vector<char> buffer(static_cast<std::size_t>(CFStringGetLength(string)) * 3 + 1);
    return CFStringGetCString(string, buffer.data(), static_cast<CFIndex>(buffer.size()),
                              kCFStringEncodingUTF8)
               ? std::string(buffer.data())
               : std::string("<not a string>");
}

template <typename Ref>
std::string ReadOwned(Ref reference) {
    const CFHandle<Ref> owner(reference);
    return Read(reference);
}
