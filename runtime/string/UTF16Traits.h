// The character traits with which tString is a standard string of unsigned short. The standard
// library need not supply traits for that type.
#pragma once

#include <algorithm>
#include <compare>
#include <cstddef>
#include <cwchar>
#include <ios>

struct UTF16Traits {
    using char_type = unsigned short;
    using int_type = unsigned int;
    using off_type = std::streamoff;
    using pos_type = std::streampos;
    using state_type = std::mbstate_t;
    using comparison_category = std::strong_ordering;

    static constexpr void assign(char_type& to, const char_type& from) noexcept { to = from; }
    static constexpr bool eq(char_type a, char_type b) noexcept { return a == b; }
    static constexpr bool lt(char_type a, char_type b) noexcept { return a < b; }

    static constexpr int compare(const char_type* a, const char_type* b, std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            if (a[i] != b[i]) {
                return a[i] < b[i] ? -1 : 1;
            }
        }
        return 0;
    }
    static constexpr std::size_t length(const char_type* text) {
        std::size_t count = 0;
        while (text[count] != 0) {
            ++count;
        }
        return count;
    }
    static constexpr const char_type* find(const char_type* text, std::size_t count,
                                           const char_type& unit) {
        const char_type* found = std::find(text, text + count, unit);
        return found == text + count ? nullptr : found;
    }
    static constexpr char_type* move(char_type* to, const char_type* from, std::size_t count) {
        return from < to ? (std::copy_backward(from, from + count, to + count), to)
                         : (std::copy(from, from + count, to), to);
    }
    static constexpr char_type* copy(char_type* to, const char_type* from, std::size_t count) {
        std::copy(from, from + count, to);
        return to;
    }
    static constexpr char_type* assign(char_type* to, std::size_t count, char_type unit) {
        std::fill_n(to, count, unit);
        return to;
    }

    static constexpr int_type eof() noexcept { return static_cast<int_type>(-1); }
    static constexpr int_type not_eof(int_type value) noexcept {
        return value == eof() ? 0 : value;
    }
    static constexpr char_type to_char_type(int_type value) noexcept {
        return static_cast<char_type>(value);
    }
    static constexpr int_type to_int_type(char_type unit) noexcept { return unit; }
    static constexpr bool eq_int_type(int_type a, int_type b) noexcept { return a == b; }
};
