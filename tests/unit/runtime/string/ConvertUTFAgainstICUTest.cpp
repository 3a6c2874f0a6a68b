// Our conversions against ICU's, on random text where the two share their rules: well-formed text,
// and where a strict conversion stops in ill-formed text.
#include "runtime/string/ConvertUTF.h"

#include <gtest/gtest.h>
#include <unicode/ustring.h>
#include <unicode/utf8.h>

#include <cstdint>
#include <random>
#include <vector>

namespace {

constexpr int kRounds = 200000;

class ConvertUTFAgainstICUTest : public ::testing::Test {
protected:
    const std::uint32_t mSeed = std::random_device{}();
    std::mt19937 mRandom{mSeed};

    std::uint32_t Below(std::uint32_t limit) {
        return std::uniform_int_distribution<std::uint32_t>(0, limit - 1)(mRandom);
    }
};

TEST_F(ConvertUTFAgainstICUTest, UTF16ToUTF8GivesTheSameBytesOrBothRefuse) {
    SCOPED_TRACE(::testing::Message() << "seed " << mSeed);
    for (int round = 0; round < kRounds; ++round) {
        std::vector<UChar> text(Below(24));
        for (UChar& unit : text) {
            const std::uint32_t kind = Below(8);
            unit = static_cast<UChar>(kind < 4   ? Below(0x80)
                                      : kind < 6 ? Below(0x10000)
                                                 : 0xD800 + Below(0x800));
        }
        std::vector<char> theirs(text.size() * 3 + 1);
        std::int32_t theirLength = 0;
        UErrorCode error = U_ZERO_ERROR;
        u_strToUTF8(theirs.data(), static_cast<std::int32_t>(theirs.size()), &theirLength,
                    text.data(), static_cast<std::int32_t>(text.size()), &error);

        std::vector<unsigned short> units(text.begin(), text.end());
        std::vector<unsigned char> ours(theirs.size());
        const unsigned short* source = units.data();
        unsigned char* target = ours.data();
        const NYPL::ConversionResult result =
            NYPL::ConvertUTF16toUTF8(&source, units.data() + units.size(), &target,
                                     ours.data() + ours.size(), NYPL::strictConversion);
        ASSERT_EQ(result == NYPL::conversionOK, U_SUCCESS(error) != 0);
        if (result == NYPL::conversionOK) {
            ours.resize(static_cast<std::size_t>(target - ours.data()));
            ASSERT_EQ(ours,
                      std::vector<unsigned char>(theirs.begin(), theirs.begin() + theirLength));
        }
    }
}

TEST_F(ConvertUTFAgainstICUTest, UTF8ToUTF16GivesTheSameUnitsOrBothRefuse) {
    SCOPED_TRACE(::testing::Message() << "seed " << mSeed);
    for (int round = 0; round < kRounds; ++round) {
        std::vector<std::uint8_t> text;
        for (std::uint32_t count = Below(16); count > 0; --count) {
            UChar32 character =
                static_cast<UChar32>(Below(3) == 0 ? Below(0x110000) : Below(0x800));
            if (U_IS_SURROGATE(character)) {
                character = 'x';
            }
            std::uint8_t bytes[4];
            std::size_t length = 0;
            U8_APPEND_UNSAFE(bytes, length, character);
            text.insert(text.end(), bytes, bytes + length);
        }
        // Every other text is broken in one place.
        if (!text.empty() && Below(2) == 0) {
            text[Below(static_cast<std::uint32_t>(text.size()))] =
                static_cast<std::uint8_t>(Below(256));
        }
        std::vector<UChar> theirs(text.size() + 1);
        std::int32_t theirLength = 0;
        UErrorCode error = U_ZERO_ERROR;
        u_strFromUTF8(theirs.data(), static_cast<std::int32_t>(theirs.size()), &theirLength,
                      reinterpret_cast<const char*>(text.data()),
                      static_cast<std::int32_t>(text.size()), &error);

        std::vector<unsigned short> ours(theirs.size());
        const unsigned char* source = text.data();
        unsigned short* target = ours.data();
        const NYPL::ConversionResult result =
            NYPL::ConvertUTF8toUTF16(&source, text.data() + text.size(), &target,
                                     ours.data() + ours.size(), NYPL::lenientConversion);
        ASSERT_EQ(result == NYPL::conversionOK, U_SUCCESS(error) != 0);
        if (result == NYPL::conversionOK) {
            ours.resize(static_cast<std::size_t>(target - ours.data()));
            ASSERT_EQ(ours,
                      std::vector<unsigned short>(theirs.begin(), theirs.begin() + theirLength));
        }
    }
}

TEST_F(ConvertUTFAgainstICUTest, UTF32ToUTF16GivesTheSameUnitsOrBothRefuse) {
    SCOPED_TRACE(::testing::Message() << "seed " << mSeed);
    for (int round = 0; round < kRounds; ++round) {
        std::vector<UChar32> text(Below(16));
        for (UChar32& character : text) {
            character = static_cast<UChar32>(Below(4) == 0 ? Below(0x110000) : Below(0x10000));
        }
        std::vector<UChar> theirs(text.size() * 2 + 1);
        std::int32_t theirLength = 0;
        UErrorCode error = U_ZERO_ERROR;
        u_strFromUTF32(theirs.data(), static_cast<std::int32_t>(theirs.size()), &theirLength,
                       text.data(), static_cast<std::int32_t>(text.size()), &error);

        std::vector<NYPL::UTF32> units(text.begin(), text.end());
        std::vector<unsigned short> ours(theirs.size());
        const NYPL::UTF32* source = units.data();
        unsigned short* target = ours.data();
        const NYPL::ConversionResult result =
            NYPL::ConvertUTF32toUTF16(&source, units.data() + units.size(), &target,
                                      ours.data() + ours.size(), NYPL::strictConversion);
        ASSERT_EQ(result == NYPL::conversionOK, U_SUCCESS(error) != 0);
        if (result == NYPL::conversionOK) {
            ours.resize(static_cast<std::size_t>(target - ours.data()));
            ASSERT_EQ(ours,
                      std::vector<unsigned short>(theirs.begin(), theirs.begin() + theirLength));
        }
    }
}

} // namespace
