// Data, numbers, booleans, dates and errors.
#include "tests/unit/platform/CoreFoundation/values/CFTestValues.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <limits>

namespace {

std::string Contents(CFDataRef data) {
    return {reinterpret_cast<const char*>(CFDataGetBytePtr(data)),
            static_cast<std::size_t>(CFDataGetLength(data))};
}

TEST(CFData, KeepsACopyOfTheBytes) {
    std::string bytes("\0\x01\xFF", 3);
    const auto data = Bytes(bytes);
    bytes[0] = 'x';
    EXPECT_EQ(Contents(data.Get()), std::string("\0\x01\xFF", 3));
    EXPECT_NE(CFDataGetBytePtr(Bytes("").Get()), nullptr);
    EXPECT_TRUE(CFEqual(data.Get(), Bytes(std::string("\0\x01\xFF", 3)).Get()));
    EXPECT_FALSE(CFEqual(data.Get(), Bytes("").Get()));
    EXPECT_EQ(CFDataCreate(nullptr, nullptr, 1), nullptr);
    EXPECT_EQ(CFDataCreate(nullptr, nullptr, -1), nullptr);
    const CFOwned<CFDataRef> copy(CFDataCreateCopy(nullptr, data.Get()));
    EXPECT_TRUE(CFEqual(copy.Get(), data.Get()));
}

TEST(CFNumber, TellsWhenAValueDoesNotFit) {
    SInt8 small = 0;
    EXPECT_TRUE(CFNumberGetValue(Integer(-128).Get(), kCFNumberSInt8Type, &small));
    EXPECT_EQ(small, -128);
    EXPECT_FALSE(CFNumberGetValue(Integer(300).Get(), kCFNumberSInt8Type, &small));
    EXPECT_EQ(small, 127);
    SInt32 value = 0;
    EXPECT_FALSE(CFNumberGetValue(Integer(-5000000000).Get(), kCFNumberSInt32Type, &value));
    EXPECT_EQ(value, std::numeric_limits<SInt32>::min());
    EXPECT_TRUE(CFNumberGetValue(Real(2).Get(), kCFNumberIntType, &value));
    EXPECT_EQ(value, 2);
    EXPECT_FALSE(CFNumberGetValue(Real(2.5).Get(), kCFNumberIntType, &value));
    EXPECT_EQ(value, 2);
    EXPECT_FALSE(CFNumberGetValue(Real(1e300).Get(), kCFNumberIntType, &value));
    EXPECT_EQ(value, std::numeric_limits<SInt32>::max());
    EXPECT_FALSE(CFNumberGetValue(Real(std::nan("")).Get(), kCFNumberIntType, &value));
    EXPECT_EQ(value, 0);
    float narrow = 0;
    EXPECT_TRUE(CFNumberGetValue(Real(0.5).Get(), kCFNumberFloatType, &narrow));
    EXPECT_FALSE(CFNumberGetValue(Real(0.1).Get(), kCFNumberFloatType, &narrow));
    EXPECT_FALSE(CFNumberGetValue(Real(1e300).Get(), kCFNumberFloatType, &narrow));
    EXPECT_TRUE(std::isinf(narrow));
    double wide = 0;
    EXPECT_FALSE(CFNumberGetValue(Integer(9007199254740993).Get(), kCFNumberDoubleType, &wide));
    EXPECT_FALSE(CFNumberGetValue(Integer(std::numeric_limits<SInt64>::max()).Get(),
                                  kCFNumberDoubleType, &wide));
    EXPECT_FALSE(CFNumberGetValue(Integer(1).Get(), 99, &wide));
    EXPECT_FALSE(CFNumberGetValue(Integer(1).Get(), kCFNumberIntType, nullptr));
}

TEST(CFNumber, IsMadeFromEveryType) {
    const long number = -3;
    const float real = 1.5F;
    const short little = -2;
    for (const CFNumberType type : {kCFNumberLongType, kCFNumberCFIndexType}) {
        EXPECT_TRUE(CFEqual(CFOwned<CFNumberRef>(CFNumberCreate(nullptr, type, &number)).Get(),
                            Integer(-3).Get()));
    }
    const CFOwned<CFNumberRef> fromFloat(CFNumberCreate(nullptr, kCFNumberFloat32Type, &real));
    EXPECT_TRUE(CFEqual(fromFloat.Get(), Real(1.5).Get()));
    EXPECT_TRUE(CFNumberIsFloatType(fromFloat.Get()));
    const CFOwned<CFNumberRef> fromShort(CFNumberCreate(nullptr, kCFNumberShortType, &little));
    EXPECT_TRUE(CFEqual(fromShort.Get(), Integer(-2).Get()));
    EXPECT_FALSE(CFNumberIsFloatType(fromShort.Get()));
    EXPECT_EQ(CFNumberCreate(nullptr, 0, &number), nullptr);
    EXPECT_EQ(CFNumberCreate(nullptr, kCFNumberIntType, nullptr), nullptr);
}

TEST(CFNumber, ComparesByValue) {
    EXPECT_TRUE(CFEqual(Integer(2).Get(), Real(2).Get()));
    EXPECT_EQ(CFHash(Integer(2).Get()), CFHash(Real(2).Get()));
    EXPECT_EQ(CFHash(Real(0.0).Get()), CFHash(Real(-0.0).Get()));
    EXPECT_FALSE(CFEqual(Integer(1).Get(), kCFBooleanTrue));
    const auto equal = [](const CFOwned<CFNumberRef>& a, const CFOwned<CFNumberRef>& b) {
        EXPECT_EQ(CFEqual(a.Get(), b.Get()), CFEqual(b.Get(), a.Get()));
        return CFEqual(a.Get(), b.Get()) != 0;
    };
    EXPECT_FALSE(equal(Integer(-1), Integer(1)));
    EXPECT_FALSE(equal(Real(2.5), Integer(2)));
    EXPECT_FALSE(equal(Integer(-2), Real(-2.5)));
    EXPECT_TRUE(equal(Real(0.0), Real(-0.0)));
    EXPECT_TRUE(equal(Integer(std::numeric_limits<SInt64>::min()), Real(-9223372036854775808.0)));
    // The double nearest to the largest integer is one more.
    EXPECT_FALSE(equal(Integer(std::numeric_limits<SInt64>::max()), Real(9223372036854775807.0)));
    EXPECT_TRUE(equal(Real(1e300), Real(1e300)));
    EXPECT_FALSE(equal(Real(std::nan("")), Integer(0)));
    EXPECT_TRUE(equal(Real(std::nan("")), Real(std::nan(""))));
}

TEST(CFBoolean, HasTwoValues) {
    EXPECT_TRUE(CFBooleanGetValue(kCFBooleanTrue));
    EXPECT_FALSE(CFBooleanGetValue(kCFBooleanFalse));
    EXPECT_FALSE(CFBooleanGetValue(nullptr));
    EXPECT_FALSE(CFEqual(kCFBooleanTrue, kCFBooleanFalse));
}

TEST(CFDate, CountsFromTheYear2001) {
    const CFOwned<CFDateRef> date(CFDateCreate(nullptr, 86400.5));
    EXPECT_EQ(CFDateGetAbsoluteTime(date.Get()), 86400.5);
    EXPECT_EQ(ReadOwned(CFCopyDescription(date.Get())), "2001-01-02 00:00:00 +0000");
    const CFOwned<CFDateRef> same(CFDateCreate(nullptr, 86400.5));
    EXPECT_TRUE(CFEqual(date.Get(), same.Get()));
    EXPECT_EQ(CFHash(date.Get()), CFHash(same.Get()));
    const CFOwned<CFDateRef> never(CFDateCreate(nullptr, 1e300));
    EXPECT_NE(ReadOwned(CFCopyDescription(never.Get())), "");
}

TEST(CFError, TellsWhatWentWrong) {
    const auto info = Dictionary();
    CFDictionarySetValue(info.Get(), kCFErrorLocalizedDescriptionKey, CFSTR("the reason"));
    const CFOwned<CFErrorRef> error(CFErrorCreate(nullptr, kCFErrorDomainCocoa, 3840, info.Get()));
    EXPECT_EQ(CFErrorGetCode(error.Get()), 3840);
    EXPECT_EQ(ReadOwned(CFErrorCopyDescription(error.Get())), "the reason");
    const CFOwned<CFErrorRef> bare(CFErrorCreate(nullptr, kCFErrorDomainPOSIX, 2, nullptr));
    EXPECT_EQ(ReadOwned(CFErrorCopyDescription(bare.Get())), "error 2 of NSPOSIXErrorDomain");
    EXPECT_EQ(CFErrorCreate(nullptr, CFSTR("d"), 0,
                            static_cast<CFDictionaryRef>(CFTypeRef{kCFBooleanTrue})),
              nullptr);
}

} // namespace
