// What strict mode refuses, and what it lets through. Every test runs with it on; that all calls
// are answered when it is off is what the other programs test.
#include "platform/support/CFOwned.h"
#include "tests/support/TemporaryDirectory.h"

#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace {

struct Mistake {
    const char* line; // on standard error
    void (*make)();
};

// What is refused as null and as an object of another type.
CFStringRef NoString() {
    return nullptr;
}
template <typename Reference>
Reference Wrong() {
    return static_cast<Reference>(
        const_cast<void*>(static_cast<const void*>(CFUUIDGetConstantUUIDWithBytes(
            nullptr, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15))));
}
CFArrayRef Array() {
    const void* const value = kCFBooleanTrue;
    return CFArrayCreate(nullptr, const_cast<const void**>(&value), 1, &kCFTypeArrayCallBacks);
}

const Mistake kMistakes[] = {
    {"CFRetain: cf: expected an object, found null", [] { CFRetain(nullptr); }},
    {"CFRelease: cf: expected an object, found null", [] { CFRelease(nullptr); }},
    {"CFGetRetainCount: cf: expected an object, found null", [] { CFGetRetainCount(nullptr); }},
    {"CFGetTypeID: cf: expected an object, found null", [] { CFGetTypeID(nullptr); }},
    {"CFHash: cf: expected an object, found null", [] { CFHash(nullptr); }},
    {"CFEqual: cf1: expected an object, found null", [] { CFEqual(nullptr, nullptr); }},
    {"CFEqual: cf2: expected an object, found null", [] { CFEqual(kCFBooleanTrue, nullptr); }},

    {"CFArrayGetCount: theArray: expected CFArray, found null", [] { CFArrayGetCount(nullptr); }},
    {"CFArrayGetCount: theArray: expected CFArray, found CFUUID",
     [] { CFArrayGetCount(Wrong<CFArrayRef>()); }},
    {"CFArrayGetValueAtIndex: theArray: expected CFArray, found CFString",
     [] { CFArrayGetValueAtIndex(reinterpret_cast<CFArrayRef>(CFSTR("text")), 0); }},
    {"CFArrayAppendValue: theArray: expected CFArray, found null",
     [] { CFArrayAppendValue(nullptr, kCFBooleanTrue); }},
    {"CFArrayAppendValue: theArray: expected a mutable object, found CFArray",
     [] { CFArrayAppendValue(const_cast<CFMutableArrayRef>(Array()), kCFBooleanTrue); }},
    {"CFRetain: cf: expected an object, found null",
     [] { CFArrayAppendValue(CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks), nullptr); }},

    {"CFBooleanGetValue: boolean: expected CFBoolean, found CFUUID",
     [] { CFBooleanGetValue(Wrong<CFBooleanRef>()); }},
    {"CFNumberGetValue: number: expected CFNumber, found CFBoolean",
     [] {
         SInt32 value = 0;
         CFNumberGetValue(reinterpret_cast<CFNumberRef>(kCFBooleanTrue), kCFNumberSInt32Type,
                          &value);
     }},
    {"CFDateGetAbsoluteTime: theDate: expected CFDate, found null",
     [] { CFDateGetAbsoluteTime(nullptr); }},
    {"CFDataGetLength: theData: expected CFData, found CFUUID",
     [] { CFDataGetLength(Wrong<CFDataRef>()); }},

    {"CFDictionaryGetValue: theDict: expected CFDictionary, found CFArray",
     [] { CFDictionaryGetValue(reinterpret_cast<CFDictionaryRef>(Array()), CFSTR("key")); }},
    {"CFDictionaryGetCount: theDict: expected CFDictionary, found null",
     [] { CFDictionaryGetCount(nullptr); }},
    {"CFDictionarySetValue: theDict: expected a mutable object, found CFDictionary",
     [] {
         CFDictionarySetValue(
             const_cast<CFMutableDictionaryRef>(CFDictionaryCreate(
                 nullptr, nullptr, nullptr, 0, &kCFTypeDictionaryKeyCallBacks, nullptr)),
             CFSTR("key"), CFSTR("value"));
     }},
    {"CFHash: cf: expected an object, found null",
     [] {
         const CFMutableDictionaryRef dictionary = CFDictionaryCreateMutable(
             nullptr, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
         CFDictionarySetValue(dictionary, CFSTR("key"), CFSTR("value"));
         CFDictionaryGetValue(dictionary, nullptr);
     }},

    {"CFStringGetLength: theString: expected CFString, found null",
     [] { CFStringGetLength(nullptr); }},
    {"CFStringCreateCopy: theString: expected CFString, found CFBoolean",
     [] { CFStringCreateCopy(nullptr, reinterpret_cast<CFStringRef>(kCFBooleanTrue)); }},
    {"CFStringGetCString: theString: expected CFString, found CFUUID",
     [] {
         char text[8];
         CFStringGetCString(Wrong<CFStringRef>(), text, sizeof text, kCFStringEncodingASCII);
     }},
    {"CFStringCompare: theString2: expected CFString, found null",
     [] { CFStringCompare(CFSTR("text"), nullptr, 0); }},
    {"CFStringGetIntValue: str: expected CFString, found null",
     [] { CFStringGetIntValue(nullptr); }},
    {"CFStringCreateArrayBySeparatingStrings: theString: expected CFString, found CFUUID",
     [] { CFStringCreateArrayBySeparatingStrings(nullptr, Wrong<CFStringRef>(), CFSTR("-")); }},
    {"CFStringCreateWithFormatAndArguments: format: expected CFString, found null",
     [] { CFStringCreateWithFormat(nullptr, nullptr, NoString()); }},

    {"CFErrorGetCode: err: expected CFError, found null", [] { CFErrorGetCode(nullptr); }},
    {"CFErrorCreate: userInfo: expected CFDictionary, found CFUUID",
     [] { CFErrorCreate(nullptr, kCFErrorDomainPOSIX, 1, Wrong<CFDictionaryRef>()); }},
    {"CFURLGetFileSystemRepresentation: url: expected CFURL, found CFUUID",
     [] { CFURLGetFileSystemRepresentation(Wrong<CFURLRef>(), true, nullptr, 0); }},
    {"CFUUIDGetUUIDBytes: uuid: expected CFUUID, found null", [] { CFUUIDGetUUIDBytes(nullptr); }},
    {"CFUUIDCreateFromString: uuidStr: expected CFString, found CFUUID",
     [] { CFUUIDCreateFromString(nullptr, Wrong<CFStringRef>()); }},

    {"CFPropertyListCreateWithData: data: expected CFData, found null",
     [] { CFPropertyListCreateWithData(nullptr, nullptr, 0, nullptr, nullptr); }},
    {"CFPropertyListCreateData: propertyList: expected an object, found null",
     [] { CFPropertyListCreateData(nullptr, nullptr, kCFPropertyListXMLFormat_v1_0, 0, nullptr); }},
    {"CFPreferencesCopyValue: key: expected CFString, found null",
     [] {
         CFPreferencesCopyValue(nullptr, CFSTR("test"), kCFPreferencesAnyUser,
                                kCFPreferencesCurrentHost);
     }},
    {"CFPreferencesCopyValue: applicationID: expected CFString, found CFUUID",
     [] {
         CFPreferencesCopyValue(CFSTR("key"), Wrong<CFStringRef>(), kCFPreferencesAnyUser,
                                kCFPreferencesCurrentHost);
     }},
    {"CFPreferencesSetValue: userName: expected CFString, found null",
     [] {
         CFPreferencesSetValue(CFSTR("key"), nullptr, CFSTR("test"), nullptr,
                               kCFPreferencesCurrentHost);
     }},
    {"CFPreferencesSynchronize: hostName: expected CFString, found null",
     [] { CFPreferencesSynchronize(CFSTR("test"), kCFPreferencesAnyUser, nullptr); }},

    {"CFRunLoopAddSource: rl: expected CFRunLoop, found null",
     [] { CFRunLoopAddSource(nullptr, nullptr, kCFRunLoopDefaultMode); }},
    {"CFRunLoopAddSource: source: expected CFRunLoopSource, found null",
     [] { CFRunLoopAddSource(CFRunLoopGetCurrent(), nullptr, kCFRunLoopDefaultMode); }},
    {"CFRunLoopContainsSource: rl: expected CFRunLoop, found CFUUID",
     [] { CFRunLoopContainsSource(Wrong<CFRunLoopRef>(), nullptr, kCFRunLoopDefaultMode); }},
    {"CFRunLoopSourceSignal: source: expected CFRunLoopSource, found null",
     [] { CFRunLoopSourceSignal(nullptr); }},
    {"CFMessagePortInvalidate: ms: expected CFMessagePort, found CFUUID",
     [] { CFMessagePortInvalidate(Wrong<CFMessagePortRef>()); }},
    {"CFMessagePortCreateRemote: name: expected CFString, found null",
     [] { CFMessagePortCreateRemote(nullptr, nullptr); }},

    {"CFBundleCreate: bundleURL: expected CFURL, found null",
     [] { CFBundleCreate(nullptr, nullptr); }},
    {"CFBundleGetIdentifier: bundle: expected CFBundle, found null",
     [] { CFBundleGetIdentifier(nullptr); }},
    {"CFPlugInGetBundle: plugIn: expected CFBundle, found CFUUID",
     [] { CFPlugInGetBundle(Wrong<CFPlugInRef>()); }},
    {"CFPlugInFindFactoriesForPlugInTypeInPlugIn: typeUUID: expected CFUUID, found null",
     [] { CFPlugInFindFactoriesForPlugInTypeInPlugIn(nullptr, nullptr); }},
    {"CFPlugInInstanceCreate: factoryUUID: expected CFUUID, found CFString",
     [] { CFPlugInInstanceCreate(nullptr, reinterpret_cast<CFUUIDRef>(CFSTR("text")), nullptr); }},
    {"CFPlugInAddInstanceForFactory: factoryID: expected CFUUID, found null",
     [] { CFPlugInAddInstanceForFactory(nullptr); }},
};

