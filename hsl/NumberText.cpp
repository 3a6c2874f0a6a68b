#include "hsl/NumberText.h"

#include <array>
#include <bit>
#include <charconv>
#include <limits>

namespace HSL {

namespace {

static_assert(std::numeric_limits<double>::is_iec559 && std::numeric_limits<double>::digits == 53);

constexpr int kMostDecimals = 9;
constexpr std::array<std::uint64_t, kMostDecimals + 1> kPowersOfTen = {
    1, 10, 100, 1000, 10000, 100000, 1000000, 10000000, 100000000, 1000000000};

// The decimals of `scaled` with the point between.
char* PutScaled(char* to, std::uint64_t scaled, int decimals) {
    const std::uint64_t power = kPowersOfTen[static_cast<std::size_t>(decimals)];
    // 32 bits, see below.
    to = std::to_chars(to, to + kLongestNumberText, static_cast<std::uint32_t>(scaled / power)).ptr;
    if (decimals == 0) {
        return to;
    }
    auto fraction = static_cast<std::uint32_t>(scaled % power);
    *to = '.';
    char* const end = to + 1 + decimals;
    for (char* digit = end; --digit != to; fraction /= 10) {
        *digit = static_cast<char>('0' + fraction % 10);
    }
    return end;
}

} // namespace

bool ScaleExactly(double value, int decimals, std::uint64_t& scaled) {
    // |value| is mantissa / 2^shift.
    constexpr int kMantissaBits = 52;
    constexpr int kBias = 1023;
    constexpr std::uint64_t kHiddenBit = std::uint64_t{1} << kMantissaBits;
    const auto bits = std::bit_cast<std::uint64_t>(value);
    const auto exponent = static_cast<int>(bits >> kMantissaBits & 0x7FF);
    const int shift = kMantissaBits + kBias - exponent;
    if (decimals > kMostDecimals) {
        return false;
    }
    if ((bits << 1) == 0) {
        scaled = 0;
        return true;
    }
    // Up to 61, so that what is left below the point keeps within 64 bits times 5. From 23 on,
    // |value| is below 2^30 and fits 32 bits, also rounded.
    if (shift < 23 || shift > 61) {
        return false;
    }
    const std::uint64_t mantissa = (bits & (kHiddenBit - 1)) | kHiddenBit;
    int below = shift;
    std::uint64_t whole = mantissa >> below;
    std::uint64_t fraction = mantissa & ((std::uint64_t{1} << below) - 1);
    for (int i = 0; i < decimals; ++i) {
        // Times 5 with a bit less below the point is times 10. Nothing is lost.
        fraction *= 5;
        --below;
        whole = whole * 10 + (fraction >> below);
        fraction &= (std::uint64_t{1} << below) - 1;
    }
    const std::uint64_t half = std::uint64_t{1} << (below - 1);
    if (fraction > half || (fraction == half && whole % 2 != 0)) {
        ++whole;
    }
    scaled = whole;
    return true;
}

char* PutFixed(char* to, double value, int precision) {
    std::uint64_t scaled = 0;
    if (ScaleExactly(value, precision, scaled)) {
        return PutScaled(to, scaled, precision);
    }
    return std::to_chars(to, to + kLongestNumberText, value, std::chars_format::fixed, precision)
        .ptr;
}

char* PutGeneral(char* to, double value, int precision) {
    constexpr int kUsualPrecision = 6;
    constexpr double kFirstWithExponent = 1e6;
    // From which on a number has so many decimals among its six digits: none, one, ...
    constexpr double kFirstWithDecimals[] = {1e5, 1e4, 1e3, 1e2, 10, 1, 0.1, 0.01, 0.001};
    if (precision == kUsualPrecision && value < kFirstWithExponent) {
        int decimals = 0;
        for (const double first : kFirstWithDecimals) {
            if (value >= first) {
                break;
            }
            ++decimals;
        }
        std::uint64_t scaled = 0;
        // One that is rounded up to the next power of ten has a zero more at its end, and at the
        // upper bound an exponent.
        if (ScaleExactly(value, decimals, scaled) &&
            (decimals > 0 || scaled < static_cast<std::uint64_t>(kFirstWithExponent))) {
            while (decimals > 0 && scaled % 10 == 0) {
                scaled /= 10;
                --decimals;
            }
            return PutScaled(to, scaled, decimals);
        }
    }
    return std::to_chars(to, to + kLongestNumberText, value, std::chars_format::general, precision)
        .ptr;
}

} // namespace HSL
