// Short ways to make and look at values in the tests of this folder.
#pragma once

#include "platform/support/CFOwned.h"

#include <CoreFoundation/CoreFoundation.h>

#include <array>
#include <string>
#include <vector>

inline CFOwned<CFStringRef> Text(const std::string& utf8) {
    return CFOwned<CFStringRef>(
        CFStringCreateWithBytes(nullptr, reinterpret_cast<const UInt8*>(utf8.data()),
                                static_cast<CFIndex>(utf8.size()), kCFStringEncodingUTF8, false));
}

inline CFOwned<CFNumberRef> Integer(SInt64 value) {
    return CFOwned<CFNumberRef>(CFNumberCreate(nullptr, kCFNumberSInt64Type, &value));
}

inline CFOwned<CFNumberRef> Real(double value) {
    return CFOwned<CFNumberRef>(CFNumberCreate(nullptr, kCFNumberFloat64Type, &value));
}

inline CFOwned<CFDataRef> Bytes(const std::string& bytes) {
    return CFOwned<CFDataRef>(CFDataCreate(nullptr, reinterpret_cast<const UInt8*>(bytes.data()),
                                           static_cast<CFIndex>(bytes.size())));
}

inline CFOwned<CFMutableArrayRef> Array() {
    return CFOwned<CFMutableArrayRef>(CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks));
}

inline CFOwned<CFMutableDictionaryRef> Dictionary() {
    return CFOwned<CFMutableDictionaryRef>(CFDictionaryCreateMutable(
        nullptr, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
}

// An object that is no property list.
inline CFUUIDRef ZeroUuid() {
    return CFUUIDGetConstantUUIDWithBytes(nullptr, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0);
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
    const CFOwned<Ref> owner(reference);
    return Read(reference);
}
