#include "tests/integration/midiserver/Midiserver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace QuorvelTest {
namespace {

using testing::HasSubstr;

// A copy of the real bundle that a test damages.
class PlugInBundleTest : public testing::Test {
protected:
    PlugInBundleTest() : mBundle(mFolder.Path() / "Copy.plugin") {
        std::filesystem::copy(PlugInBundle(), mBundle, std::filesystem::copy_options::recursive);
    }

    std::filesystem::path PropertyList() const { return mBundle / "Contents" / "Info.plist"; }

    // Replaces a text in the property list, which must hold it.
    void Edit(const std::string& from, const std::string& to) const {
        std::string content = ContentOf(PropertyList());
        const std::size_t at = content.find(from);
        ASSERT_NE(at, std::string::npos) << from;
        content.replace(at, from.size(), to);
        std::ofstream(PropertyList()) << content;
    }

    ProgramResult Replay() const {
        return Midiserver({"replay", "-", "--as-fast-as-possible", "--prefs", mPreferences.Folder(),
                           "--plugin", mBundle.string()},
                          "0 F0 00 00 66 14 00 F7\n");
    }

    void ExpectRefusal(const std::vector<std::string>& texts) const {
        const ProgramResult result = Replay();
        EXPECT_EQ(result.status, 2) << result.err;
        EXPECT_TRUE(IsOneLine(result.err)) << result.err;
        EXPECT_THAT(result.err, HasSubstr("midiserver: plug-in " + mBundle.string()));
        for (const std::string& text : texts) {
            EXPECT_THAT(result.err, HasSubstr(text));
        }
        EXPECT_EQ(result.out, "");
    }

    const Preferences mPreferences{"1-4", "MackieControl"};
    const TemporaryFolder mFolder;
    const std::filesystem::path mBundle;
};

TEST_F(PlugInBundleTest, IsLoadedFromWhereTheUserSays) {
    const ProgramResult result = Replay();

    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.out, HasSubstr("1 sent, 1 answered"));
}

TEST_F(PlugInBundleTest, IsNamedWhenItIsMissing) {
    std::filesystem::remove_all(mBundle);
    ExpectRefusal({"No such file or directory"});
}

TEST_F(PlugInBundleTest, IsNamedWhenItIsAFile) {
    std::filesystem::remove_all(mBundle);
    std::ofstream(mBundle) << "no bundle";
    ExpectRefusal({"not a folder", "Contents/Info.plist is expected"});
}

TEST_F(PlugInBundleTest, NamesItsPropertyListWhenThatIsMissingOrNone) {
    std::ofstream(PropertyList()) << "no property list";
    ExpectRefusal({"Contents/Info.plist"});
    std::filesystem::remove(PropertyList());
    ExpectRefusal({"Contents/Info.plist"});
}

TEST_F(PlugInBundleTest, NamesTheKeyThatIsMissing) {
    Edit("CFPlugInFactories", "CFPlugInFactory");
    ExpectRefusal({"Contents/Info.plist", "CFPlugInFactories"});
}

TEST_F(PlugInBundleTest, NamesTheKeyOfTheTypesWhenItHasNoMidiDriver) {
    Edit("ECDE9574-0FE4-11D4-BB1A-0050E4CEA526", "00000000-0FE4-11D4-BB1A-0050E4CEA526");
    ExpectRefusal({"Contents/Info.plist", "CFPlugInTypes", "ECDE9574-0FE4-11D4-BB1A-0050E4CEA526"});
}

TEST_F(PlugInBundleTest, NamesTheModuleThatIsMissingOrBroken) {
    const std::filesystem::path module = mBundle / "Contents" / "Linux" / "QuorvelMIDI";
    std::filesystem::remove(module);
    ExpectRefusal({"Contents/Linux/QuorvelMIDI"});
    std::ofstream(module) << "no module";
    ExpectRefusal({"Contents/Linux/QuorvelMIDI"});
}

TEST_F(PlugInBundleTest, NamesAModuleThatIsCutOffWhereverThatIs) {
    const std::filesystem::path module = mBundle / "Contents" / "Linux" / "QuorvelMIDI";
    const std::uintmax_t size = std::filesystem::file_size(module);
    for (std::uintmax_t length = size - 1; length > 0; length -= length / 5 + 1) {
        std::filesystem::resize_file(module, length);
        ExpectRefusal({length < 64 ? "can be loaded"
                                   : "cut off: by its headers the module has " +
                                         std::to_string(size) + " bytes"});
    }
}

TEST_F(PlugInBundleTest, NamesTheFactoryFunctionThatTheModuleLacks) {
    Edit("<string>MIDIPluginFactory</string>", "<string>NoSuchFactory</string>");
    ExpectRefusal({"NoSuchFactory"});
}

} // namespace
} // namespace QuorvelTest
