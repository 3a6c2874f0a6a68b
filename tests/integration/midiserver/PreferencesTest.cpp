#include "tests/integration/midiserver/Midiserver.h"
#include "tests/support/Sanitized.h"
#include "tests/support/SlowBuild.h"
#include "tests/support/TestSeed.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <memory>
#include <random>
#include <thread>

namespace QuorvelTest {
namespace {

using testing::HasSubstr;

constexpr const char* kFile = "com.quorvel.ControlSurface.plist";

// Runs midiserver with a limit on its address space, unless a sanitizer reserves its own.
ProgramResult WithinMemory(unsigned mebibytes, const std::vector<std::string>& arguments,
                           const std::string& input = {}) {
#if defined(QUORVEL_SANITIZED)
    mebibytes = 0;
#endif
    const std::string limit =
        mebibytes == 0 ? "" : "ulimit -v " + std::to_string(mebibytes * 1024) + "; ";
    return Shell(limit + "exec \"$@\"", arguments, input);
}

class PreferencesTest : public testing::Test {
protected:
    ProgramResult Prefs(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), "prefs");
        arguments.insert(arguments.end(), {"--prefs", mFolder.Path().string()});
        return Midiserver(std::move(arguments));
    }

    nlohmann::json Shown() const {
        const ProgramResult result = Prefs({"show", "--json"});
        EXPECT_EQ(result.status, 0) << result.err;
        return Summary(result);
    }

    std::string WriteXml(const std::string& dictionary) const {
        return mFolder.Write("com.quorvel.ControlSurface.plist",
                             "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">" +
                                 dictionary + "</plist>\n");
    }

    const TemporaryFolder mFolder;
};

TEST_F(PreferencesTest, ShowWhatWasSetUntilItIsCleared) {
    EXPECT_EQ(Prefs({"set", "Mixer", "--ports", "1-4", "--protocol", "MackieControl"}).status, 0);
    EXPECT_EQ(Prefs({"set", "Desk", "--ports", "5-8", "--protocol", "HUI"}).status, 0);

    nlohmann::json shown = Shown();
    ASSERT_EQ(shown["applications"].size(), 2U);
    EXPECT_EQ(shown["applications"][1]["name"], "Desk");
    EXPECT_EQ(shown["driver"]["portCount"], 8);
    EXPECT_EQ(shown["driver"]["ports"][0]["protocol"], "MackieControl");
    EXPECT_EQ(shown["driver"]["ports"][7]["protocol"], "HUI");
    EXPECT_TRUE(shown["notices"].empty());
    EXPECT_THAT(Prefs({"show"}).out, HasSubstr("The driver publishes 8 ports.\n"
                                               "  1-4: MackieControl\n  5-8: HUI\n"));

    EXPECT_EQ(Prefs({"set", "Desk", "--protocol", "MackieControl"}).status, 0);
    EXPECT_EQ(Shown()["applications"][1]["ports"], "5-8");
    EXPECT_EQ(Prefs({"clear", "Mixer"}).status, 0);
    ASSERT_EQ(Shown()["applications"].size(), 1U);
    EXPECT_EQ(Prefs({"clear"}).status, 0);
    shown = Shown();
    EXPECT_TRUE(shown["applications"].empty());
    EXPECT_EQ(shown["driver"]["portCount"], 4);
    EXPECT_EQ(shown["driver"]["portCountFromPreferences"], false);
}

TEST_F(PreferencesTest, AreReadFromTheFolderOfTheEnvironmentToo) {
    EXPECT_EQ(Prefs({"set", "Mixer", "--ports", "9-12"}).status, 0);
    const ProgramResult result = Midiserver({"prefs", "show", "--json"}, {},
                                            {"QUORVEL_PREFERENCES_DIR=" + mFolder.Path().string()});

    EXPECT_EQ(Summary(result)["driver"]["portCount"], 12);
}

TEST_F(PreferencesTest, RefuseWhatTheDriverTakesNothingFromAndWarnOfTheRest) {
    for (const char* ports : {"0-4", "1-33", "4-1", "5"}) {
        const ProgramResult result = Prefs({"set", "A", "--ports", ports});
        EXPECT_EQ(result.status, 2) << ports;
        EXPECT_TRUE(IsOneLine(result.err)) << result.err;
    }
    EXPECT_EQ(Prefs({"set", "A"}).status, 2);
    const ProgramResult unknown = Prefs({"set", "A", "--ports", "1-4", "--protocol", "hui"});
    EXPECT_EQ(unknown.status, 2);
    EXPECT_THAT(unknown.err, HasSubstr("--force"));
    EXPECT_TRUE(Shown()["applications"].empty());

    const ProgramResult odd = Prefs({"set", "A", "--ports", "1-2", "--protocol", "HUI"});
    EXPECT_EQ(odd.status, 0);
    EXPECT_THAT(odd.err, HasSubstr("midiserver: warning: \"1-2\""));
    EXPECT_EQ(Prefs({"set", "B", "--ports", "5-8", "--protocol", "hui", "--force"}).status, 0);
    EXPECT_EQ(Shown()["applications"].size(), 2U);
}

