// Every allocation of every function that makes any, failed once. In strict mode, so that what the
// library cannot make does not reach a function that must not be given null.
#include "platform/support/CFOwned.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/unit/platform/CoreFoundation/base/FailEachAllocation.h"

#include <CoreFoundation/CFPlugInHost.h>
#include <CoreFoundation/CFRuntimeHost.h>
#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>

namespace {

constexpr const char* kLongText = "a text that is too long to lie within a string object itself";

CFStringRef LongString() {
    static const CFStringRef string = __CFStringMakeConstantString(kLongText);
    return string;
}

TEST(CFMemory, StringsAreMadeOrNot) {
    FailEachAllocation(
        [] { return Made(CFStringCreateWithCString(nullptr, kLongText, kCFStringEncodingASCII)); });
    FailEachAllocation([] {
        return Made(CFStringCreateWithBytes(nullptr, reinterpret_cast<const UInt8*>(kLongText), 40,
                                            kCFStringEncodingUTF8, true));
    });
    FailEachAllocation([] { return Made(CFStringCreateCopy(nullptr, LongString())); });
    FailEachAllocation([] {
        return Made(CFStringCreateWithCString(nullptr, "\xCE\xB1\xCE\xB2", kCFStringEncodingUTF8));
    });
    FailEachAllocation([] {
        return Made(
            CFStringCreateArrayBySeparatingStrings(nullptr, CFSTR("1-2-3-4-5"), CFSTR("-")));
    });
}

TEST(CFMemory, FormatsAreWholeOrNot) {
    const void* parts[] = {LongString(), CFSTR("x")};
    const CFOwned<CFArrayRef> array(CFArrayCreate(nullptr, parts, 2, &kCFTypeArrayCallBacks));
    const CFOwned<CFStringRef> expected(CFStringCreateWithCString(
        nullptr,
        (std::string("7 0x10 1.50 text c (") + kLongText + ", x) %                    .").c_str(),
        kCFStringEncodingASCII));
    FailEachAllocation([&] {
        const CFOwned<CFStringRef> text(CFStringCreateWithFormat(
            nullptr, nullptr, CFSTR("%d %p %.2f %s %c %@ %%%20s."), 7,
            reinterpret_cast<void*>(0x10), 1.5, "text", 'c', array.Get(), ""));
        EXPECT_TRUE(!text || CFEqual(text.Get(), expected.Get()));
        return text.Get() != nullptr;
    });
}

TEST(CFMemory, ConstantsAreMadeOrNot) {
    // The text is there once it has been made, for good and without any allocation.
    CFStringRef string = nullptr;
    for (int n = 1; string == nullptr; n++) {
        ASSERT_LT(n, 100);
        TestSupport::WatchAllAllocations(n);
        string = __CFStringMakeConstantString("a text that no other test of this program uses");
        const bool failed = TestSupport::AllocationFailed();
        TestSupport::WatchAllAllocations();
        EXPECT_EQ(string == nullptr, failed);
    }
    TestSupport::WatchAllAllocations(1);
    EXPECT_EQ(__CFStringMakeConstantString("a text that no other test of this program uses"),
              string);
    EXPECT_FALSE(TestSupport::AllocationFailed());
    TestSupport::WatchAllAllocations();
}

TEST(CFMemory, ValuesAreMadeOrNot) {
    const UInt8 bytes[] = {1, 2, 3};
    FailEachAllocation([&] { return Made(CFDataCreate(nullptr, bytes, sizeof bytes)); });
    const CFOwned<CFDataRef> data(CFDataCreate(nullptr, bytes, sizeof bytes));
    FailEachAllocation([&] { return Made(CFDataCreateCopy(nullptr, data.Get())); });
    FailEachAllocation([] { return Made(CFDateCreate(nullptr, 1)); });
    FailEachAllocation([] {
        const SInt32 value = 1;
        return Made(CFNumberCreate(nullptr, kCFNumberSInt32Type, &value));
    });
    FailEachAllocation([] { return Made(CFUUIDCreateFromUUIDBytes(nullptr, CFUUIDBytes{})); });
    FailEachAllocation([] {
        return Made(CFUUIDCreateFromString(nullptr, CFSTR("43C98C3C-306C-11D5-AF73-003065A8301E")));
    });
    const CFOwned<CFUUIDRef> uuid(CFUUIDCreateFromUUIDBytes(nullptr, CFUUIDBytes{}));
    FailEachAllocation([&] { return Made(CFUUIDCreateString(nullptr, uuid.Get())); });
    FailEachAllocation([&] { return Made(CFCopyDescription(uuid.Get())); });
    FailEachAllocation(
        [] { return Made(CFErrorCreate(nullptr, kCFErrorDomainPOSIX, 2, nullptr)); });
    const CFOwned<CFErrorRef> error(CFErrorCreate(nullptr, kCFErrorDomainPOSIX, 2, nullptr));
    FailEachAllocation([&] { return Made(CFErrorCopyDescription(error.Get())); });
}

TEST(CFMemory, URLsAreMadeOrNot) {
    const auto make = [](const char* path) {
        return CFURLCreateFromFileSystemRepresentation(
            nullptr, reinterpret_cast<const UInt8*>(path),
            static_cast<CFIndex>(std::string_view(path).size()), true);
    };
    FailEachAllocation([&] { return Made(make("/a folder/another/and one more.plugin/")); });
    FailEachAllocation([&] { return Made(make("relative to the working directory")); });
    const CFOwned<CFURLRef> url(make("/a folder/another/and one more.plugin"));
    FailEachAllocation([&] { return Made(CFCopyDescription(url.Get())); });
}

TEST(CFMemory, ContainersHoldAllOrNothing) {
    const void* values[] = {LongString(), kCFBooleanTrue, CFSTR("x")};
    FailEachAllocation(
        [&] { return Made(CFArrayCreate(nullptr, values, 3, &kCFTypeArrayCallBacks)); });
    FailEachAllocation([&] {
        return Made(CFDictionaryCreate(nullptr, values, values, 3, &kCFTypeDictionaryKeyCallBacks,
                                       &kCFTypeDictionaryValueCallBacks));
    });
    const CFOwned<CFArrayRef> array(CFArrayCreate(nullptr, values, 3, &kCFTypeArrayCallBacks));
    const CFOwned<CFDictionaryRef> dictionary(CFDictionaryCreate(nullptr, values, values, 3,
                                                                 &kCFTypeDictionaryKeyCallBacks,
                                                                 &kCFTypeDictionaryValueCallBacks));
    FailEachAllocation([&] { return Made(CFArrayCreateMutableCopy(nullptr, 0, array.Get())); });
    FailEachAllocation([&] { return Made(CFDictionaryCreateCopy(nullptr, dictionary.Get())); });
    FailEachAllocation(
        [&] { return Made(CFDictionaryCreateMutableCopy(nullptr, 0, dictionary.Get())); });
    FailEachAllocation([&] { return Made(CFCopyDescription(array.Get())); });
    FailEachAllocation([&] { return Made(CFCopyDescription(dictionary.Get())); });
}

TEST(CFMemory, ChangesAreMadeWholeOrNotAtAll) {
    FailEachAllocation([] {
        const CFOwned<CFMutableArrayRef> array(
            CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks));
        if (!array) {
            return false;
        }
        for (CFIndex i = 0; i < 3; i++) {
            const CFIndex before = CFArrayGetCount(array.Get());
            CFArrayAppendValue(array.Get(), LongString());
            const CFIndex after = CFArrayGetCount(array.Get());
            EXPECT_TRUE(after == before || after == before + 1);
        }
        return CFArrayGetCount(array.Get()) == 3;
    });
    FailEachAllocation([] {
        const CFOwned<CFMutableDictionaryRef> dictionary(CFDictionaryCreateMutable(
            nullptr, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
        if (!dictionary) {
            return false;
        }
        for (CFStringRef key : {CFSTR("a"), CFSTR("b"), CFSTR("c")}) {
            CFDictionarySetValue(dictionary.Get(), key, LongString());
            const void* const value = CFDictionaryGetValue(dictionary.Get(), key);
            EXPECT_TRUE(value == nullptr || CFEqual(value, LongString()));
        }
        return CFDictionaryGetCount(dictionary.Get()) == 3;
    });
}

TEST(CFMemory, ThreadHasALoopOrNone) {
    // A loop is made once for each thread, so each attempt has its own.
    for (int n = 1, failed = 1; failed != 0; n++) {
        std::thread([n, &failed] {
            TestSupport::WatchAllAllocations(n);
            const CFRunLoopRef loop = CFRunLoopGetCurrent();
            failed = TestSupport::AllocationFailed() ? 1 : 0;
            TestSupport::WatchAllAllocations();
            EXPECT_EQ(loop == nullptr, failed != 0);
            EXPECT_NE(CFRunLoopGetCurrent(), nullptr);
        }).join();
    }
}

struct Counts {
    int scheduled = 0;
    int cancelled = 0;
    int performed = 0;
};

CFRunLoopSourceRef MakeSource(Counts& counts) {
    CFRunLoopSourceContext context{};
    context.info = &counts;
    context.schedule = [](void* info, CFRunLoopRef, CFRunLoopMode) {
        static_cast<Counts*>(info)->scheduled++;
    };
    context.cancel = [](void* info, CFRunLoopRef, CFRunLoopMode) {
        static_cast<Counts*>(info)->cancelled++;
    };
    context.perform = [](void* info) { static_cast<Counts*>(info)->performed++; };
    return CFRunLoopSourceCreate(nullptr, 0, &context);
}

TEST(CFMemory, SourceIsInALoopOrNot) {
    const CFRunLoopRef loop = CFRunLoopGetCurrent();
    Counts other;
    const CFOwned<CFRunLoopSourceRef> there(MakeSource(other));
    CFRunLoopAddSource(loop, there.Get(), kCFRunLoopDefaultMode);
    for (CFStringRef mode : {kCFRunLoopDefaultMode, kCFRunLoopCommonModes, LongString()}) {
        FailEachAllocation([&] {
            Counts counts;
            const CFOwned<CFRunLoopSourceRef> source(MakeSource(counts));
            if (!source) {
                return false;
            }
            CFRunLoopAddSource(loop, source.Get(), mode);
            const bool added = CFRunLoopContainsSource(loop, source.Get(), mode);
            CFRunLoopRemoveSource(loop, source.Get(), mode);
            EXPECT_FALSE(CFRunLoopContainsSource(loop, source.Get(), mode));
            EXPECT_TRUE(counts.scheduled == counts.cancelled);
            CFRunLoopAddSource(loop, source.Get(), mode);
            const bool again = CFRunLoopContainsSource(loop, source.Get(), mode);
            CFRunLoopSourceInvalidate(source.Get());
            EXPECT_EQ(counts.scheduled, counts.cancelled);
            EXPECT_EQ(CFGetRetainCount(source.Get()), 1);
            return added && again;
        });
    }
    CFRunLoopSourceInvalidate(there.Get());
}

TEST(CFMemory, SourcesArePerformedAndTheLoopIsStoppedWithoutMemory) {
    const CFRunLoopRef loop = CFRunLoopGetCurrent();
    Counts counts;
    const CFOwned<CFRunLoopSourceRef> first(MakeSource(counts));
    const CFOwned<CFRunLoopSourceRef> second(MakeSource(counts));
    CFRunLoopAddSource(loop, first.Get(), kCFRunLoopDefaultMode);
    CFRunLoopAddSource(loop, second.Get(), kCFRunLoopDefaultMode);
    FailEachAllocation([&] {
        counts.performed = 0;
        CFRunLoopSourceSignal(first.Get());
        CFRunLoopSourceSignal(second.Get());
        CFRunLoopWakeUp(loop);
        while (CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0, true) == kCFRunLoopRunHandledSource) {
        }
        return counts.performed == 2;
    });
    EXPECT_EQ(counts.performed, 2);
    CFRunLoopSourceInvalidate(first.Get());
    CFRunLoopSourceInvalidate(second.Get());
}

TEST(CFMemory, ThreadsLoopIsTakenDownWithoutMemory) {
    Counts counts;
    const CFOwned<CFRunLoopSourceRef> source(MakeSource(counts));
    std::thread([&] {
        CFRunLoopAddSource(CFRunLoopGetCurrent(), source.Get(), kCFRunLoopDefaultMode);
        CFRunLoopAddSource(CFRunLoopGetCurrent(), source.Get(), kCFRunLoopCommonModes);
        TestSupport::WatchAllAllocations(1);
    }).join();
    EXPECT_EQ(counts.scheduled, 1);
    EXPECT_EQ(counts.cancelled, 1);
    EXPECT_EQ(CFGetRetainCount(source.Get()), 1);
}

class CFMemoryOfPlugIns : public testing::Test {
protected:
    CFMemoryOfPlugIns() {
        const std::filesystem::path contents = mFolder.Path() + "/Contents";
        std::filesystem::create_directories(contents / "Linux");
        std::filesystem::create_symlink(QUORVEL_TEST_MODULE, contents / "Linux" / "Module");
        std::ofstream(contents / "Info.plist") << R"(<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0"><dict>
<key>CFBundleIdentifier</key><string>com.quorvel.test</string>
<key>CFBundleExecutable</key><string>Module</string>
<key>CFPlugInFactories</key><dict>
<key>11111111-2222-3333-4444-555555555555</key><string>MakeNothing</string></dict>
<key>CFPlugInTypes</key><dict>
<key>66666666-7777-8888-9999-AAAAAAAAAAAA</key><array>
<string>11111111-2222-3333-4444-555555555555</string></array></dict>
</dict></plist>)";
        mUrl = CFOwned<CFURLRef>(CFURLCreateFromFileSystemRepresentation(
            nullptr, reinterpret_cast<const UInt8*>(mFolder.Path().data()),
            static_cast<CFIndex>(mFolder.Path().size()), true));
        mFactory = CFOwned<CFUUIDRef>(
            CFUUIDCreateFromString(nullptr, CFSTR("11111111-2222-3333-4444-555555555555")));
        mType = CFOwned<CFUUIDRef>(
            CFUUIDCreateFromString(nullptr, CFSTR("66666666-7777-8888-9999-AAAAAAAAAAAA")));
    }

