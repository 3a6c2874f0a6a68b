#include "platform/CoreFoundation/src/propertylist/PropertyListCheck.h"

#include "platform/CoreFoundation/src/base/CFRuntimeObject.h"
#include "platform/CoreFoundation/src/propertylist/PropertyListLimits.h"
#include "platform/CoreFoundation/src/values/CFStringObject.h"

#include <CoreFoundation/CFDate.h>
#include <CoreFoundation/CFDictionary.h>

#include <vector>

namespace {

class Checker {
public:
    void Check(CFTypeRef value) {
        mBudget.TakeValue();
        switch (CFRuntimeTypeOf(value)) {
        case kCFRuntimeStringType:
            return CheckString(value);
        case kCFRuntimeDataType:
            return mBudget.TakeContents(
                static_cast<size_t>(CFDataGetLength(static_cast<CFDataRef>(value))));
        case kCFRuntimeNumberType:
        case kCFRuntimeBooleanType:
            return;
        case kCFRuntimeDateType:
            return PropertyListBudget::RequireDate(
                CFDateGetAbsoluteTime(static_cast<CFDateRef>(value)));
        case kCFRuntimeArrayType:
            return CheckArray(static_cast<CFArrayRef>(value));
        case kCFRuntimeDictionaryType:
            return CheckDictionary(static_cast<CFDictionaryRef>(value));
        default:
            throw PropertyListFault{"a value of a type that property lists do not have"};
        }
    }

private:
    void CheckString(CFTypeRef value) {
        const std::optional<std::string> text = UTF8OfString(value);
        if (!text || text->find('\0') != std::string::npos) {
            throw PropertyListFault{"a string that is not valid Unicode or has a NUL"};
        }
        mBudget.TakeContents(text->size());
    }

    void CheckArray(CFArrayRef array) {
        const PropertyListBudget::Level level(mBudget);
        const CFIndex count = CFArrayGetCount(array);
        for (CFIndex i = 0; i < count; ++i) {
            Check(CFArrayGetValueAtIndex(array, i));
        }
    }

    void CheckDictionary(CFDictionaryRef dictionary) {
        const PropertyListBudget::Level level(mBudget);
        const auto count = static_cast<size_t>(CFDictionaryGetCount(dictionary));
        std::vector<const void*> keys(count);
        std::vector<const void*> values(count);
        CFDictionaryGetKeysAndValues(dictionary, keys.data(), values.data());
        for (size_t i = 0; i < count; ++i) {
            if (CFRuntimeTypeOf(keys[i]) != kCFRuntimeStringType) {
                throw PropertyListFault{"a key that is not a string"};
            }
            CheckString(keys[i]);
            Check(values[i]);
        }
    }

    PropertyListBudget mBudget;
};

} // namespace

void CheckPropertyList(CFPropertyListRef propertyList) {
    Checker().Check(propertyList);
}
