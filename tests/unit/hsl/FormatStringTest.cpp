#include "hsl/FormatString.h"

#include "tests/support/SlowBuild.h"
#include "tests/support/TestSeed.h"
#include "tests/unit/hsl/LoggingTest.h"
#include "tests/unit/hsl/record/RecordBytes.h"

#include <gmock/gmock.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <limits>
#include <random>

namespace HSL {
namespace {

using RecordBytes::Join;
using RecordBytes::Raw;
using Bytes = std::vector<unsigned char>;

class FormatStringTest : public LoggingTest {
protected:
    // The text of a message, by way of a record.
    template <typename Format, typename... Values>
    std::string Text(Format format, const Values&... values) {
        mContext.Log(kCat, format, values...);
        mContext.Take(14 + 1 + 1); // the head
        const std::string text = Manager().StringifyFormatArgs(true, mContext.GetBuffer());
        EXPECT_EQ(mContext.Used(), 0) << "not all of the record was read";
        return text;
    }

    // The text of a format field and arguments written by hand.
    std::string TextOf(const Bytes& fields, bool doFormat = true) {
        int count = static_cast<int>(fields.size());
        mContext.GetBuffer().Write(fields.data(), count);
        return Manager().StringifyFormatArgs(doFormat, mContext.GetBuffer());
    }