TEST_F(PreferencesTest, SayThatAnApplicationIsNotThere) {
    const ProgramResult result = Prefs({"clear", "Nobody"});

    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, HasSubstr("there is no application \"Nobody\""));
}

TEST_F(PreferencesTest, SayThatTheirFolderCannotBeWritten) {
    const std::string file = mFolder.Write("file", "");
    for (const std::string& folder : {file + "/prefs", std::string("/proc/prefs")}) {
        const ProgramResult result =
            Midiserver({"prefs", "set", "A", "--ports", "1-4", "--prefs", folder});
        EXPECT_EQ(result.status, 2);
        EXPECT_TRUE(IsOneLine(result.err)) << result.err;
        EXPECT_THAT(result.err, HasSubstr("midiserver: " + folder));
    }
}

TEST_F(PreferencesTest, LeaveADamagedFileAloneAndNameIt) {
    const std::string file = mFolder.Write("com.quorvel.ControlSurface.plist", "no property list");
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"set", "A", "--ports", "1-4"}, {"clear"}, {"clear", "A"}}) {
        const ProgramResult result = Prefs(arguments);
        EXPECT_EQ(result.status, 2);
        EXPECT_THAT(result.err, HasSubstr(file + ": not a property list"));
    }
    EXPECT_EQ(ContentOf(file), "no property list");
    const ProgramResult shown = Prefs({"show"});
    EXPECT_EQ(shown.status, 0);
    EXPECT_THAT(shown.out, HasSubstr("note: ignored: " + file + ": not a property list"));
    EXPECT_THAT(shown.out, HasSubstr("The driver publishes 4 ports, its default."));
}

TEST_F(PreferencesTest, SayWhichEntryIsIgnoredAndWhyWhenShownAndWhenReplaying) {
    WriteXml("<dict><key>Sonaret Applications</key><array><string>x</string>"
             "<dict><key>App Name</key><string>Odd</string><key>MIDI Ports</key>"
             "<string>30-40</string><key>Protocol</key><string>HUI</string></dict>"
             "<dict><key>MIDI Ports</key><integer>4</integer></dict>"
             "<dict><key>MIDI Ports</key><string>1-4</string><key>Protocol</key>"
             "<string>Mackie Control</string></dict></array></dict>");
    const ProgramResult shown = Prefs({"show"});
    const ProgramResult replayed = Midiserver(
        {"replay", "-", "--as-fast-as-possible", "--prefs", mFolder.Path().string()}, "0 F8\n");

    EXPECT_EQ(replayed.status, 0) << replayed.err;
    for (const std::string& text :
         {std::string("entry 1: ignored: it is no dictionary\n"),
          std::string("entry 2 (\"Odd\"): ignored: its \"MIDI Ports\" \"30-40\" is no range"),
          std::string("entry 3: its \"MIDI Ports\" is ignored: the value is no text\n"),
          std::string("entry 4: its \"Protocol\" \"Mackie Control\" is neither")}) {
        EXPECT_THAT(shown.out, HasSubstr("note: " + text));
        EXPECT_THAT(replayed.err, HasSubstr("midiserver: preferences: " + text));
    }
}

TEST_F(PreferencesTest, RefuseNamesThatAreNoPlainText) {
    for (const char* name : {"\xFF\xFE", "a\nb", "\x1B[2J"}) {
        const ProgramResult result = Prefs({"set", name, "--ports", "1-4"});
        EXPECT_EQ(result.status, 2);
        EXPECT_TRUE(IsOneLine(result.err)) << result.err;
        EXPECT_THAT(result.err, HasSubstr("the application's name"));
    }
    EXPECT_TRUE(std::filesystem::is_empty(mFolder.Path()));
}

TEST_F(PreferencesTest, SayThatThereIsNoFileOrFolder) {
    const ProgramResult empty = Prefs({"show"});
    EXPECT_EQ(empty.status, 0);
    EXPECT_THAT(empty.out, HasSubstr("com.quorvel.ControlSurface.plist: cannot be opened: No such "
                                     "file or directory\n"));
    for (const std::string& folder :
         {mFolder.Path().string(), (mFolder.Path() / "nowhere").string()}) {
        const ProgramResult result =
            Midiserver({"replay", "-", "--as-fast-as-possible", "--prefs", folder}, "0 F8\n");
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.out, "");
        EXPECT_TRUE(IsOneLine(result.err)) << result.err;
        EXPECT_THAT(result.err, HasSubstr(folder + "/com.quorvel.ControlSurface.plist: cannot be "
                                                   "opened: No such file or directory"));
    }
    const std::string nowhere = (mFolder.Path() / "nowhere").string();
    for (const char* command : {"show", "clear"}) {
        Midiserver({"prefs", command, "--prefs", nowhere});
        EXPECT_FALSE(std::filesystem::exists(nowhere)) << command;
    }
    const ProgramResult shown = Midiserver({"prefs", "show", "--prefs", nowhere});
    EXPECT_EQ(shown.status, 2);
    EXPECT_THAT(shown.err, HasSubstr(nowhere + ": there is no such folder"));
}

