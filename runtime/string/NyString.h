// The runtime's text types, UTF-8 in std::string and UTF-16 in tString, and the conversions between
// them and into values.
//
// The conversions between the two are lenient (see ConvertUTF.h) and go through a buffer of 4095
// units on the stack. They keep no state, so any thread may call them, and allocate only the
// result.
#pragma once

#include "runtime/string/UTF16Traits.h"

#include <cstddef>
#include <ios>
#include <sstream>
#include <string>
#include <utility>

class tString;

// Copies `text`. Returns 0.
int NyStringToString(const char* text, std::string& out);

// Converts null-terminated UTF-16 to UTF-8. `out` receives what was converted. Returns 0 when all
// of the text was converted and 1 otherwise: the text ended within a surrogate pair, or its UTF-8
// form is longer than 4095 bytes and was cut there, before the character that no longer fits.
int NyStringToString(const unsigned short* text, std::string& out);

// Converts null-terminated UTF-8 to UTF-16. `out` receives what was converted. Returns 0 when all
// of the text was converted and 1 otherwise: the text is not well-formed UTF-8, or its UTF-16 form
// is longer than 4095 units and was cut there.
int NyStringToString(const char* text, tString& out);

// A string of UTF-16 code units without a terminator inside. Conversions from and to UTF-8 are cut
// at 4095 units and do not report it; NyStringToString does.
//
// It is used as a standard string is. It can be built from units and their number, from a unit and
// a repeat count, or from iterators; + joins it, with UTF-8 as well, and substr cuts it.
//
//     tString name("Fl\xC3\xB6te"); // UTF-8 in, five units of UTF-16 inside
//     const std::string utf8 = name + " 2";
class tString : public std::basic_string<unsigned short, UTF16Traits> {
public:
    using Base = std::basic_string<unsigned short, UTF16Traits>;
    using Base::Base;

    tString() = default;
    // These take what the standard string's own operations return.
    tString(const Base& units) : Base(units) {}
    tString(Base&& units) noexcept : Base(std::move(units)) {}
    tString(const char* utf8) { NyStringToString(utf8, *this); }
    tString(const std::string& utf8) : tString(utf8.c_str()) {}

    tString& operator=(const char* utf8) {
        NyStringToString(utf8, *this);
        return *this;
    }
    tString& operator=(const std::string& utf8) { return *this = utf8.c_str(); }

    operator std::string() const {
        std::string utf8;
        NyStringToString(c_str(), utf8);
        return utf8;
    }

    // Does what the standard string's does: throws std::out_of_range for a `position` beyond the
    // end.
    tString substr(size_type position = 0, size_type count = npos) const {
        return Base::substr(position, count);
    }

    friend tString operator+(tString first, const tString& second) {
        first.append(second);
        return first;
    }
};

// Reads one value from the start of `text` as a string stream does. Base 8 means octal, 10 decimal
// and 16 hexadecimal; with any other base the prefix decides. Leaves `value` unchanged when the
// text does not start with a value, or when it does not fit. So ("7f", value, 16) stores 127.
template <typename T>
void NyStringToValue(const std::string& text, T& value, int base) {
    std::istringstream stream(text);
    const std::ios_base::fmtflags flags = base == 8    ? std::ios_base::oct
                                          : base == 10 ? std::ios_base::dec
                                          : base == 16 ? std::ios_base::hex
                                                       : std::ios_base::fmtflags{};
    stream.setf(flags, std::ios_base::basefield);
    T read{};
    if (stream >> read) {
        value = read;
    }
}
