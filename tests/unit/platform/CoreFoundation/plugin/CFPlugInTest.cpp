#include "platform/support/CFOwned.h"
#include "tests/support/TemporaryDirectory.h"

#include <CoreFoundation/CFArray.h>
#include <CoreFoundation/CFPlugIn.h>
#include <CoreFoundation/CFPlugInCOM.h>
#include <CoreFoundation/CFPlugInHost.h>
#include <CoreFoundation/CFString.h>
#include <CoreFoundation/CFURL.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <link.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string>
#include <thread>

namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

using PlugIn = CFOwned<CFPlugInRef>;
using Uuid = CFOwned<CFUUIDRef>;

constexpr const char* kFactory = "6F6B0A54-7E3D-4C59-9D0C-0B5A7C1E2D01";
constexpr const char* kNullFactory = "6F6B0A54-7E3D-4C59-9D0C-0B5A7C1E2D02";
constexpr const char* kAbsentFactory = "6F6B0A54-7E3D-4C59-9D0C-0B5A7C1E2D03";
constexpr const char* kType = "0B2C6E0A-52C1-4B7F-8F55-6E1D3B9A7C10";

CFOwned<CFStringRef> Text(const std::string& text) {
    return CFOwned<CFStringRef>(
        CFStringCreateWithCString(nullptr, text.c_str(), kCFStringEncodingUTF8));
}

Uuid MakeUuid(const std::string& text) {
    return Uuid(CFUUIDCreateFromString(nullptr, Text(text).Get()));
}

std::string LastError() {
    const CFOwned<CFStringRef> text(CFPlugInHostCopyLastError());
    char buffer[2048] = "";
    if (text) {
        CFStringGetCString(text.Get(), buffer, sizeof buffer, kCFStringEncodingUTF8);
    }
    return buffer;
}

std::string Entry(const std::string& key, const std::string& value) {
    return "<key>" + key + "</key>" + value;
}
std::string String(const std::string& text) {
    return "<string>" + text + "</string>";
}
std::string Dictionary(const std::string& entries) {
    return "<dict>" + entries + "</dict>";
}
std::string Array(const std::string& items) {
    return "<array>" + items + "</array>";
}

const std::string kExecutable = Entry("CFBundleExecutable", String("Module"));
const std::string kIdentifier = Entry("CFBundleIdentifier", String("com.quorvel.test"));
const std::string kFactories =
    Entry("CFPlugInFactories", Dictionary(Entry(kFactory, String("MakeTestInstance")) +
                                          Entry(kNullFactory, String("MakeNothing")) +
                                          Entry(kAbsentFactory, String("NoSuchFunction"))));
const std::string kTypes =
    Entry("CFPlugInTypes", Dictionary(Entry(kType, Array(String(kFactory) + String(kNullFactory) +
                                                         String(kAbsentFactory)))));
const std::string kComplete = kExecutable + kIdentifier + kFactories + kTypes;

class CFPlugInTest : public testing::Test {
protected:
    CFPlugInTest()
        : mBundle(std::filesystem::canonical(mDirectory.Path()).string() + "/A test.plugin") {
        std::filesystem::create_directories(mBundle + "/Contents/Linux");
        std::filesystem::copy_file(QUORVEL_TEST_MODULE, ModulePath());
        WriteList(kComplete);
    }

    std::string ListPath() const { return mBundle + "/Contents/Info.plist"; }
    std::string ModulePath() const { return mBundle + "/Contents/Linux/Module"; }

    void WriteList(const std::string& entries) const {
        std::ofstream(ListPath()) << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                                     "<plist version=\"1.0\">"
                                  << Dictionary(entries) << "</plist>\n";
    }

    PlugIn Create() const {
        const CFOwned<CFURLRef> url(CFURLCreateFromFileSystemRepresentation(
            nullptr, reinterpret_cast<const UInt8*>(mBundle.data()),
            static_cast<CFIndex>(mBundle.size()), true));
        return PlugIn(CFPlugInCreate(nullptr, url.Get()));
    }

    void* MakeInstance(const char* factory = kFactory, const char* type = kType) const {
        return CFPlugInInstanceCreate(nullptr, MakeUuid(factory).Get(), MakeUuid(type).Get());
    }

    static ULONG ReleaseInstance(void* instance) {
        return (*static_cast<IUnknownVTbl**>(instance))->Release(instance);
    }