TEST_F(PreferencesTest, LoseNothingOfEightEditorsAtOnce) {
    WriteXml("<dict><key>Auto Launch</key><true/></dict>");
    for (int round = 0; round < 5; ++round) {
        std::vector<std::unique_ptr<Program>> editors;
        for (int editor = 0; editor < 8; ++editor) {
            editors.push_back(std::make_unique<Program>(MidiserverCommand(
                {"prefs", "set", "App " + std::to_string(round) + "." + std::to_string(editor),
                 "--ports", "1-4", "--prefs", mFolder.Path().string()})));
        }
        for (const auto& editor : editors) {
            EXPECT_EQ(editor->Wait().status, 0);
        }
    }
    EXPECT_EQ(Shown()["applications"].size(), 40U);
    EXPECT_THAT(ContentOf(mFolder.Path() / kFile), HasSubstr("<key>Auto Launch</key>"));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(mFolder.Path()), {}), 1);
}

TEST_F(PreferencesTest, LeaveNothingBehindWhenKilled) {
    const auto seed = TestSeed();
    SCOPED_TRACE(DescribeSeed(seed));
    std::mt19937_64 random(seed);
    for (int round = 0; round < 20; ++round) {
        Program editor(MidiserverCommand(
            {"prefs", "set", "Killed", "--ports", "1-4", "--prefs", mFolder.Path().string()}));
        // The moment is anybody's guess; whatever it hits, the next one goes on from there.
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 20000));
        editor.Signal(SIGKILL);
        editor.Wait();
        EXPECT_EQ(Prefs({"set", "Next", "--ports", "5-8"}).status, 0);
        EXPECT_EQ(Shown()["driver"]["portCount"], 8);
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(mFolder.Path()), {}), 1);
    }
}

TEST_F(PreferencesTest, KeepASymbolicLinkAndLockWhatItLeadsTo) {
    const TemporaryFolder other;
    std::filesystem::create_symlink(other.Path() / "real.plist", mFolder.Path() / kFile);
    EXPECT_EQ(Prefs({"set", "A", "--ports", "1-4"}).status, 0);
    EXPECT_EQ(Prefs({"set", "B", "--ports", "5-8"}).status, 0);
    EXPECT_TRUE(std::filesystem::is_symlink(mFolder.Path() / kFile));
    EXPECT_TRUE(std::filesystem::is_regular_file(other.Path() / "real.plist"));
    EXPECT_EQ(Shown()["driver"]["portCount"], 8);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(mFolder.Path()), {}), 1);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(other.Path()), {}), 1);

    std::filesystem::remove(mFolder.Path() / kFile);
    std::filesystem::create_symlink(kFile, mFolder.Path() / kFile); // to itself
    const ProgramResult result = Prefs({"set", "A", "--ports", "1-4"});
    EXPECT_EQ(result.status, 2);
    EXPECT_TRUE(std::filesystem::is_symlink(mFolder.Path() / kFile));
}

