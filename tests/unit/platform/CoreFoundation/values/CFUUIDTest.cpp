#include "tests/unit/platform/CoreFoundation/values/CFTestValues.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

constexpr const char* kText = "ECDE9574-0FE4-11D4-BB1A-0050E4CEA526";

CFUUIDRef Constant() {
    return CFUUIDGetConstantUUIDWithBytes(nullptr, 0xEC, 0xDE, 0x95, 0x74, 0x0F, 0xE4, 0x11, 0xD4,
                                          0xBB, 0x1A, 0x00, 0x50, 0xE4, 0xCE, 0xA5, 0x26);
}

TEST(CFUUID, IsTheSameFromTextBytesAndConstant) {
    const CFOwned<CFUUIDRef> fromText(CFUUIDCreateFromString(nullptr, Text(kText).Get()));
    const CFOwned<CFUUIDRef> fromBytes(
        CFUUIDCreateFromUUIDBytes(nullptr, CFUUIDGetUUIDBytes(Constant())));
    EXPECT_TRUE(CFEqual(fromText.Get(), fromBytes.Get()));
    EXPECT_TRUE(CFEqual(fromText.Get(), Constant()));
    EXPECT_EQ(CFHash(fromText.Get()), CFHash(Constant()));
    EXPECT_EQ(ReadOwned(CFUUIDCreateString(nullptr, fromText.Get())), kText);
    EXPECT_EQ(CFUUIDGetUUIDBytes(fromText.Get()).byte0, 0xEC);
    EXPECT_EQ(CFUUIDGetUUIDBytes(fromText.Get()).byte15, 0x26);
}

TEST(CFUUID, ReadsLowerCase) {
    const CFOwned<CFUUIDRef> uuid(
        CFUUIDCreateFromString(nullptr, CFSTR("ecde9574-0fe4-11d4-bb1a-0050e4cea526")));
    EXPECT_TRUE(CFEqual(uuid.Get(), Constant()));
}

TEST(CFUUID, RefusesOtherText) {
    const std::string good = kText;
    for (const std::string& bad :
         {std::string(), good + "0", good.substr(1), "{" + good + "}", "G" + good.substr(1),
          good.substr(0, 8) + "0" + good.substr(9), std::string(36, '-'), std::string(36, '0'),
          "+" + good.substr(1), good.substr(0, 34) + " 6", good.substr(0, 35) + "\xC3\xA4"}) {
        EXPECT_EQ(CFUUIDCreateFromString(nullptr, Text(bad).Get()), nullptr) << bad;
    }
}

TEST(CFUUID, KeepsOneConstantPerValue) {
    EXPECT_EQ(Constant(), Constant());
    CFRelease(Constant());
    EXPECT_EQ(Read(CFOwned<CFStringRef>(CFUUIDCreateString(nullptr, Constant())).Get()), kText);
}

TEST(CFUUID, GivesZerosForWhatIsNone) {
    const CFUUIDBytes zeros{};
    const CFUUIDBytes bytes = CFUUIDGetUUIDBytes(nullptr);
    EXPECT_EQ(std::memcmp(&bytes, &zeros, sizeof(zeros)), 0);
}

} // namespace
