#pragma once

#include <locale.h>

// Makes the thread print and read numbers with a decimal point, whatever its locale, for as long as
// this exists.
class ScopedCLocale {
public:
    ScopedCLocale() : mOwn(uselocale(CLocale())) {}
    ~ScopedCLocale() { uselocale(mOwn); }
    ScopedCLocale(const ScopedCLocale&) = delete;
    ScopedCLocale& operator=(const ScopedCLocale&) = delete;

private:
    static locale_t CLocale() {
        static const locale_t locale = newlocale(LC_ALL_MASK, "C", nullptr);
        return locale;
    }

    const locale_t mOwn;
};
