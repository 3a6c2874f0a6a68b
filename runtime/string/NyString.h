// The runtime's text types: UTF-8 in std::string, UTF-16 in tString, and the conversions between
// them and to values.
//
// Conversions are lenient (see ConvertUTF.h), go through a buffer of 4095 units on the stack and
// keep no state: any thread may call them. They allocate only the result.
#pragma once

#include <cstddef>
#include <ios>
#include <sstream>
#include <string>
#include <utility>

#include "runtime/string/UTF16Traits.h"

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
// at 4095 units; whether they were complete is not reported: use NyStringToString to know.
//
// It is used as a standard string is: built from units and their number, from a unit and how often
// it comes, or from iterators; joined with +, also with UTF-8; cut with substr.
class tString : public std::basic_string<unsigned short, UTF16Traits> {
public:
    using Base = std::basic_string<unsigned short, UTF16Traits>;
    using Base::Base;

    tString() = default;
    // What the standard string's own operations return.
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

    // As the standard string's; throws std::out_of_range when `position` is beyond the end.
    tString substr(size_type position = 0, size_type count = npos) const {
        return Base::substr(position, count);
    }

    friend tString operator+(tString first, const tString& second) {
        first.append(second);
        return first;
    }
};

// Reads one value from the start of `text` as a string stream does: in octal for base 8, decimal
// for 10, hexadecimal for 16; for any other base the prefix decides. Leaves `value` unchanged when
// there is no such value, or it does not fit.
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
