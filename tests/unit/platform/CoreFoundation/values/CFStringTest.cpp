#include "tests/support/TestSeed.h"
#include "tests/unit/platform/CoreFoundation/values/CFTestValues.h"

#include <CoreFoundation/CFString.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <limits>
#include <random>

namespace {

const CFStringRef kBeforeMain = CFSTR("made before main");

CFOwned<CFStringRef> Encoded(const std::string& bytes, CFStringEncoding encoding) {
    return CFOwned<CFStringRef>(
        CFStringCreateWithBytes(nullptr, reinterpret_cast<const UInt8*>(bytes.data()),
                                static_cast<CFIndex>(bytes.size()), encoding, false));
}

std::string AsCString(CFStringRef string, CFStringEncoding encoding, CFIndex room = 256) {
    std::vector<char> buffer(static_cast<std::size_t>(room), 'x');
    return CFStringGetCString(string, buffer.data(), room, encoding) ? buffer.data() : "<failed>";
}

TEST(CFString, KeepsOneConstantPerText) {
    EXPECT_EQ(Read(kBeforeMain), "made before main");
    EXPECT_EQ(kBeforeMain, CFSTR("made before main"));
    EXPECT_NE(CFSTR("a"), CFSTR("b"));
    EXPECT_EQ(Read(CFSTR("")), "");
}

TEST(CFString, CopiesTheTextOfAConstant) {
    char literal[] = "in a module";
    const CFStringRef constant = __CFStringMakeConstantString(literal);
    literal[0] = 'X'; // as good as unmapped
    EXPECT_EQ(Read(constant), "in a module");
    EXPECT_EQ(constant, CFSTR("in a module"));
    EXPECT_EQ(__CFStringMakeConstantString(nullptr), nullptr);
}

TEST(CFString, RefusesBytesThatAreNotInTheEncoding) {
    EXPECT_FALSE(Encoded("\x80", kCFStringEncodingASCII));
    for (const char* malformed :
         {"\x80", "\xC0\x80", "\xC3", "\xE2\x82", "\xED\xA0\x80", "\xF4\x90\x80\x80",
          "\xF5\x80\x80\x80", "\xE0\x80\x80", "a\xFF"}) {
        EXPECT_FALSE(Encoded(malformed, kCFStringEncodingUTF8)) << malformed;
    }
    EXPECT_FALSE(Encoded("a", 0x0100));
    EXPECT_EQ(CFStringCreateWithCString(nullptr, nullptr, kCFStringEncodingASCII), nullptr);
    EXPECT_EQ(CFStringCreateWithBytes(nullptr, nullptr, 1, kCFStringEncodingASCII, false), nullptr);
    EXPECT_EQ(CFStringCreateWithBytes(nullptr, nullptr, -1, kCFStringEncodingASCII, false),
              nullptr);
}

TEST(CFString, TakesEveryMacRomanByteThereAndBack) {
    std::string all;
    for (int byte = 1; byte < 256; ++byte) {
        all += static_cast<char>(byte);
    }
    const auto string = Encoded(all, kCFStringEncodingMacRoman);
    ASSERT_TRUE(string);
    EXPECT_EQ(CFStringGetLength(string.Get()), 255);
    EXPECT_EQ(AsCString(string.Get(), kCFStringEncodingMacRoman), all);
    EXPECT_EQ(Read(Encoded("\x8A\xDB\xA5", kCFStringEncodingMacRoman).Get()), "ä€•");
}

TEST(CFString, CountsUTF16Units) {
    const auto string = Text("a€😀");
    EXPECT_EQ(CFStringGetLength(string.Get()), 4);
    EXPECT_EQ(CFStringGetCharacterAtIndex(string.Get(), 1), 0x20AC);
    EXPECT_EQ(CFStringGetCharacterAtIndex(string.Get(), 2), 0xD83D);
    EXPECT_EQ(CFStringGetCharacterAtIndex(string.Get(), 4), 0);
    EXPECT_EQ(CFStringGetCharacterAtIndex(string.Get(), -1), 0);
    EXPECT_EQ(AsCString(string.Get(), kCFStringEncodingUTF8), "a€😀");
}

TEST(CFString, FailsWhenACStringDoesNotFitOrCannotBeRepresented) {
    EXPECT_EQ(AsCString(CFSTR("1234"), kCFStringEncodingASCII, 5), "1234");
    EXPECT_EQ(AsCString(CFSTR("1234"), kCFStringEncodingASCII, 4), "<failed>");
    EXPECT_EQ(AsCString(CFSTR(""), kCFStringEncodingASCII, 1), "");
    EXPECT_EQ(AsCString(CFSTR("ä"), kCFStringEncodingUTF8, 3), "ä");
    EXPECT_EQ(AsCString(CFSTR("ä"), kCFStringEncodingUTF8, 2), "<failed>");
    EXPECT_EQ(AsCString(CFSTR("ä"), kCFStringEncodingASCII), "<failed>");
    EXPECT_EQ(AsCString(CFSTR("й"), kCFStringEncodingMacRoman), "<failed>");
    EXPECT_EQ(AsCString(CFSTR("😀"), kCFStringEncodingMacRoman), "<failed>");
    EXPECT_EQ(AsCString(CFSTR("a"), 0x0100), "<failed>");
    char untouched = 'x';
    EXPECT_FALSE(CFStringGetCString(CFSTR(""), &untouched, 0, kCFStringEncodingASCII));
    EXPECT_EQ(untouched, 'x');
    EXPECT_FALSE(CFStringGetCString(CFSTR("a"), nullptr, 8, kCFStringEncodingASCII));
    char guarded[4] = {'x', 'x', 'x', '!'};
    EXPECT_FALSE(CFStringGetCString(CFSTR("abcdef"), guarded, 3, kCFStringEncodingASCII));
    EXPECT_EQ(guarded[3], '!');
}

TEST(CFString, CannotWriteHalfACharacter) {
    const CFOwned<CFStringRef> string(
        CFStringCreateWithFormat(nullptr, nullptr, CFSTR("a%C"), 0xD83D));
    EXPECT_EQ(AsCString(string.Get(), kCFStringEncodingUTF8), "<failed>");
    EXPECT_EQ(CFStringGetLength(string.Get()), 2);
    EXPECT_EQ(CFStringGetCharacterAtIndex(string.Get(), 1), 0xD83D);
}

TEST(CFString, WritesBytesAsFarAsTheyGo) {
    UInt8 buffer[16] = {};
    CFIndex used = 0;
    const CFStringRef text = CFSTR("aä€b");
    EXPECT_EQ(CFStringGetBytes(text, CFRangeMake(0, 4), kCFStringEncodingUTF8, 0, false, buffer, 5,
                               &used),
              2); // the third character does not fit
    EXPECT_EQ(used, 3);
    EXPECT_EQ(CFStringGetBytes(text, CFRangeMake(0, 4), kCFStringEncodingASCII, 0, false, buffer,
                               16, &used),
              1);
    EXPECT_EQ(CFStringGetBytes(text, CFRangeMake(0, 4), kCFStringEncodingASCII, '?', false, buffer,
                               16, &used),
              4);
    EXPECT_EQ(std::string(buffer, buffer + used), "a??b");
    EXPECT_EQ(CFStringGetBytes(text, CFRangeMake(0, 4), kCFStringEncodingUTF8, 0, false, nullptr, 0,
                               &used),
              4);
    EXPECT_EQ(used, 7);
    EXPECT_EQ(CFStringGetBytes(text, CFRangeMake(3, 2), kCFStringEncodingUTF8, 0, false, buffer, 16,
                               &used),
              0);
    EXPECT_EQ(used, 0);
}

TEST(CFString, Compares) {
    EXPECT_EQ(CFStringCompare(Text("HUI").Get(), CFSTR("HUI"), 0), kCFCompareEqualTo);
    EXPECT_NE(CFStringCompare(CFSTR("hui"), CFSTR("HUI"), 0), kCFCompareEqualTo);
    EXPECT_NE(CFStringCompare(CFSTR("HUI "), CFSTR("HUI"), 0), kCFCompareEqualTo);
    EXPECT_EQ(CFStringCompare(CFSTR("a"), CFSTR("b"), 0), kCFCompareLessThan);
    EXPECT_EQ(CFStringCompare(CFSTR("ab"), CFSTR("a"), 0), kCFCompareGreaterThan);
}

TEST(CFString, ComparesWhatIsNotAStringAsBeforeAndNeverEqual) {
    const auto* number = static_cast<CFStringRef>(CFTypeRef{kCFBooleanTrue});
    EXPECT_EQ(CFStringCompare(number, CFSTR(""), 0), kCFCompareLessThan);
    EXPECT_EQ(CFStringCompare(CFSTR(""), number, 0), kCFCompareGreaterThan);
    EXPECT_EQ(CFStringCompare(nullptr, CFSTR(""), 0), kCFCompareLessThan);
    EXPECT_EQ(CFStringCompare(number, number, 0), kCFCompareEqualTo);
    EXPECT_NE(CFStringCompare(number, nullptr, 0), kCFCompareEqualTo);
}

TEST(CFString, ReadsIntegersUpToTheFirstOtherCharacter) {
    const auto value = [](const char* text) { return CFStringGetIntValue(Text(text).Get()); };
    EXPECT_EQ(value("42"), 42);
    EXPECT_EQ(value(" \t\r\n 42"), 42);
    EXPECT_EQ(value("-7"), -7);
    EXPECT_EQ(value("+7"), 7);
    EXPECT_EQ(value("12abc"), 12);
    EXPECT_EQ(value("1 2"), 1);
    EXPECT_EQ(value(""), 0);
    EXPECT_EQ(value("abc"), 0);
    EXPECT_EQ(value("- 1"), 0);
    EXPECT_EQ(value("--1"), 0);
    EXPECT_EQ(value("0x10"), 0);
    EXPECT_EQ(value("007"), 7);
    EXPECT_EQ(value("2147483647"), 2147483647);
    EXPECT_EQ(value("2147483648"), 2147483647);
    EXPECT_EQ(value("-2147483648"), std::numeric_limits<SInt32>::min());
    EXPECT_EQ(value("-2147483649"), std::numeric_limits<SInt32>::min());
    EXPECT_EQ(value("99999999999999999999999999"), 2147483647);
    EXPECT_EQ(value("٣"), 0);
}

TEST(CFString, Separates) {
    const auto parts = [](CFStringRef text, CFStringRef separator) {
        const CFOwned<CFArrayRef> array(
            CFStringCreateArrayBySeparatingStrings(nullptr, text, separator));
        std::vector<std::string> result;
        for (CFIndex i = 0; i < CFArrayGetCount(array.Get()); ++i) {
            result.push_back(Read(CFArrayGetValueAtIndex(array.Get(), i)));
        }
        return result;
    };
    using Parts = std::vector<std::string>;
    EXPECT_EQ(parts(CFSTR("5-8"), CFSTR("-")), (Parts{"5", "8"}));
    EXPECT_EQ(parts(CFSTR("12"), CFSTR("-")), (Parts{"12"}));
    EXPECT_EQ(parts(CFSTR("-a--"), CFSTR("-")), (Parts{"", "a", "", ""}));
    EXPECT_EQ(parts(CFSTR(""), CFSTR("-")), (Parts{""}));
    EXPECT_EQ(parts(CFSTR("abc"), CFSTR("")), (Parts{"abc"}));
    EXPECT_EQ(parts(CFSTR("a::b"), CFSTR("::")), (Parts{"a", "b"}));
}

TEST(CFString, CopiesByRetaining) {
    const auto string = Text("text");
    const CFOwned<CFStringRef> copy(CFStringCreateCopy(nullptr, string.Get()));
    EXPECT_EQ(copy.Get(), string.Get());
    EXPECT_EQ(CFGetRetainCount(string.Get()), 2);
}

TEST(CFString, KeepsRandomTextThroughUTF8) {
    const auto seed = TestSeed();
    SCOPED_TRACE(DescribeSeed(seed));
    std::mt19937_64 random(seed);
    for (int round = 0; round < 2000; ++round) {
        std::u16string text;
        std::string utf8;
        for (auto length = random() % 20; length > 0; --length) {
            const auto scalar = static_cast<char32_t>(random() % 0x110000);
            const auto tail = [scalar](unsigned shift) {
                return static_cast<char>(0x80 | ((scalar >> shift) & 0x3F));
            };
            if (scalar >= 0x10000) {
                text += static_cast<char16_t>(0xD800 + ((scalar - 0x10000) >> 10));
                text += static_cast<char16_t>(0xDC00 + (scalar & 0x3FF));
                utf8 += {static_cast<char>(0xF0 | (scalar >> 18)), tail(12), tail(6), tail(0)};
            } else if (scalar >= 0x800 && (scalar < 0xD800 || scalar > 0xDFFF)) {
                text += static_cast<char16_t>(scalar);
                utf8 += {static_cast<char>(0xE0 | (scalar >> 12)), tail(6), tail(0)};
            }
        }
        const auto string = Text(utf8);
        ASSERT_EQ(CFStringGetLength(string.Get()), static_cast<CFIndex>(text.size()));
        for (std::size_t i = 0; i < text.size(); ++i) {
            ASSERT_EQ(CFStringGetCharacterAtIndex(string.Get(), static_cast<CFIndex>(i)), text[i]);
        }
        ASSERT_EQ(Read(string.Get()), utf8);
        const auto back = Text(Read(string.Get()));
        ASSERT_TRUE(CFEqual(string.Get(), back.Get()));
        ASSERT_EQ(CFHash(string.Get()), CFHash(back.Get()));
    }
}

} // namespace
