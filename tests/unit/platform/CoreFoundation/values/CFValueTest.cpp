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
}

TEST(CFData, ReadsOnlyWithinItsBytes) {
    const auto data = Bytes("abcd");
    UInt8 buffer[4] = {'-', '-', '-', '-'};
    CFDataGetBytes(data.Get(), CFRangeMake(2, 3), buffer);
    CFDataGetBytes(data.Get(), CFRangeMake(-1, 1), buffer);
    EXPECT_EQ(buffer[0], '-');
    CFDataGetBytes(data.Get(), CFRangeMake(1, 3), buffer);
    EXPECT_EQ(std::string(buffer, buffer + 4), "bcd-");
}

TEST(CFData, ChangesWhenMutable) {
    const CFOwned<CFMutableDataRef> data(CFDataCreateMutable(nullptr, 0));
    CFDataAppendBytes(data.Get(), reinterpret_cast<const UInt8*>("abcd"), 4);
    CFDataReplaceBytes(data.Get(), CFRangeMake(1, 2), reinterpret_cast<const UInt8*>("123"), 3);
    EXPECT_EQ(Contents(data.Get()), "a123d");
    CFDataAppendBytes(data.Get(), CFDataGetBytePtr(data.Get()), 2);
    EXPECT_EQ(Contents(data.Get()), "a123da1");
    CFDataDeleteBytes(data.Get(), CFRangeMake(0, 5));
    CFDataDeleteBytes(data.Get(), CFRangeMake(1, 5));
    EXPECT_EQ(Contents(data.Get()), "a1");
    CFDataIncreaseLength(data.Get(), 1);
    CFDataSetLength(data.Get(), -1);
    CFDataIncreaseLength(data.Get(), std::numeric_limits<CFIndex>::max());
    EXPECT_EQ(Contents(data.Get()), std::string("a1\0", 3));
    CFDataGetMutableBytePtr(data.Get())[2] = 'z';
    EXPECT_EQ(Contents(data.Get()), "a1z");
    const CFOwned<CFDataRef> copy(CFDataCreateCopy(nullptr, data.Get()));
    auto* cast = const_cast<CFMutableDataRef>(copy.Get());
    EXPECT_EQ(CFDataGetMutableBytePtr(cast), nullptr);
    CFDataSetLength(cast, 0);
    EXPECT_EQ(Contents(copy.Get()), "a1z");
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
    EXPECT_EQ(CFNumberGetType(fromShort.Get()), kCFNumberSInt64Type);
    EXPECT_EQ(CFNumberGetByteSize(fromShort.Get()), 8);
    EXPECT_EQ(CFNumberCreate(nullptr, 0, &number), nullptr);
    EXPECT_EQ(CFNumberCreate(nullptr, kCFNumberIntType, nullptr), nullptr);
}

TEST(CFNumber, ComparesByValue) {
    EXPECT_TRUE(CFEqual(Integer(2).Get(), Real(2).Get()));
    EXPECT_EQ(CFHash(Integer(2).Get()), CFHash(Real(2).Get()));
    EXPECT_EQ(CFHash(Real(0.0).Get()), CFHash(Real(-0.0).Get()));
    EXPECT_FALSE(CFEqual(Integer(1).Get(), kCFBooleanTrue));
    const auto compare = [](const CFOwned<CFNumberRef>& a, const CFOwned<CFNumberRef>& b) {
        return CFNumberCompare(a.Get(), b.Get(), nullptr);
    };
    EXPECT_EQ(compare(Integer(-1), Integer(1)), kCFCompareLessThan);
    EXPECT_EQ(compare(Real(2.5), Integer(2)), kCFCompareGreaterThan);
    EXPECT_EQ(compare(Integer(-2), Real(-2.5)), kCFCompareGreaterThan);
    // The double nearest to the largest integer is one more.
    EXPECT_EQ(compare(Integer(std::numeric_limits<SInt64>::max()), Real(9223372036854775807.0)),
              kCFCompareLessThan);
    EXPECT_EQ(compare(Real(std::nan("")), Integer(std::numeric_limits<SInt64>::min())),
              kCFCompareLessThan);
    EXPECT_EQ(compare(Real(std::nan("")), Real(std::nan(""))), kCFCompareEqualTo);
    EXPECT_EQ(CFNumberCompare(nullptr, Integer(0).Get(), nullptr), kCFCompareLessThan);
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
    EXPECT_GT(CFAbsoluteTimeGetCurrent(), 0); // no machine that runs this is that old
}

TEST(CFError, TellsWhatWentWrong) {
    const auto info = Dictionary();
    CFDictionarySetValue(info.Get(), kCFErrorLocalizedDescriptionKey, CFSTR("the reason"));
    const CFOwned<CFErrorRef> error(CFErrorCreate(nullptr, kCFErrorDomainCocoa, 3840, info.Get()));
    EXPECT_EQ(CFErrorGetCode(error.Get()), 3840);
    EXPECT_TRUE(CFEqual(CFErrorGetDomain(error.Get()), kCFErrorDomainCocoa));
    EXPECT_EQ(ReadOwned(CFErrorCopyDescription(error.Get())), "the reason");
    const CFOwned<CFErrorRef> bare(CFErrorCreate(nullptr, kCFErrorDomainPOSIX, 2, nullptr));
    EXPECT_EQ(ReadOwned(CFErrorCopyDescription(bare.Get())), "error 2 of NSPOSIXErrorDomain");
    EXPECT_EQ(CFErrorCreate(nullptr, CFSTR("d"), 0,
                            static_cast<CFDictionaryRef>(CFTypeRef{kCFBooleanTrue})),
              nullptr);
}

} // namespace
