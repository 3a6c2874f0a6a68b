#include "platform/CoreFoundation/src/propertylist/PropertyListBuilder.h"

#include "platform/CoreFoundation/src/values/CFStringObject.h"

#include <CoreFoundation/CFArray.h>
#include <CoreFoundation/CFDate.h>
#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFNumber.h>

#include <new>

namespace {

PropertyListValue Made(CFTypeRef value) {
    if (value == nullptr) {
        throw std::bad_alloc();
    }
    return PropertyListValue(value);
}

std::vector<const void*> References(const PropertyListValues& values) {
    std::vector<const void*> references;
    references.reserve(values.size());
    for (const PropertyListValue& value : values) {
        references.push_back(value.Get());
    }
    return references;
}

} // namespace

PropertyListValue PropertyListBuilder::Boolean(bool value) {
    mBudget.TakeValue();
    return PropertyListValue(CFRetain(value ? kCFBooleanTrue : kCFBooleanFalse));
}

PropertyListValue PropertyListBuilder::Integer(std::int64_t value) {
    mBudget.TakeValue();
    return Made(CFNumberCreate(nullptr, kCFNumberSInt64Type, &value));
}

PropertyListValue PropertyListBuilder::Real(double value) {
    mBudget.TakeValue();
    return Made(CFNumberCreate(nullptr, kCFNumberFloat64Type, &value));
}

PropertyListValue PropertyListBuilder::Date(double at) {
    mBudget.TakeValue();
    PropertyListBudget::RequireDate(at);
    return Made(CFDateCreate(nullptr, at));
}

PropertyListValue PropertyListBuilder::Data(std::string_view bytes) {
    mBudget.TakeValue();
    mBudget.TakeContents(bytes.size());
    return Made(CFDataCreate(nullptr, reinterpret_cast<const UInt8*>(bytes.data()),
                             static_cast<CFIndex>(bytes.size())));
}

PropertyListValue PropertyListBuilder::String(std::string_view utf8) {
    mBudget.TakeValue();
    return Key(utf8);
}

PropertyListValue PropertyListBuilder::Key(std::string_view utf8) {
    mBudget.TakeContents(utf8.size());
    if (utf8.find('\0') != std::string_view::npos) {
        throw PropertyListFault{"a string that is not valid Unicode or has a NUL"};
    }
    return Made(CopyUTF8String(utf8));
}

PropertyListValue PropertyListBuilder::Array(const PropertyListValues& members) {
    mBudget.TakeValue();
    std::vector<const void*> values = References(members);
    const CFOwned<CFArrayRef> array(CFArrayCreate(
        nullptr, values.data(), static_cast<CFIndex>(values.size()), &kCFTypeArrayCallBacks));
    if (!array) {
        throw std::bad_alloc();
    }
    return Made(mMutableContainers
                    ? static_cast<CFTypeRef>(CFArrayCreateMutableCopy(nullptr, 0, array.Get()))
                    : CFRetain(array.Get()));
}

PropertyListValue PropertyListBuilder::Dictionary(const PropertyListValues& keys,
                                                  const PropertyListValues& members) {
    mBudget.TakeValue();
    std::vector<const void*> names = References(keys);
    std::vector<const void*> values = References(members);
    const CFOwned<CFDictionaryRef> dictionary(CFDictionaryCreate(
        nullptr, names.data(), values.data(), static_cast<CFIndex>(values.size()),
        &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
    if (!dictionary) {
        throw std::bad_alloc();
    }
    return Made(mMutableContainers ? static_cast<CFTypeRef>(CFDictionaryCreateMutableCopy(
                                         nullptr, 0, dictionary.Get()))
                                   : CFRetain(dictionary.Get()));
}
