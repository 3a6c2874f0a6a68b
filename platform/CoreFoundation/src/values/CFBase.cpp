#include "platform/CoreFoundation/src/base/CFRuntimeObject.h"
#include "platform/CoreFoundation/src/values/CFStringObject.h"

#include <CoreFoundation/CFBase.h>

namespace {

// Levels of containers that are described, and compared by value.
constexpr unsigned kDescriptionDepth = 64;
constexpr unsigned kComparisonDepth = 512;

thread_local unsigned tlsComparisonDepth = 0;

} // namespace

CFTypeRef CFRetain(CFTypeRef cf) {
    if (const auto* object = CFRuntimeArgument(cf, "cf")) {
        object->Retain();
    }
    return cf;
}

void CFRelease(CFTypeRef cf) {
    if (const auto* object = CFRuntimeArgument(cf, "cf")) {
        object->Release();
    }
}

CFIndex CFGetRetainCount(CFTypeRef cf) {
    const auto* object = CFRuntimeArgument(cf, "cf");
    return object == nullptr ? 0 : object->RetainCount();
}

CFTypeID CFGetTypeID(CFTypeRef cf) {
    return CFRuntimeTypeOf(CFRuntimeArgument(cf, "cf"));
}

Boolean CFEqual(CFTypeRef cf1, CFTypeRef cf2) {
    const auto* first = CFRuntimeArgument(cf1, "cf1");
    const auto* second = CFRuntimeArgument(cf2, "cf2");
    if (first == second) {
        return true;
    }
    if (first == nullptr || second == nullptr || first->TypeID() != second->TypeID() ||
        tlsComparisonDepth == kComparisonDepth) {
        return false;
    }
    ++tlsComparisonDepth;
    const bool equal = first->Equals(*second);
    --tlsComparisonDepth;
    return equal;
}

CFHashCode CFHash(CFTypeRef cf) {
    const auto* object = CFRuntimeArgument(cf, "cf");
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
