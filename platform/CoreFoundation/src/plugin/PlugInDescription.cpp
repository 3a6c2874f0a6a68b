#include "platform/CoreFoundation/src/plugin/PlugInDescription.h"

#include "platform/CoreFoundation/src/base/CFRuntimeObject.h"
#include "platform/CoreFoundation/src/plugin/PlugInError.h"
#include "platform/CoreFoundation/src/values/CFStringObject.h"

#include <CoreFoundation/CFArray.h>
#include <CoreFoundation/CFData.h>
#include <CoreFoundation/CFNumber.h>
#include <CoreFoundation/CFString.h>

#include <algorithm>
#include <new>
#include <utility>

namespace {

constexpr const char* kFactoriesKey = "CFPlugInFactories";
constexpr const char* kTypesKey = "CFPlugInTypes";
constexpr const char* kDynamicKey = "CFPlugInDynamicRegistration";

std::string KindOf(CFTypeRef value) {
    static const std::pair<CFTypeID, const char*> kKinds[] = {
        {CFStringGetTypeID(), "a string"},         {CFArrayGetTypeID(), "an array"},
        {CFDictionaryGetTypeID(), "a dictionary"}, {CFNumberGetTypeID(), "a number"},
        {CFBooleanGetTypeID(), "a boolean"},       {CFDataGetTypeID(), "data"},
    };
    const CFTypeID type = CFGetTypeID(value);
    for (const auto& [id, name] : kKinds) {
        if (id == type) {
            return name;
        }
    }
    return "another type";
}

bool Fail(const std::string& listPath, const std::string& key, const std::string& expected,
          const std::string& found) {
    return SetPlugInError(listPath + ": key " + key + ": expected " + expected + ", found " +
                          found);
}

CFTypeRef ValueOf(CFDictionaryRef info, const char* key) {
    const CFOwned<CFStringRef> name(CopyUTF8String(key));
    if (!name) {
        throw std::bad_alloc();
    }
    return CFDictionaryGetValue(info, name.Get());
}

// The entries of the dictionary under a key, by their keys' texts.
std::optional<std::vector<std::pair<std::string, CFTypeRef>>>
Entries(CFDictionaryRef info, const char* key, const std::string& listPath) {
    const CFTypeRef value = ValueOf(info, key);
    if (value == nullptr || CFGetTypeID(value) != CFDictionaryGetTypeID()) {
        Fail(listPath, key, "a dictionary", value == nullptr ? "none" : KindOf(value));
        return std::nullopt;
    }
    const auto dictionary = static_cast<CFDictionaryRef>(value);
    const auto count = static_cast<std::size_t>(CFDictionaryGetCount(dictionary));
    if (count == 0) {
        Fail(listPath, key, "at least one entry", "none");
        return std::nullopt;
    }
    std::vector<const void*> keys(count);
    std::vector<const void*> values(count);
    CFDictionaryGetKeysAndValues(dictionary, keys.data(), values.data());
    std::vector<std::pair<std::string, CFTypeRef>> entries;
    for (std::size_t i = 0; i < count; ++i) {
        entries.emplace_back(UTF8OfString(static_cast<CFStringRef>(keys[i])).value_or(""),
                             values[i]);
    }
    return entries;
}

std::optional<UuidBytes> UuidOrFail(const std::string& text, const std::string& listPath,
                                    const std::string& key) {
    const auto uuid = ParseUuid(text);
    if (!uuid) {
        Fail(listPath, key, "a UUID", "\"" + text + "\"");
    }
    return uuid;
}

bool AllowsStaticRegistrationOnly(CFDictionaryRef info, const std::string& listPath) {
    const CFTypeRef value = ValueOf(info, kDynamicKey);
    if (value == nullptr) {
        return true;
    }
    static constexpr const char* kExpected = "NO (dynamic registration is not supported)";
    if (CFGetTypeID(value) == CFBooleanGetTypeID()) {
        return CFBooleanGetValue(static_cast<CFBooleanRef>(value)) == 0 ||
               Fail(listPath, kDynamicKey, kExpected, "YES");
    }
    if (CFGetTypeID(value) != CFStringGetTypeID()) {
        return Fail(listPath, kDynamicKey, kExpected, KindOf(value));
    }
    const std::string text = UTF8OfString(static_cast<CFStringRef>(value)).value_or("");
    return text == "NO" || text == "No" || text == "no" ||
           Fail(listPath, kDynamicKey, kExpected, "\"" + text + "\"");
}

bool ReadFactories(CFDictionaryRef info, const std::string& listPath,
                   std::vector<PlugInFactory>& factories) {
    const auto entries = Entries(info, kFactoriesKey, listPath);
    if (!entries) {
        return false;
    }
    for (const auto& [key, value] : *entries) {
        const auto uuid = UuidOrFail(key, listPath, kFactoriesKey);
        if (!uuid) {
            return false;
        }
        const std::string place = std::string(kFactoriesKey) + "/" + key;
        if (CFGetTypeID(value) != CFStringGetTypeID()) {
            return Fail(listPath, place, "the name of the factory function", KindOf(value));
        }
        std::string function = UTF8OfString(static_cast<CFStringRef>(value)).value_or("");
        if (function.empty()) {
            return Fail(listPath, place, "the name of the factory function", "an empty string");
        }
        factories.push_back({*uuid, std::move(function), {}});
    }
    return true;
}

bool ReadTypes(CFDictionaryRef info, const std::string& listPath,
               std::vector<PlugInFactory>& factories) {
    const auto entries = Entries(info, kTypesKey, listPath);
    if (!entries) {
        return false;
    }
    for (const auto& [key, value] : *entries) {
        const auto type = UuidOrFail(key, listPath, kTypesKey);
        if (!type) {
            return false;
        }
        const std::string place = std::string(kTypesKey) + "/" + key;
        if (CFGetTypeID(value) != CFArrayGetTypeID()) {
            return Fail(listPath, place, "an array of factory UUIDs", KindOf(value));
        }
        const auto array = static_cast<CFArrayRef>(value);
        for (CFIndex i = 0; i < CFArrayGetCount(array); ++i) {
            const CFTypeRef item = CFArrayGetValueAtIndex(array, i);
            if (CFGetTypeID(item) != CFStringGetTypeID()) {
                return Fail(listPath, place, "an array of factory UUIDs", KindOf(item) + " in it");
            }
            const std::string text = UTF8OfString(static_cast<CFStringRef>(item)).value_or("");
            const auto uuid = UuidOrFail(text, listPath, place);
            if (!uuid) {
                return false;
            }
            const auto factory =
                std::find_if(factories.begin(), factories.end(),
                             [&](const PlugInFactory& each) { return each.uuid == *uuid; });
            if (factory == factories.end()) {
                return Fail(listPath, place, std::string("a factory of key ") + kFactoriesKey,
                            "\"" + text + "\"");
            }
            factory->types.push_back(*type);
        }
    }
    return true;
}

} // namespace

std::optional<std::string> RequiredString(CFDictionaryRef info, const char* key,
                                          const std::string& listPath) {
    const CFTypeRef value = ValueOf(info, key);
    if (value == nullptr || CFGetTypeID(value) != CFStringGetTypeID()) {
        Fail(listPath, key, "a string", value == nullptr ? "none" : KindOf(value));
        return std::nullopt;
    }
    auto text = UTF8OfString(static_cast<CFStringRef>(value));
    if (!text || text->empty()) {
        Fail(listPath, key, "a string", "an empty one");
        return std::nullopt;
    }
    return text;
}

std::optional<std::vector<PlugInFactory>> PlugInFactories(CFDictionaryRef info,
                                                          const std::string& listPath) {
    std::vector<PlugInFactory> factories;
    if (!AllowsStaticRegistrationOnly(info, listPath) ||
        !ReadFactories(info, listPath, factories) || !ReadTypes(info, listPath, factories)) {
        return std::nullopt;
    }
    return factories;
}