class CFStrictMode : public testing::TestWithParam<Mistake> {};

TEST_P(CFStrictMode, AbortsAndNamesTheFunctionAndTheArgument) {
    EXPECT_EXIT(GetParam().make(), testing::KilledBySignal(SIGABRT),
                std::string("CoreFoundation: ") + GetParam().line + "\n");
}

INSTANTIATE_TEST_SUITE_P(Mistakes, CFStrictMode, testing::ValuesIn(kMistakes),
                         [](const testing::TestParamInfo<Mistake>& mistake) {
                             const std::string line = mistake.param.line;
                             return line.substr(0, line.find(':')) + "_" +
                                    std::to_string(mistake.index);
                         });

TEST(CFStrictModeWithoutMistakes, LetsNullThroughWhereItHasAMeaning) {
    EXPECT_EQ(CFCopyDescription(nullptr), nullptr);
    const CFOwned<CFStringRef> text(
        CFStringCreateWithFormat(nullptr, nullptr, CFSTR("%@"), nullptr));
    EXPECT_TRUE(CFEqual(text.Get(), CFSTR("(null)")));
    const CFOwned<CFErrorRef> error(CFErrorCreate(nullptr, kCFErrorDomainPOSIX, 1, nullptr));
    const CFOwned<CFErrorRef> same(CFErrorCreate(nullptr, kCFErrorDomainPOSIX, 1, nullptr));
    EXPECT_TRUE(CFEqual(error.Get(), same.Get()));
    const CFOwned<CFStringRef> description(CFErrorCopyDescription(error.Get()));
    EXPECT_TRUE(CFEqual(description.Get(), CFSTR("error 1 of NSPOSIXErrorDomain")));
    EXPECT_EQ(CFRunLoopRunInMode(nullptr, 0, false), kCFRunLoopRunFinished);
    EXPECT_EQ(CFMessagePortCreateLocal(nullptr, nullptr, nullptr, nullptr, nullptr), nullptr);
    const CFOwned<CFMutableArrayRef> plain(CFArrayCreateMutable(nullptr, 0, nullptr));
    CFArrayAppendValue(plain.Get(), nullptr);
    EXPECT_EQ(CFArrayGetCount(plain.Get()), 1);
}