    bool ModuleIsInMemory() const {
        void* const handle = dlopen(ModulePath().c_str(), RTLD_NOW | RTLD_NOLOAD);
        if (handle != nullptr) {
            dlclose(handle);
        }
        return handle != nullptr;
    }

    // The list with these entries makes no plug-in, and the error says so.
    void ExpectRefused(const std::string& entries, const std::string& error) const {
        WriteList(entries);
        EXPECT_FALSE(Create()) << entries;
        EXPECT_EQ(LastError(), ListPath() + ": " + error);
    }

    const TemporaryDirectory mDirectory;
    const std::string mBundle;
};

TEST_F(CFPlugInTest, LoadsTheModuleWithTheFirstInstanceAndUnloadsItWithThePlugIn) {
    PlugIn plugIn = Create();
    ASSERT_TRUE(plugIn) << LastError();
    EXPECT_FALSE(ModuleIsInMemory());
    void* const instance = MakeInstance();
    ASSERT_NE(instance, nullptr) << LastError();
    EXPECT_TRUE(ModuleIsInMemory());
    EXPECT_TRUE(CFBundleIsExecutableLoaded(CFPlugInGetBundle(plugIn.Get())));
    LPVOID unknown = nullptr;
    const IUnknownVTbl* const table = *static_cast<IUnknownVTbl**>(instance);
    EXPECT_EQ(table->QueryInterface(instance, CFUUIDGetUUIDBytes(IUnknownUUID), &unknown), S_OK);
    EXPECT_EQ(unknown, instance);
    EXPECT_EQ(table->QueryInterface(instance, CFUUIDGetUUIDBytes(MakeUuid(kType).Get()), &unknown),
              E_NOINTERFACE);
    EXPECT_EQ(unknown, nullptr);
    EXPECT_EQ(table->AddRef(instance), 3U);
    EXPECT_EQ(ReleaseInstance(instance), 2U);
    EXPECT_EQ(ReleaseInstance(instance), 1U);
    EXPECT_EQ(ReleaseInstance(instance), 0U);
    EXPECT_TRUE(ModuleIsInMemory());
    plugIn.Reset();
    EXPECT_FALSE(ModuleIsInMemory());
}

TEST_F(CFPlugInTest, KeepsTheModuleOfAReleasedPlugInUntilTheHostUnloadsIt) {
    PlugIn plugIn = Create();
    void* const instance = MakeInstance();
    ASSERT_NE(instance, nullptr) << LastError();
    plugIn.Reset();
    EXPECT_TRUE(ModuleIsInMemory());
    EXPECT_EQ(CFPlugInHostUnloadUnused(), 0);
    EXPECT_EQ(MakeInstance(), nullptr);
    EXPECT_EQ(ReleaseInstance(instance), 0U);
    EXPECT_TRUE(ModuleIsInMemory());
    EXPECT_EQ(CFPlugInHostUnloadUnused(), 1);
    EXPECT_FALSE(ModuleIsInMemory());
    EXPECT_EQ(CFPlugInHostUnloadUnused(), 0);
}

TEST_F(CFPlugInTest, TakesUpTheModuleOfAReleasedPlugInAgain) {
    PlugIn plugIn = Create();
    void* const instance = MakeInstance();
    ASSERT_NE(instance, nullptr) << LastError();
    plugIn.Reset();
    plugIn = Create();
    ReleaseInstance(instance);
    EXPECT_EQ(CFPlugInHostUnloadUnused(), 0);
    void* const second = MakeInstance();
    ASSERT_NE(second, nullptr);
    ReleaseInstance(second);
    plugIn.Reset();
    EXPECT_FALSE(ModuleIsInMemory());
}

TEST_F(CFPlugInTest, LoadsAndUnloadsAThousandTimes) {
    for (int round = 0; round < 1000; ++round) {
        PlugIn plugIn = Create();
        ASSERT_TRUE(plugIn) << LastError();
        void* const instance = MakeInstance();
        ASSERT_NE(instance, nullptr) << LastError();
        ASSERT_EQ(ReleaseInstance(instance), 0U);
        plugIn.Reset();
        ASSERT_FALSE(ModuleIsInMemory());
    }
}

