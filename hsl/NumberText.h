// Numbers as printf writes them in a locale whose decimal point is ".", without printf.
#pragma once

#include <cstdint>

namespace HSL {

// The most characters that the functions below write: a double with many decimals.
inline constexpr int kLongestNumberText = 400;
// The largest precision that they take.
inline constexpr int kLargestNumberPrecision = 40;

// Write the finite, not negative `value` as "%.*f" and as "%.*g" do, and return the end of the
// text.
char* PutFixed(char* to, double value, int precision);
char* PutGeneral(char* to, double value, int precision);

// |value| * 10^decimals, rounded to the nearest integer, a tie to the even one, exactly. Serves
// usual numbers alone, and answers false for others: below 0.001 or so, 10^9 and more, or with more
// than 9 decimals.
bool ScaleExactly(double value, int decimals, std::uint64_t& scaled);

} // namespace HSL
