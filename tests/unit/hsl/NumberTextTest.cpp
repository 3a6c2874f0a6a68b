#include "hsl/NumberText.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>

#include "tests/support/TestSeed.h"

namespace HSL {
namespace {

constexpr int kRounds = 200000;

std::string Fixed(double value, int precision) {
    char text[kLongestNumberText];
    return std::string(text, PutFixed(text, value, precision));
}

std::string General(double value, int precision) {
    char text[kLongestNumberText];
    return std::string(text, PutGeneral(text, value, precision));
}

template <std::size_t Size>
std::string Printf(const char (&format)[Size], int precision, double value) {
    char text[512];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    const int size = std::snprintf(text, sizeof text, format, precision, value);
#pragma GCC diagnostic pop
    return std::string(text, static_cast<std::size_t>(size));
}

// Numbers as programs have them and others: short decimals, exact ties and their neighbours,
// powers of ten and their neighbours, any bits.
class RandomDouble {
public:
    explicit RandomDouble(std::uint64_t seed) : mRandom(seed) {}

    int Below(int limit) { return static_cast<int>(mRandom() % static_cast<std::uint64_t>(limit)); }

    double Next() {
        switch (Below(5)) {
        case 0:
            return static_cast<double>(mRandom() >> Below(64)) / std::pow(10, Below(12));
        case 1:
            return Neighbour(static_cast<double>(mRandom() >> (20 + Below(44))) /
                             static_cast<double>(std::uint64_t{1} << Below(20)));
        case 2:
            return Neighbour((static_cast<double>(Below(2000000)) + 0.5) / std::pow(10, Below(12)));
        case 3:
            return Neighbour(std::pow(10, Below(40) - 20));
        default: {
            const std::uint64_t bits = mRandom() >> 1;
            double value = 0;
            std::memcpy(&value, &bits, sizeof value);
            return std::isfinite(value) ? value : 1;
        }
        }
    }

private:
    double Neighbour(double value) {
        switch (Below(3)) {
        case 0:
            return std::nextafter(value, 0);
        case 1:
            return std::nextafter(value, 1e300);
        default:
            return value;
        }
    }

    std::mt19937_64 mRandom;
};

TEST(NumberTextTest, RandomNumbersAreAsTheFormatterPrintsThem) {
    const std::uint64_t seed = TestSeed();
    SCOPED_TRACE(DescribeSeed(seed));
    RandomDouble random(seed);
    int exact = 0;
    for (int i = 0; i < kRounds; ++i) {
        const double value = random.Next();
        const int precision = random.Below(2) == 0 ? 6 : random.Below(kLargestNumberPrecision + 1);
        ASSERT_EQ(Fixed(value, precision), Printf("%.*f", precision, value)) << precision;
        ASSERT_EQ(General(value, precision), Printf("%.*g", precision, value)) << precision;
        std::uint64_t scaled = 0;
        exact += ScaleExactly(value, 6, scaled) ? 1 : 0;
    }
    // Both the short way and the other one were gone.
    EXPECT_GT(exact, kRounds / 10);
    EXPECT_LT(exact, kRounds - kRounds / 10);
}

TEST(NumberTextTest, ScalesExactlyWithTiesToEven) {
    const auto scaled = [](double value, int decimals) {
        std::uint64_t result = 0;
        EXPECT_TRUE(ScaleExactly(value, decimals, result)) << value;
        return result;
    };
    EXPECT_EQ(scaled(0.0, 6), 0u);
    EXPECT_EQ(scaled(-0.0, 9), 0u);
    EXPECT_EQ(scaled(0.5, 0), 0u);
    EXPECT_EQ(scaled(1.5, 0), 2u);
    EXPECT_EQ(scaled(2.5, 0), 2u);
    EXPECT_EQ(scaled(std::nextafter(2.5, 3), 0), 3u);
    EXPECT_EQ(scaled(0.125, 2), 12u);
    EXPECT_EQ(scaled(0.375, 2), 38u);
    EXPECT_EQ(scaled(-0.375, 2), 38u);
    EXPECT_EQ(scaled(0.1, 9), 100000000u);
    EXPECT_EQ(scaled(999999999.5, 9), 999999999500000000u);
    EXPECT_EQ(scaled(1073741823.75, 0), 1073741824u);
}

TEST(NumberTextTest, DeclinesWhatItCannotScale) {
    std::uint64_t scaled = 7;
    for (const double value : {1e-4, 1e-300, 5e-324, 1073741824.0, 1e300}) {
        EXPECT_FALSE(ScaleExactly(value, 6, scaled)) << value;
    }
    EXPECT_FALSE(ScaleExactly(1.0, 10, scaled));
    EXPECT_FALSE(ScaleExactly(0.0, 10, scaled));
    EXPECT_FALSE(ScaleExactly(HUGE_VAL, 0, scaled));
    EXPECT_FALSE(ScaleExactly(std::nan(""), 0, scaled));
    EXPECT_EQ(scaled, 7u);
}

TEST(NumberTextTest, TheLongestTextFits) {
    EXPECT_LE(Fixed(1.7976931348623157e308, kLargestNumberPrecision).size(),
              static_cast<std::size_t>(kLongestNumberText));
    EXPECT_EQ(General(999999.5, 6), "1e+06");
    EXPECT_EQ(General(999999.4, 6), "999999");
    EXPECT_EQ(General(9.9999995, 6), "10");
}

} // namespace
} // namespace HSL
