// These functions do with the values of arrays and dictionaries what the containers' callbacks ask
// for. Each callback may be null.
#pragma once

#include "platform/CoreFoundation/src/base/CFRuntimeObject.h"
#include "platform/CoreFoundation/src/base/StringEncoding.h"
#include "platform/CoreFoundation/src/values/CFStringObject.h"

#include <array>
#include <cstdio>
#include <string>

inline const void* RetainContainedObject(CFAllocatorRef /*allocator*/, const void* value) {
    return CFRetain(value);
}

inline void ReleaseContainedObject(CFAllocatorRef /*allocator*/, const void* value) {
    CFRelease(value);
}

template <typename CallBacks>
const void* ContainerRetain(const CallBacks& callBacks, const void* value) {
    return callBacks.retain == nullptr ? value : callBacks.retain(kCFAllocatorDefault, value);
}

template <typename CallBacks>
void ContainerRelease(const CallBacks& callBacks, const void* value) {
    if (callBacks.release != nullptr) {
        callBacks.release(kCFAllocatorDefault, value);
    }
}

template <typename CallBacks>
bool ContainerValuesAreEqual(const CallBacks& callBacks, const void* a, const void* b) {
    return a == b || (callBacks.equal != nullptr && callBacks.equal(a, b) != 0);
}

template <typename CallBacks>
std::u16string ContainerDescription(const CallBacks& callBacks, const void* value, unsigned depth) {
    if (callBacks.copyDescription == CFCopyDescription) {
        return value == nullptr ? u"(null)" : CFRuntimeObjectOf(value)->Description(depth);
    }
    if (callBacks.copyDescription != nullptr) {
        const CFOwned<CFStringRef> text(callBacks.copyDescription(value));
        const auto* string = CFRuntimeCast<__CFString>(text.Get());
        return string == nullptr ? u"(null)" : string->mText;
    }
    std::array<char, 32> address{};
    std::snprintf(address.data(), address.size(), "<%p>", value);
    return UTF16FromASCII(address.data());
}
