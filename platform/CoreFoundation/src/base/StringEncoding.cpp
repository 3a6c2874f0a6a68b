#include "platform/CoreFoundation/src/base/StringEncoding.h"

#include <boost/locale/utf.hpp>

#include <algorithm>
#include <array>
#include <cstdint>
#include <iterator>

namespace {

// The characters of MacRoman's bytes from 0x80 on.
constexpr std::array<char16_t, 128> kMacRoman = {
    0x00C4, 0x00C5, 0x00C7, 0x00C9, 0x00D1, 0x00D6, 0x00DC, 0x00E1, 0x00E0, 0x00E2, 0x00E4, 0x00E3,
    0x00E5, 0x00E7, 0x00E9, 0x00E8, 0x00EA, 0x00EB, 0x00ED, 0x00EC, 0x00EE, 0x00EF, 0x00F1, 0x00F3,
    0x00F2, 0x00F4, 0x00F6, 0x00F5, 0x00FA, 0x00F9, 0x00FB, 0x00FC, 0x2020, 0x00B0, 0x00A2, 0x00A3,
    0x00A7, 0x2022, 0x00B6, 0x00DF, 0x00AE, 0x00A9, 0x2122, 0x00B4, 0x00A8, 0x2260, 0x00C6, 0x00D8,
    0x221E, 0x00B1, 0x2264, 0x2265, 0x00A5, 0x00B5, 0x2202, 0x2211, 0x220F, 0x03C0, 0x222B, 0x00AA,
    0x00BA, 0x03A9, 0x00E6, 0x00F8, 0x00BF, 0x00A1, 0x00AC, 0x221A, 0x0192, 0x2248, 0x2206, 0x00AB,
    0x00BB, 0x2026, 0x00A0, 0x00C0, 0x00C3, 0x00D5, 0x0152, 0x0153, 0x2013, 0x2014, 0x201C, 0x201D,
    0x2018, 0x2019, 0x00F7, 0x25CA, 0x00FF, 0x0178, 0x2044, 0x20AC, 0x2039, 0x203A, 0xFB01, 0xFB02,
    0x2021, 0x00B7, 0x201A, 0x201E, 0x2030, 0x00C2, 0x00CA, 0x00C1, 0x00CB, 0x00C8, 0x00CD, 0x00CE,
    0x00CF, 0x00CC, 0x00D3, 0x00D4, 0xF8FF, 0x00D2, 0x00DA, 0x00DB, 0x00D9, 0x0131, 0x02C6, 0x02DC,
    0x00AF, 0x02D8, 0x02D9, 0x02DA, 0x00B8, 0x02DD, 0x02DB, 0x02C7};

using UTF8 = boost::locale::utf::utf_traits<char>;
using UTF16 = boost::locale::utf::utf_traits<char16_t>;

// Appends the text of bytes that are well-formed UTF-8; false for others.
bool AppendDecodedUTF8(std::string_view bytes, std::u16string& text) {
    const char* place = bytes.data();
    const char* const end = place + bytes.size();
    while (place != end) {
        const auto character = UTF8::decode(place, end);
        if (!boost::locale::utf::is_valid_codepoint(character)) {
            return false;
        }
        UTF16::encode(character, std::back_inserter(text));
    }
    return true;
}

} // namespace

bool StringEncodingIsKnown(CFStringEncoding encoding) {
    return encoding == kCFStringEncodingMacRoman || encoding == kCFStringEncodingASCII ||
           encoding == kCFStringEncodingUTF8;
}

bool AppendDecoded(std::string_view bytes, CFStringEncoding encoding, std::u16string& text) {
    if (!StringEncodingIsKnown(encoding)) {
        return false;
    }
    if (encoding == kCFStringEncodingUTF8) {
        return AppendDecodedUTF8(bytes, text);
    }
    for (const char c : bytes) {
        const auto byte = static_cast<std::uint8_t>(c);
        if (byte < 0x80) {
            text += static_cast<char16_t>(byte);
        } else if (encoding == kCFStringEncodingMacRoman) {
            text += kMacRoman[byte - 0x80U];
        } else {
            return false;
        }
    }
    return true;
}

std::u16string UTF16FromCString(std::string_view bytes) {
    std::u16string text;
    if (!AppendDecoded(bytes, kCFStringEncodingUTF8, text)) {
        text.clear();
        AppendDecoded(bytes, kCFStringEncodingMacRoman, text);
    }
    return text;
}

std::u16string UTF16FromASCII(std::string_view bytes) {
    return {bytes.begin(), bytes.end()};
}

EncodedCharacter EncodeCharacter(char16_t first, char16_t second, CFStringEncoding encoding) {
    EncodedCharacter result;
    const char16_t units[] = {first, second};
    const char16_t* place = units;
    const auto character = UTF16::decode(place, units + 2);
    if (!boost::locale::utf::is_valid_codepoint(character) || !StringEncodingIsKnown(encoding)) {
        return result;
    }
    result.units = static_cast<std::size_t>(place - units);
    if (character < 0x80 || encoding == kCFStringEncodingUTF8) {
        result.size =
            static_cast<std::size_t>(UTF8::encode(character, result.bytes) - result.bytes);
    } else if (encoding == kCFStringEncodingMacRoman) {
        const auto* const found = std::find(kMacRoman.begin(), kMacRoman.end(), character);
        if (found != kMacRoman.end()) {
            result.bytes[0] = static_cast<char>(0x80 + (found - kMacRoman.begin()));
            result.size = 1;
        }
    }
    return result;
}

bool AppendUTF8(std::u16string_view text, std::string& bytes) {
    while (!text.empty()) {
        const EncodedCharacter character =
            EncodeCharacter(text[0], text.size() > 1 ? text[1] : u'\0', kCFStringEncodingUTF8);
        if (character.size == 0) {
            return false;
        }
        bytes.append(character.bytes, character.size);
        text.remove_prefix(character.units);
    }
    return true;
}

bool AppendUTF8(std::uint32_t character, std::string& bytes) {
    if (!boost::locale::utf::is_valid_codepoint(character)) {
        return false;
    }
    UTF8::encode(character, std::back_inserter(bytes));
    return true;
}