// Files that ask for a lot, with an address space that would not give it.
TEST_F(PreferencesTest, SurviveHostileFilesWithinLittleMemory) {
    const auto repeated = [](const std::string& text, std::size_t times) {
        std::string result;
        for (; times > 0; --times) {
            result += text;
        }
        return result;
    };
    const auto bigEndian = [](std::uint64_t value, unsigned size) {
        std::string bytes;
        for (unsigned i = size; i > 0; --i) {
            bytes += static_cast<char>(value >> (8 * (i - 1)));
        }
        return bytes;
    };
    const auto binary = [&](const std::vector<std::string>& objects) {
        std::string bytes = "bplist00";
        std::string table;
        for (const std::string& object : objects) {
            table += bigEndian(bytes.size(), 4);
            bytes += object;
        }
        const std::size_t start = bytes.size();
        return bytes + table + std::string(6, '\0') + "\x04\x02" + bigEndian(objects.size(), 8) +
               bigEndian(0, 8) + bigEndian(start, 8);
    };
    std::vector<std::string> laughs;
    std::vector<std::string> deep;
    for (std::uint64_t i = 1; i <= 40; ++i) {
        laughs.push_back("\xA2" + bigEndian(i, 2) + bigEndian(i, 2));
    }
    laughs.push_back("\xA0");
    for (std::uint64_t i = 1; i < 60000; ++i) {
        deep.push_back("\xA1" + bigEndian(i, 2));
    }
    deep.push_back("\xA0");
    constexpr std::size_t kLevels = TestSupport::kIsSlowBuild ? 40000 : 200000;
    const std::vector<std::string> files = {
        "<plist>" + repeated("<array>", kLevels),
        "<plist>" + repeated("<dict><key>a</key>", kLevels),
        "<plist><dict><key>a</key>" + repeated("<array>", kLevels) + repeated("</array>", kLevels) +
            "</dict></plist>",
        "<plist><dict><key>a</key><array>" + repeated("<true/>", 2000000) +
            "</array></dict></plist>",
        "<plist><string>" + std::string(17U << 20U, 'a') + "</string></plist>",
        "<!DOCTYPE plist [<!ENTITY a \"aaaa\"><!ENTITY b \"&a;&a;\">]><plist>&b;</plist>",
        "<plist><dict><key>\xFF</key><true/></dict></plist>",
        std::string(1U << 20U, '\0'),
        binary(laughs),
        binary(deep),
        binary({"\xA1" + bigEndian(0, 2)}),
        binary({"\xD1" + bigEndian(1, 2) + bigEndian(0, 2), "\x51k"}),
        binary({"\xDF\x13" + bigEndian(UINT64_MAX, 8)}),
        binary({"\x5F\x12" + bigEndian(0x7FFFFFFF, 4)}),
        binary({"\xD1" + bigEndian(0x00010001, 4), "\x61" + bigEndian(0xD800, 2)}),
        binary(laughs).substr(0, 100)};
    for (const std::string& bytes : files) {
        const std::string file = mFolder.Write(kFile, bytes);
        const ProgramResult shown =
            WithinMemory(512, {"prefs", "show", "--prefs", mFolder.Path().string()});
        EXPECT_EQ(shown.status, 0) << shown.err;
        EXPECT_THAT(shown.out, HasSubstr("note: ignored: " + file + ": "));
        EXPECT_THAT(shown.out, HasSubstr("The driver publishes 4 ports, its default."));
        const ProgramResult set = WithinMemory(
            512, {"prefs", "set", "A", "--ports", "1-4", "--prefs", mFolder.Path().string()});
        EXPECT_EQ(set.status, 2);
        EXPECT_TRUE(IsOneLine(set.err)) << set.err;
        EXPECT_EQ(ContentOf(file), bytes);
        const ProgramResult replayed = WithinMemory(
            4096,
            {"replay", "-", "--as-fast-as-possible", "--json", "--prefs", mFolder.Path().string()},
            "0 90 00 00\n");
        EXPECT_EQ(replayed.status, 0) << replayed.err;
        EXPECT_EQ(Summary(replayed)["ports"].size(), 4U);
    }
}

TEST_F(PreferencesTest, AgreeWithTheDriverOnHostileFiles) {
    // The replay fails when the driver publishes other ports or answers other pings than
    // midiserver derives from the same file.
    const std::vector<std::string> dictionaries = {
        "<array/>",
        "<dict/>",
        "<dict><key>Sonaret Applications</key><string>x</string></dict>",
        "<dict><key>Sonaret Applications</key><dict/></dict>",
        "<dict><key>Sonaret Applications</key><array><array/><data>AAEC</data></array></dict>",
        "<dict><key>Sonaret Applications</key><array><dict><key>MIDI Ports</key><true/>"
        "<key>Protocol</key><string>HUI</string></dict></array></dict>",
        "<dict><key>Sonaret Applications</key><array><dict><key>MIDI Ports</key>"
        "<string>1-4</string><key>Protocol</key><string>HUI</string></dict><dict>"
        "<key>MIDI Ports</key><string>1-4</string><key>Protocol</key><integer>3</integer></dict>"
        "</array></dict>",
        "<dict><key>Sonaret Applications</key><array><dict><key>MIDI Ports</key>"
        "<string> 1 -2x</string><key>Protocol</key><string>HUI</string></dict></array></dict>",
        "<dict><key>Sonaret Applications</key><array><dict><key>MIDI Ports</key>"
        "<string>1-2-3</string><key>Protocol</key><string>HUI</string></dict></array></dict>"};
    for (const std::string& dictionary : dictionaries) {
        WriteXml(dictionary);
        const ProgramResult result = Midiserver(
            {"replay", "-", "--as-fast-as-possible", "--json", "--prefs", mFolder.Path().string()},
            "0 90 00 00\n0 F0 00 00 66 14 00 F7\n");
        EXPECT_EQ(result.status, 0) << dictionary << result.out << result.err;
        EXPECT_EQ(Summary(result)["ports"].size(), 4U) << dictionary;
    }
}

} // namespace
} // namespace QuorvelTest
