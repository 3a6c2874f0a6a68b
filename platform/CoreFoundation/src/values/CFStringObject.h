// Strings: one byte per character as long as all are ASCII, which nearly all are, else UTF-16.
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
    // 0 one beyond the end, so that a character of two units can be looked for anywhere.
    char16_t AtOrNothing(std::size_t index) const { return index < Size() ? At(index) : u'\0'; }

    std::u16string Text() const;
    // The text if it is all ASCII, else null.
    const std::string* ASCII() const { return mWide.empty() ? &mNarrow : nullptr; }

private:
    void Assign(std::u16string_view text);

    // One of the two is empty.
    std::string mNarrow;
    std::u16string mWide;
};

// The text in UTF-8; nothing when it is not a string or has a surrogate without its other half.
std::optional<std::string> UTF8OfString(CFTypeRef string);

// The location and length of a range as far as it lies within `size`; false when it does not.
bool RangeIsWithin(CFRange range, std::size_t size);
