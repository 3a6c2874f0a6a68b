#include "platform/CoreFoundation/src/base/StringEncoding.h"
#include "platform/CoreFoundation/src/values/CFStringObject.h"
#include "platform/CoreFoundation/src/values/StringFormat.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace {

// Takes off the byte order mark, which only marks bytes as UTF-8 here.
std::string_view WithoutMark(std::string_view bytes) {
    constexpr std::string_view kMark = "\xEF\xBB\xBF";
    return bytes.substr(bytes.substr(0, kMark.size()) == kMark ? kMark.size() : 0);
}

CFStringRef MakeDecoded(CFAllocatorRef allocator, std::string_view bytes,
                        CFStringEncoding encoding) {
    return CFRuntimeGuard<CFStringRef>(nullptr, [&]() -> CFStringRef {
        std::u16string text;
        return AppendDecoded(bytes, encoding, text) ? CFRuntimeCreate<__CFString>(allocator, text)
                                                    : nullptr;
    });
}

// Whether the range lies within `size`.
bool RangeIsWithin(CFRange range, std::size_t size) {
    return range.location >= 0 && range.length >= 0 &&
           static_cast<std::size_t>(range.location) <= size &&
           static_cast<std::size_t>(range.length) <=
               size - static_cast<std::size_t>(range.location);
}

} // namespace

std::optional<std::string> UTF8OfString(CFTypeRef string) {
    const auto* object = CFRuntimeCast<__CFString>(string);
    std::string bytes;
    return object != nullptr && AppendUTF8(object->mText, bytes) ? std::optional(std::move(bytes))
                                                                 : std::nullopt;
}

CFStringRef CopyUTF8String(std::string_view text) {
    return MakeDecoded(nullptr, text, kCFStringEncodingUTF8);
}

CFTypeID CFStringGetTypeID(void) {
    return kCFRuntimeStringType;
}

CFStringRef CFStringCreateWithCString(CFAllocatorRef alloc, const char* cStr,
                                      CFStringEncoding encoding) {
    return cStr == nullptr ? nullptr : MakeDecoded(alloc, cStr, encoding);
}

CFStringRef CFStringCreateWithBytes(CFAllocatorRef alloc, const UInt8* bytes, CFIndex numBytes,
                                    CFStringEncoding encoding, Boolean isExternalRepresentation) {
    if (numBytes < 0 || (bytes == nullptr && numBytes != 0)) {
        return nullptr;
    }
    std::string_view view;
    if (numBytes != 0) {
        view = {reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(numBytes)};
    }
    if (isExternalRepresentation != 0 && encoding == kCFStringEncodingUTF8) {
        view = WithoutMark(view);
    }
    return MakeDecoded(alloc, view, encoding);
}

CFStringRef CFStringCreateCopy(CFAllocatorRef alloc, CFStringRef theString) {
    const auto* string = CFRuntimeArgument<__CFString>(theString, "theString");
    if (string == nullptr || !CFRuntimeCanAllocate(alloc)) {
        return nullptr;
    }
    string->Retain();
    return string;
}

CFStringRef CFStringCreateWithFormat(CFAllocatorRef alloc, CFDictionaryRef formatOptions,
                                     CFStringRef format, ...) {
    va_list arguments;
    va_start(arguments, format);
    CFStringRef result =
        CFStringCreateWithFormatAndArguments(alloc, formatOptions, format, arguments);
    va_end(arguments);
    return result;
}

CFStringRef CFStringCreateWithFormatAndArguments(CFAllocatorRef alloc,
                                                 CFDictionaryRef /*formatOptions*/,
                                                 CFStringRef format, va_list arguments) {
    const auto* string = CFRuntimeArgument<__CFString>(format, "format");
    if (string == nullptr) {
        return nullptr;
    }
    // Copied here, not in the body: a va_list parameter may have become a pointer.
    va_list copy;
    va_copy(copy, arguments);
    CFStringRef result = CFRuntimeGuard<CFStringRef>(nullptr, [&]() -> CFStringRef {
        std::u16string text;
        return FormatString(string->mText, copy, text) ? CFRuntimeCreate<__CFString>(alloc, text)
                                                       : nullptr;
    });
    va_end(copy);
    return result;
}

