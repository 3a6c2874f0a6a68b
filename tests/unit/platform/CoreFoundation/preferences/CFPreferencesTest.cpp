#include "tests/support/TemporaryDirectory.h"
#include "tests/support/platform/SyslogCapture.h"
#include "tests/unit/platform/CoreFoundation/values/CFTestValues.h"

#include <CoreFoundation/CFPreferences.h>
#include <CoreFoundation/CFPreferencesHost.h>
#include <CoreFoundation/CFRuntimeHost.h>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace {

constexpr const char* kIdentifier = "com.quorvel.Test";

class CFPreferences : public testing::Test {
protected:
    CFPreferences() { setenv("QUORVEL_PREFERENCES_DIR", mFolder.Path().c_str(), 1); }

    std::string FilePath() const { return mFolder.Path() + "/" + kIdentifier + ".plist"; }

    void WriteFile(const std::string& contents) const {
        std::ofstream(FilePath(), std::ios::binary) << contents;
    }

    std::string ReadFile() const {
        std::ifstream file(FilePath(), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    static void Set(const std::string& key, CFTypeRef value) {
        CFPreferencesSetValue(Text(key).Get(), value, Text(kIdentifier).Get(),
                              kCFPreferencesAnyUser, kCFPreferencesCurrentHost);
    }

    static CFOwned<CFTypeRef> Get(const std::string& key) {
        return CFOwned<CFTypeRef>(CFPreferencesCopyValue(Text(key).Get(), Text(kIdentifier).Get(),
                                                         kCFPreferencesAnyUser,
                                                         kCFPreferencesCurrentHost));
    }

    static bool Synchronize() {
        return CFPreferencesSynchronize(Text(kIdentifier).Get(), kCFPreferencesAnyUser,
                                        kCFPreferencesCurrentHost) != 0;
    }

    TemporaryDirectory mFolder;
};

TEST_F(CFPreferences, HasNoValuesWithoutAFile) {
    EXPECT_FALSE(Get("key"));
    EXPECT_TRUE(Synchronize());
    EXPECT_FALSE(std::filesystem::exists(FilePath()));
}

TEST_F(CFPreferences, ShowsChangesAtOnceAndWritesThemWhenSynchronized) {
    Set("key", CFSTR("value"));
    EXPECT_EQ(Read(Get("key").Get()), "value");
    EXPECT_FALSE(std::filesystem::exists(FilePath()));
    EXPECT_TRUE(Synchronize());
    EXPECT_NE(ReadFile().find("<string>value</string>"), std::string::npos);
    struct stat status {};
    ASSERT_EQ(stat(FilePath().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0644U);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(mFolder.Path()), {}), 1);
    Set("key", nullptr);
    EXPECT_FALSE(Get("key"));
    EXPECT_NE(ReadFile().find("value</string>"), std::string::npos);
    EXPECT_TRUE(Synchronize());
    EXPECT_EQ(ReadFile().find("value</string>"), std::string::npos);
}

TEST_F(CFPreferences, ReadsTheFileAnewEachTime) {
    WriteFile("<plist><dict><key>a</key><integer>1</integer></dict></plist>");
    EXPECT_TRUE(CFEqual(Get("a").Get(), Integer(1).Get()));
    WriteFile("<plist><dict><key>a</key><true/></dict></plist>");
    EXPECT_EQ(Get("a").Get(), kCFBooleanTrue);
    std::filesystem::remove(FilePath());
    EXPECT_FALSE(Get("a"));
}

TEST_F(CFPreferences, KeepsWhatOthersWroteMeanwhile) {
    WriteFile("<plist><dict><key>theirs</key><integer>1</integer></dict></plist>");
    Set("ours", CFSTR("x"));
    WriteFile("<plist><dict><key>theirs</key><integer>2</integer></dict></plist>");
    EXPECT_TRUE(Synchronize());
    EXPECT_TRUE(CFEqual(Get("theirs").Get(), Integer(2).Get()));
    EXPECT_EQ(Read(Get("ours").Get()), "x");
}

TEST_F(CFPreferences, GivesValuesOfWhateverType) {
    WriteFile("<plist><dict><key>Sonaret Applications</key><string>no array</string>"
              "</dict></plist>");
    const auto value = Get("Sonaret Applications");
    EXPECT_EQ(CFGetTypeID(value.Get()), CFStringGetTypeID());
    EXPECT_EQ(CFArrayGetCount(static_cast<CFArrayRef>(value.Get())), 0);
}

TEST_F(CFPreferences, TakesUnusableFilesForEmptyAndLeavesThemAlone) {
    for (const char* contents :
         {"", "junk", "bplist00junk", "<plist><array/></plist>", "<plist><dict><key>a</key>"}) {
        WriteFile(contents);
        EXPECT_FALSE(Get("a"));
        Set("a", CFSTR("x"));
        EXPECT_EQ(Read(Get("a").Get()), "x");
        TestSupport::ClearSyslogLines();
        EXPECT_FALSE(Synchronize());
        EXPECT_EQ(ReadFile(), contents);
        const auto lines = TestSupport::SyslogLines();
        ASSERT_EQ(lines.size(), 1U);
        EXPECT_NE(lines[0].mText.find(FilePath()), std::string::npos);
        // The change is not lost: it is written once the file is out of the way.
        std::filesystem::remove(FilePath());
        EXPECT_TRUE(Synchronize());
        EXPECT_EQ(Read(Get("a").Get()), "x");
        std::filesystem::remove(FilePath());
    }
}

TEST_F(CFPreferences, IsNotHeldUpByWhatIsNoFile) {
    ASSERT_EQ(mkfifo(FilePath().c_str(), 0600), 0);
    EXPECT_FALSE(Get("a"));
    std::filesystem::remove(FilePath());
    std::filesystem::create_directory(FilePath());
    EXPECT_FALSE(Get("a"));
    Set("a", CFSTR("x"));
    EXPECT_FALSE(Synchronize());
}

TEST_F(CFPreferences, FailsToWriteWhereThereCanBeNoFolder) {
    const std::string inTheWay = mFolder.Path() + "/file";
    std::ofstream{inTheWay} << "x";
    setenv("QUORVEL_PREFERENCES_DIR", (inTheWay + "/folder").c_str(), 1);
    Set("a", CFSTR("x"));
    EXPECT_FALSE(Synchronize());
    EXPECT_EQ(Read(Get("a").Get()), "x");
}

TEST_F(CFPreferences, MakesMissingFolders) {
    setenv("QUORVEL_PREFERENCES_DIR", (mFolder.Path() + "/a/b").c_str(), 1);
    Set("a", CFSTR("x"));
    EXPECT_TRUE(Synchronize());
    EXPECT_TRUE(std::filesystem::exists(mFolder.Path() + "/a/b/" + kIdentifier + ".plist"));
}

TEST_F(CFPreferences, TakesOverWhatACrashLeft) {
    std::ofstream(mFolder.Path() + "/." + kIdentifier + ".plist.new") << "half a fi";
    Set("a", CFSTR("x"));
    EXPECT_TRUE(Synchronize());
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(mFolder.Path()), {}), 1);
}

