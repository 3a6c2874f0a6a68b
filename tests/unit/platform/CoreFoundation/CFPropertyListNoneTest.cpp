// A build without property-list files.
#include "tests/unit/platform/CoreFoundation/CFTestValues.h"

#include <gtest/gtest.h>

namespace {

TEST(CFPropertyListNone, NeitherReadsNorWrites) {
    CFErrorRef error = nullptr;
    EXPECT_EQ(CFPropertyListCreateWithData(nullptr, Bytes("<plist><true/></plist>").Get(), 0,
                                           nullptr, &error),
              nullptr);
    EXPECT_EQ(ReadOwned(CFErrorCopyDescription(error)),
              "this build does not read property-list files");
    CFRelease(error);
    error = nullptr;
    EXPECT_EQ(
        CFPropertyListCreateData(nullptr, kCFBooleanTrue, kCFPropertyListXMLFormat_v1_0, 0, &error),
        nullptr);
    EXPECT_EQ(ReadOwned(CFErrorCopyDescription(error)),
              "this build does not write property-list files");
    CFRelease(error);
}

TEST(CFPropertyListNone, StillTellsAndCopiesPropertyLists) {
    const auto array = Array();
    CFArrayAppendValue(array.Get(), CFSTR("x"));
    EXPECT_TRUE(CFPropertyListIsValid(array.Get(), kCFPropertyListXMLFormat_v1_0));
    const CFHandle<CFTypeRef> copy(CFPropertyListCreateDeepCopy(nullptr, array.Get(), 0));
    EXPECT_TRUE(CFEqual(copy.Get(), array.Get()));
    EXPECT_NE(copy.Get(), array.Get());
}

TEST(CFPropertyListNone, KeepsPreferencesInTheProcess) {
    const auto get = [] {
        return CFHandle<CFTypeRef>(CFPreferencesCopyValue(CFSTR("key"), CFSTR("com.quorvel.Test"),
                                                          kCFPreferencesAnyUser,
                                                          kCFPreferencesCurrentHost));
    };
    const auto set = [](CFTypeRef value) {
        CFPreferencesSetValue(CFSTR("key"), value, CFSTR("com.quorvel.Test"), kCFPreferencesAnyUser,
                              kCFPreferencesCurrentHost);
        EXPECT_TRUE(CFPreferencesSynchronize(CFSTR("com.quorvel.Test"), kCFPreferencesAnyUser,
                                             kCFPreferencesCurrentHost));
    };
    EXPECT_FALSE(get());
    set(CFSTR("value"));
    EXPECT_EQ(Read(get().Get()), "value");
    set(nullptr);
    EXPECT_FALSE(get());
}

} // namespace
