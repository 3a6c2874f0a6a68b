#include "tests/unit/platform/CoreFoundation/values/CFTestValues.h"

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFRuntimeHost.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <limits>
#include <thread>

extern "C" int CFTypesAreUsableFromC(void); // CFTypesFromC.c

namespace {

TEST(CFBase, CountsReferences) {
    const auto text = Text("counted");
    EXPECT_EQ(CFGetRetainCount(text.Get()), 1);
    EXPECT_EQ(CFRetain(text.Get()), text.Get());
    EXPECT_EQ(CFGetRetainCount(text.Get()), 2);
    CFRelease(text.Get());
    EXPECT_EQ(CFGetRetainCount(text.Get()), 1);
}

TEST(CFBase, PassesNullOver) {
    EXPECT_EQ(CFRetain(nullptr), nullptr);
    CFRelease(nullptr);
    EXPECT_EQ(CFGetRetainCount(nullptr), 0);
    EXPECT_EQ(CFGetTypeID(nullptr), 0U);
    EXPECT_EQ(CFHash(nullptr), 0U);
    EXPECT_EQ(CFCopyDescription(nullptr), nullptr);
    EXPECT_TRUE(CFEqual(nullptr, nullptr));
    EXPECT_FALSE(CFEqual(nullptr, kCFBooleanTrue));
    EXPECT_FALSE(CFEqual(kCFBooleanTrue, nullptr));
}

// Else a file could be made whose keys all have one hash, and reading it would take hours.
TEST(CFBase, HashesTextAndBytesDifferentlyInEachProcess) {
    if (QUORVEL_CROSS_BUILD != 0) {
        GTEST_SKIP() << "a program under user-mode emulation cannot start itself anew";
    }
    GTEST_FLAG_SET(death_test_style, "threadsafe"); // which starts the program anew
    const UInt8 bytes[] = {1, 2, 3, 4};
    const CFOwned<CFDataRef> data(CFDataCreate(nullptr, bytes, sizeof bytes));
    for (const CFTypeRef object : {CFTypeRef{CFSTR("text")}, CFTypeRef{data.Get()}}) {
        const std::string own = "hash " + std::to_string(CFHash(object)) + ".";
        EXPECT_EXIT(
            {
                std::fprintf(stderr, "hash %lu.", CFHash(object));
                std::_Exit(0);
            },
            testing::ExitedWithCode(0),
            testing::AllOf(testing::HasSubstr("hash "), testing::Not(testing::HasSubstr(own))));
    }
}

TEST(CFBase, KeepsConstantsForEver) {
    for (const CFTypeRef constant : {CFTypeRef{CFSTR("constant")}, CFTypeRef{kCFBooleanTrue},
                                     CFTypeRef{CFAllocatorGetDefault()}}) {
        for (int i = 0; i < 3; ++i) {
            CFRelease(constant);
        }
        EXPECT_EQ(CFGetRetainCount(constant), std::numeric_limits<CFIndex>::max());
    }
    EXPECT_EQ(Read(CFSTR("constant")), "constant");
}

TEST(CFBase, CountsLiveObjectsByType) {
    const CFIndex strings = CFRuntimeHostLiveObjectCount(CFStringGetTypeID());
    const CFIndex all = CFRuntimeHostLiveObjectCount(0);
    {
        const auto first = Text("one");
        const auto second = Text("two");
        const auto number = Integer(3);
        EXPECT_EQ(CFRuntimeHostLiveObjectCount(CFStringGetTypeID()), strings + 2);
        EXPECT_EQ(CFRuntimeHostLiveObjectCount(0), all + 3);
    }
    EXPECT_EQ(CFRuntimeHostLiveObjectCount(CFStringGetTypeID()), strings);
    EXPECT_EQ(CFRuntimeHostLiveObjectCount(0), all);
    EXPECT_EQ(CFRuntimeHostLiveObjectCount(1000), -1);
}

TEST(CFBase, CountsNoConstants) {
    const CFIndex all = CFRuntimeHostLiveObjectCount(0);
    for (int i = 0; i < 1000; ++i) {
        CFRelease(CFRetain(CFSTR("the same text each time")));
        CFUUIDGetConstantUUIDWithBytes(nullptr, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15,
                                       16);
    }
    EXPECT_EQ(CFRuntimeHostLiveObjectCount(0), all);
}

TEST(CFBase, MakesNothingWithTheNullAllocatorOrWhatIsNone) {
    for (const auto* allocator : {kCFAllocatorNull, reinterpret_cast<CFAllocatorRef>(CFSTR("x"))}) {
        EXPECT_EQ(CFStringCreateWithCString(allocator, "x", kCFStringEncodingASCII), nullptr);
        EXPECT_EQ(CFStringCreateCopy(allocator, CFSTR("x")), nullptr);
        EXPECT_EQ(CFDataCreate(allocator, nullptr, 0), nullptr);
        EXPECT_EQ(CFArrayCreate(allocator, nullptr, 0, nullptr), nullptr);
        EXPECT_EQ(CFDictionaryCreateMutable(allocator, 0, nullptr, nullptr), nullptr);
        EXPECT_EQ(CFUUIDCreateFromUUIDBytes(allocator, CFUUIDBytes{}), nullptr);
        const UInt8 path[] = {'/'};
        EXPECT_EQ(CFURLCreateFromFileSystemRepresentation(allocator, path, 1, true), nullptr);
    }
}

TEST(CFBase, MakesObjectsWithEveryOtherAllocator) {
    for (const auto* allocator : {kCFAllocatorDefault, kCFAllocatorSystemDefault,
                                  kCFAllocatorMalloc, CFAllocatorGetDefault()}) {
        EXPECT_EQ(ReadOwned(CFStringCreateWithCString(allocator, "x", kCFStringEncodingASCII)),
                  "x");
    }
}

TEST(CFBase, ComparesAndDescribesContainersWithoutEnd) {
    const auto first = Array();
    const auto second = Array();
    CFArrayAppendValue(first.Get(), first.Get());
    CFArrayAppendValue(second.Get(), second.Get());
    EXPECT_FALSE(CFEqual(first.Get(), second.Get()));
    EXPECT_EQ(CFHash(first.Get()), CFHash(second.Get()));
    const std::string text = ReadOwned(CFCopyDescription(first.Get()));
    EXPECT_EQ(text.substr(0, 4), "((((");
    EXPECT_NE(text.find("(...)"), std::string::npos);
    CFArrayRemoveValueAtIndex(first.Get(), 0);
    CFArrayRemoveValueAtIndex(second.Get(), 0);
}

TEST(CFBase, AnswersValuesOfTheWrongType) {
    for (const CFTypeRef wrong : {CFTypeRef{}, CFTypeRef{kCFBooleanTrue}, CFTypeRef{ZeroUuid()}}) {
        const auto* string = static_cast<CFStringRef>(wrong);
        char buffer[8] = "unset";
        EXPECT_FALSE(CFStringGetCString(string, buffer, sizeof(buffer), kCFStringEncodingASCII));
        EXPECT_STREQ(buffer, "");
        EXPECT_EQ(CFStringGetLength(string), 0);
        EXPECT_EQ(CFStringGetCharacterAtIndex(string, 0), 0);
        EXPECT_EQ(CFStringGetIntValue(string), 0);
        EXPECT_EQ(CFStringCreateCopy(nullptr, string), nullptr);
        EXPECT_EQ(CFStringCreateWithFormat(nullptr, nullptr, string), nullptr);
        EXPECT_EQ(CFStringCreateArrayBySeparatingStrings(nullptr, string, CFSTR("-")), nullptr);
        EXPECT_EQ(CFStringCreateArrayBySeparatingStrings(nullptr, CFSTR("-"), string), nullptr);
        EXPECT_EQ(CFUUIDCreateFromString(nullptr, string), nullptr);
        EXPECT_EQ(CFErrorCreate(nullptr, string, 0, nullptr), nullptr);

        const auto* array = static_cast<CFArrayRef>(wrong);
        EXPECT_EQ(CFArrayGetCount(array), 0);
        EXPECT_EQ(CFArrayGetValueAtIndex(array, 0), nullptr);
        EXPECT_EQ(CFArrayCreateMutableCopy(nullptr, 0, array), nullptr);
        CFArrayAppendValue(const_cast<CFMutableArrayRef>(array), wrong);

        const auto* dictionary = static_cast<CFDictionaryRef>(wrong);
        EXPECT_EQ(CFDictionaryGetCount(dictionary), 0);
        EXPECT_EQ(CFDictionaryGetValue(dictionary, CFSTR("key")), nullptr);
        EXPECT_FALSE(CFDictionaryContainsKey(dictionary, CFSTR("key")));
        EXPECT_EQ(CFDictionaryCreateCopy(nullptr, dictionary), nullptr);
        CFDictionarySetValue(const_cast<CFMutableDictionaryRef>(dictionary), wrong, wrong);

        const auto* data = static_cast<CFDataRef>(wrong);
        EXPECT_EQ(CFDataGetLength(data), 0);
        EXPECT_EQ(CFDataGetBytePtr(data), nullptr);
        EXPECT_EQ(CFDataCreateCopy(nullptr, data), nullptr);

        const auto* number = static_cast<CFNumberRef>(wrong);
        SInt32 value = 7;
        EXPECT_FALSE(CFNumberGetValue(number, kCFNumberSInt32Type, &value));
        EXPECT_EQ(value, 7);
        EXPECT_FALSE(CFNumberIsFloatType(number));

        UInt8 path[8];
        EXPECT_FALSE(CFURLGetFileSystemRepresentation(static_cast<CFURLRef>(wrong), true, path, 8));
        EXPECT_EQ(CFDateGetAbsoluteTime(static_cast<CFDateRef>(wrong)), 0);
    }
    EXPECT_FALSE(CFBooleanGetValue(static_cast<CFBooleanRef>(CFTypeRef{CFSTR("true")})));
    EXPECT_EQ(CFUUIDCreateString(nullptr, static_cast<CFUUIDRef>(CFTypeRef{CFSTR("x")})), nullptr);
}

TEST(CFBase, RetainsAndReleasesFromManyThreads) {
    const CFIndex before = CFRuntimeHostLiveObjectCount(0);
    for (int round = 0; round < 20; ++round) {
        auto array = Array();
        for (int i = 0; i < 8; ++i) {
            CFArrayAppendValue(array.Get(), Integer(i).Get());
        }
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([shared = CFRetain(array.Get())] {
                for (int k = 0; k < 2000; ++k) {
                    CFRelease(CFRetain(shared));
                }
                SInt64 value = 0;
                EXPECT_TRUE(CFNumberGetValue(static_cast<CFNumberRef>(CFArrayGetValueAtIndex(
                                                 static_cast<CFArrayRef>(shared), 7)),
                                             kCFNumberSInt64Type, &value));
                EXPECT_EQ(value, 7);
                CFRelease(shared);
            });
        }
        // One of the threads may be the one that destroys the array.
        array.Reset();
        for (std::thread& thread : threads) {
            thread.join();
        }
    }
    EXPECT_EQ(CFRuntimeHostLiveObjectCount(0), before);
}

TEST(CFBase, IsUsableFromC) {
    EXPECT_EQ(CFTypesAreUsableFromC(), 0);
}

} // namespace
