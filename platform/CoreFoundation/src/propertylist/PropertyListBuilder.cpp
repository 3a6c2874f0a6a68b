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

PropertyListValue PropertyListBuilder::Counted(CFTypeRef made) {
    PropertyListValue value = Made(made);
    mBudget.TakeValue();
    return value;
}

PropertyListValue PropertyListBuilder::Boolean(bool value) {
    return Counted(CFRetain(value ? kCFBooleanTrue : kCFBooleanFalse));
}

PropertyListValue PropertyListBuilder::Integer(std::int64_t value) {
    return Counted(CFNumberCreate(nullptr, kCFNumberSInt64Type, &value));
}

PropertyListValue PropertyListBuilder::Real(double value) {
    return Counted(CFNumberCreate(nullptr, kCFNumberFloat64Type, &value));
}

PropertyListValue PropertyListBuilder::Date(double at) {
    PropertyListBudget::RequireDate(at);
    return Counted(CFDateCreate(nullptr, at));
}

PropertyListValue PropertyListBuilder::Data(std::string_view bytes) {
    mBudget.TakeContents(bytes.size());
    return Counted(CFDataCreate(nullptr, reinterpret_cast<const UInt8*>(bytes.data()),
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
    std::vector<const void*> values = References(members);
    PropertyListValue array = Counted(CFArrayCreate(
        nullptr, values.data(), static_cast<CFIndex>(values.size()), &kCFTypeArrayCallBacks));
    return mMutableContainers
               ? Made(CFArrayCreateMutableCopy(nullptr, 0, static_cast<CFArrayRef>(array.Get())))
               : array;
}

PropertyListValue PropertyListBuilder::Dictionary(const PropertyListValues& keys,
                                                  const PropertyListValues& members) {
    std::vector<const void*> names = References(keys);
    std::vector<const void*> values = References(members);
    PropertyListValue dictionary = Counted(CFDictionaryCreate(
        nullptr, names.data(), values.data(), static_cast<CFIndex>(values.size()),
        &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
    return mMutableContainers ? Made(CFDictionaryCreateMutableCopy(
                                    nullptr, 0, static_cast<CFDictionaryRef>(dictionary.Get())))
                              : dictionary;
}