    OwnContext mContext{"Own", 400000};
};

template <typename... Values>
std::string Printf(const char* format, Values... values) {
    std::string text(70000, '\0');
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
    const int size = std::snprintf(text.data(), text.size(), format, values...);
#pragma GCC diagnostic pop
    text.resize(static_cast<std::size_t>(size));
    return text;
}

TEST_F(FormatStringTest, FormatsEachArgumentByItsConversion) {
    EXPECT_EQ(Text("a=%d b=%5.2f", 6, 2.5), "a=6 b= 2.50");
    EXPECT_EQ(Text("%s, %c%x!", "text", 'c', 255), "text, cff!");
    EXPECT_EQ(Text("no arguments"), "no arguments");
    EXPECT_EQ(Text(""), "");
}

TEST_F(FormatStringTest, ExtraArgumentsFollowInParentheses) {
    EXPECT_EQ(Text("a=%d b=%5.2f", 6, 2.5, 7, "x"), "a=6 b= 2.50 (7, x) ");
    EXPECT_EQ(Text("none", 1), "none (1) ");
    EXPECT_EQ(Text("", 1, 2), " (1, 2) ");
    EXPECT_EQ(Text("%d and a tail", 1, 2), "1 and a tail (2) ");
}

TEST_F(FormatStringTest, ExtraConversionsShowWithoutTheirSigns) {
    EXPECT_EQ(Text("a=%d b=%d", 6), "a=6[extra format arguments:  b=_d ]");
    EXPECT_EQ(Text("%d%s%%", 1), "1[extra format arguments: _s__ ]");
    EXPECT_EQ(Text("%d tail", 1), "1 tail");
}

TEST_F(FormatStringTest, EveryKindHasADefaultForm) {
    const auto extra = [this](auto value) { return Text("", value); };
    EXPECT_EQ(extra(static_cast<signed char>(-5)), " (-5) ");
    EXPECT_EQ(extra(short{-300}), " (-300) ");
    EXPECT_EQ(extra(-70000), " (-70000) ");
    EXPECT_EQ(extra(static_cast<unsigned char>(200)), " (200) ");
    EXPECT_EQ(extra(static_cast<unsigned short>(60000)), " (60000) ");
    EXPECT_EQ(extra(4000000000U), " (4000000000) ");
    EXPECT_EQ(extra(1.5F), " (1.500000) ");
    EXPECT_EQ(extra(1.5), " (1.5) ");
    EXPECT_EQ(extra("x"), " (x) ");
    EXPECT_EQ(extra(L"wide"), " (wide) ");
    // "%I64d" and "%I64u": to this formatter a flag and a width.
    EXPECT_EQ(extra(-5LL), " (" + Printf("%64d", -5) + ") ");
    EXPECT_EQ(extra(5ULL), " (" + Printf("%64u", 5U) + ") ");
    EXPECT_EQ(extra(reinterpret_cast<const void*>(0xABCD)), " (0xabcd) ");
    const Bytes aLong = Join(Bytes{1, 0, 0, 1, 14}, Raw(std::int32_t{-9}));
    EXPECT_EQ(TextOf(aLong), " (-9) ");
}

TEST_F(FormatStringTest, DefaultConversionsAreThoseOfTheKinds) {
    const std::vector<std::pair<tValueKind, const char*>> conversions = {
        {eInt8, "%hd"},  {eInt16, "%hd"},    {eInt32, "%d"},  {eInt64, "%I64d"},
        {eUInt8, "%hu"}, {eUInt16, "%hu"},   {eUInt32, "%u"}, {eUInt64, "%I64u"},
        {eFloat, "%f"},  {eDouble, "%g"},    {eLong, "%d"},   {ePointer, "0x%x"},
        {eString, "%s"}, {eWideString, "%S"}};
    for (const auto& [kind, conversion] : conversions) {
        EXPECT_EQ(DefaultConversion(kind), conversion);
    }
    for (int kind = 0; kind < 256; ++kind) {
        EXPECT_EQ(IsValueKind(static_cast<unsigned char>(kind)), kind >= 4 && kind <= 17);
    }
}

TEST_F(FormatStringTest, RegisteredFormatsAreFoundByTheirIDs) {
    Manager().AddFormatString("first %d");
    const short second = Manager().AddFormatString("second %d");
    EXPECT_EQ(Text(second, 2), "second 2");
    EXPECT_EQ(Text(short{0}, 1), "first 1");
}

TEST_F(FormatStringTest, AnUnregisteredIDIsNamed) {
    EXPECT_EQ(Text(short{-1}), "<UNINITIALIZED FORMAT STRING ID USED>");
    EXPECT_EQ(Text(short{-1}, 3), "<UNINITIALIZED FORMAT STRING ID USED> (3) ");
}

TEST_F(FormatStringTest, AnIDThatWasNeverGivenIsUnregistered) {
    Manager().AddFormatString("the only one");
    for (const int id : {1, 32767, -2, -32768}) {
        EXPECT_EQ(Text(static_cast<short>(id)), "<UNINITIALIZED FORMAT STRING ID USED>") << id;
    }
}

TEST_F(FormatStringTest, AWideFormatIsNotSupported) {
    const short id = Manager().AddFormatString(L"wide %d");
    EXPECT_EQ(Text(id), "<WIDE FORMAT STRING NOT SUPPORTED>");
    EXPECT_EQ(Text(id, 1, "x"), "<WIDE FORMAT STRING NOT SUPPORTED> (1, x) ");
}

TEST_F(FormatStringTest, AFormatFieldOfNeitherKindIsBad) {
    for (const int tag : {0, 2, 4, 255}) {
        EXPECT_EQ(TextOf({static_cast<unsigned char>(tag), 0}), "<BAD FORMAT STRING>");
        EXPECT_EQ(TextOf({static_cast<unsigned char>(tag), 1, 8, 7}), "<BAD FORMAT STRING> (7) ");
    }
}

TEST_F(FormatStringTest, AnArgumentOfNoKindConfuses) {
    const Bytes format = Join(Bytes{1}, Raw(std::uint16_t{4}), Raw("a=%d"));
    constexpr char kBad[] = "<BAD ARG> I'm horribly confused";
    for (const int kind : {0, 3, 18, 255}) {
        const auto bad = static_cast<unsigned char>(kind);
        EXPECT_EQ(TextOf(Join(format, Bytes{1, bad})), kBad);
        EXPECT_EQ(TextOf(Join(format, Bytes{2, bad, 8, 7})), std::string(kBad) + " (7) ");
        // The extra ones have no comma behind a bad one.
        EXPECT_EQ(TextOf(Join(format, Bytes{4, 8, 1, 8, 2, bad, 8, 3})),
                  std::string("a=1 (2, ") + kBad + "3) ");
        EXPECT_EQ(TextOf(Join(format, Bytes{2, bad, 8, 7}), false), kBad) << "also unformatted";
    }
}

TEST_F(FormatStringTest, WithoutArgumentsTheWholeFormatIsText) {
    EXPECT_EQ(Text("100%% done"), "100% done");
    EXPECT_EQ(Text("%%%%"), "%%");
    EXPECT_EQ(Text("100% done"), "100% done");
    EXPECT_EQ(Text("%s %n %d"), "%s %n %d");
    EXPECT_EQ(Text("ends in %"), "ends in %");
    EXPECT_EQ(TextOf(Join(Bytes{1}, Raw(std::uint16_t{1}), Raw("x"), Bytes{128})), "x")
        << "a count is signed";
}

TEST_F(FormatStringTest, ASignAtTheEndStartsNoConversion) {
    EXPECT_EQ(Text("at 50%", 1), "at 50% (1) ");
    EXPECT_EQ(Text("%d%", 1), "1[extra format arguments: _ ]");
    EXPECT_EQ(Text("%", 1), "% (1) ");
}

TEST_F(FormatStringTest, ASignWithoutAConversionCharacterStartsNone) {
    EXPECT_EQ(Text("50% ABQ", 1), "50% ABQ (1) ");
}

TEST_F(FormatStringTest, FindsThePiecesOfAFormat) {
    const auto ends = [](std::string_view format) {
        std::vector<std::size_t> found;
        for (const CFormatPiece& piece : CFormatPieces(format).mPieces) {
            found.push_back(piece.mStart);
            found.push_back(piece.mSign);
            found.push_back(piece.mEnd);
        }
        return found;
    };
    using testing::ElementsAre;
    using testing::IsEmpty;
    EXPECT_THAT(ends("a=%d"), ElementsAre(0, 2, 4));
    EXPECT_THAT(ends("%d b=%-5lld tail"), ElementsAre(0, 0, 2, 2, 5, 11));
    EXPECT_THAT(ends("plain"), IsEmpty());
    EXPECT_THAT(ends(""), IsEmpty());
    EXPECT_THAT(ends("50%"), IsEmpty());
    EXPECT_THAT(ends("50% ABQ"), IsEmpty());
    EXPECT_THAT(ends("\\n%d"), ElementsAre(0, 2, 4)) << "a backslash further in front";
}

TEST_F(FormatStringTest, AnEscapedSignWithTextBehindItMakesTheSearchEndless) {
    EXPECT_TRUE(CFormatPieces("100%% of").mIsEndless);
    EXPECT_TRUE(CFormatPieces("%d 100\\% of").mIsEndless);
    EXPECT_FALSE(CFormatPieces("\\%").mIsEndless) << "at the very end";
    EXPECT_FALSE(CFormatPieces("%d of %d").mIsEndless);
    // As long as no argument needs a further piece, none is searched for.
    EXPECT_EQ(Text("%d 100%% of", 1), "1[extra format arguments:  100__ of ]");
}

TEST_F(FormatStringTest, UnformattedIsEmptyAndReadsTheWholeRecord) {
    mContext.Log(kCat, "%d %s %S%s", 1, "text", L"wide");
    mContext.Log(kCat, "next %d", 2, 3);
    mContext.Take(16);
    EXPECT_EQ(Manager().StringifyFormatArgs(false, mContext.GetBuffer()), "");
    mContext.Take(16);
    EXPECT_EQ(Manager().StringifyFormatArgs(true, mContext.GetBuffer()), "next 2 (3) ");
}

TEST_F(FormatStringTest, ATextOf65535BytesFits) {
    const std::string text(65535, 'x');
    EXPECT_TRUE(Text("%s", text) == text);
    EXPECT_TRUE(Text(text.c_str()) == text);
    EXPECT_TRUE(Text("%S", std::wstring(65535, L'w')) == std::string(65535, 'w'));
}

TEST_F(FormatStringTest, APieceIsCutAt65535Bytes) {
    const std::string text(65535, 'x');
    EXPECT_TRUE(Text("12%s", text) == "12" + text.substr(2));
    EXPECT_TRUE(Text("%s%s", text, text) == text + text) << "two pieces";
    EXPECT_TRUE(Text("%70000d", 1) == std::string(65535, ' '));
    EXPECT_TRUE(Text("%-99999999999d", 1) == "1" + std::string(65534, ' '));
}

TEST_F(FormatStringTest, AConversionThatDoesNotFitPrintsTheValueInItsOwnForm) {
    EXPECT_EQ(Text("<%s>", 5), "<5>");
    EXPECT_EQ(Text("<%d>", "text"), "<text>");
    EXPECT_EQ(Text("<%s>", 1.5), "<1.5>");
    EXPECT_EQ(Text("<%d>", 1.5F), "<1.500000>");
    EXPECT_EQ(Text("<%g>", 7), "<7>");
    EXPECT_EQ(Text("<%f>", "text"), "<text>");
    EXPECT_EQ(Text("<%p>", 7), "<7>");
    EXPECT_EQ(Text("<%p>", "text"), "<text>");
    EXPECT_EQ(Text("<%c>", "text"), "<text>");
    EXPECT_EQ(Text("<%c>", 65LL), "<" + Printf("%64d", 65) + ">");
    EXPECT_EQ(Text("<%s>", L"wide"), "<wide>");
    EXPECT_EQ(Text("<%S>", "narrow"), "<narrow>");
    EXPECT_EQ(Text("<%ls>", "narrow"), "<narrow>");
    EXPECT_EQ(Text("<%S>", 5), "<5>");
    EXPECT_EQ(Text("<%Lf>", 1.5), "<1.5>");
    EXPECT_EQ(Text("<%s>", static_cast<const void*>(nullptr)), "<0x0>");
}

TEST_F(FormatStringTest, AWidthOrPrecisionOfAStarPrintsTheValueInItsOwnForm) {
    EXPECT_EQ(Text("<%*d>", 5), "<5>");
    EXPECT_EQ(Text("<%*d>", 5, 6), "<5> (6) ");
    EXPECT_EQ(Text("<%.*s>", "text"), "<text>");
    EXPECT_EQ(Text("<%*.*f>", 1.5), "<1.5>");
    EXPECT_EQ(Text("<%1$d>", 5), "<5>");
    EXPECT_EQ(Text("<%l l d>", 5), "<5>");
}

TEST_F(FormatStringTest, LengthLettersOfOtherWidthsPrintTheValue) {
    EXPECT_EQ(Text("%ld", -5), "-5");
    EXPECT_EQ(Text("%lld", -5), "-5");
    EXPECT_EQ(Text("%lu", 4000000000U), "4000000000");
    EXPECT_EQ(Text("%zu", 5U), "5");
    EXPECT_EQ(Text("%hd", 70000), "70000");
    EXPECT_EQ(Text("%hhd", short{300}), "300");
    EXPECT_EQ(Text("%d", 5000000000LL), "5000000000");
    EXPECT_EQ(Text("%hd", 5000000000LL), "5000000000");
    EXPECT_EQ(Text("%ld", 5000000000LL), "5000000000");
    EXPECT_EQ(Text("%llx", 0xFEDCBA9876543210ULL), "fedcba9876543210");
    EXPECT_EQ(Text("%x", 0xFEDCBA9876543210ULL), "fedcba9876543210");
    EXPECT_EQ(Text("%u", 0xFFFFFFFFFFFFFFFFULL), "18446744073709551615");
}

TEST_F(FormatStringTest, TheOtherPlatformsLengthGoesThroughAsItIs) {
    EXPECT_EQ(Text("<%I64d>", 7LL), "<" + Printf("%64d", 7) + ">");
    EXPECT_EQ(Text("<%I64u>", 7ULL), "<" + Printf("%64u", 7U) + ">");
    EXPECT_EQ(Text("<%I64d>", 7), "<" + Printf("%64d", 7) + ">");
    EXPECT_EQ(Text("<%I64d>", "text"), "<text>");
}

TEST_F(FormatStringTest, TheCountingConversionPrintsAndWritesNothing) {
    EXPECT_EQ(Text("a%nb", 5), "ab");
    EXPECT_EQ(Text("a%nb", "text"), "ab");
    EXPECT_EQ(Text("a%lnb", 5LL), "ab");
    EXPECT_EQ(Text("a%nb", static_cast<const void*>("somewhere")), "ab");
}

TEST_F(FormatStringTest, AWideCharacterThatTheLocaleLacksEndsThePiece) {
    EXPECT_EQ(Text("<%S> %d", L"a\u20ACb", 5).back(), '5');
    EXPECT_EQ(Text("<%ls> %d", L"ok", 5), "<ok> 5");
}

TEST_F(FormatStringTest, ANullWideTextAtTheEndOfTheRingReadsAsText) {
    EXPECT_EQ(Text("<%S>", static_cast<const wchar_t*>(nullptr)), "<<NULL>>");
    EXPECT_EQ(Text("<%s>", static_cast<const char*>(nullptr)), "<<NULL>>");
}

TEST_F(FormatStringTest, AnUnfinishedRecordReadsAsZeros) {
    EXPECT_EQ(TextOf({}), "<BAD FORMAT STRING>");
    EXPECT_EQ(TextOf(Join(Bytes{1}, Raw(std::uint16_t{2}), Raw("%d"), Bytes{1, 6})), "0");
    EXPECT_EQ(TextOf(Join(Bytes{1}, Raw(std::uint16_t{2}), Raw("%s"), Bytes{1, 16},
                          Raw(std::uint16_t{65535}), Raw("ab"))),
              "ab");
}

TEST_F(FormatStringTest, ACharacterOfZeroEndsItsPiece) {
    EXPECT_EQ(Text("a%cb", '\0'), "ab");
    EXPECT_EQ(Text("%3c|", '\0'), "  |");
}

// Random conversions that fit their values, against the formatter itself.
class RandomConversion {
public:
    explicit RandomConversion(std::uint64_t seed) : mRandom(seed) {}

