// A string keeps one byte per character if all of its characters are ASCII, as in nearly all
// strings, and UTF-16 otherwise.
#pragma once

#include "platform/CoreFoundation/src/base/CFRuntimeObject.h"

#include <CoreFoundation/CFString.h>

#include <optional>
#include <string>
#include <string_view>

struct __CFString final : CFRuntimeObject {
    explicit __CFString(std::u16string_view text);
    __CFString(std::u16string_view text, CFRuntimeImmortal);

    bool Equals(const CFRuntimeObject& other) const override;
    CFHashCode Hash() const override;
    std::u16string Description(unsigned depth) const override;

    std::size_t Size() const { return mWide.empty() ? mNarrow.size() : mWide.size(); }
    char16_t At(std::size_t index) const {
        return mWide.empty() ? static_cast<char16_t>(mNarrow[index]) : mWide[index];
    }
    // Returns 0 beyond the end, so that a caller can look for a character of two units anywhere.
    char16_t AtOrNothing(std::size_t index) const { return index < Size() ? At(index) : u'\0'; }

    std::u16string Text() const;
    // Returns the text if it is all ASCII, else null.
    const std::string* ASCII() const { return mWide.empty() ? &mNarrow : nullptr; }

private:
    void Assign(std::u16string_view text);

    // One of these two is empty.
    std::string mNarrow;
    std::u16string mWide;
};

// Returns the text in UTF-8, or nothing if the object is not a string or if the text has a
// surrogate without its other half.
std::optional<std::string> UTF8OfString(CFTypeRef string);

// Makes a string of a text in UTF-8, or null if it is not UTF-8 or there is no memory. The caller
// owns the result.
CFStringRef CopyUTF8String(std::string_view text);