CFIndex CFStringGetLength(CFStringRef theString) {
    const auto* string = CFRuntimeArgument<__CFString>(theString, "theString");
    return string == nullptr ? 0 : static_cast<CFIndex>(string->mText.size());
}

UniChar CFStringGetCharacterAtIndex(CFStringRef theString, CFIndex idx) {
    const auto* string = CFRuntimeArgument<__CFString>(theString, "theString");
    const auto index = static_cast<std::size_t>(idx);
    return string == nullptr || idx < 0 || index >= string->mText.size()
               ? UniChar{0}
               : static_cast<UniChar>(string->mText[index]);
}

Boolean CFStringGetCString(CFStringRef theString, char* buffer, CFIndex bufferSize,
                           CFStringEncoding encoding) {
    if (buffer == nullptr || bufferSize <= 0) {
        return false;
    }
    CFIndex used = 0;
    bool isWhole = false;
    if (CFRuntimeIsArgument(theString, kCFRuntimeStringType, "theString") &&
        StringEncodingIsKnown(encoding)) {
        const CFRange all = CFRangeMake(0, CFStringGetLength(theString));
        isWhole =
            CFStringGetBytes(theString, all, encoding, 0, false, reinterpret_cast<UInt8*>(buffer),
                             bufferSize - 1, &used) == all.length;
    }
    buffer[isWhole ? used : 0] = '\0';
    return isWhole;
}

CFIndex CFStringGetBytes(CFStringRef theString, CFRange range, CFStringEncoding encoding,
                         UInt8 lossByte, Boolean /*isExternalRepresentation*/, UInt8* buffer,
                         CFIndex maxBufLen, CFIndex* usedBufLen) {
    if (usedBufLen != nullptr) {
        *usedBufLen = 0;
    }
    const auto* string = CFRuntimeArgument<__CFString>(theString, "theString");
    if (string == nullptr || !StringEncodingIsKnown(encoding) ||
        !RangeIsWithin(range, string->mText.size()) || (buffer != nullptr && maxBufLen < 0)) {
        return 0;
    }
    const auto begin = static_cast<std::size_t>(range.location);
    const std::size_t end = begin + static_cast<std::size_t>(range.length);
    std::size_t position = begin;
    std::size_t used = 0;
    while (position < end) {
        EncodedCharacter character =
            EncodeCharacter(string->mText[position],
                            position + 1 < end ? string->mText[position + 1] : u'\0', encoding);
        if (character.size == 0) {
            if (lossByte == 0) {
                break;
            }
            character.bytes[0] = static_cast<char>(lossByte);
            character.size = 1;
        }
        if (buffer != nullptr) {
            if (character.size > static_cast<std::size_t>(maxBufLen) - used) {
                break;
            }
            std::memcpy(buffer + used, character.bytes, character.size);
        }
        used += character.size;
        position += character.units;
    }
    if (usedBufLen != nullptr) {
        *usedBufLen = static_cast<CFIndex>(used);
    }
    return static_cast<CFIndex>(position - begin);
}

CFArrayRef CFStringCreateArrayBySeparatingStrings(CFAllocatorRef alloc, CFStringRef theString,
                                                  CFStringRef separatorString) {
    const auto* string = CFRuntimeArgument<__CFString>(theString, "theString");
    const auto* separator = CFRuntimeArgument<__CFString>(separatorString, "separatorString");
    if (string == nullptr || separator == nullptr) {
        return nullptr;
    }
    return CFRuntimeGuard<CFArrayRef>(nullptr, [&]() -> CFArrayRef {
        const std::u16string& text = string->mText;
        const std::u16string& mark = separator->mText;
        std::vector<CFOwned<CFStringRef>> parts;
        std::vector<const void*> values;
        for (std::size_t begin = 0;;) {
            const std::size_t end = mark.empty() ? std::u16string::npos : text.find(mark, begin);
            const std::size_t size = end == std::u16string::npos ? end : end - begin;
            CFOwned<CFStringRef> part(CFRuntimeCreate<__CFString>(alloc, text.substr(begin, size)));
            if (!part) {
                return nullptr;
            }
            values.push_back(part.Get());
            parts.push_back(std::move(part));
            if (end == std::u16string::npos) {
                break;
            }
            begin = end + mark.size();
        }
        return CFArrayCreate(alloc, values.data(), static_cast<CFIndex>(values.size()),
                             &kCFTypeArrayCallBacks);
    });
}
