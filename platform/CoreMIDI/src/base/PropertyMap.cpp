#include "platform/CoreMIDI/src/base/PropertyMap.h"

#include <new>

namespace CoreMIDI {

std::optional<PropertyType> TypeOf(CFPropertyListRef value) {
    if (value == nullptr) {
        return std::nullopt;
    }
    const CFTypeID type = CFGetTypeID(value);
    if (type == CFStringGetTypeID()) {
        return PropertyType::kString;
    }
    if (type == CFDataGetTypeID()) {
        return PropertyType::kData;
    }
    if (type == CFDictionaryGetTypeID()) {
        return PropertyType::kDictionary;
    }
    if (NumberOf(value)) {
        return PropertyType::kInteger;
    }
    return std::nullopt;
}

const PropertyRule& RuleOf(std::string_view name) {
    constexpr PropertyRule kInteger{PropertyType::kInteger};
    constexpr PropertyRule kString{PropertyType::kString};
    // Never destroyed: clients may set properties while the process ends.
    static const auto& rules = *new std::map<std::string_view, PropertyRule>{
        {kNameProperty, kString},
        {kManufacturerProperty, kString},
        {kModelProperty, kString},
        {kUniqueIDProperty, kInteger},
        {"deviceID", kInteger},
        {"receiveChannels", kInteger},
        {"transmitChannels", kInteger},
        {"maxSysExSpeed", kInteger},
        {kAdvanceScheduleTimeProperty, kInteger},
        {kEmbeddedProperty, kInteger},
        {"broadcast", kInteger},
        {"single realtime entity", kInteger},
        {kOfflineProperty, {PropertyType::kInteger, true, false}},
        {kPrivateProperty, kInteger},
        {kDriverOwnerProperty, {PropertyType::kString, false, true}},
        {"nameConfiguration", {PropertyType::kDictionary}},
        {"image", kString},
        {"driverVersion", kInteger},
        {"supports General MIDI", kInteger},
        {"supports MMC", kInteger},
        {"can route", kInteger},
        {"receives clock", kInteger},
        {"receives MTC", kInteger},
        {"transmits clock", kInteger},
        {"transmits MTC", kInteger},
        {"driver device editor app", kString},
        {"supports show control", kInteger},
        {kDisplayNameProperty, kString},
    };
    static const PropertyRule kAny;
    const auto found = rules.find(name);
    return found == rules.end() ? kAny : found->second;
}

CFOwned<CFMutableDictionaryRef> DictionaryOf(const PropertyMap& properties) {
    CFOwned<CFMutableDictionaryRef> dictionary(CFDictionaryCreateMutable(
        nullptr, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
    if (!dictionary) {
        throw std::bad_alloc();
    }
    for (const auto& [name, value] : properties) {
        SetValue(dictionary, name, value.Get());
    }
    return dictionary;
}

void SetValue(const CFOwned<CFMutableDictionaryRef>& dictionary, const std::string& key,
              CFTypeRef value) {
    const CFOwned<CFStringRef> name = MakeString(key);
    CFDictionarySetValue(dictionary.Get(), name.Get(), value);
    // It says nothing where there is no memory.
    if (CFDictionaryGetValue(dictionary.Get(), name.Get()) != value) {
        throw std::bad_alloc();
    }
}

} // namespace CoreMIDI
