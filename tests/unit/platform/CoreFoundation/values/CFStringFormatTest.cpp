#include "tests/unit/platform/CoreFoundation/values/CFTestValues.h"

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstddef>
#include <cstdint>

namespace {

std::string Format(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const auto text = Text(format);
    const std::string result =
        ReadOwned(CFStringCreateWithFormatAndArguments(nullptr, nullptr, text.Get(), arguments));
    va_end(arguments);
    return result;
}

TEST(CFStringFormat, FormatsNumbers) {
    EXPECT_EQ(Format("Quorvel Virtual Source %d", 32), "Quorvel Virtual Source 32");
    EXPECT_EQ(Format("%d %i %u", -1, 2, 4294967295U), "-1 2 4294967295");
    EXPECT_EQ(Format("%ld %lu", -5L, 6UL), "-5 6");
    EXPECT_EQ(Format("%lld %llu %qd", -9000000000LL, 18446744073709551615ULL, 1LL),
              "-9000000000 18446744073709551615 1");
    EXPECT_EQ(Format("%hhd %hd %hhu", 300, 70000, 257), "44 4464 1");
    EXPECT_EQ(Format("%zu %td %jd", std::size_t{7}, std::ptrdiff_t{-8}, std::intmax_t{9}),
              "7 -8 9");
    EXPECT_EQ(Format("%x %X %#x %o", 255, 255, 255, 8), "ff FF 0xff 10");
    EXPECT_EQ(Format("%5d|%-5d|%05d|%+d|% d", 1, 2, 3, 4, 5), "    1|2    |00003|+4| 5");
    EXPECT_EQ(Format("%.3d|%*d|%-*d|", 7, 4, 8, 4, 9), "007|   8|9   |");
    EXPECT_EQ(Format("%f %.2f %e %g", 1.5, 2.345, 1500.0, 0.0001),
              "1.500000 2.35 1.500000e+03 0.0001");
    EXPECT_EQ(Format("%Lf", 2.5L), "2.500000");
}

TEST(CFStringFormat, FormatsTextAndObjects) {
    EXPECT_EQ(Format("%s|%5s|%-5s|%.2s|%c%%", "abc", "ab", "cd", "xyz", 'q'),
              "abc|   ab|cd   |xy|q%");
    EXPECT_EQ(Format("%@", CFSTR("text")), "text");
    EXPECT_EQ(Format("%6@|%.2@", CFSTR("text"), CFSTR("text")), "  text|te");
    EXPECT_EQ(Format("%@", static_cast<CFTypeRef>(nullptr)), "(null)");
    EXPECT_EQ(Format("%s", static_cast<const char*>(nullptr)), "(null)");
    EXPECT_EQ(Format("%@ %@ %@", Integer(5).Get(), Real(2.5).Get(), kCFBooleanTrue), "5 2.5 true");
    EXPECT_EQ(Format("%s %s", "ä", "\x8A"), "ä ä"); // UTF-8, and what is not as MacRoman
    EXPECT_EQ(Format("%C", 0x20AC), "€");
    EXPECT_EQ(Format("ä %d", 1), "ä 1");
    const auto dictionary = Dictionary();
    const auto array = Array();
    CFArrayAppendValue(array.Get(), CFSTR("x"));
    CFArrayAppendValue(array.Get(), nullptr);
    CFDictionarySetValue(dictionary.Get(), CFSTR("b"), array.Get());
    CFDictionarySetValue(dictionary.Get(), CFSTR("a"), Bytes("\x01\xFF").Get());
    EXPECT_EQ(Format("%@", dictionary.Get()), "{a = <01ff>, b = (x, (null))}");
}

TEST(CFStringFormat, ReadsNoFurtherThanThePrecision) {
    const char bytes[3] = {'a', 'b', 'c'};
    EXPECT_EQ(Format("%.3s", bytes), "abc");
}

TEST(CFStringFormat, RefusesWhatItDoesNotKnow) {
    for (const char* format : {"%", "%5", "%n", "%1$d", "%y", "%hs", "%Ld", "%lln", "%99999999d",
                               "%.99999999f", "%hhhd"}) {
        EXPECT_EQ(Format(format, 1, 2), "<not a string>") << format;
    }
}

} // namespace