TEST_F(CFPlugInTest, MakesAndRemovesInstancesOnManyThreads) {
    const PlugIn plugIn = Create();
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 100; ++i) {
                const PlugIn again = Create();
                EXPECT_EQ(again.Get(), plugIn.Get());
                void* const instance = MakeInstance();
                ASSERT_NE(instance, nullptr);
                ReleaseInstance(instance);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(CFGetRetainCount(plugIn.Get()), 1);
}

TEST_F(CFPlugInTest, GivesTheSamePlugInForAFolderWhileItLives) {
    const PlugIn first = Create();
    const PlugIn second = Create();
    EXPECT_EQ(first.Get(), second.Get());
    EXPECT_EQ(CFGetRetainCount(first.Get()), 2);
}

TEST_F(CFPlugInTest, FindsTheFactoriesOfAType) {
    const PlugIn plugIn = Create();
    const Uuid type = MakeUuid(kType);
    const auto expectAll = [&](CFArrayRef found) {
        const CFOwned<CFArrayRef> factories(found);
        ASSERT_EQ(CFArrayGetCount(factories.Get()), 3);
        for (const char* each : {kFactory, kNullFactory, kAbsentFactory}) {
            const Uuid factory = MakeUuid(each);
            EXPECT_TRUE(CFEqual(CFArrayGetValueAtIndex(factories.Get(), 0), factory.Get()) ||
                        CFEqual(CFArrayGetValueAtIndex(factories.Get(), 1), factory.Get()) ||
                        CFEqual(CFArrayGetValueAtIndex(factories.Get(), 2), factory.Get()));
        }
    };
    expectAll(CFPlugInFindFactoriesForPlugInTypeInPlugIn(type.Get(), plugIn.Get()));
}

TEST_F(CFPlugInTest, GivesNoListOfFactoriesForATypeThatNobodyMakes) {
    const PlugIn plugIn = Create();
    const Uuid type = MakeUuid(kType);
    const Uuid unknown = MakeUuid(kFactory);
    EXPECT_EQ(CFPlugInFindFactoriesForPlugInTypeInPlugIn(unknown.Get(), plugIn.Get()), nullptr);
    EXPECT_EQ(CFPlugInFindFactoriesForPlugInTypeInPlugIn(nullptr, plugIn.Get()), nullptr);
    EXPECT_EQ(CFPlugInFindFactoriesForPlugInTypeInPlugIn(type.Get(), nullptr), nullptr);
}

TEST_F(CFPlugInTest, GivesTheBundlesPropertyList) {
    const PlugIn plugIn = Create();
    const CFBundleRef bundle = CFPlugInGetBundle(plugIn.Get());
    EXPECT_TRUE(CFEqual(CFBundleGetIdentifier(bundle), CFSTR("com.quorvel.test")));
    const CFDictionaryRef list = CFBundleGetInfoDictionary(bundle);
    EXPECT_TRUE(CFEqual(CFDictionaryGetValue(list, kCFBundleExecutableKey), CFSTR("Module")));
    EXPECT_FALSE(CFBundleIsExecutableLoaded(bundle));
}

TEST_F(CFPlugInTest, IgnoresInstancesOfFactoriesThatNobodyRegistered) {
    const Uuid unknown = MakeUuid(kFactory);
    CFPlugInAddInstanceForFactory(unknown.Get());
    CFPlugInRemoveInstanceForFactory(unknown.Get());
    CFPlugInRemoveInstanceForFactory(unknown.Get());
    CFPlugInAddInstanceForFactory(nullptr);
    CFPlugInRemoveInstanceForFactory(nullptr);
    EXPECT_EQ(MakeInstance(), nullptr);
    EXPECT_THAT(LastError(), HasSubstr(kFactory));
    EXPECT_EQ(CFPlugInHostUnloadUnused(), 0);
}

TEST_F(CFPlugInTest, NamesTheFileThatIsMissing) {
    ASSERT_TRUE(std::filesystem::remove(ModulePath()));
    {
        const PlugIn plugIn = Create();
        ASSERT_TRUE(plugIn);
        EXPECT_EQ(MakeInstance(), nullptr);
        EXPECT_THAT(LastError(), AllOf(StartsWith(ModulePath() + ": No such file"),
                                       HasSubstr("CFBundleExecutable of " + ListPath())));
    }
    ASSERT_TRUE(std::filesystem::remove(ListPath()));
    EXPECT_FALSE(Create());
    EXPECT_THAT(LastError(), AllOf(StartsWith(ListPath()), EndsWith("No such file or directory")));
    std::filesystem::remove_all(mBundle);
    EXPECT_FALSE(Create());
    EXPECT_THAT(LastError(), AllOf(StartsWith(mBundle), HasSubstr("No such file or directory")));
}

