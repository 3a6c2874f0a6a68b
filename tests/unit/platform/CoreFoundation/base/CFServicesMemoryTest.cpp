// Property lists, preferences and message ports: every allocation of every function failed once.
#include "platform/support/CFOwned.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/WaitUntil.h"
#include "tests/unit/platform/CoreFoundation/base/FailEachAllocation.h"

#include <CoreFoundation/CFMessagePortHost.h>
#include <CoreFoundation/CFPreferencesHost.h>

#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <iterator>
#include <thread>

namespace {

constexpr int kMostAllocations = 5000;
constexpr const char* kLongText = "a text that is too long to lie within a string object itself";

// A dictionary with a value of every type, made once.
CFDictionaryRef Everything() {
    static const CFDictionaryRef made = [] {
        const UInt8 bytes[] = {1, 2, 3};
        const SInt32 number = 5;
        const double real = 1.5;
        const void* members[] = {__CFStringMakeConstantString(kLongText),
                                 kCFBooleanTrue,
                                 CFDataCreate(nullptr, bytes, sizeof bytes),
                                 CFDateCreate(nullptr, 1),
                                 CFNumberCreate(nullptr, kCFNumberSInt32Type, &number),
                                 CFNumberCreate(nullptr, kCFNumberFloat64Type, &real)};
        const void* keys[] = {CFSTR("members"), __CFStringMakeConstantString(kLongText)};
        const void* values[] = {
            CFArrayCreate(nullptr, members, std::size(members), &kCFTypeArrayCallBacks),
            CFSTR("x")};
        return CFDictionaryCreate(nullptr, keys, values, std::size(keys),
                                  &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
    }();
    return made;
}

// Whether it is all there; gives it up. What there is must be all.
bool IsEverything(CFTypeRef value) {
    EXPECT_TRUE(value == nullptr || CFEqual(value, Everything()));
    return Made(value);
}

class CFMemoryOfPropertyLists : public testing::TestWithParam<CFPropertyListFormat> {};

TEST_P(CFMemoryOfPropertyLists, AreReadAndWrittenWholeOrNot) {
    CFErrorRef error = nullptr;
    const CFOwned<CFDataRef> data(
        CFPropertyListCreateData(nullptr, Everything(), GetParam(), 0, &error));
    ASSERT_TRUE(data);
    FailEachAllocation([&] {
        const CFOwned<CFDataRef> written(
            CFPropertyListCreateData(nullptr, Everything(), GetParam(), 0, &error));
        EXPECT_EQ(error, nullptr) << "which says that it cannot be written at all";
        EXPECT_TRUE(!written || CFEqual(written.Get(), data.Get()));
        return static_cast<bool>(written);
    });
    for (CFOptionFlags options : {kCFPropertyListImmutable, kCFPropertyListMutableContainers}) {
        FailEachAllocation([&] {
            const CFPropertyListRef read =
                CFPropertyListCreateWithData(nullptr, data.Get(), options, nullptr, &error);
            EXPECT_EQ(error, nullptr) << "which says that it is none";
            return IsEverything(read);
        });
    }
}

INSTANTIATE_TEST_SUITE_P(BothForms, CFMemoryOfPropertyLists,
                         testing::Values(kCFPropertyListXMLFormat_v1_0,
                                         kCFPropertyListBinaryFormat_v1_0));

TEST(CFMemoryOfPropertyLists, AreCopiedWholeOrNotAndCheckedWithoutMemory) {
    for (CFOptionFlags options : {kCFPropertyListImmutable, kCFPropertyListMutableContainers}) {
        FailEachAllocation([&] {
            return IsEverything(CFPropertyListCreateDeepCopy(nullptr, Everything(), options));
        });
    }
    TestSupport::WatchAllAllocations(1);
    EXPECT_TRUE(CFPropertyListIsValid(Everything(), kCFPropertyListXMLFormat_v1_0));
    EXPECT_FALSE(TestSupport::AllocationFailed());
    TestSupport::WatchAllAllocations();
}

class CFMemoryOfPreferences : public testing::Test {
protected:
    CFMemoryOfPreferences() {
        setenv("QUORVEL_PREFERENCES_DIR", mFolder.Path().c_str(), 1);
        Set(CFSTR("everything"), Everything());
        EXPECT_TRUE(Synchronize());
    }

    static void Set(CFStringRef key, CFTypeRef value) {
        CFPreferencesSetValue(key, value, CFSTR("com.quorvel.Test"), kCFPreferencesAnyUser,
                              kCFPreferencesCurrentHost);
    }
    static CFTypeRef Copy(CFStringRef key) {
        return CFPreferencesCopyValue(key, CFSTR("com.quorvel.Test"), kCFPreferencesAnyUser,
                                      kCFPreferencesCurrentHost);
    }
    static bool Synchronize() {
        return CFPreferencesSynchronize(CFSTR("com.quorvel.Test"), kCFPreferencesAnyUser,
                                        kCFPreferencesCurrentHost) != 0;
    }
    static CFDictionaryRef CopyFile(CFErrorRef* error) {
        return CFPreferencesHostCopyFile(CFSTR("com.quorvel.Test"), kCFPreferencesAnyUser,
                                         kCFPreferencesCurrentHost, error);
    }

    const TemporaryDirectory mFolder;
};

TEST_F(CFMemoryOfPreferences, AreReadWholeOrNot) {
    FailEachAllocation([] { return IsEverything(Copy(CFSTR("everything"))); });
    FailEachAllocation([] {
        CFErrorRef error = nullptr;
        const CFOwned<CFDictionaryRef> file(CopyFile(&error));
        EXPECT_EQ(error, nullptr) << "which says that the file cannot be used";
        return static_cast<bool>(file);
    });
}

TEST_F(CFMemoryOfPreferences, AreSetAndWrittenOrAsTheyWere) {
    for (int n = 1;; ++n) {
        ASSERT_LT(n, kMostAllocations);
        SCOPED_TRACE("allocation " + std::to_string(n));
        const CFStringRef value = n % 2 == 0 ? CFSTR("even") : CFSTR("odd");
        const CFOwned<CFTypeRef> before(Copy(CFSTR("key")));
        TestSupport::WatchAllAllocations(n);
        Set(CFSTR("key"), value);
        const bool setFailed = TestSupport::AllocationFailed();
        TestSupport::WatchAllAllocations();
        const CFOwned<CFTypeRef> now(Copy(CFSTR("key")));
        const CFTypeRef expected = setFailed ? before.Get() : value;
        ASSERT_EQ(static_cast<bool>(now), expected != nullptr);
        EXPECT_TRUE(!now || CFEqual(now.Get(), expected));

        Set(CFSTR("key"), value);
        TestSupport::WatchAllAllocations(n);
        const bool written = Synchronize();
        const bool failed = TestSupport::AllocationFailed();
        TestSupport::WatchAllAllocations();
        EXPECT_EQ(written, !failed);
        EXPECT_TRUE(written || Synchronize()) << "what could not be written is lost";
        const CFOwned<CFDictionaryRef> file(CopyFile(nullptr));
        ASSERT_TRUE(file);
        EXPECT_TRUE(CFEqual(CFDictionaryGetValue(file.Get(), CFSTR("key")), value));
        EXPECT_TRUE(CFEqual(CFDictionaryGetValue(file.Get(), CFSTR("everything")), Everything()));
        if (!failed && !setFailed) {
            return;
        }
    }
}

TEST_F(CFMemoryOfPreferences, FileIsChangedOrAsItWas) {
    FailEachAllocation([] {
        CFErrorRef error = nullptr;
        const bool changed = CFPreferencesHostChangeFile(
            CFSTR("com.quorvel.Test"), kCFPreferencesAnyUser, kCFPreferencesCurrentHost,
            [](CFMutableDictionaryRef values, void*) -> Boolean {
                CFDictionaryRemoveValue(values, CFSTR("nothing"));
                return true;
            },
            nullptr, &error);
        EXPECT_EQ(error, nullptr);
        return changed;
    });
    const CFOwned<CFDictionaryRef> file(CopyFile(nullptr));
    ASSERT_TRUE(file);
    EXPECT_TRUE(CFEqual(CFDictionaryGetValue(file.Get(), CFSTR("everything")), Everything()));
}

CFDataRef Request() {
    static const CFDataRef data = [] {
        const UInt8 bytes[100] = {1, 2, 3};
        return CFDataCreate(nullptr, bytes, sizeof bytes);
    }();
    return data;
}

CFDataRef Echo(CFMessagePortRef, SInt32, CFDataRef data, void*) {
    return static_cast<CFDataRef>(CFRetain(data)); // without memory
}

CFOwned<CFMessagePortRef> MakeLocal() {
    return CFOwned<CFMessagePortRef>(
        CFMessagePortCreateLocal(nullptr, CFSTR("Memory"), Echo, nullptr, nullptr));
}
CFOwned<CFMessagePortRef> MakeRemote() {
    return CFOwned<CFMessagePortRef>(CFMessagePortCreateRemote(nullptr, CFSTR("Memory")));
}

// Whether the request came back; it is answered whole or not.
SInt32 Ask(CFMessagePortRef remote, CFStringRef mode) {
    constexpr CFTimeInterval kPatience = 5;
    CFDataRef reply = nullptr;
    const SInt32 status =
        CFMessagePortSendRequest(remote, 1, Request(), kPatience, kPatience, mode, &reply);
    EXPECT_EQ(reply != nullptr, status == kCFMessagePortSuccess && mode != nullptr);
    EXPECT_TRUE(reply == nullptr || CFEqual(reply, Request()));
    Made(reply);
    return status;
}

std::ptrdiff_t OpenDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

class CFMemoryOfMessagePorts : public testing::Test {
protected:
    CFMemoryOfMessagePorts() {
        setenv("QUORVEL_RUNTIME_DIR", mFolder.Path().c_str(), 1);
        Request();
        CFSTR("Memory");
    }

    const TemporaryDirectory mFolder;
};

TEST_F(CFMemoryOfMessagePorts, AreMadeOrNot) {
    FailEachAllocation([] {
        Boolean freeInfo = false;
        CFMessagePortContext context{};
        const CFMessagePortRef port =
            CFMessagePortCreateLocal(nullptr, CFSTR("Memory"), Echo, &context, &freeInfo);
        EXPECT_EQ(freeInfo != 0, port == nullptr);
        return Made(port);
    });
    const CFOwned<CFMessagePortRef> local = MakeLocal();
    ASSERT_TRUE(local);
    FailEachAllocation([] { return Made(CFMessagePortCreateRemote(nullptr, CFSTR("Memory"))); });
    FailEachAllocation(
        [&] { return Made(CFMessagePortCreateRunLoopSource(nullptr, local.Get(), 0)); });
    const CFOwned<CFMessagePortRef> remote = MakeRemote();
    ASSERT_TRUE(remote);
    FailEachAllocation([&] { return CFMessagePortIsValid(remote.Get()) != 0; });
}

TEST_F(CFMemoryOfMessagePorts, RequestsAreAnsweredOrRefused) {
    std::promise<CFRunLoopRef> ready;
    std::thread server([&] {
        const CFOwned<CFMessagePortRef> local = MakeLocal();
        const CFOwned<CFRunLoopSourceRef> source(
            CFMessagePortCreateRunLoopSource(nullptr, local.Get(), 0));
        CFRunLoopAddSource(CFRunLoopGetCurrent(), source.Get(), kCFRunLoopDefaultMode);
        ready.set_value(CFRunLoopGetCurrent());
        CFRunLoopRun();
        CFMessagePortInvalidate(local.Get());
    });
    CFRunLoopRef loop = ready.get_future().get();
    const CFOwned<CFMessagePortRef> remote = MakeRemote();
    ASSERT_TRUE(remote);
    ASSERT_EQ(Ask(remote.Get(), kCFRunLoopDefaultMode), kCFMessagePortSuccess);
    const auto descriptors = OpenDescriptors();
    for (CFStringRef mode : {kCFRunLoopDefaultMode, CFStringRef{}}) {
        for (int n = 1, failed = 1; failed != 0; ++n) {
            SCOPED_TRACE("allocation " + std::to_string(n));
            TestSupport::WatchAllAllocations(n);
            const SInt32 status = Ask(remote.Get(), mode);
            failed = TestSupport::AllocationFailed() ? 1 : 0;
            TestSupport::WatchAllAllocations();
            EXPECT_TRUE(status == kCFMessagePortSuccess ||
                        (failed != 0 && status == kCFMessagePortTransportError))
                << status;
            // A request that failed has left no connection behind, and no source in the loop.
            EXPECT_TRUE(TestSupport::WaitUntil("the other side has closed its end too",
                                               [&] { return OpenDescriptors() <= descriptors; }));
            EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0, true), kCFRunLoopRunFinished);
            ASSERT_EQ(Ask(remote.Get(), kCFRunLoopDefaultMode), kCFMessagePortSuccess);
        }
    }
    CFRunLoopStop(loop);
    server.join();
}

