#include "midiserver/preferences/PreferencesEditor.h"

#include "midiserver/errors/Errors.h"

#include <CoreFoundation/CoreFoundation.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstdlib>
#include <fstream>
#include <iterator>

namespace MidiServer {
namespace {

using testing::HasSubstr;

class PreferencesEditorTest : public testing::Test {
protected:
    PreferencesEditorTest() {
        std::string name = testing::TempDir() + "quorvel-preferences-XXXXXX";
        mFolder = ::mkdtemp(name.data());
        mFile = mFolder / "com.quorvel.ControlSurface.plist";
        UsePreferencesFolder(mFolder);
    }
    ~PreferencesEditorTest() override {
        ::unsetenv("QUORVEL_PREFERENCES_DIR");
        std::filesystem::remove_all(mFolder);
    }

    void Write(std::string_view content) { std::ofstream(mFile, std::ios::binary) << content; }
    void WriteXml(const std::string& dictionary) {
        Write("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">" + dictionary +
              "</plist>\n");
    }
    std::string Content() const {
        std::ifstream stream(mFile, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    }
    const PreferencesEditor& Loaded() {
        mEditor.Load();
        return mEditor;
    }

    std::filesystem::path mFolder;
    std::filesystem::path mFile;
    PreferencesEditor mEditor;
};

TEST_F(PreferencesEditorTest, IsEmptyWithoutAFileAndSaysThatThereIsNone) {
    EXPECT_TRUE(Loaded().Entries().empty());
    EXPECT_TRUE(mEditor.FileIsMissing());
    EXPECT_EQ(mEditor.Problem(), mFile.string() + ": cannot be opened: No such file or directory");
    ASSERT_EQ(mEditor.Configuration().notices.size(), 1U);
    EXPECT_EQ(mEditor.Configuration().notices[0].text, mEditor.Problem());
}

TEST_F(PreferencesEditorTest, WritesWhatItReadsBack) {
    PreferencesEditor::Set("Mixer", "1-4", "MackieControl");

    ASSERT_EQ(Loaded().Entries().size(), 1U);
    EXPECT_EQ(mEditor.Entries()[0].name, "Mixer");
    EXPECT_EQ(mEditor.Entries()[0].ports, "1-4");
    EXPECT_EQ(mEditor.Entries()[0].protocol, "MackieControl");
    EXPECT_EQ(mEditor.Configuration().protocols[0], Protocol::kMackieControl);
}

TEST_F(PreferencesEditorTest, ChangesOnlyWhatIsGivenOfTheLastEntryOfThatName) {
    PreferencesEditor::Set("Mixer", "1-4", "MackieControl");
    PreferencesEditor::Set("Other", "5-8", "HUI");
    PreferencesEditor::Set("Mixer", std::nullopt, "HUI");

    ASSERT_EQ(Loaded().Entries().size(), 2U);
    EXPECT_EQ(mEditor.Entries()[0].ports, "1-4");
    EXPECT_EQ(mEditor.Entries()[0].protocol, "HUI");

    WriteXml("<dict><key>Sonaret Applications</key><array>"
             "<dict><key>App Name</key><string>A</string></dict>"
             "<dict><key>App Name</key><string>A</string></dict></array></dict>");
    PreferencesEditor::Set("A", "1-4", std::nullopt);
    EXPECT_FALSE(Loaded().Entries()[0].ports);
    EXPECT_EQ(mEditor.Entries()[1].ports, "1-4");
}

TEST_F(PreferencesEditorTest, KeepsEveryKeyAndApplicationThatItDoesNotKnow) {
    WriteXml("<dict><key>Auto Launch</key><true/><key>Since</key><date>2020-01-02T03:04:05Z</date>"
             "<key>Blob</key><data>AAEC</data>"
             "<key>Sonaret Applications</key><array>"
             "<dict><key>App Name</key><string>Mixer</string><key>App Path</key>"
             "<string>/opt/mixer</string><key>MIDI Ports</key><string>1-4</string></dict>"
             "<dict><key>App Name</key><string>Other</string><key>Weight</key><real>1.5</real>"
             "</dict></array></dict>");
    PreferencesEditor::Set("Mixer", "5-8", "HUI");
    PreferencesEditor::Set("New", "9-12", "HUI");

    const std::string content = Content();
    EXPECT_THAT(content, HasSubstr("<key>Auto Launch</key>\n\t<true/>"));
    EXPECT_THAT(content, HasSubstr("2020-01-02T03:04:05Z"));
    EXPECT_THAT(content, HasSubstr("AAEC"));
    EXPECT_THAT(content, HasSubstr("/opt/mixer"));
    EXPECT_THAT(content, HasSubstr("<key>Weight</key>"));
    EXPECT_EQ(Loaded().Entries().size(), 3U);
}

TEST_F(PreferencesEditorTest, KeepsTheBinaryFormOfAFile) {
    const auto* values = CFDictionaryCreate(nullptr, nullptr, nullptr, 0, nullptr, nullptr);
    CFDataRef bytes =
        CFPropertyListCreateData(nullptr, values, kCFPropertyListBinaryFormat_v1_0, 0, nullptr);
    Write({reinterpret_cast<const char*>(CFDataGetBytePtr(bytes)),
           static_cast<std::size_t>(CFDataGetLength(bytes))});
    CFRelease(bytes);
    CFRelease(values);

    PreferencesEditor::Set("Mixer", "1-4", "HUI");

    EXPECT_THAT(Content(), testing::StartsWith("bplist00"));
    EXPECT_EQ(Loaded().Entries().size(), 1U);
}

TEST_F(PreferencesEditorTest, ClearsEveryEntryOfAName) {
    EXPECT_FALSE(PreferencesEditor::Clear("A"));
    EXPECT_FALSE(std::filesystem::exists(mFile));
    PreferencesEditor::Set("A", "1-4", "HUI");
    PreferencesEditor::Set("B", "5-8", "HUI");

    EXPECT_FALSE(PreferencesEditor::Clear("C"));
    EXPECT_TRUE(PreferencesEditor::Clear("A"));
    ASSERT_EQ(Loaded().Entries().size(), 1U);
    EXPECT_EQ(mEditor.Entries()[0].name, "B");
}

TEST_F(PreferencesEditorTest, ClearsTheWholeListAndNothingElse) {
    WriteXml("<dict><key>Auto Launch</key><true/><key>Sonaret Applications</key>"
             "<string>nonsense</string></dict>");
    PreferencesEditor::ClearAll();

    EXPECT_FALSE(Loaded().Problem());
    EXPECT_THAT(Content(), HasSubstr("Auto Launch"));
    EXPECT_THAT(Content(), testing::Not(HasSubstr("Sonaret")));
}

TEST_F(PreferencesEditorTest, SaysWhyAFileIsNotUsedAndLeavesItAlone) {
    for (const std::string_view content :
         {"", "not a property list", "bplist00", "<plist><dict>"}) {
        Write(content);
        EXPECT_THAT(*Loaded().Problem(),
                    testing::StartsWith(mFile.string() + ": not a property list: "))
            << content;
        EXPECT_EQ(mEditor.Configuration().publishedPorts, 4U);
        EXPECT_THAT(mEditor.Configuration().notices.at(0).text, testing::StartsWith("ignored: "));
        EXPECT_THROW(PreferencesEditor::Set("A", "1-4", "HUI"), InputError);
        EXPECT_THROW(PreferencesEditor::Clear("A"), InputError);
        EXPECT_THROW(PreferencesEditor::ClearAll(), InputError);
        EXPECT_EQ(Content(), content);
    }
    WriteXml("<array/>");
    EXPECT_THAT(*Loaded().Problem(), HasSubstr("a property list that is no dictionary"));
    WriteXml("<dict><key>Sonaret Applications</key><integer>3</integer></dict>");
    EXPECT_THAT(*Loaded().Problem(), HasSubstr("\"Sonaret Applications\" is no array"));
    EXPECT_THROW(PreferencesEditor::Set("A", "1-4", "HUI"), InputError);
    std::filesystem::remove(mFile);
    std::filesystem::create_directory(mFile);
    EXPECT_THAT(*Loaded().Problem(), HasSubstr("not a regular file"));
}

TEST_F(PreferencesEditorTest, NamesEntriesOfWrongTypes) {
    WriteXml("<dict><key>Sonaret Applications</key><array><string>x</string>"
             "<dict><key>App Name</key><integer>1</integer><key>MIDI Ports</key><true/>"
             "<key>Protocol</key><data>AAEC</data></dict></array></dict>");

    ASSERT_EQ(Loaded().Entries().size(), 2U);
    EXPECT_FALSE(mEditor.Entries()[0].isDictionary);
    EXPECT_THAT(mEditor.Entries()[1].wrongTyped,
                testing::ElementsAre("App Name", "MIDI Ports", "Protocol"));
}

TEST_F(PreferencesEditorTest, CreatesItsFolderAndKeepsTheModeOfAnExistingFile) {
    const std::filesystem::path deep = mFolder / "a" / "b";
    UsePreferencesFolder(deep);
    PreferencesEditor::Set("A", "1-4", "HUI");
    const std::filesystem::path file = PreferencesEditor::File();
    struct stat status {};
    ASSERT_EQ(::stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0644U);

    ASSERT_EQ(::chmod(file.c_str(), 0640), 0);
    PreferencesEditor::Set("A", "5-8", "HUI");
    ASSERT_EQ(::stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0640U);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(deep), {}), 1);
}

TEST_F(PreferencesEditorTest, SaysThatItsFolderCannotBeWritten) {
    Write("a file where a folder is due");
    UsePreferencesFolder(mFile / "below");
    try {
        PreferencesEditor::Set("A", "1-4", "HUI");
        FAIL() << "was written";
    } catch (const InputError& error) {
        EXPECT_THAT(error.what(), HasSubstr("the folder cannot be made: Not a directory"));
        EXPECT_THAT(error.what(), HasSubstr((mFile / "below").string()));
    }
}

TEST_F(PreferencesEditorTest, FollowsTheEnvironmentWhenNoFolderIsGiven) {
    ::setenv("QUORVEL_PREFERENCES_DIR", mFolder.c_str(), 1);
    EXPECT_EQ(PreferencesEditor::File(), mFile);
    ::unsetenv("QUORVEL_PREFERENCES_DIR");
    EXPECT_EQ(PreferencesEditor::File(),
              "/etc/quorvel/preferences/com.quorvel.ControlSurface.plist");
}

TEST(RequirePlainTextTest, RefusesWhatIsNotUTF8OrHoldsControlCharacters) {
    EXPECT_NO_THROW(RequirePlainText("the name", "Mixer – Größe 😀"));
    for (const char* text :
         {"\xFF", "a\xC3", "\xED\xA0\x80", "a\nb", "\x1B[2J", "\x7F", "\xC2\x9B"}) {
        EXPECT_THROW(RequirePlainText("the name", text), InputError) << text;
        EXPECT_THROW(CheckPreferenceValues(std::string("1-4") + text, "HUI", true), InputError);
        EXPECT_THROW(CheckPreferenceValues("1-4", text, true), InputError);
    }
}

TEST(CheckPreferenceValuesTest, AcceptsBlocksAndKnownProtocols) {
    EXPECT_TRUE(CheckPreferenceValues("29-32", "HUI", false).empty());
    EXPECT_TRUE(CheckPreferenceValues(std::nullopt, std::nullopt, false).empty());
}

TEST(CheckPreferenceValuesTest, WarnsOfARangeThatIsNoBlock) {
    EXPECT_THAT(CheckPreferenceValues("1-2", std::nullopt, false),
                testing::ElementsAre(HasSubstr("does not count for the number of ports")));
}

TEST(CheckPreferenceValuesTest, RefusesPortsThatTheDriverTakesNothingFrom) {
    for (const char* ports : {"0-4", "1-33", "4-1", "5", "", "one-four"}) {
        EXPECT_THROW(CheckPreferenceValues(ports, "HUI", true), InputError) << ports;
    }
}

TEST(CheckPreferenceValuesTest, RefusesAnUnknownProtocolUnlessForced) {
    EXPECT_THROW(CheckPreferenceValues("1-4", "hui", false), InputError);
    EXPECT_EQ(CheckPreferenceValues("1-4", "hui", true).size(), 1U);
}

} // namespace
} // namespace MidiServer
