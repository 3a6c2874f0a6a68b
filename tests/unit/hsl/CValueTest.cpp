#include "hsl/CValue.h"

#include "MidiDriver/worker/circular_buffer/CCircularBuffer.h"
#include "tests/unit/hsl/record/RecordBytes.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <string>
#include <type_traits>

namespace HSL {
namespace {

using namespace RecordBytes;

Bytes Serialized(const CValue& value) {
    constexpr int kSize = 400000;
    CCircularBuffer ring(1, kSize, CCircularBuffer::MallocFunc, CCircularBuffer::FreeFunc,
                         CCircularBuffer::CopyFunc);
    EXPECT_EQ(value.Serialize(&ring), 0);
    Bytes bytes(kSize);
    int count = kSize;
    ring.Read(bytes.data(), count);
    bytes.resize(static_cast<std::size_t>(count));
    EXPECT_EQ(bytes.at(0), value.Kind());
    return bytes;
}

Bytes Kind(int kind) {
    return {static_cast<unsigned char>(kind)};
}

TEST(CValueTest, IntegersAreWrittenInTheirOwnWidth) {
    EXPECT_EQ(Serialized(static_cast<signed char>(-5)), Join(Kind(4), Raw(std::int8_t{-5})));
    EXPECT_EQ(Serialized('A'), (Bytes{4, 65}));
    EXPECT_EQ(Serialized(short{-300}), Join(Kind(5), Raw(std::int16_t{-300})));
    EXPECT_EQ(Serialized(-70000), Join(Kind(6), Raw(std::int32_t{-70000})));
    EXPECT_EQ(Serialized(-5000000000LL), Join(Kind(7), Raw(std::int64_t{-5000000000})));
    EXPECT_EQ(Serialized(static_cast<unsigned char>(200)), (Bytes{8, 200}));
    EXPECT_EQ(Serialized(static_cast<unsigned short>(60000)),
              Join(Kind(9), Raw(std::uint16_t{60000})));
    EXPECT_EQ(Serialized(4000000000U), Join(Kind(10), Raw(std::uint32_t{4000000000})));
    EXPECT_EQ(Serialized(0xFEDCBA9876543210ULL),
              Join(Kind(11), Raw(std::uint64_t{0xFEDCBA9876543210})));
}

TEST(CValueTest, TruthIsAnUnsignedByte) {
    EXPECT_EQ(Serialized(true), (Bytes{8, 1}));
    EXPECT_EQ(Serialized(false), (Bytes{8, 0}));
}

TEST(CValueTest, ALongKeepsAllItsBits) {
    if constexpr (sizeof(long) == 4) {
        EXPECT_EQ(Serialized(-7L), Join(Kind(14), Raw(std::int32_t{-7})));
        EXPECT_EQ(Serialized(7UL), Join(Kind(10), Raw(std::uint32_t{7})));
    } else {
        EXPECT_EQ(Serialized(-7L), Join(Kind(7), Raw(std::int64_t{-7})));
        EXPECT_EQ(Serialized(7UL), Join(Kind(11), Raw(std::uint64_t{7})));
    }
}

TEST(CValueTest, FloatingPointNumbersKeepTheirPrecision) {
    EXPECT_EQ(Serialized(1.5F), Join(Kind(12), Raw(1.5F)));
    EXPECT_EQ(Serialized(-2.25), Join(Kind(13), Raw(-2.25)));
}

TEST(CValueTest, NumbersLieInTheHostsByteOrder) {
    const Bytes big = {6, 0x01, 0x02, 0x03, 0x04};
    const Bytes little = {6, 0x04, 0x03, 0x02, 0x01};
    EXPECT_EQ(Serialized(0x01020304), std::endian::native == std::endian::big ? big : little);
}

TEST(CValueTest, APointerIsTheLowFourBytesOfItsAddress) {
    const int target = 0;
    const void* const pointer = &target;
    const auto address = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(pointer));
    EXPECT_EQ(Serialized(pointer), Join(Kind(15), Raw(address)));
    EXPECT_EQ(Serialized(&target), Join(Kind(15), Raw(address)));
}

TEST(CValueTest, ATextIsItsLengthAndItsBytes) {
    const Bytes expected = Join(Kind(16), Raw(std::uint16_t{3}), Raw("abc"));
    EXPECT_EQ(Serialized("abc"), expected);
    EXPECT_EQ(Serialized(std::string("abc")), expected);
    EXPECT_EQ(Serialized(""), Join(Kind(16), Raw(std::uint16_t{0})));
}

TEST(CValueTest, ANullTextIsWrittenAsText) {
    const char* const none = nullptr;
    EXPECT_EQ(Serialized(none), Join(Kind(16), Raw(std::uint16_t{6}), Raw("<NULL>")));
}

TEST(CValueTest, ALengthIsCutTo16BitsAndOnlySoManyBytesFollow) {
    std::string text(70000, 'x');
    text.replace(0, 5, "first");
    const Bytes expected =
        Join(Kind(16), Raw(std::uint16_t{4464}), Raw(text.substr(0, 4464).c_str()));
    EXPECT_EQ(Serialized(text), expected);

    EXPECT_EQ(Serialized(std::string(65535, 'y')).size(), 1 + 2 + 65535u);
    EXPECT_EQ(Serialized(std::string(65536, 'y')), Join(Kind(16), Raw(std::uint16_t{0})));
}

TEST(CValueTest, AWideTextIsItsCountAndFourBytesForEachCharacter) {
    const Bytes expected =
        Join(Kind(17), Raw(std::uint16_t{2}), Raw(std::uint32_t{0x20AC}), Raw(std::uint32_t{'b'}));
    EXPECT_EQ(Serialized(L"\u20ACb"), expected);
    EXPECT_EQ(Serialized(std::wstring(L"\u20ACb")), expected);
    EXPECT_EQ(Serialized(L""), Join(Kind(17), Raw(std::uint16_t{0})));
}

TEST(CValueTest, TheCountOfAWideTextIsCutTo16Bits) {
    EXPECT_EQ(
        Serialized(std::wstring(65538, L'z')),
        Join(Kind(17), Raw(std::uint16_t{2}), Raw(std::uint32_t{'z'}), Raw(std::uint32_t{'z'})));
    EXPECT_EQ(Serialized(std::wstring(65535, L'z')).size(), 1 + 2 + 4 * 65535u);
}

TEST(CValueTest, ANullWideTextCountsItsBytes) {
    const wchar_t* const none = nullptr;
    const Bytes bytes = Serialized(none);
    Bytes text;
    for (const char character : std::string("<NULL>")) {
        text = Join(text, Raw(static_cast<std::uint32_t>(character)));
    }
    ASSERT_EQ(text.size(), 24u);
    EXPECT_EQ(bytes, Join(Kind(17), Raw(std::uint16_t{24}), text));
}

TEST(CValueTest, ConversionsThatWouldLoseTheValueAreRefused) {
    EXPECT_FALSE((std::is_convertible_v<void (*)(), CValue>));
    EXPECT_FALSE((std::is_convertible_v<volatile int*, CValue>));
    EXPECT_FALSE((std::is_convertible_v<long double, CValue>));
    EXPECT_TRUE((std::is_convertible_v<char*, CValue>));
    EXPECT_EQ(CValue(std::string("s").data()).Kind(), eString);
}

} // namespace
} // namespace HSL
