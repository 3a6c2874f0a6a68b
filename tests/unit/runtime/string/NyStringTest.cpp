#include "runtime/string/NyString.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace {

const unsigned short kEmpty[] = {0};

TEST(NyStringTest, AnEmptyTextGivesAnEmptyStringAndSuccess) {
    std::string narrow = "before";
    EXPECT_EQ(NyStringToString("", narrow), 0);
    EXPECT_EQ(narrow, "");
    narrow = "before";
    EXPECT_EQ(NyStringToString(kEmpty, narrow), 0);
    EXPECT_EQ(narrow, "");
    tString wide("before");
    EXPECT_EQ(NyStringToString("", wide), 0);
    EXPECT_TRUE(wide.empty());
}

TEST(NyStringTest, NarrowTextIsCopiedAsItIsWhateverItHolds) {
    std::string out;
    const std::string longText(10000, 'a');
    EXPECT_EQ(NyStringToString("\xFF not UTF-8", out), 0);
    EXPECT_EQ(out, "\xFF not UTF-8");
    EXPECT_EQ(NyStringToString(longText.c_str(), out), 0);
    EXPECT_EQ(out, longText);
}

TEST(NyStringTest, ALoneHighSurrogateAtTheEndFailsAndKeepsWhatCameBefore) {
    const unsigned short text[] = {'o', 'k', 0xD83D, 0};
    std::string out;
    EXPECT_EQ(NyStringToString(text, out), 1);
    EXPECT_EQ(out, "ok");
}

TEST(NyStringTest, IllegalUTF8FailsAndKeepsWhatCameBefore) {
    tString out;
    EXPECT_EQ(NyStringToString("ok\xC0\x80", out), 1);
    EXPECT_EQ(std::string(out), "ok");
}

TEST(NyStringTest, FiveThousandLettersAreCutAt4095AndReported) {
    tString letters(5000, static_cast<unsigned short>('a'));
    std::string narrow;
    EXPECT_EQ(NyStringToString(letters.c_str(), narrow), 1);
    EXPECT_EQ(narrow, std::string(4095, 'a'));

    tString wide;
    EXPECT_EQ(NyStringToString(std::string(5000, 'a').c_str(), wide), 1);
    EXPECT_EQ(wide, tString(4095, static_cast<unsigned short>('a')));
}

TEST(NyStringTest, ExactlyFourThousandAndNinetyFiveUnitsAreComplete) {
    std::string narrow;
    EXPECT_EQ(NyStringToString(tString(4095, static_cast<unsigned short>('a')).c_str(), narrow), 0);
    EXPECT_EQ(narrow.size(), 4095U);
    tString wide;
    EXPECT_EQ(NyStringToString(std::string(4095, 'a').c_str(), wide), 0);
    EXPECT_EQ(wide.size(), 4095U);
}

TEST(NyStringTest, TheCutNeverSplitsACharacter) {
    // 1365 characters of three bytes fill the buffer; the next one would not fit whole.
    std::string narrow;
    EXPECT_EQ(NyStringToString(tString(1366, static_cast<unsigned short>(0x20AC)).c_str(), narrow),
              1);
    EXPECT_EQ(narrow.size(), 4095U);
    std::string shifted;
    EXPECT_EQ(
        NyStringToString(
            (tString("a") += tString(1365, static_cast<unsigned short>(0x20AC))).c_str(), shifted),
        1);
    EXPECT_EQ(shifted.size(), 1U + 1364U * 3U);
}

TEST(NyStringTest, TStringHoldsUTF16AndConvertsBack) {
    const std::string utf8 = "Gr\xC3\xBC\xC3\x9F \xF0\x9F\x8E\xB9";
    tString text(utf8);
    EXPECT_EQ(text, (tString{'G', 'r', 0xFC, 0xDF, ' ', 0xD83C, 0xDFB9}));
    EXPECT_EQ(std::string(text), utf8);

    text = "plain";
    EXPECT_EQ(std::string(text), "plain");
    text = std::string("other");
    EXPECT_EQ(text, tString("other"));
}

TEST(NyStringTest, TStringsAreJoined) {
    const tString first("Gr");
    const tString second("\xC3\xBC\xC3\x9F");
    const tString joined = first + second;
    EXPECT_EQ(joined, tString("Gr\xC3\xBC\xC3\x9F"));
    EXPECT_EQ(std::string(first + second), "Gr\xC3\xBC\xC3\x9F");
    const tString withText = first + "\xC3\xBC" + std::string("n");
    EXPECT_EQ(withText, tString("Gr\xC3\xBCn"));
    EXPECT_EQ("Gr" + second, joined);

    tString assigned;
    assigned = first + second;
    EXPECT_EQ(assigned, joined);
    const tString::Base base = joined;
    assigned = base;
    const tString built = base;
    EXPECT_EQ(assigned, built);
}

TEST(NyStringTest, JoiningIsNotCutWhereConversionsAre) {
    const tString half(4000, static_cast<unsigned short>('a'));
    const tString joined = half + half;
    EXPECT_EQ(joined, tString(8000, static_cast<unsigned short>('a')));
}

TEST(NyStringTest, APartOfATStringIsOne) {
    const tString text("Fl\xC3\xB6te");
    const tString part = text.substr(1, 2);
    EXPECT_EQ(std::string(part), "l\xC3\xB6");
    EXPECT_EQ(std::string(text.substr(3)), "te");
    EXPECT_EQ(text.substr(), text);
    EXPECT_EQ(text.substr(5), tString());
    EXPECT_THROW(static_cast<void>(text.substr(6)), std::out_of_range);
}

TEST(NyStringTest, TStringsAreBuiltFromUnits) {
    const unsigned short units[] = {'a', 0xD83C, 0xDFB9, 0, 'b', 0};
    const tString counted(units, 5);
    EXPECT_EQ(counted.size(), 5U);
    EXPECT_EQ(counted[3], 0);
    EXPECT_EQ(counted[4], 'b');
    const tString terminated(units);
    EXPECT_EQ(std::string(terminated), "a\xF0\x9F\x8E\xB9");
    EXPECT_EQ(tString(units, units + 3), terminated);
    EXPECT_EQ(tString(counted, 1, 2), tString("\xF0\x9F\x8E\xB9"));
    EXPECT_EQ(tString(3, 'a'), tString("aaa"));
}

TEST(NyStringTest, ValuesAreReadInTheGivenBase) {
    int value = -1;
    NyStringToValue("17", value, 8);
    EXPECT_EQ(value, 15);
    NyStringToValue("17", value, 10);
    EXPECT_EQ(value, 17);
    NyStringToValue("1f", value, 16);
    EXPECT_EQ(value, 31);
    NyStringToValue("0x1f", value, 0);
    EXPECT_EQ(value, 31);
    NyStringToValue("017", value, 0);
    EXPECT_EQ(value, 15);
    NyStringToValue("  42 rest", value, 10);
    EXPECT_EQ(value, 42);
}

TEST(NyStringTest, ATextThatIsNoValueLeavesTheValueUnchanged) {
    int value = 256;
    NyStringToValue("", value, 10);
    EXPECT_EQ(value, 256);
    NyStringToValue("x1", value, 10);
    EXPECT_EQ(value, 256);
    NyStringToValue("99999999999999999999", value, 10);
    EXPECT_EQ(value, 256);
}

} // namespace
