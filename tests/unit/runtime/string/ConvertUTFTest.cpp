#include "runtime/string/ConvertUTF.h"

#include "tests/support/SlowBuild.h"
#include "tests/support/TestSeed.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <numeric>
#include <random>
#include <string>
#include <vector>

using namespace NYPL;

namespace {

template <typename Target>
struct Converted {
    ConversionResult result;
    std::vector<Target> output;
    std::size_t consumed;

    bool operator==(const Converted&) const = default;
};

template <typename Target>
void PrintTo(const Converted<Target>& converted, std::ostream* stream) {
    *stream << "result " << converted.result << ", consumed " << converted.consumed << ", output";
    for (Target unit : converted.output) {
        *stream << ' ' << std::hex << static_cast<unsigned long>(unit) << std::dec;
    }
}

// Runs a converter with exactly `room` units of target, which lie in memory of just that size so
// that the address sanitizer sees a unit too many.
template <typename Source, typename Target>
Converted<Target> Convert(ConversionResult (*convert)(const Source**, const Source*, Target**,
                                                      Target*, ConversionFlags),
                          const std::vector<Source>& text, ConversionFlags flags,
                          std::size_t room = 64) {
    std::vector<Target> target(room);
    const Source* source = text.data();
    Target* end = target.data();
    const ConversionResult result =
        convert(&source, text.data() + text.size(), &end, target.data() + target.size(), flags);
    target.resize(static_cast<std::size_t>(end - target.data()));
    return {result, target, static_cast<std::size_t>(source - text.data())};
}

constexpr ConversionFlags kBothFlags[] = {strictConversion, lenientConversion};

constexpr bool IsSurrogate(UTF32 value) {
    return value >= 0xD800 && value <= 0xDFFF;
}

// The three encodings of one value, from the definition of each: bits distributed arithmetically,
// surrogates encoded as if they were characters.
std::vector<UTF8> AsUTF8(UTF32 c) {
    if (c < 0x80) {
        return {static_cast<UTF8>(c)};
    }
    if (c < 0x800) {
        return {static_cast<UTF8>(0xC0 + c / 64), static_cast<UTF8>(0x80 + c % 64)};
    }
    if (c < 0x10000) {
        return {static_cast<UTF8>(0xE0 + c / 4096), static_cast<UTF8>(0x80 + c / 64 % 64),
                static_cast<UTF8>(0x80 + c % 64)};
    }
    return {static_cast<UTF8>(0xF0 + c / 262144), static_cast<UTF8>(0x80 + c / 4096 % 64),
            static_cast<UTF8>(0x80 + c / 64 % 64), static_cast<UTF8>(0x80 + c % 64)};
}

std::vector<UTF16> AsUTF16(UTF32 c) {
    if (c < 0x10000) {
        return {static_cast<UTF16>(c)};
    }
    return {static_cast<UTF16>(0xD800 + (c - 0x10000) / 1024),
            static_cast<UTF16>(0xDC00 + (c - 0x10000) % 1024)};
}

template <typename Target>
Converted<Target> Complete(std::vector<Target> output, std::size_t consumed) {
    return {conversionOK, std::move(output), consumed};
}

template <typename Target>
Converted<Target> Stopped(ConversionResult result) {
    return {result, {}, 0};
}

// All characters there are, one after another, in the three encodings.
struct AllCharacters {
    std::vector<UTF8> utf8;
    std::vector<UTF16> utf16;
    std::vector<UTF32> utf32;

