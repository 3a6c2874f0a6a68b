#include "platform/CoreFoundation/src/base/CFRuntimeObject.h"
#include "platform/CoreFoundation/src/base/ErrorReport.h"
#include "platform/CoreFoundation/src/propertylist/PropertyListBuilder.h"
#include "platform/CoreFoundation/src/propertylist/PropertyListCheck.h"
#include "platform/CoreFoundation/src/propertylist/PropertyListEntries.h"
#include "platform/CoreFoundation/src/propertylist/PropertyListFile.h"

#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFPropertyList.h>

#include <cstddef>

namespace {

// Copies the containers of a property list that has been checked. All other values cannot change
// and are shared.
PropertyListValue CopyDeep(CFTypeRef value, PropertyListBuilder& builder) {
    if (CFGetTypeID(value) == kCFRuntimeArrayType) {
        const auto* array = static_cast<CFArrayRef>(value);
        PropertyListValues members;
        for (CFIndex i = 0; i < CFArrayGetCount(array); ++i) {
            members.push_back(CopyDeep(CFArrayGetValueAtIndex(array, i), builder));
        }
        return builder.Array(members);
    }
    if (CFGetTypeID(value) == kCFRuntimeDictionaryType) {
        PropertyListValues keys;
        PropertyListValues members;
        for (const PropertyListEntry& entry : SortedEntries(static_cast<CFDictionaryRef>(value))) {
            keys.emplace_back(CFRetain(entry.key));
            members.push_back(CopyDeep(entry.value, builder));
        }
        return builder.Dictionary(keys, members);
    }
    return PropertyListValue(CFRetain(value));
}

// Whether `body` passed without a fault.
template <typename Body>
bool Passes(const Body& body) {
    try {
        body();
        return true;
    } catch (const PropertyListFault&) {
        return false;
    }
}

} // namespace

Boolean CFPropertyListIsValid(CFPropertyListRef plist, CFPropertyListFormat format) {
    CFRuntimeArgument(plist, "plist");
    return CFRuntimeGuard(false, [&] {
        return (format == kCFPropertyListXMLFormat_v1_0 ||
                format == kCFPropertyListBinaryFormat_v1_0) &&
               Passes([&] { CheckPropertyList(plist); });
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
                                         static_cast<std::size_t>(CFDataGetLength(data)));
            value = ParsePropertyList(bytes, (options & kCFPropertyListMutableContainers) != 0,
                                      found, failure);
        }
        if (value == nullptr) {
            ReportError(error, failure.code, failure.text);
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
        if (!WritePropertyList(propertyList, format, bytes, failure)) {
            ReportError(error, failure.code, failure.text);
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
        PropertyListValue copy;
        if (CFRuntimeCanAllocate(allocator)) {
            PropertyListBuilder builder((mutabilityOption & kCFPropertyListMutableContainers) != 0);
            Passes([&] {
                CheckPropertyList(propertyList);
                copy = CopyDeep(propertyList, builder);
            });
        }
        return copy.Release();
    });
}