    const TemporaryDirectory mFolder;
    CFOwned<CFURLRef> mUrl;
    CFOwned<CFUUIDRef> mFactory;
    CFOwned<CFUUIDRef> mType;
};

TEST_F(CFMemoryOfPlugIns, ListsOfFactoriesAreWholeOrNot) {
    const CFOwned<CFPlugInRef> plugIn(CFPlugInCreate(nullptr, mUrl.Get()));
    ASSERT_TRUE(plugIn);
    FailEachAllocation([&] {
        return Made(CFPlugInFindFactoriesForPlugInTypeInPlugIn(mType.Get(), plugIn.Get()));
    });
}

TEST_F(CFMemoryOfPlugIns, PlugInsAreMadeOrNot) {
    FailEachAllocation([&] { return Made(CFPlugInCreate(nullptr, mUrl.Get())); });
}

TEST_F(CFMemoryOfPlugIns, BundlesAreMadeOrNot) {
    const CFOwned<CFPlugInRef> plugIn(CFPlugInCreate(nullptr, mUrl.Get()));
    ASSERT_TRUE(plugIn);
    FailEachAllocation([&] { return Made(CFBundleCreate(nullptr, mUrl.Get())); });
}

TEST_F(CFMemoryOfPlugIns, InstancesAreMadeOrNotAndTheModuleCanBeUnloaded) {
    CFOwned<CFPlugInRef> plugIn(CFPlugInCreate(nullptr, mUrl.Get()));
    ASSERT_TRUE(plugIn);
    FailEachAllocation([&] {
        CFPlugInAddInstanceForFactory(mFactory.Get());
        EXPECT_EQ(CFPlugInInstanceCreate(nullptr, mFactory.Get(), mType.Get()), nullptr);
        CFPlugInRemoveInstanceForFactory(mFactory.Get());
        return true;
    });
    EXPECT_TRUE(CFBundleIsExecutableLoaded(plugIn.Get()));
    plugIn.Reset();
    EXPECT_EQ(CFPlugInHostUnloadUnused(), 0) << "the module was unloaded with its plug-in";
}

} // namespace