TEST_F(CFPlugInTest, NamesTheModuleThatCannotBeLoaded) {
    std::ofstream(ModulePath(), std::ios::trunc) << "no module";
    const PlugIn plugIn = Create();
    EXPECT_EQ(MakeInstance(), nullptr);
    EXPECT_THAT(LastError(), StartsWith(ModulePath() + ": expected a module"));
    std::filesystem::remove(ModulePath());
    std::filesystem::create_directory(ModulePath());
    EXPECT_EQ(MakeInstance(), nullptr);
    EXPECT_THAT(LastError(), AllOf(StartsWith(ModulePath()), EndsWith("no regular file")));
}

// The loader maps what the headers promise, and the first touch of what is not there is a SIGBUS.
TEST_F(CFPlugInTest, RefusesAModuleThatIsCutOffAtAnyLength) {
    const auto size = std::filesystem::file_size(ModulePath());
    const PlugIn plugIn = Create();
    for (std::uintmax_t length = size - 1; length > 0;
         length -= std::min<std::uintmax_t>(97, length)) {
        std::filesystem::resize_file(ModulePath(), length);
        ASSERT_EQ(MakeInstance(), nullptr) << length;
        ASSERT_THAT(LastError(),
                    StartsWith(ModulePath() + (length < sizeof(ElfW(Ehdr))
                                                   ? ": expected a module"
                                                   : ": cut off: by its headers the module has " +
                                                         std::to_string(size) + " bytes")))
            << length;
    }
}

TEST_F(CFPlugInTest, RefusesAModuleWhoseHeadersPromiseMoreThanAnyFile) {
    const PlugIn plugIn = Create();
    ElfW(Ehdr) header;
    ElfW(Phdr) segment;
    std::fstream file(ModulePath(), std::ios::in | std::ios::out | std::ios::binary);
    file.read(reinterpret_cast<char*>(&header), sizeof header);
    file.seekg(static_cast<std::streamoff>(header.e_phoff));
    file.read(reinterpret_cast<char*>(&segment), sizeof segment);
    segment.p_filesz = std::numeric_limits<decltype(segment.p_filesz)>::max();
    file.seekp(static_cast<std::streamoff>(header.e_phoff));
    file.write(reinterpret_cast<const char*>(&segment), sizeof segment);
    file.flush();
    EXPECT_EQ(MakeInstance(), nullptr);
    EXPECT_THAT(LastError(), StartsWith(ModulePath() + ": cut off"));

    header.e_phoff = std::numeric_limits<decltype(header.e_phoff)>::max() - 8;
    file.seekp(0);
    file.write(reinterpret_cast<const char*>(&header), sizeof header);
    file.flush();
    EXPECT_EQ(MakeInstance(), nullptr);
    EXPECT_THAT(LastError(), StartsWith(ModulePath() + ": cut off"));
}

TEST_F(CFPlugInTest, NamesTheFunctionThatIsMissingOrMakesNothing) {
    const PlugIn plugIn = Create();
    EXPECT_EQ(MakeInstance(kAbsentFactory), nullptr);
    EXPECT_THAT(LastError(), AllOf(StartsWith(ModulePath()), HasSubstr("\"NoSuchFunction\""),
                                   HasSubstr(kAbsentFactory)));
    EXPECT_EQ(MakeInstance(kNullFactory), nullptr);
    EXPECT_THAT(LastError(),
                AllOf(StartsWith(ModulePath()), HasSubstr("\"MakeNothing\""), HasSubstr(kType)));
    EXPECT_EQ(MakeInstance(kFactory, kFactory), nullptr);
    EXPECT_THAT(LastError(), AllOf(StartsWith(ListPath()), HasSubstr("CFPlugInTypes")));
    EXPECT_EQ(CFPlugInInstanceCreate(nullptr, nullptr, nullptr), nullptr);
}

TEST_F(CFPlugInTest, NamesTheKeyThatIsMissing) {
    ExpectRefused(kFactories + kTypes, "key CFBundleExecutable: expected a string, found none");
    ExpectRefused(kExecutable + kTypes, "key CFPlugInFactories: expected a dictionary, found none");
    ExpectRefused(kExecutable + kFactories, "key CFPlugInTypes: expected a dictionary, found none");
}

