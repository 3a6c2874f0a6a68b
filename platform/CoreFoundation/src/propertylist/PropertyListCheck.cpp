#include "platform/CoreFoundation/src/propertylist/PropertyListCheck.h"

#include "platform/CoreFoundation/src/base/CFRuntimeObject.h"
#include "platform/CoreFoundation/src/propertylist/PropertyListLimits.h"
#include "platform/CoreFoundation/src/values/CFStringObject.h"

#include <CoreFoundation/CFDate.h>
#include <CoreFoundation/CFDictionary.h>

#include <cstddef>

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
                static_cast<std::size_t>(CFDataGetLength(static_cast<CFDataRef>(value))));
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
        const auto* string = CFRuntimeCast<__CFString>(value);
        const CFRange all = CFRangeMake(0, CFStringGetLength(string));
        CFIndex bytes = 0;
        if (CFStringGetBytes(string, all, kCFStringEncodingUTF8, 0, false, nullptr, 0, &bytes) !=
                all.length ||
            string->mText.find(u'\0') != std::u16string::npos) {
            throw PropertyListFault{"a string that is not valid Unicode or has a NUL"};
        }
        mBudget.TakeContents(static_cast<std::size_t>(bytes));
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
        CFDictionaryApplyFunction(
            dictionary,
            [](const void* key, const void* value, void* self) {
                if (CFRuntimeTypeOf(key) != kCFRuntimeStringType) {
                    throw PropertyListFault{"a key that is not a string"};
                }
                static_cast<Checker*>(self)->CheckString(key);
                static_cast<Checker*>(self)->Check(value);
            },
            this);
    }

    PropertyListBudget mBudget;
};

} // namespace

void CheckPropertyList(CFPropertyListRef propertyList) {
    Checker().Check(propertyList);
}