TEST(CFStrictModeWithoutMistakes, LetsMissingAndRemovedPreferencesThrough) {
    const TemporaryDirectory folder;
    setenv("QUORVEL_PREFERENCES_DIR", folder.Path().c_str(), 1);
    const auto copy = [] {
        return CFPreferencesCopyValue(CFSTR("key"), CFSTR("test"), kCFPreferencesAnyUser,
                                      kCFPreferencesCurrentHost);
    };
    EXPECT_EQ(copy(), nullptr);
    CFPreferencesSetValue(CFSTR("key"), kCFBooleanTrue, CFSTR("test"), kCFPreferencesAnyUser,
                          kCFPreferencesCurrentHost);
    CFPreferencesSetValue(CFSTR("key"), nullptr, CFSTR("test"), kCFPreferencesAnyUser,
                          kCFPreferencesCurrentHost);
    EXPECT_EQ(copy(), nullptr);
    EXPECT_TRUE(
        CFPreferencesSynchronize(CFSTR("test"), kCFPreferencesAnyUser, kCFPreferencesCurrentHost));
    unsetenv("QUORVEL_PREFERENCES_DIR");
}

TEST(CFStrictModeWithoutMistakes, LetsBytesThroughThatAreNoPropertyList) {
    const UInt8 bytes[] = {'n', 'o', 'n', 'e'};
    const CFOwned<CFDataRef> data(CFDataCreate(nullptr, bytes, sizeof bytes));
    CFErrorRef error = nullptr;
    EXPECT_EQ(CFPropertyListCreateWithData(nullptr, data.Get(), 0, nullptr, &error), nullptr);
    ASSERT_NE(error, nullptr);
    CFRelease(error);
}

} // namespace
