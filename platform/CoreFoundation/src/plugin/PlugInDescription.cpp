#include "platform/CoreFoundation/src/plugin/PlugInDescription.h"

#include "platform/CoreFoundation/src/base/CFRuntimeObject.h"
#include "platform/CoreFoundation/src/plugin/PlugInError.h"
#include "platform/CoreFoundation/src/values/CFStringObject.h"

#include <CoreFoundation/CFArray.h>
#include <CoreFoundation/CFNumber.h>

#include <algorithm>
#include <new>
#include <utility>

namespace {

constexpr const char* kFactoriesKey = "CFPlugInFactories";
constexpr const char* kTypesKey = "CFPlugInTypes";
constexpr const char* kDynamicKey = "CFPlugInDynamicRegistration";

std::string KindOf(CFTypeRef value) {
    switch (CFRuntimeTypeOf(value)) {
    case kCFRuntimeNotAType:
        return "none";
    case kCFRuntimeStringType:
        return "a string";
    case kCFRuntimeArrayType:
        return "an array";
    case kCFRuntimeDictionaryType:
        return "a dictionary";
    case kCFRuntimeNumberType:
        return "a number";
    case kCFRuntimeBooleanType:
        return "a boolean";
    case kCFRuntimeDataType:
        return "data";
    default:
        return "another type";
    }
}

// A property list and where it lies, for reading values and saying what is wrong with them.
class Reader {
public:
    Reader(CFDictionaryRef info, const std::string& path) : mInfo(info), mPath(path) {}

    std::string ExecutableName() const {
        constexpr const char* kKey = "CFBundleExecutable";
        std::string name = Text(ValueOf(kKey), kKey, "a string", "");
        if (name.empty()) {
            Refuse(kKey, "a string", "an empty one");
        }
        if (name.find('/') != std::string::npos) {
            Refuse(kKey, "a file name", "\"" + name + "\"");
        }
        return name;
    }

    void RequireStaticRegistration() const {
        constexpr const char* kExpected = "NO (dynamic registration is not supported)";
        const CFTypeRef value = ValueOf(kDynamicKey);
        if (value == nullptr || value == kCFBooleanFalse) {
            return;
        }
        if (value == kCFBooleanTrue) {
            Refuse(kDynamicKey, kExpected, "YES");
        }
        const std::string text = Text(value, kDynamicKey, kExpected, "");
        if (text != "NO" && text != "No" && text != "no") {
            Refuse(kDynamicKey, kExpected, "\"" + text + "\"");
        }
    }

    std::vector<PlugInFactory> Factories() const {
        constexpr const char* kExpected = "the name of the factory function";
        std::vector<PlugInFactory> factories;
        for (const auto& [key, value] : Entries(kFactoriesKey)) {
            const UuidBytes uuid = Uuid(key, kFactoriesKey);
            const std::string place = std::string(kFactoriesKey) + "/" + key;
            std::string function = Text(value, place, kExpected, "");
            if (function.empty()) {
                Refuse(place, kExpected, "an empty string");
            }
            factories.push_back({uuid, std::move(function), {}});
        }
        return factories;
    }

    void AddTypes(std::vector<PlugInFactory>& factories) const {
        constexpr const char* kExpected = "an array of factory UUIDs";
        for (const auto& [key, value] : Entries(kTypesKey)) {
            const UuidBytes type = Uuid(key, kTypesKey);
            const std::string place = std::string(kTypesKey) + "/" + key;
            if (CFRuntimeTypeOf(value) != kCFRuntimeArrayType) {
                Refuse(place, kExpected, KindOf(value));
            }
            const auto* const array = static_cast<CFArrayRef>(value);
            for (CFIndex i = 0; i < CFArrayGetCount(array); ++i) {
                const std::string text =
                    Text(CFArrayGetValueAtIndex(array, i), place, kExpected, " in it");
                const UuidBytes uuid = Uuid(text, place);
                const auto factory =
                    std::find_if(factories.begin(), factories.end(),
                                 [&](const PlugInFactory& each) { return each.uuid == uuid; });
                if (factory == factories.end()) {
                    Refuse(place, std::string("a factory of key ") + kFactoriesKey,
                           "\"" + text + "\"");
                }
                factory->types.push_back(type);
            }
        }
    }

private:
    [[noreturn]] void Refuse(const std::string& key, const std::string& expected,
                             const std::string& found) const {
        throw PlugInFault{mPath + ": key " + key + ": expected " + expected + ", found " + found};
    }

    CFTypeRef ValueOf(const char* key) const {
        const CFOwned<CFStringRef> name(CopyUTF8String(key));
        if (!name) {
            throw std::bad_alloc();
        }
        return CFDictionaryGetValue(mInfo, name.Get());
    }

    // The text of a value that has to be a string; `where` says where the value is in the key's.
    std::string Text(CFTypeRef value, const std::string& key, const std::string& expected,
                     const char* where) const {
        if (CFRuntimeTypeOf(value) != kCFRuntimeStringType) {
            Refuse(key, expected, KindOf(value) + where);
        }
        return UTF8OfString(value).value_or("");
    }

    UuidBytes Uuid(const std::string& text, const std::string& key) const {
        const auto uuid = ParseUuid(text);
        if (!uuid) {
            Refuse(key, "a UUID", "\"" + text + "\"");
        }
        return *uuid;
    }

    // The entries of the dictionary under a key, by their keys' texts.
    std::vector<std::pair<std::string, CFTypeRef>> Entries(const char* key) const {
        const CFTypeRef value = ValueOf(key);
        if (CFRuntimeTypeOf(value) != kCFRuntimeDictionaryType) {
            Refuse(key, "a dictionary", KindOf(value));
        }
        std::vector<std::pair<std::string, CFTypeRef>> entries;
        CFDictionaryApplyFunction(
            static_cast<CFDictionaryRef>(value),
            [](const void* name, const void* entry, void* list) {
                static_cast<decltype(entries)*>(list)->emplace_back(UTF8OfString(name).value_or(""),
                                                                    entry);
            },
            &entries);
        if (entries.empty()) {
            Refuse(key, "at least one entry", "none");
        }
        return entries;
    }

    const CFDictionaryRef mInfo;
    const std::string& mPath;
};

} // namespace

std::string ExecutableName(CFDictionaryRef info, const std::string& listPath) {
    return Reader(info, listPath).ExecutableName();
}

std::vector<PlugInFactory> PlugInFactories(CFDictionaryRef info, const std::string& listPath) {
    const Reader reader(info, listPath);
    reader.RequireStaticRegistration();
    std::vector<PlugInFactory> factories = reader.Factories();
    reader.AddTypes(factories);
    return factories;
}
