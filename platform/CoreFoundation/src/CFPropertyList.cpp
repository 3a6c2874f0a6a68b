#include <CoreFoundation/CFPropertyList.h>

#include "platform/CoreFoundation/src/CFRuntimeObject.h"
#include "platform/CoreFoundation/src/CFStringObject.h"
#include "platform/CoreFoundation/src/PropertyListCheck.h"
#include "platform/CoreFoundation/src/PropertyListFile.h"
#include "platform/CoreFoundation/src/StringEncoding.h"

#include <CoreFoundation/CFDictionary.h>

#include <vector>

namespace {

void Report(const PropertyListFailure& failure, CFErrorRef* error) {
    if (error == nullptr) {
        return;
    }
    const CFOwned<CFStringRef> text(
        CFStringCreateWithCString(nullptr, failure.text.c_str(), kCFStringEncodingUTF8));
    const void* key = kCFErrorLocalizedDescriptionKey;
    const void* value = text.get();
    const CFOwned<CFDictionaryRef> info(CFDictionaryCreate(nullptr, &key, &value, 1,
                                                           &kCFTypeDictionaryKeyCallBacks,
                                                           &kCFTypeDictionaryValueCallBacks));
    *error = CFErrorCreate(nullptr, kCFErrorDomainCocoa, failure.code, info.get());
}

// A property list that has been checked, with its containers copied.
CFTypeRef CopyDeep(CFTypeRef value, bool mutableContainers) {
    if (CFGetTypeID(value) == kCFRuntimeArrayType) {
        const auto* array = static_cast<CFArrayRef>(value);
        CFOwned<CFMutableArrayRef> copy(CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks));
        for (CFIndex i = 0; i < CFArrayGetCount(array); ++i) {
            const CFOwned<CFTypeRef> item(
                CopyDeep(CFArrayGetValueAtIndex(array, i), mutableContainers));
            CFArrayAppendValue(copy.get(), item.get());
        }
        return mutableContainers ? static_cast<CFTypeRef>(copy.release())
                                 : CFArrayCreateCopy(nullptr, copy.get());
    }
    if (CFGetTypeID(value) == kCFRuntimeDictionaryType) {
        const auto* dictionary = static_cast<CFDictionaryRef>(value);
        const auto count = static_cast<size_t>(CFDictionaryGetCount(dictionary));
        std::vector<const void*> keys(count);
        std::vector<const void*> values(count);
        CFDictionaryGetKeysAndValues(dictionary, keys.data(), values.data());
        CFOwned<CFMutableDictionaryRef> copy(CFDictionaryCreateMutable(
            nullptr, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
        for (size_t i = 0; i < count; ++i) {
            const CFOwned<CFTypeRef> item(CopyDeep(values[i], mutableContainers));
            CFDictionaryAddValue(copy.get(), keys[i], item.get());
        }
        return mutableContainers ? static_cast<CFTypeRef>(copy.release())
                                 : CFDictionaryCreateCopy(nullptr, copy.get());
    }
    // Data may be mutable; all other values cannot change.
    return CFGetTypeID(value) == kCFRuntimeDataType
               ? CFDataCreateCopy(nullptr, static_cast<CFDataRef>(value))
               : CFRetain(value);
}

} // namespace

Boolean CFPropertyListIsValid(CFPropertyListRef plist, CFPropertyListFormat format) {
    CFRuntimeArgument(plist, "plist");
    return CFRuntimeGuard(false, [&] {
        PropertyListFailure failure;
        return (format == kCFPropertyListXMLFormat_v1_0 ||
                format == kCFPropertyListBinaryFormat_v1_0) &&
               CheckPropertyList(plist, failure);
    });
}

CFPropertyListRef CFPropertyListCreateWithData(CFAllocatorRef allocator, CFDataRef data,
                                               CFOptionFlags options, CFPropertyListFormat* format,
                                               CFErrorRef* error) {
    CFRuntimeIsArgument(data, kCFRuntimeDataType, "data");
    return CFRuntimeGuard<CFTypeRef>(nullptr, [&]() -> CFTypeRef {
        PropertyListFailure failure = {kCFPropertyListReadCorruptError, "no data"};
        CFPropertyListFormat found = 0;
        CFTypeRef value = nullptr;
        if (CFRuntimeTypeOf(data) == kCFRuntimeDataType && CFRuntimeCanAllocate(allocator)) {
            const std::string_view bytes(reinterpret_cast<const char*>(CFDataGetBytePtr(data)),
                                         static_cast<size_t>(CFDataGetLength(data)));
            value = ParsePropertyList(bytes, (options & kCFPropertyListMutableContainers) != 0,
                                      found, failure);
        }
        if (value == nullptr) {
            Report(failure, error);
        } else if (format != nullptr) {
            *format = found;
        }
        return value;
    });
}

CFDataRef CFPropertyListCreateData(CFAllocatorRef allocator, CFPropertyListRef propertyList,
                                   CFPropertyListFormat format, CFOptionFlags /*options*/,
                                   CFErrorRef* error) {
    CFRuntimeArgument(propertyList, "propertyList");
    return CFRuntimeGuard<CFDataRef>(nullptr, [&]() -> CFDataRef {
        PropertyListFailure failure;
        std::string bytes;
        if (!CheckPropertyList(propertyList, failure) ||
            !WritePropertyList(propertyList, format, bytes, failure)) {
            Report(failure, error);
            return nullptr;
        }
        return CFDataCreate(allocator, reinterpret_cast<const UInt8*>(bytes.data()),
                            static_cast<CFIndex>(bytes.size()));
    });
}

CFPropertyListRef CFPropertyListCreateDeepCopy(CFAllocatorRef allocator,
                                               CFPropertyListRef propertyList,
                                               CFOptionFlags mutabilityOption) {
    CFRuntimeArgument(propertyList, "propertyList");
    return CFRuntimeGuard<CFTypeRef>(nullptr, [&]() -> CFTypeRef {
        PropertyListFailure failure;
        return CFRuntimeCanAllocate(allocator) && CheckPropertyList(propertyList, failure)
                   ? CopyDeep(propertyList,
                              (mutabilityOption & kCFPropertyListMutableContainers) != 0)
                   : nullptr;
    });
}
