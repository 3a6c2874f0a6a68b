// Text between UTF-16 and the encodings of strings.
#pragma once

#include <CoreFoundation/CFString.h>

#include <cstddef>
#include <string>
#include <string_view>

bool StringEncodingIsKnown(CFStringEncoding encoding);

// Appends the bytes' text. False when they are not valid in the encoding; `text` is then
// unspecified.
bool AppendDecoded(std::string_view bytes, CFStringEncoding encoding, std::u16string& text);

// UTF-8 as long as it is that, or else MacRoman, which every byte is valid in.
std::u16string UTF16FromCString(std::string_view bytes);
std::u16string UTF16FromASCII(std::string_view bytes);

// One character as bytes.
struct EncodedCharacter {
    std::size_t units = 1; // of UTF-16 that it is made of
    std::size_t size = 0;  // bytes; 0 when it cannot be represented
    char bytes[4] = {};
};

// The character at the front of one or two units (`second` is 0 when there is no more).
EncodedCharacter EncodeCharacter(char16_t first, char16_t second, CFStringEncoding encoding);

// The whole text in UTF-8; false when it has a surrogate without its other half.
bool AppendUTF8(std::u16string_view text, std::string& bytes);