    std::size_t Below(std::size_t limit) { return static_cast<std::size_t>(mRandom() % limit); }
    char OneOf(std::string_view characters) { return characters[Below(characters.size())]; }

    std::string Modifiers(std::string_view flags) {
        std::string text = "%";
        // Half of them plain, as most are, and many of the others with usual flags alone.
        if (Below(2) == 0) {
            return text;
        }
        if (Below(3) == 0) {
            flags = flags.find('0') == std::string_view::npos ? "-" : "-0";
        }
        for (std::size_t i = Below(4); i > 0; --i) {
            text += OneOf(flags);
        }
        if (Below(2) == 0) {
            text += std::to_string(Below(30) + 1);
        }
        if (Below(2) == 0) {
            text += "." + (Below(4) == 0 ? "" : std::to_string(Below(20)));
        }
        return text;
    }

    std::int64_t Integer() {
        switch (Below(4)) {
        case 0:
            return static_cast<std::int64_t>(Below(21)) - 10;
        case 1:
            return std::array<std::int64_t, 4>{std::numeric_limits<std::int64_t>::min(),
                                               std::numeric_limits<std::int64_t>::max(),
                                               std::numeric_limits<std::int32_t>::min(),
                                               std::numeric_limits<std::int32_t>::max()}[Below(4)];
        default:
            return static_cast<std::int64_t>(mRandom()) >> Below(64);
        }
    }

