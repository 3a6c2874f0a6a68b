#include <CoreFoundation/CFBase.h>

#include "platform/CoreFoundation/src/CFRuntimeObject.h"
#include "platform/CoreFoundation/src/CFStringObject.h"

namespace {

// Levels of containers that are described, and compared by value.
constexpr unsigned kDescriptionDepth = 64;
constexpr unsigned kComparisonDepth = 512;

thread_local unsigned sComparisonDepth = 0;

} // namespace

CFTypeRef CFRetain(CFTypeRef cf) {
    if (const auto* object = CFRuntimeObjectOf(cf)) {
        object->Retain();
    }
    return cf;
}

void CFRelease(CFTypeRef cf) {
    if (const auto* object = CFRuntimeObjectOf(cf)) {
        object->Release();
    }
}

CFIndex CFGetRetainCount(CFTypeRef cf) {
    const auto* object = CFRuntimeObjectOf(cf);
    return object == nullptr ? 0 : object->RetainCount();
}

CFTypeID CFGetTypeID(CFTypeRef cf) {
    const auto* object = CFRuntimeObjectOf(cf);
    return object == nullptr ? static_cast<CFTypeID>(kCFRuntimeNotAType) : object->TypeID();
}

Boolean CFEqual(CFTypeRef cf1, CFTypeRef cf2) {
    if (cf1 == cf2) {
        return true;
    }
    const auto* first = CFRuntimeObjectOf(cf1);
    const auto* second = CFRuntimeObjectOf(cf2);
    if (first == nullptr || second == nullptr || first->TypeID() != second->TypeID() ||
        sComparisonDepth == kComparisonDepth) {
        return false;
    }
    ++sComparisonDepth;
    const bool equal = first->Equals(*second);
    --sComparisonDepth;
    return equal;
}

CFHashCode CFHash(CFTypeRef cf) {
    const auto* object = CFRuntimeObjectOf(cf);
    return object == nullptr ? 0 : object->Hash();
}

CFStringRef CFCopyDescription(CFTypeRef cf) {
    const auto* object = CFRuntimeObjectOf(cf);
    if (object == nullptr) {
        return nullptr;
    }
    return CFRuntimeGuard<CFStringRef>(nullptr, [&]() -> CFStringRef {
        return new __CFString(object->Description(kDescriptionDepth));
    });
}
