#include "hsl/format/Conversion.h"

#include "tests/support/TemporaryDirectory.h"
#include "tests/support/TestSeed.h"

#include <gtest/gtest.h>

#include <bit>
#include <clocale>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <random>
#include <string>

namespace HSL {
namespace {

constexpr int kRounds = 60000;

std::string Converted(const std::string& conversion, double value) {
    CTextBuffer out;
    CConversion(conversion).Append(out, {eDouble, 0, value});
    return std::string(out.View());
}

std::string Printf(const std::string& conversion, double value) {
    char text[512];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    const int size = std::snprintf(text, sizeof text, conversion.c_str(), value);
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

TEST(ConversionTest, RandomNumbersAreAsTheFormatterPrintsThem) {
    const std::uint64_t seed = TestSeed();
    SCOPED_TRACE(DescribeSeed(seed));
    RandomDouble random(seed);
    for (int i = 0; i < kRounds; ++i) {
        const double value = random.Next() * (random.Below(2) == 0 ? 1 : -1);
        const std::string precision =
            random.Below(2) == 0 ? "" : "." + std::to_string(random.Below(41));
        for (const char character : {'e', 'f', 'g'}) {
            const std::string conversion = "%" + precision + character;
            ASSERT_EQ(Converted(conversion, value), Printf(conversion, value)) << conversion;
        }
    }
}

TEST(ConversionTest, NumbersAreRoundedAsTheFormatterDoes) {
    EXPECT_EQ(Converted("%g", 999999.5), "1e+06");
    EXPECT_EQ(Converted("%g", 999999.4), "999999");
    EXPECT_EQ(Converted("%g", 9.9999995), "10");
    EXPECT_EQ(Converted("%.0f", 0.5), "0") << "a tie goes to the even digit";
    EXPECT_EQ(Converted("%.0f", 1.5), "2");
    EXPECT_EQ(Converted("%.2f", 0.125), "0.12");
    EXPECT_EQ(Converted("%.2f", -0.375), "-0.38");
    EXPECT_EQ(Converted("%f", -0.0), "-0.000000");
    EXPECT_EQ(Converted("%f", HUGE_VAL), "inf");
    EXPECT_EQ(Converted("%e", -HUGE_VAL), "-inf");
    EXPECT_EQ(Converted("%g", std::nan("")), "nan");
}

TEST(ConversionTest, ANumberLongerThanUsualIsWhole) {
    const double largest = 1.7976931348623157e308;
    EXPECT_EQ(Converted("%f", largest), Printf("%f", largest));
    EXPECT_EQ(Converted("%.100e", largest / 3), Printf("%.100e", largest / 3));
    EXPECT_EQ(Converted("%.150f", 0.1), Printf("%.150f", 0.1));
}

// A locale of which only the decimal point differs, compiled into a folder of its own.
class CommaLocale {
public:
    CommaLocale() {
        const std::string source = mFolder.Path() + "/source";
        std::ofstream(source) << "LC_NUMERIC\ndecimal_point \",\"\nthousands_sep \"\"\n"
                                 "grouping -1\nEND LC_NUMERIC\n";
        const std::string order =
            std::endian::native == std::endian::big ? "--big-endian" : "--little-endian";
        // It warns of the categories that are not there, with a status that says so.
        const std::string command = "localedef " + order + " -c -i " + source + " -f UTF-8 " +
                                    mFolder.Path() + "/comma >/dev/null 2>&1";
        [[maybe_unused]] const int status = std::system(command.c_str());
        ::setenv("LOCPATH", mFolder.Path().c_str(), 1);
        mIsSet = std::setlocale(LC_NUMERIC, "comma") != nullptr;
    }
    ~CommaLocale() {
        std::setlocale(LC_NUMERIC, "C");
        ::unsetenv("LOCPATH");
    }
    bool IsSet() const { return mIsSet; }

private:
    TemporaryDirectory mFolder;
    bool mIsSet = false;
};

TEST(ConversionTest, TheDecimalPointIsThatOfTheLocale) {
    const CommaLocale locale;
    if (!locale.IsSet()) {
        GTEST_SKIP() << "localedef, or the charmaps of the package locales, are not there";
    }
    for (const char* const conversion : {"%f", "%e", "%g", "%.2f", "%8.3g"}) {
        EXPECT_EQ(Converted(conversion, 1.5), Printf(conversion, 1.5)) << conversion;
    }
    EXPECT_EQ(Converted("%g", 1.5), "1,5");
    EXPECT_EQ(Converted("%g", 15), "15");
}

} // namespace
} // namespace HSL