TEST_F(CFPlugInTest, NamesTheKeyOfAWrongTypeAndWhatWasExpected) {
    const std::string rest = kFactories + kTypes;
    ExpectRefused(rest + Entry("CFBundleExecutable", "<integer>1</integer>"),
                  "key CFBundleExecutable: expected a string, found a number");
    ExpectRefused(rest + Entry("CFBundleExecutable", String("")),
                  "key CFBundleExecutable: expected a string, found an empty one");
    ExpectRefused(rest + Entry("CFBundleExecutable", String("../Module")),
                  "key CFBundleExecutable: expected a file name, found \"../Module\"");
    ExpectRefused(kExecutable + kTypes + Entry("CFPlugInFactories", Array("")),
                  "key CFPlugInFactories: expected a dictionary, found an array");
    ExpectRefused(kExecutable + kTypes + Entry("CFPlugInFactories", Dictionary("")),
                  "key CFPlugInFactories: expected at least one entry, found none");
    ExpectRefused(kExecutable + kTypes +
                      Entry("CFPlugInFactories", Dictionary(Entry("no UUID", String("F")))),
                  "key CFPlugInFactories: expected a UUID, found \"no UUID\"");
    ExpectRefused(kExecutable + kTypes +
                      Entry("CFPlugInFactories", Dictionary(Entry(kFactory, "<true/>"))),
                  std::string("key CFPlugInFactories/") + kFactory +
                      ": expected the name of the factory function, found a boolean");
    ExpectRefused(kExecutable + kFactories +
                      Entry("CFPlugInTypes", Dictionary(Entry(kType, String(kFactory)))),
                  std::string("key CFPlugInTypes/") + kType +
                      ": expected an array of factory UUIDs, found a string");
    ExpectRefused(kExecutable + kFactories +
                      Entry("CFPlugInTypes", Dictionary(Entry(kType, Array("<real>1</real>")))),
                  std::string("key CFPlugInTypes/") + kType +
                      ": expected an array of factory UUIDs, found a number in it");
    ExpectRefused(kExecutable + kFactories +
                      Entry("CFPlugInTypes", Dictionary(Entry(kType, Array(String(kType))))),
                  std::string("key CFPlugInTypes/") + kType +
                      ": expected a factory of key CFPlugInFactories, found \"" + kType + "\"");
}

TEST_F(CFPlugInTest, RegistersStaticallyOnly) {
    const std::string expected =
        "key CFPlugInDynamicRegistration: expected NO (dynamic registration is not supported), ";
    ExpectRefused(kComplete + Entry("CFPlugInDynamicRegistration", "<true/>"),
                  expected + "found YES");
    ExpectRefused(kComplete + Entry("CFPlugInDynamicRegistration", String("YES")),
                  expected + "found \"YES\"");
    ExpectRefused(kComplete + Entry("CFPlugInDynamicRegistration", Array("")),
                  expected + "found an array");
    for (const std::string& no : {String("NO"), std::string("<false/>")}) {
        WriteList(kComplete + Entry("CFPlugInDynamicRegistration", no));
        EXPECT_TRUE(Create()) << LastError();
    }
}

TEST_F(CFPlugInTest, RefusesAListThatIsNoDictionaryOrNoList) {
    for (const char* bytes : {"", "no list", "<plist><array/></plist>", "<plist><dict>"}) {
        std::ofstream(ListPath(), std::ios::trunc) << bytes;
        EXPECT_FALSE(Create()) << bytes;
        EXPECT_THAT(LastError(), StartsWith(ListPath() + ": expected a bundle's property list: "));
        EXPECT_THAT(LastError(), testing::Not(HasSubstr("\n")));
    }
    std::filesystem::remove(ListPath());
    std::filesystem::create_directory(ListPath());
    EXPECT_FALSE(Create());
    EXPECT_THAT(LastError(), EndsWith("not a regular file"));
}

TEST_F(CFPlugInTest, KeepsTheLastErrorForEachThread) {
    EXPECT_EQ(CFPlugInCreate(nullptr, nullptr), nullptr);
    const std::string mine = LastError();
    EXPECT_FALSE(mine.empty());
    std::thread([] { EXPECT_EQ(CFPlugInHostCopyLastError(), nullptr); }).join();
    EXPECT_TRUE(Create());
    EXPECT_EQ(LastError(), mine);
}

} // namespace