TEST_F(CFPreferences, CopiesWhatIsSet) {
    const auto array = Array();
    CFArrayAppendValue(array.Get(), CFSTR("before"));
    Set("a", array.Get());
    CFArrayAppendValue(array.Get(), CFSTR("after"));
    EXPECT_EQ(CFArrayGetCount(static_cast<CFArrayRef>(Get("a").Get())), 1);
}

TEST_F(CFPreferences, IgnoresWhatCannotBeSetAndSaysSo) {
    TestSupport::ClearSyslogLines();
    Set("a", ZeroUuid());
    EXPECT_FALSE(Get("a"));
    for (const char* identifier : {"", "../x", "a/b", ".hidden"}) {
        CFPreferencesSetValue(CFSTR("a"), CFSTR("x"), Text(identifier).Get(), kCFPreferencesAnyUser,
                              kCFPreferencesCurrentHost);
        EXPECT_EQ(CFPreferencesCopyValue(CFSTR("a"), Text(identifier).Get(), kCFPreferencesAnyUser,
                                         kCFPreferencesCurrentHost),
                  nullptr);
        EXPECT_FALSE(CFPreferencesSynchronize(Text(identifier).Get(), kCFPreferencesAnyUser,
                                              kCFPreferencesCurrentHost));
    }
    EXPECT_EQ(TestSupport::SyslogLines().size(), 5U);
    EXPECT_EQ(CFPreferencesCopyValue(CFSTR("a"), Text(kIdentifier).Get(), CFSTR("somebody"),
                                     kCFPreferencesCurrentHost),
              nullptr);
    EXPECT_EQ(CFPreferencesCopyValue(nullptr, nullptr, nullptr, nullptr), nullptr);
}