TEST_F(CFMemoryOfMessagePorts, ServeOnAfterWhatThereWasNoMemoryFor) {
    const CFOwned<CFMessagePortRef> local = MakeLocal();
    const CFOwned<CFRunLoopSourceRef> source(
        CFMessagePortCreateRunLoopSource(nullptr, local.Get(), 0));
    CFRunLoopAddSource(CFRunLoopGetCurrent(), source.Get(), kCFRunLoopDefaultMode);
    const auto serveOne = [] {
        auto status = std::async(std::launch::async, [] {
            const CFOwned<CFMessagePortRef> remote = MakeRemote();
            return remote ? Ask(remote.Get(), kCFRunLoopDefaultMode) : kCFMessagePortIsInvalid;
        });
        while (status.wait_for(std::chrono::seconds(0)) != std::future_status::ready) {
            CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.01, true);
        }
        return status.get();
    };
    for (int n = 1, failed = 1; failed != 0; ++n) {
        ASSERT_LT(n, kMostAllocations);
        SCOPED_TRACE("allocation " + std::to_string(n));
        auto asked = std::async(std::launch::async, [] {
            const CFOwned<CFMessagePortRef> remote = MakeRemote();
            return remote ? Ask(remote.Get(), kCFRunLoopDefaultMode) : kCFMessagePortIsInvalid;
        });
        TestSupport::WatchAllAllocations(n);
        while (asked.wait_for(std::chrono::seconds(0)) != std::future_status::ready) {
            CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.01, true);
        }
        failed = TestSupport::AllocationFailed() ? 1 : 0;
        TestSupport::WatchAllAllocations();
        const SInt32 status = asked.get();
        EXPECT_TRUE(status == kCFMessagePortSuccess || failed != 0) << status;
        EXPECT_NE(status, kCFMessagePortReceiveTimeout) << "nobody told the requester";
        ASSERT_EQ(serveOne(), kCFMessagePortSuccess);
    }
    CFMessagePortInvalidate(local.Get());
}

} // namespace
