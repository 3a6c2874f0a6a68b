// These functions convert text between UTF-16 and the encodings of strings.
#pragma once

#include <CoreFoundation/CFString.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

bool StringEncodingIsKnown(CFStringEncoding encoding);

// Appends the text of the bytes. Returns false if they are not valid in the encoding; `text` is
// then unspecified.
bool AppendDecoded(std::string_view bytes, CFStringEncoding encoding, std::u16string& text);

// Reads the bytes as UTF-8 or, if they are not, as MacRoman, in which every byte is valid.
std::u16string UTF16FromCString(std::string_view bytes);
std::u16string UTF16FromASCII(std::string_view bytes);

// One character as bytes.
struct EncodedCharacter {
    std::size_t units = 1; // the UTF-16 units that it is made of
    std::size_t size = 0;  // in bytes; 0 if it cannot be represented
    char bytes[4] = {};
};

// Encodes the character at the front of one or two units; `second` is 0 if there is no more.
EncodedCharacter EncodeCharacter(char16_t first, char16_t second, CFStringEncoding encoding);

// Append a text, or a character by its number, in UTF-8. Return false if there is a surrogate
// without its other half, or no character of that number.
bool AppendUTF8(std::u16string_view text, std::string& bytes);
bool AppendUTF8(std::uint32_t character, std::string& bytes);
