#include "tests/support/TestSeed.h"
#include "tests/unit/platform/CoreFoundation/values/CFTestValues.h"

#include <CoreFoundation/CFRuntimeHost.h>

#include <gtest/gtest.h>

#include <map>
#include <random>

namespace {

std::vector<std::string> Contents(CFArrayRef array) {
    std::vector<std::string> result;
    for (CFIndex i = 0; i < CFArrayGetCount(array); ++i) {
        result.push_back(Read(CFArrayGetValueAtIndex(array, i)));
    }
    return result;
}

using Texts = std::vector<std::string>;

TEST(CFArray, KeepsItsValuesAlive) {
    const CFIndex before = CFRuntimeHostLiveObjectCount(0);
    {
        CFOwned<CFArrayRef> array;
        {
            const auto first = Text("first");
            const auto second = Text("second");
            const void* values[] = {first.Get(), second.Get()};
            array = CFOwned<CFArrayRef>(CFArrayCreate(nullptr, values, 2, &kCFTypeArrayCallBacks));
        }
        EXPECT_EQ(Contents(array.Get()), (Texts{"first", "second"}));
        EXPECT_EQ(CFArrayGetValueAtIndex(array.Get(), 2), nullptr);
        EXPECT_EQ(CFArrayGetValueAtIndex(array.Get(), -1), nullptr);
    }
    EXPECT_EQ(CFRuntimeHostLiveObjectCount(0), before);
}

TEST(CFArray, RefusesImpossibleArguments) {
    EXPECT_EQ(CFArrayCreate(nullptr, nullptr, 1, nullptr), nullptr);
    EXPECT_EQ(CFArrayCreate(nullptr, nullptr, -1, nullptr), nullptr);
    EXPECT_EQ(CFArrayCreateMutable(nullptr, -1, nullptr), nullptr);
}

TEST(CFArray, Changes) {
    const CFIndex before = CFRuntimeHostLiveObjectCount(0);
    {
        const auto array = Array();
        CFArrayAppendValue(array.Get(), Text("b").Get());
        CFArraySetValueAtIndex(array.Get(), 1, Text("c").Get());
        CFArraySetValueAtIndex(array.Get(), 0, Text("B").Get());
        CFArraySetValueAtIndex(array.Get(), 3, CFSTR("outside"));
        CFArraySetValueAtIndex(array.Get(), -1, CFSTR("outside"));
        CFArrayRemoveValueAtIndex(array.Get(), 2);
        CFArrayRemoveValueAtIndex(array.Get(), -1);
        EXPECT_EQ(Contents(array.Get()), (Texts{"B", "c"}));
        CFArrayRemoveValueAtIndex(array.Get(), 0);
        EXPECT_EQ(Contents(array.Get()), (Texts{"c"}));
    }
    EXPECT_EQ(CFRuntimeHostLiveObjectCount(0), before);
}

TEST(CFArray, DoesNotChangeWhenImmutable) {
    const void* values[] = {CFSTR("a")};
    const CFOwned<CFArrayRef> array(CFArrayCreate(nullptr, values, 1, &kCFTypeArrayCallBacks));
    auto* cast = const_cast<CFMutableArrayRef>(array.Get());
    CFArrayAppendValue(cast, CFSTR("b"));
    CFArraySetValueAtIndex(cast, 0, CFSTR("b"));
    CFArrayRemoveValueAtIndex(cast, 0);
    EXPECT_EQ(Contents(array.Get()), Texts{"a"});
    const CFOwned<CFMutableArrayRef> copy(CFArrayCreateMutableCopy(nullptr, 0, array.Get()));
    EXPECT_TRUE(CFEqual(copy.Get(), array.Get()));
    CFArrayAppendValue(copy.Get(), CFSTR("b"));
    EXPECT_FALSE(CFEqual(copy.Get(), array.Get()));
}

TEST(CFArray, KeepsPlainPointersWithoutCallBacks) {
    const int numbers[] = {1, 2};
    const void* values[] = {&numbers[0], &numbers[1], nullptr};
    const CFOwned<CFArrayRef> array(CFArrayCreate(nullptr, values, 3, nullptr));
    EXPECT_EQ(CFArrayGetValueAtIndex(array.Get(), 1), &numbers[1]);
    EXPECT_EQ(CFArrayGetValueAtIndex(array.Get(), 2), nullptr);
    EXPECT_EQ(CFArrayGetCount(array.Get()), 3);
    const CFOwned<CFArrayRef> same(CFArrayCreate(nullptr, values, 3, nullptr));
    EXPECT_TRUE(CFEqual(array.Get(), same.Get()));
}

TEST(CFArray, CallsItsOwnersCallBacks) {
    static int retained = 0;
    static int released = 0;
    CFArrayCallBacks callBacks{};
    callBacks.retain = [](CFAllocatorRef, const void* value) {
        ++retained;
        return value;
    };
    callBacks.release = [](CFAllocatorRef, const void*) { ++released; };
    callBacks.equal = [](const void* a, const void* b) -> Boolean {
        return *static_cast<const int*>(a) == *static_cast<const int*>(b);
    };
    const int number = 5;
    const int same = 5;
    {
        const CFOwned<CFMutableArrayRef> array(CFArrayCreateMutable(nullptr, 0, &callBacks));
        CFArrayAppendValue(array.Get(), &number);
        CFArraySetValueAtIndex(array.Get(), 0, &number);
        const void* values[] = {&same};
        const CFOwned<CFArrayRef> other(CFArrayCreate(nullptr, values, 1, &callBacks));
        EXPECT_TRUE(CFEqual(array.Get(), other.Get()));
    }
    EXPECT_EQ(retained, 3);
    EXPECT_EQ(released, 3);
}

TEST(CFDictionary, FindsEqualKeys) {
    const CFIndex before = CFRuntimeHostLiveObjectCount(0);
    {
        const auto dictionary = Dictionary();
        CFDictionarySetValue(dictionary.Get(), Text("MIDI Ports").Get(), Text("5-8").Get());
        EXPECT_EQ(Read(CFDictionaryGetValue(dictionary.Get(), CFSTR("MIDI Ports"))), "5-8");
        EXPECT_EQ(CFDictionaryGetValue(dictionary.Get(), CFSTR("midi ports")), nullptr);
        EXPECT_EQ(CFDictionaryGetValue(dictionary.Get(), kCFBooleanTrue), nullptr);
        EXPECT_EQ(CFDictionaryGetValue(dictionary.Get(), nullptr), nullptr);
        CFDictionarySetValue(dictionary.Get(), CFSTR("MIDI Ports"), Text("1-4").Get());
        EXPECT_EQ(CFDictionaryGetCount(dictionary.Get()), 1);
        EXPECT_EQ(Read(CFDictionaryGetValue(dictionary.Get(), CFSTR("MIDI Ports"))), "1-4");
        CFDictionaryRemoveValue(dictionary.Get(), CFSTR("MIDI Ports"));
        CFDictionaryRemoveValue(dictionary.Get(), CFSTR("MIDI Ports"));
        EXPECT_EQ(CFDictionaryGetCount(dictionary.Get()), 0);
    }
    EXPECT_EQ(CFRuntimeHostLiveObjectCount(0), before);
}

TEST(CFDictionary, TellsANullValueFromNone) {
    const auto dictionary = Dictionary();
    CFDictionarySetValue(dictionary.Get(), CFSTR("null"), nullptr);
    const void* value = &dictionary;
    EXPECT_TRUE(CFDictionaryGetValueIfPresent(dictionary.Get(), CFSTR("null"), &value));
    EXPECT_EQ(value, nullptr);
    EXPECT_FALSE(CFDictionaryGetValueIfPresent(dictionary.Get(), CFSTR("none"), &value));
}

TEST(CFDictionary, DoesNotChangeWhenImmutable) {
    const void* keys[] = {CFSTR("a"), CFSTR("a")};
    const void* values[] = {CFSTR("first"), CFSTR("second")};
    const CFOwned<CFDictionaryRef> dictionary(CFDictionaryCreate(nullptr, keys, values, 2,
                                                                 &kCFTypeDictionaryKeyCallBacks,
                                                                 &kCFTypeDictionaryValueCallBacks));
    EXPECT_EQ(Read(CFDictionaryGetValue(dictionary.Get(), CFSTR("a"))), "first");
    auto* cast = const_cast<CFMutableDictionaryRef>(dictionary.Get());
    CFDictionarySetValue(cast, CFSTR("b"), CFSTR("b"));
    CFDictionaryRemoveValue(cast, CFSTR("a"));
    EXPECT_EQ(CFDictionaryGetCount(dictionary.Get()), 1);
    EXPECT_EQ(CFDictionaryCreate(nullptr, nullptr, values, 1, nullptr, nullptr), nullptr);
    EXPECT_EQ(CFDictionaryCreate(nullptr, keys, values, -1, nullptr, nullptr), nullptr);
}

TEST(CFDictionary, BehavesAsAMapUnderRandomChanges) {
    const auto seed = TestSeed();
    SCOPED_TRACE(DescribeSeed(seed));
    std::mt19937_64 random(seed);
    const CFIndex before = CFRuntimeHostLiveObjectCount(0);
    {
        std::map<std::string, std::string> model;
        const auto dictionary = Dictionary();
        for (int step = 0; step < 5000; ++step) {
            const std::string key = "key " + std::to_string(random() % 50);
            const std::string value = std::to_string(step);
            switch (random() % 3) {
            case 0:
                CFDictionarySetValue(dictionary.Get(), Text(key).Get(), Text(value).Get());
                model[key] = value;
                break;
            case 1:
                CFDictionaryRemoveValue(dictionary.Get(), Text(key).Get());
                model.erase(key);
                break;
            default:
                ASSERT_EQ(CFDictionaryContainsKey(dictionary.Get(), Text(key).Get()) != 0,
                          model.count(key) != 0);
            }
            ASSERT_EQ(CFDictionaryGetCount(dictionary.Get()), static_cast<CFIndex>(model.size()));
        }
        std::vector<const void*> keys(model.size());
        std::vector<const void*> values(model.size());
        CFDictionaryGetKeysAndValues(dictionary.Get(), keys.data(), values.data());
        for (std::size_t i = 0; i < keys.size(); ++i) {
            ASSERT_EQ(Read(values[i]), model.at(Read(keys[i])));
        }
        const CFOwned<CFDictionaryRef> copy(CFDictionaryCreateCopy(nullptr, dictionary.Get()));
        EXPECT_TRUE(CFEqual(copy.Get(), dictionary.Get()));
        EXPECT_EQ(CFHash(copy.Get()), CFHash(dictionary.Get()));
    }
    EXPECT_EQ(CFRuntimeHostLiveObjectCount(0), before);
}

} // namespace
