#include "platform/CoreFoundation/src/PropertyListCheck.h"

#include "platform/CoreFoundation/src/CFRuntimeObject.h"
#include "platform/CoreFoundation/src/CFStringObject.h"
#include "platform/CoreFoundation/src/PropertyListLimits.h"

#include <CoreFoundation/CFDate.h>
#include <CoreFoundation/CFDictionary.h>

#include <vector>

namespace {

class Checker {
public:
    // Null when the value passed, else what is wrong.
    const char* Check(CFTypeRef value, unsigned depth) {
        if (++mValues > kPropertyListMaximumValues) {
            return "too many values";
        }
        switch (CFRuntimeTypeOf(value)) {
        case kCFRuntimeStringType:
            return CheckString(value);
        case kCFRuntimeDataType:
            return Add(static_cast<size_t>(CFDataGetLength(static_cast<CFDataRef>(value))));
        case kCFRuntimeNumberType:
        case kCFRuntimeBooleanType:
            return nullptr;
        case kCFRuntimeDateType: {
            const CFAbsoluteTime at = CFDateGetAbsoluteTime(static_cast<CFDateRef>(value));
            return at >= kPropertyListFirstDate && at < kPropertyListEndOfDates
                       ? nullptr
                       : "a date out of range";
        }
        case kCFRuntimeArrayType:
            return depth == 0 ? kTooDeep : CheckArray(static_cast<CFArrayRef>(value), depth - 1);
        case kCFRuntimeDictionaryType:
            return depth == 0 ? kTooDeep
                              : CheckDictionary(static_cast<CFDictionaryRef>(value), depth - 1);
        default:
            return "a value of a type that property lists do not have";
        }
    }

private:
    static constexpr const char* kTooDeep = "containers nested too deep";

    const char* Add(size_t bytes) {
        mContents += bytes;
        return mContents > kPropertyListMaximumContents ? "too much text and data" : nullptr;
    }

    const char* CheckString(CFTypeRef value) {
        const std::optional<std::string> text = UTF8OfString(value);
        if (!text || text->find('\0') != std::string::npos) {
            return "a string that is not valid Unicode or has a NUL";
        }
        return Add(text->size());
    }

    const char* CheckArray(CFArrayRef array, unsigned depth) {
        const CFIndex count = CFArrayGetCount(array);
        for (CFIndex i = 0; i < count; ++i) {
            if (const char* wrong = Check(CFArrayGetValueAtIndex(array, i), depth)) {
                return wrong;
            }
        }
        return nullptr;
    }

    const char* CheckDictionary(CFDictionaryRef dictionary, unsigned depth) {
        const auto count = static_cast<size_t>(CFDictionaryGetCount(dictionary));
        std::vector<const void*> keys(count);
        std::vector<const void*> values(count);
        CFDictionaryGetKeysAndValues(dictionary, keys.data(), values.data());
        for (size_t i = 0; i < count; ++i) {
            if (CFRuntimeTypeOf(keys[i]) != kCFRuntimeStringType) {
                return "a key that is not a string";
            }
            const char* wrong = CheckString(keys[i]);
            if (wrong == nullptr) {
                wrong = Check(values[i], depth);
            }
            if (wrong != nullptr) {
                return wrong;
            }
        }
        return nullptr;
    }

    size_t mValues = 0;
    size_t mContents = 0;
};

} // namespace

bool CheckPropertyList(CFPropertyListRef propertyList, PropertyListFailure& failure) {
    if (const char* wrong = Checker().Check(propertyList, kPropertyListMaximumDepth)) {
        failure = {kCFPropertyListWriteStreamError, wrong};
        return false;
    }
    return true;
}