    AllCharacters() {
        for (UTF32 c = 0; c <= 0x10FFFF; ++c) {
            if (!IsSurrogate(c)) {
                const std::vector<UTF8> bytes = AsUTF8(c);
                const std::vector<UTF16> units = AsUTF16(c);
                utf8.insert(utf8.end(), bytes.begin(), bytes.end());
                utf16.insert(utf16.end(), units.begin(), units.end());
                utf32.push_back(c);
            }
        }
    }
};

template <typename Source, typename Target>
void ExpectEveryCharacterConverted(ConversionResult (*convert)(const Source**, const Source*,
                                                               Target**, Target*, ConversionFlags),
                                   const std::vector<Source>& source,
                                   const std::vector<Target>& target) {
    for (ConversionFlags flags : kBothFlags) {
        const Converted<Target> converted = Convert(convert, source, flags, target.size());
        EXPECT_EQ(converted.result, conversionOK);
        EXPECT_EQ(converted.consumed, source.size());
        // Not EXPECT_EQ, which would print a million characters.
        EXPECT_TRUE(converted.output == target);
    }
}

TEST(ConvertUTFTest, EveryCharacterPassesThroughAllSixConversionsUnderBothFlags) {
    const AllCharacters all;
    ASSERT_EQ(all.utf32.size(), 0x110000U - 0x800U);
    ExpectEveryCharacterConverted(ConvertUTF32toUTF16, all.utf32, all.utf16);
    ExpectEveryCharacterConverted(ConvertUTF16toUTF32, all.utf16, all.utf32);
    ExpectEveryCharacterConverted(ConvertUTF16toUTF8, all.utf16, all.utf8);
    ExpectEveryCharacterConverted(ConvertUTF8toUTF16, all.utf8, all.utf16);
    ExpectEveryCharacterConverted(ConvertUTF32toUTF8, all.utf32, all.utf8);
    ExpectEveryCharacterConverted(ConvertUTF8toUTF32, all.utf8, all.utf32);
}

TEST(ConvertUTFTest, EverySurrogateAloneStopsAStrictConversionAndFollowsTheLenientRules) {
    for (UTF32 c = 0xD800; c <= 0xDFFF; ++c) {
        const std::vector<UTF32> utf32 = {c};
        const std::vector<UTF16> utf16 = {static_cast<UTF16>(c)};
        const std::vector<UTF8> utf8 = AsUTF8(c);

        ASSERT_EQ(Convert(ConvertUTF32toUTF16, utf32, strictConversion),
                  Stopped<UTF16>(sourceIllegal));
        ASSERT_EQ(Convert(ConvertUTF32toUTF8, utf32, strictConversion),
                  Stopped<UTF8>(sourceIllegal));
        ASSERT_EQ(Convert(ConvertUTF32toUTF16, utf32, lenientConversion),
                  Complete<UTF16>({0xFFFD}, 1));
        ASSERT_EQ(Convert(ConvertUTF32toUTF8, utf32, lenientConversion), Complete(utf8, 1));

        // A high surrogate at the end may yet be followed by its partner.
        if (c < 0xDC00) {
            for (ConversionFlags flags : kBothFlags) {
                ASSERT_EQ(Convert(ConvertUTF16toUTF32, utf16, flags),
                          Stopped<UTF32>(sourceExhausted));
                ASSERT_EQ(Convert(ConvertUTF16toUTF8, utf16, flags),
                          Stopped<UTF8>(sourceExhausted));
            }
        } else {
            ASSERT_EQ(Convert(ConvertUTF16toUTF32, utf16, strictConversion),
                      Stopped<UTF32>(sourceIllegal));
            ASSERT_EQ(Convert(ConvertUTF16toUTF8, utf16, strictConversion),
                      Stopped<UTF8>(sourceIllegal));
            ASSERT_EQ(Convert(ConvertUTF16toUTF32, utf16, lenientConversion), Complete(utf32, 1));
            ASSERT_EQ(Convert(ConvertUTF16toUTF8, utf16, lenientConversion), Complete(utf8, 1));
        }

        for (ConversionFlags flags : kBothFlags) {
            ASSERT_EQ(Convert(ConvertUTF8toUTF16, utf8, flags), Stopped<UTF16>(sourceIllegal));
            ASSERT_EQ(Convert(ConvertUTF8toUTF32, utf8, flags), Stopped<UTF32>(sourceIllegal));
        }
    }
}

TEST(ConvertUTFTest, EveryPairOfUnitsAtTheSurrogateBordersFollowsTheRules) {
    const UTF16 borders[] = {0x0000, 0x0041, 0xD7FE, 0xD7FF, 0xD800, 0xD801, 0xDBFE, 0xDBFF,
                             0xDC00, 0xDC01, 0xDFFE, 0xDFFF, 0xE000, 0xE001, 0xFFFE, 0xFFFF};
    const auto isHigh = [](UTF16 unit) { return unit >= 0xD800 && unit < 0xDC00; };
    const auto isLow = [](UTF16 unit) { return unit >= 0xDC00 && unit < 0xE000; };
    for (UTF16 first : borders) {
        for (UTF16 second : borders) {
            for (ConversionFlags flags : kBothFlags) {
                // What the rules give for the two units, one at a time.
                Converted<UTF32> expected{conversionOK, {}, 0};
                if (isHigh(first) && isLow(second)) {
                    expected = {conversionOK,
                                {0x10000U + (first - 0xD800U) * 0x400U + (second - 0xDC00U)},
                                2};
                } else if (flags == strictConversion && (isHigh(first) || isLow(first))) {
                    expected.result = sourceIllegal;
                } else {
                    expected.output.push_back(first);
                    expected.consumed = 1;
                    if (isHigh(second)) {
                        expected.result = sourceExhausted;
                    } else if (flags == strictConversion && isLow(second)) {
                        expected.result = sourceIllegal;
                    } else {
                        expected.output.push_back(second);
                        expected.consumed = 2;
                    }
                }
                SCOPED_TRACE(::testing::Message() << std::hex << first << ' ' << second);
                ASSERT_EQ(Convert(ConvertUTF16toUTF32, {first, second}, flags), expected);

                Converted<UTF8> expected8{expected.result, {}, expected.consumed};
                for (UTF32 c : expected.output) {
                    for (UTF8 byte : AsUTF8(c)) {
                        expected8.output.push_back(byte);
                    }
                }
                ASSERT_EQ(Convert(ConvertUTF16toUTF8, {first, second}, flags), expected8);
            }
        }
    }
}

// What the first bytes of a text are, from the table of well-formed byte sequences: the length of
// the character, 0 for an illegal one, -1 for one whose lead byte asks for more than there is.
int Classify(const std::vector<UTF8>& text) {
    struct Row {
        UTF8 leadFirst, leadLast, secondFirst, secondLast;
        int length;
    };
    static constexpr Row kWellFormed[] = {
        {0xC2, 0xDF, 0x80, 0xBF, 2}, {0xE0, 0xE0, 0xA0, 0xBF, 3}, {0xE1, 0xEC, 0x80, 0xBF, 3},
        {0xED, 0xED, 0x80, 0x9F, 3}, {0xEE, 0xEF, 0x80, 0xBF, 3}, {0xF0, 0xF0, 0x90, 0xBF, 4},
        {0xF1, 0xF3, 0x80, 0xBF, 4}, {0xF4, 0xF4, 0x80, 0x8F, 4},
    };
    const UTF8 lead = text[0];
    if (lead < 0x80) {
        return 1;
    }
    // The length that the lead byte asks for is looked at before anything else.
    int asked = 1;
    for (int limit : {0xC0, 0xE0, 0xF0, 0xF8, 0xFC}) {
        asked += lead >= limit ? 1 : 0;
    }
    if (static_cast<int>(text.size()) < asked) {
        return -1;
    }
    for (const Row& row : kWellFormed) {
        if (lead >= row.leadFirst && lead <= row.leadLast && text[1] >= row.secondFirst &&
            text[1] <= row.secondLast) {
            for (int i = 2; i < row.length; ++i) {
                if (text[static_cast<std::size_t>(i)] < 0x80 ||
                    text[static_cast<std::size_t>(i)] > 0xBF) {
                    return 0;
                }
            }
            return row.length;
        }
    }
    return 0;
}

void CheckPrefix(const std::vector<UTF8>& text) {
    const int length = Classify(text);
    const bool legal = length > 0;
    ASSERT_EQ(isLegalUTF8Sequence(text.data(), text.data() + text.size()), legal);

    UTF32 buffer[4];
    const UTF8* source = text.data();
    UTF32* target = buffer;
    const ConversionResult result = ConvertUTF8toUTF32(&source, text.data() + text.size(), &target,
                                                       buffer + 1, strictConversion);
    if (!legal) {
        ASSERT_EQ(result, length == 0 ? sourceIllegal : sourceExhausted);
        ASSERT_EQ(source, text.data());
        ASSERT_EQ(target, buffer);
    } else {
        ASSERT_GE(source - text.data(), length);
        ASSERT_EQ(target, buffer + 1);
    }

    UTF16 units[2];
    source = text.data();
    UTF16* unit = units;
    const ConversionResult result16 = ConvertUTF8toUTF16(
        &source, text.data() + (legal ? static_cast<std::size_t>(length) : text.size()), &unit,
        units + 2, lenientConversion);
    ASSERT_EQ(result16, legal ? conversionOK : length == 0 ? sourceIllegal : sourceExhausted);
    ASSERT_EQ(source - text.data(), legal ? length : 0);
}

// All values, or those at the borders of what may follow where all take minutes.
std::vector<UTF8> ThirdBytes() {
    if (TestSupport::kIsSlowBuild) {
        return {0x00, 0x7F, 0x80, 0x8F, 0x90, 0x9F, 0xA0, 0xBF, 0xC0, 0xFF};
    }
    std::vector<UTF8> all(256);
    std::iota(all.begin(), all.end(), UTF8{0});
    return all;
}

TEST(ConvertUTFTest, EveryOneTwoAndThreeBytePrefixIsLegalIllegalOrExhaustedByTheTable) {
    for (int a = 0; a < 256; ++a) {
        ASSERT_NO_FATAL_FAILURE(CheckPrefix({static_cast<UTF8>(a)})) << a;
        for (int b = 0; b < 256; ++b) {
            ASSERT_NO_FATAL_FAILURE(CheckPrefix({static_cast<UTF8>(a), static_cast<UTF8>(b)}))
                << a << ' ' << b;
        }
    }
    const std::vector<UTF8> thirdBytes = ThirdBytes();
    for (int a = 0x7F; a < 256; ++a) {
        for (int b = 0; b < 256; ++b) {
            for (const UTF8 c : thirdBytes) {
                ASSERT_NO_FATAL_FAILURE(
                    CheckPrefix({static_cast<UTF8>(a), static_cast<UTF8>(b), c}))
                    << a << ' ' << b << ' ' << int{c};
            }
        }
    }
}

TEST(ConvertUTFTest, FourByteSequencesAreBoundedByTheirSecondByte) {
    for (int lead = 0xF0; lead <= 0xF5; ++lead) {
        for (int second = 0; second < 256; ++second) {
            for (UTF8 tail : {UTF8{0x7F}, UTF8{0x80}, UTF8{0xBF}, UTF8{0xC0}}) {
                ASSERT_NO_FATAL_FAILURE(CheckPrefix(
                    {static_cast<UTF8>(lead), static_cast<UTF8>(second), UTF8{0x80}, tail}));
                ASSERT_NO_FATAL_FAILURE(CheckPrefix(
                    {static_cast<UTF8>(lead), static_cast<UTF8>(second), tail, UTF8{0x80}}));
            }
        }
    }
}

TEST(ConvertUTFTest, AValueAboveTheLastCharacterIsSkippedStrictlyAndReplacedLeniently) {
    const std::vector<UTF32> text = {'a', 0x110000, 'b', 0xFFFFFFFF, 'c'};
    EXPECT_EQ(Convert(ConvertUTF32toUTF16, text, strictConversion),
              (Converted<UTF16>{sourceIllegal, {'a', 'b', 'c'}, 5}));
    EXPECT_EQ(Convert(ConvertUTF32toUTF16, text, lenientConversion),
              (Converted<UTF16>{conversionOK, {'a', 0xFFFD, 'b', 0xFFFD, 'c'}, 5}));
    for (ConversionFlags flags : kBothFlags) {
        EXPECT_EQ(Convert(ConvertUTF32toUTF8, text, flags),
                  (Converted<UTF8>{
                      sourceIllegal, {'a', 0xEF, 0xBF, 0xBD, 'b', 0xEF, 0xBF, 0xBD, 'c'}, 5}));
    }
}

TEST(ConvertUTFTest, AFullTargetAfterASkippedValueIsReportedAsExhausted) {
    EXPECT_EQ(Convert(ConvertUTF32toUTF16, {0x110000, 'a', 'b'}, strictConversion, 1),
              (Converted<UTF16>{targetExhausted, {'a'}, 2}));
}

TEST(ConvertUTFTest, AFullTargetLeavesTheSourceAtTheFirstUnitNotConverted) {
    const std::vector<UTF32> characters = {'a', 0xE9, 0x20AC, 0x1F600, 'z'};
    std::vector<UTF8> utf8;
    std::vector<UTF16> utf16;
    for (UTF32 c : characters) {
        for (UTF8 byte : AsUTF8(c)) {
            utf8.push_back(byte);
        }
        for (UTF16 unit : AsUTF16(c)) {
            utf16.push_back(unit);
        }
    }
    // For every size of the target, as many whole characters as fit and not a unit more.
    const auto check = [&](auto convert, const auto& source, const auto& target, auto sourceLength,
                           auto targetLength) {
        for (std::size_t room = 0; room <= target.size() + 1; ++room) {
            std::size_t consumed = 0;
            std::size_t written = 0;
            for (UTF32 c : characters) {
                if (written + targetLength(c) > room) {
                    break;
                }
                written += targetLength(c);
                consumed += sourceLength(c);
            }
            const auto converted = Convert(convert, source, strictConversion, room);
            SCOPED_TRACE(room);
            EXPECT_EQ(converted.result, room < target.size() ? targetExhausted : conversionOK);
            EXPECT_EQ(converted.consumed, consumed);
            EXPECT_TRUE(std::equal(converted.output.begin(), converted.output.end(), target.begin(),
                                   target.begin() + static_cast<long>(written)));
        }
    };
    const auto one = [](UTF32) { return std::size_t{1}; };
    const auto bytes = [](UTF32 c) { return AsUTF8(c).size(); };
    const auto units = [](UTF32 c) { return AsUTF16(c).size(); };
    check(ConvertUTF32toUTF16, characters, utf16, one, units);
    check(ConvertUTF32toUTF8, characters, utf8, one, bytes);
    check(ConvertUTF16toUTF32, utf16, characters, units, one);
    check(ConvertUTF16toUTF8, utf16, utf8, units, bytes);
    check(ConvertUTF8toUTF16, utf8, utf16, bytes, units);
    check(ConvertUTF8toUTF32, utf8, characters, bytes, one);
}

TEST(ConvertUTFTest, AnIllegalByteStopsBothFlagsBehindWhatCameBefore) {
    for (ConversionFlags flags : kBothFlags) {
        EXPECT_EQ(Convert(ConvertUTF8toUTF16, {'a', 0x80, 'b'}, flags),
                  (Converted<UTF16>{sourceIllegal, {'a'}, 1}));
        EXPECT_EQ(Convert(ConvertUTF8toUTF32, {'a', 0xC3, 0xA9, 0xC0, 0x80}, flags),
                  (Converted<UTF32>{sourceIllegal, {'a', 0xE9}, 3}));
    }
}

TEST(ConvertUTFTest, LongASCIIRunsConvertWhereverTheRunEnds) {
    // Longer than the blocks that a fast path works in, ended by another character or by the room.
    for (std::size_t length = 0; length < 70; ++length) {
        for (std::size_t room = length > 3 ? length - 3 : 0; room < length + 4; ++room) {
            std::vector<UTF8> utf8(length, 'x');
            std::vector<UTF16> utf16(length, 'x');
            utf8.insert(utf8.end(), {0xC3, 0xA9});
            utf16.push_back(0xE9);
            SCOPED_TRACE(::testing::Message() << length << " in " << room);

            const auto to16 = Convert(ConvertUTF8toUTF16, utf8, strictConversion, room);
            EXPECT_EQ(to16.output.size(), std::min(room, length + 1));
            EXPECT_EQ(to16.result, room > length ? conversionOK : targetExhausted);
            const auto to8 = Convert(ConvertUTF16toUTF8, utf16, strictConversion, room);
            EXPECT_EQ(to8.output.size(), room >= length + 2 ? length + 2 : std::min(room, length));
            EXPECT_EQ(to8.result, room >= length + 2 ? conversionOK : targetExhausted);
        }
    }
}

// A text of runs of one width each, from one to four bytes of UTF-8, and now and then a lone
// surrogate.
std::vector<UTF16> RandomText(std::mt19937& random) {
    constexpr UTF32 kFirst[] = {0x20, 0x80, 0x800, 0x10000, 0xD800};
    constexpr UTF32 kLast[] = {0x7F, 0x7FF, 0xD7FF, 0x10FFFF, 0xDFFF};
    std::vector<UTF16> text;
    const std::size_t runs = random() % 8;
    for (std::size_t run = 0; run < runs; ++run) {
        const std::size_t width = random() % 20 == 0 ? 4 : random() % 4;
        const std::size_t length = width == 4 ? 1 : 1 + random() % 70;
        std::uniform_int_distribution<UTF32> value(kFirst[width], kLast[width]);
        for (std::size_t i = 0; i < length; ++i) {
            const std::vector<UTF16> units = AsUTF16(value(random));
            text.insert(text.end(), units.begin(), units.end());
        }
    }
    return text;
}

// Converts as Convert does, but shows the converter one character of the text at a time, so that
// no run is ever long enough for a short cut. A lead byte asks for up to six.
template <typename Source, typename Target>
Converted<Target> ConvertOneByOne(ConversionResult (*convert)(const Source**, const Source*,
                                                              Target**, Target*, ConversionFlags),
                                  const std::vector<Source>& text, ConversionFlags flags,
                                  std::size_t room) {
    Converted<Target> all{conversionOK, {}, 0};
    while (all.consumed < text.size() && all.result == conversionOK) {
        for (std::size_t length = 1; length <= 6 && all.consumed + length <= text.size();
             ++length) {
            const auto start = text.begin() + static_cast<std::ptrdiff_t>(all.consumed);
            const std::vector<Source> character(start, start + static_cast<std::ptrdiff_t>(length));
            const auto one = Convert(convert, character, flags, room - all.output.size());
            all.result = one.result;
            if (one.result == sourceExhausted && one.consumed == 0) {
                continue;
            }
            if (one.result == sourceExhausted) {
                // Behind a lone surrogate another one begins.
                all.result = conversionOK;
            }
            all.consumed += one.consumed;
            all.output.insert(all.output.end(), one.output.begin(), one.output.end());
            break;
        }
    }
    return all;
}

TEST(ConvertUTFTest, RandomTextsConvertAsTheirCharactersDoOneByOne) {
    const std::uint64_t seed = TestSeed();
    SCOPED_TRACE(DescribeSeed(seed));
    std::mt19937 random(static_cast<std::mt19937::result_type>(seed));
    for (int round = 0; round < 400; ++round) {
        const std::vector<UTF16> utf16 = RandomText(random);
        const ConversionFlags flags = kBothFlags[random() % 2];
        const std::size_t room = random() % (utf16.size() * 4 + 1);
        const auto to8 = Convert(ConvertUTF16toUTF8, utf16, flags, room);
        EXPECT_EQ(to8, ConvertOneByOne(ConvertUTF16toUTF8, utf16, flags, room));

        std::vector<UTF8> utf8 =
            Convert(ConvertUTF16toUTF8, utf16, lenientConversion, utf16.size() * 3).output;
        if (!utf8.empty() && random() % 4 == 0) {
            utf8[random() % utf8.size()] = static_cast<UTF8>(random());
        }
        const auto to16 = Convert(ConvertUTF8toUTF16, utf8, flags, room);
        EXPECT_EQ(to16, ConvertOneByOne(ConvertUTF8toUTF16, utf8, flags, room));
        if (HasFailure()) {
            return;
        }
    }
}

TEST(ConvertUTFTest, AnEmptySourceConvertsToNothingEvenWithoutRoom) {
    EXPECT_EQ(Convert(ConvertUTF8toUTF16, {}, strictConversion, 0), Complete<UTF16>({}, 0));
    EXPECT_EQ(Convert(ConvertUTF16toUTF8, {}, strictConversion, 0), Complete<UTF8>({}, 0));
    EXPECT_EQ(Convert(ConvertUTF32toUTF8, {}, strictConversion, 0), Complete<UTF8>({}, 0));
    EXPECT_EQ(Convert(ConvertUTF8toUTF32, {}, strictConversion, 0), Complete<UTF32>({}, 0));
    EXPECT_EQ(Convert(ConvertUTF16toUTF32, {}, strictConversion, 0), Complete<UTF32>({}, 0));
    EXPECT_EQ(Convert(ConvertUTF32toUTF16, {}, strictConversion, 0), Complete<UTF16>({}, 0));
}

TEST(ConvertUTFTest, ASequenceIsNotLegalWhenItRunsPastTheEnd) {
    const UTF8 euro[] = {0xE2, 0x82, 0xAC};
    EXPECT_FALSE(isLegalUTF8Sequence(euro, euro));
    EXPECT_FALSE(isLegalUTF8Sequence(euro, euro + 2));
    EXPECT_TRUE(isLegalUTF8Sequence(euro, euro + 3));
}

} // namespace
