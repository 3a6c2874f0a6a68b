#pragma once

#include <locale.h>

// Makes the thread print and read numbers with a decimal point, whatever its locale, for as long as
// this exists.
class PlainNumbers {
public:
    PlainNumbers() : mOwn(uselocale(Plain())) {}
    ~PlainNumbers() { uselocale(mOwn); }
    PlainNumbers(const PlainNumbers&) = delete;
    PlainNumbers& operator=(const PlainNumbers&) = delete;

private:
    static locale_t Plain() {
        static const locale_t plain = newlocale(LC_ALL_MASK, "C", nullptr);
        return plain;
    }

    const locale_t mOwn;
};