TEST_F(CFPreferences, KeepsDomainsApart) {
    const CFStringRef users[] = {kCFPreferencesAnyUser, kCFPreferencesCurrentUser};
    const CFStringRef hosts[] = {kCFPreferencesAnyHost, kCFPreferencesCurrentHost};
    SInt64 number = 0;
    for (const auto* user : users) {
        for (const auto* host : hosts) {
            for (const auto* application :
                 {CFSTR("com.quorvel.Test"), kCFPreferencesAnyApplication}) {
                CFPreferencesSetValue(CFSTR("a"), Integer(number).Get(), application, user, host);
                EXPECT_TRUE(CFPreferencesSynchronize(application, user, host));
                ++number;
            }
        }
    }
    number = 0;
    for (const auto* user : users) {
        for (const auto* host : hosts) {
            for (const auto* application :
                 {CFSTR("com.quorvel.Test"), kCFPreferencesAnyApplication}) {
                const CFOwned<CFTypeRef> value(
                    CFPreferencesCopyValue(CFSTR("a"), application, user, host));
                EXPECT_TRUE(CFEqual(value.Get(), Integer(number).Get()));
                ++number;
            }
        }
    }
}

TEST_F(CFPreferences, LeavesNothingBehind) {
    Set("a", CFSTR("x"));
    ASSERT_TRUE(Synchronize());
    const CFIndex before = CFRuntimeHostLiveObjectCount(0);
    for (int i = 0; i < 100; ++i) {
        Set("a", Integer(i).Get());
        ASSERT_TRUE(Get("a"));
        ASSERT_TRUE(Synchronize());
    }
    EXPECT_EQ(CFRuntimeHostLiveObjectCount(0), before);
}

// Two processes write keys of their own to one file again and again, while this one reads it.
TEST_F(CFPreferences, LosesNothingOfTwoProcessesThatWrite) {
    constexpr int kRounds = 40;
    pid_t writers[2] = {};
    for (int writer = 0; writer < 2; ++writer) {
        writers[writer] = fork();
        ASSERT_GE(writers[writer], 0);
        if (writers[writer] == 0) {
            bool good = true;
            for (int i = 0; i < kRounds; ++i) {
                Set("writer " + std::to_string(writer) + " key " + std::to_string(i),
                    Integer(i).Get());
                good = Synchronize() && good;
            }
            _exit(good ? 0 : 1);
        }
    }
    int running = 2;
    CFIndex seen = 0;
    while (running > 0) {
        // A torn file would not parse, and the null result has no entries.
        const CFOwned<CFDictionaryRef> all(CFPreferencesHostCopyFile(
            Text(kIdentifier).Get(), kCFPreferencesAnyUser, kCFPreferencesCurrentHost, nullptr));
        EXPECT_GE(CFDictionaryGetCount(all.Get()), seen);
        seen = CFDictionaryGetCount(all.Get());
        int status = 0;
        if (waitpid(-1, &status, WNOHANG) > 0) {
            EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
            --running;
        }
    }
    for (int writer = 0; writer < 2; ++writer) {
        for (int i = 0; i < kRounds; ++i) {
            EXPECT_TRUE(
                CFEqual(Get("writer " + std::to_string(writer) + " key " + std::to_string(i)).Get(),
                        Integer(i).Get()));
        }
    }
}

} // namespace
