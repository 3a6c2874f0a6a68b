#include "tests/integration/midiserver/Midiserver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace QuorvelTest {
namespace {

using testing::HasSubstr;

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
