#pragma once

#include <locale.h>

// As long as a ScopedCLocale exists, its thread prints and reads numbers with a decimal point,
// whatever its locale.
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
