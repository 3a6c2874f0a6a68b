#include "midiserver/backends/SavedConnections.h"

#include "tests/support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iterator>

namespace MidiServer {
namespace {

std::string ContentOf(const std::filesystem::path& file) {
    std::ifstream stream(file);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

class SavedConnectionsTest : public testing::Test {
protected:
    void Write(const std::string& text) { std::ofstream(mFile) << text; }

    TemporaryDirectory mFolder;
    std::filesystem::path mFile = mFolder.Path() + "/connections.json";
    SavedConnections mJack{mFile, "jack"};
    SavedConnections mAlsa{mFile, "alsa"};
};

TEST_F(SavedConnectionsTest, LoadsWhatWasStored) {
    EXPECT_TRUE(mJack.Load().empty());
    mJack.Store({{"ours:in", "daw:out"}, {"ours:out", "daw \"x\":in"}});
    const auto loaded = mJack.Load();
    ASSERT_EQ(loaded.size(), 2U);
    EXPECT_EQ(loaded[1].port, "ours:out");
    EXPECT_EQ(loaded[1].peer, "daw \"x\":in");
}

TEST_F(SavedConnectionsTest, KeepsTheBackendsApart) {
    mJack.Store({{"a", "b"}});
    mAlsa.Store({{"c", "d"}});
    mJack.Store({});
    EXPECT_TRUE(mJack.Load().empty());
    ASSERT_EQ(mAlsa.Load().size(), 1U);
    EXPECT_EQ(mAlsa.Load()[0].peer, "d");
}

TEST_F(SavedConnectionsTest, MakesTheFolder) {
    const SavedConnections saved(mFolder.Path() + "/a/b/connections.json", "jack");
    saved.Store({{"a", "b"}});
    EXPECT_EQ(saved.Load().size(), 1U);
}

TEST_F(SavedConnectionsTest, SetsAsideAFileThatItDoesNotUnderstand) {
    for (const char* text : {"", "{", "[]", R"({"jack": {}})", R"({"jack": [{"port": "a"}]})",
                             R"({"jack": [{"port": 1, "peer": "b"}]})"}) {
        SCOPED_TRACE(text);
        Write(text);
        EXPECT_TRUE(mJack.Load().empty());
        EXPECT_FALSE(std::filesystem::exists(mFile));
        EXPECT_EQ(ContentOf(mFile.string() + ".broken"), text);
        std::filesystem::remove(mFile.string() + ".broken");
    }
}

TEST_F(SavedConnectionsTest, KeepsNothingWithoutAFile) {
    const SavedConnections nowhere({}, "jack");
    nowhere.Store({{"a", "b"}});
    EXPECT_TRUE(nowhere.Load().empty());
}

TEST_F(SavedConnectionsTest, LiesByDefaultInTheUsersStateFolder) {
    setenv("XDG_STATE_HOME", "/state", 1);
    EXPECT_EQ(SavedConnections::DefaultFile(), "/state/quorvel-midi/connections.json");
    unsetenv("XDG_STATE_HOME");
    setenv("HOME", "/home/you", 1);
    EXPECT_EQ(SavedConnections::DefaultFile(),
              "/home/you/.local/state/quorvel-midi/connections.json");
    unsetenv("HOME");
    EXPECT_TRUE(SavedConnections::DefaultFile().empty());
}

} // namespace
} // namespace MidiServer