    double Double() {
        switch (Below(5)) {
        case 0:
            return std::array{0.0,
                              -0.0,
                              1e5,
                              1e6,
                              999999.5,
                              1e-4,
                              1e-5,
                              0.5,
                              1e300,
                              5e-324,
                              std::numeric_limits<double>::infinity(),
                              -std::numeric_limits<double>::infinity(),
                              std::numeric_limits<double>::quiet_NaN(),
                              -std::numeric_limits<double>::quiet_NaN()}[Below(14)];
        case 1:
            return static_cast<double>(Integer());
        case 2:
            return static_cast<double>(Integer()) / 1000;
        case 3:
            return static_cast<double>(static_cast<float>(Integer()) / 7);
        default: {
            const std::uint64_t bits = mRandom();
            double value;
            std::memcpy(&value, &bits, sizeof value);
            // The bits of a NaN change as it is handed over.
            return value == value ? value : 1;
        }
        }
    }

    std::string Text() {
        std::string text;
        for (std::size_t i = Below(40); i > 0; --i) {
            text += static_cast<char>(1 + Below(255));
        }
        return text;
    }

private:
    std::mt19937_64 mRandom;
};

constexpr int kRandomRounds = TestSupport::kIsSlowBuild ? 5000 : 50000;

// What a piece of a format appends for a value.
std::string Piece(const std::string& format, const CRecordValue& value) {
    const std::size_t sign = format.find('%');
    CTextBuffer out;
    out.Append("before ");
    out.Append(std::string_view(format).substr(0, sign));
    CConversion(std::string_view(format).substr(sign)).Append(out, value);
    return std::string(out.View());
}

void Check(const std::string& conversion, const CRecordValue& value, const std::string& expected) {
    ASSERT_EQ(Piece("x " + conversion, value), "before x " + expected)
        << conversion << " of kind " << int{value.mKind};
}

TEST_F(FormatStringTest, RandomIntegersAreAsTheFormatterPrintsThem) {
    const std::uint64_t seed = TestSeed();
    SCOPED_TRACE(DescribeSeed(seed));
    RandomConversion random(seed);
    for (int i = 0; i < kRandomRounds && !HasFatalFailure(); ++i) {
        const std::string modifiers = random.Modifiers("-+ #0");
        const char character = random.OneOf("diouxX");
        const std::int64_t any = random.Integer();
        switch (random.Below(9)) {
        case 0:
            Check(modifiers + "hh" + character, {eInt8, static_cast<std::int8_t>(any)},
                  Printf((modifiers + "hh" + character).c_str(), static_cast<std::int8_t>(any)));
            break;
        case 1:
            Check(modifiers + "hh" + character, {eUInt8, static_cast<std::uint8_t>(any)},
                  Printf((modifiers + "hh" + character).c_str(), static_cast<std::uint8_t>(any)));
            break;
        case 2:
            Check(modifiers + "h" + character, {eInt16, static_cast<std::int16_t>(any)},
                  Printf((modifiers + "h" + character).c_str(), static_cast<std::int16_t>(any)));
            break;
        case 3:
            Check(modifiers + "h" + character, {eUInt16, static_cast<std::uint16_t>(any)},
                  Printf((modifiers + "h" + character).c_str(), static_cast<std::uint16_t>(any)));
            break;
        case 4:
            Check(modifiers + character, {eInt32, static_cast<std::int32_t>(any)},
                  Printf((modifiers + character).c_str(), static_cast<std::int32_t>(any)));
            break;
        case 5:
            Check(modifiers + character, {eUInt32, static_cast<std::uint32_t>(any)},
                  Printf((modifiers + character).c_str(), static_cast<std::uint32_t>(any)));
            break;
        case 6:
            Check(modifiers + character, {eLong, static_cast<std::int32_t>(any)},
                  Printf((modifiers + character).c_str(), static_cast<std::int32_t>(any)));
            break;
        case 7:
            Check(modifiers + "ll" + character, {eInt64, any},
                  Printf((modifiers + "ll" + character).c_str(), static_cast<long long>(any)));
            break;
        default:
            Check(modifiers + "ll" + character, {eUInt64, any},
                  Printf((modifiers + "ll" + character).c_str(),
                         static_cast<unsigned long long>(any)));
            break;
        }
    }
}

TEST_F(FormatStringTest, RandomDoublesAreAsTheFormatterPrintsThem) {
    const std::uint64_t seed = TestSeed();
    SCOPED_TRACE(DescribeSeed(seed));
    RandomConversion random(seed);
    for (int i = 0; i < kRandomRounds && !HasFatalFailure(); ++i) {
        const std::string conversion = random.Modifiers("-+ #0") + random.OneOf("eEfgG");
        const double value = random.Double();
        Check(conversion, {random.Below(2) == 0 ? eDouble : eFloat, 0, value},
              Printf(conversion.c_str(), value));
    }
}

TEST_F(FormatStringTest, RandomTextsAreAsTheFormatterPrintsThem) {
    const std::uint64_t seed = TestSeed();
    SCOPED_TRACE(DescribeSeed(seed));
    RandomConversion random(seed);
    for (int i = 0; i < kRandomRounds && !HasFatalFailure(); ++i) {
        const std::string text = random.Text();
        const std::string conversion = random.Modifiers("-") + "s";
        Check(conversion, {eString, 0, 0, text.c_str()}, Printf(conversion.c_str(), text.c_str()));
        const std::wstring wide(random.Below(20), L'w');
        const std::string wideConversion =
            random.Modifiers("-") + (random.Below(2) == 0 ? "S" : "ls");
        Check(wideConversion, {eWideString, 0, 0, nullptr, wide.c_str()},
              Printf(wideConversion.c_str(), wide.c_str()));
    }
}

// Whole messages: text between the conversions, more and fewer arguments than conversions.
TEST_F(FormatStringTest, RandomMessagesAreAsTheFormatterPrintsTheirPieces) {
    const std::uint64_t seed = TestSeed();
    SCOPED_TRACE(DescribeSeed(seed));
    RandomConversion random(seed);
    constexpr std::string_view kText = "abc :,()[]\n";
    const auto text = [&] {
        std::string some;
        for (std::size_t i = random.Below(20); i > 0; --i) {
            some += kText[random.Below(kText.size())];
        }
        return some;
    };
    for (int i = 0; i < kRandomRounds / 10 && !HasFailure(); ++i) {
        const auto number = static_cast<std::int32_t>(random.Integer());
        const std::int64_t wide = random.Integer();
        const double real = random.Double();
        const std::string word = text();
        const std::string first = text() + random.Modifiers("-+ 0") + random.OneOf("diouxX");
        const std::string second = text() + random.Modifiers("-+ 0") + "ll" + random.OneOf("dux");
        const std::string third = text() + random.Modifiers("-+ #0") + random.OneOf("eEfgG");
        const std::string fourth = text() + random.Modifiers("-") + "s";
        const std::string tail = text();
        const std::string format = first + second + third + fourth + tail;
        const std::string expected =
            Printf(first.c_str(), number) + Printf(second.c_str(), static_cast<long long>(wide)) +
            Printf(third.c_str(), real) + Printf(fourth.c_str(), word.c_str()) + tail;
        EXPECT_EQ(Text(format.c_str(), number, wide, real, word), expected) << format;
        EXPECT_EQ(Text(format.c_str(), number, wide, real, word, number),
                  expected + " (" + std::to_string(number) + ") ")
            << format;
        if (i < 1000) {
            const short id = Manager().AddFormatString(format.c_str());
            // Twice: what is kept with a registered format must serve again.
            EXPECT_EQ(Text(id, number, wide, real, word), expected) << format;
            EXPECT_EQ(Text(id, number, wide, real, word), expected) << format;
            // And of other kinds.
            EXPECT_EQ(Text(id, 1.5, "x", 2, 3U), Text(format.c_str(), 1.5, "x", 2, 3U)) << format;
        }
    }
}

TEST_F(FormatStringTest, CharactersAndAddressesAreAsTheFormatterPrintsThem) {
    for (int character = 1; character < 256; ++character) {
        Check("%c", {eInt32, character}, Printf("%c", character));
        Check("%-4c", {eUInt8, character}, Printf("%-4c", character));
    }
    Check("%lc", {eInt32, 'w'}, Printf("%lc", static_cast<wint_t>('w')));
    Check("%C", {eInt32, 'w'}, "w");
    for (const std::uint32_t address : {0U, 1U, 0xABCDU, 0xFFFFFFFFU}) {
        Check("%p", {ePointer, address},
              Printf("%p", reinterpret_cast<void*>(std::uintptr_t{address})));
        Check("0x%x", {ePointer, address}, Printf("0x%x", address));
    }
}

// Formats of any bytes with values of any kind: nothing to compare with, the sanitizers watch.
TEST_F(FormatStringTest, RandomFormatsNeverReadWhatIsNotThere) {
    const std::uint64_t seed = TestSeed();
    SCOPED_TRACE(DescribeSeed(seed));
    RandomConversion random(seed);
    for (int i = 0; i < kRandomRounds; ++i) {
        std::string conversion = "%";
        for (std::size_t size = random.Below(8); size > 0; --size) {
            conversion += random.OneOf("-+ #0'I0123456789.*$hlqLjztZ\x01m");
        }
        conversion += random.OneOf(kConversionCharacters);
        const auto kind = static_cast<tValueKind>(4 + random.Below(14));
        const std::string text = random.Text();
        const CRecordValue value{kind, random.Integer(), random.Double(), text.c_str(), L"wide"};
        ASSERT_LE(Piece(conversion, value).size(), 7 + 65535u) << conversion << int{kind};
    }
}

} // namespace
} // namespace HSL
