// The object behind a CFStringRef, and its conversions from and to UTF-8.
//
//     const auto* const string = CFRuntimeArgument<__CFString>(theString, "theString");
//     const std::size_t units = string == nullptr ? 0 : string->mText.size();
#pragma once

#include "platform/CoreFoundation/src/base/CFRuntimeObject.h"

#include <CoreFoundation/CFString.h>

#include <optional>
#include <string>
#include <string_view>

struct __CFString final : CFRuntimeObject {
    explicit __CFString(std::u16string_view text)
        : CFRuntimeObject(kCFRuntimeStringType), mText(text) {}
    __CFString(std::u16string_view text, CFRuntimeImmortal immortal)
        : CFRuntimeObject(kCFRuntimeStringType, immortal), mText(text) {}

    bool Equals(const CFRuntimeObject& other) const override {
        return mText == static_cast<const __CFString&>(other).mText;
    }
    CFHashCode Hash() const override { return CFRuntimeHash(mText); }
    std::u16string Description(unsigned /*depth*/) const override { return mText; }

    const std::u16string mText;
};

// Returns the text in UTF-8, or nothing if the object is not a string or if the text has a
// surrogate without its other half.
std::optional<std::string> UTF8OfString(CFTypeRef string);

// Makes a string of a text in UTF-8, or null if it is not UTF-8 or there is no memory. The caller
// owns the result.
CFStringRef CopyUTF8String(std::string_view text);
