#include "tests/integration/midiserver/Midiserver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <unistd.h>

namespace QuorvelTest {
namespace {

using testing::HasSubstr;

// Exit 2, one line that holds the text, and no sign of a session.
void ExpectRefusal(const ProgramResult& result, const std::string& text) {
    EXPECT_EQ(result.status, 2) << result.err;
    EXPECT_TRUE(IsOneLine(result.err)) << result.err;
    EXPECT_THAT(result.err, HasSubstr(text));
    EXPECT_EQ(result.out, "");
}

TEST(ReplayInputTest, NamesAMissingFile) {
    ExpectRefusal(Midiserver({"replay", "/nowhere/session.txt"}),
                  "midiserver: /nowhere/session.txt: No such file or directory");
}

TEST(ReplayInputTest, NamesAFileThatCannotBeRead) {
    const TemporaryFolder folder;
    ExpectRefusal(Midiserver({"replay", folder.Path().string()}), ": Is a directory");
    const std::string file = folder.Write("secret.txt", "0 F8\n");
    std::filesystem::permissions(file, std::filesystem::perms::none);
    if (::access(file.c_str(), R_OK) != 0) {
        ExpectRefusal(Midiserver({"replay", file}), file + ": Permission denied");
    }
}

TEST(ReplayInputTest, NamesFileAndLineOfWhatIsNoCapture) {
    const TemporaryFolder folder;
    const std::string text = folder.Write("text.txt", "# a letter\nDear friend,\n");
    ExpectRefusal(Midiserver({"replay", text}), text + ":2: not a line of a capture");
    const std::string empty = folder.Write("empty.txt", "");
    ExpectRefusal(Midiserver({"replay", empty}), empty + ": holds no MIDI message");
    ExpectRefusal(Midiserver({"replay", "/proc/self/exe"}), "/proc/self/exe:1: not a line");
}

TEST(ReplayInputTest, SendsNothingOfACaptureThatWasCutInTheMiddle) {
    const std::string whole = ContentOf(Capture("ardour-hui.txt"));
    const std::size_t cut = whole.find(" F7", whole.size() / 2);
    const TemporaryFolder folder;
    const std::string file = folder.Write("cut.txt", whole.substr(0, cut));
    const auto line = 1 + std::count(whole.begin(), whole.begin() + static_cast<long>(cut), '\n');

    ExpectRefusal(Midiserver({"replay", file, "--as-fast-as-possible"}),
                  file + ":" + std::to_string(line) + ": the System Exclusive message does not");
    ExpectRefusal(Midiserver({"replay", "-"}, whole.substr(0, cut)),
                  "standard input:" + std::to_string(line) + ": ");
}

TEST(ReplayInputTest, NamesTheByteOfAStandardMidiFileThatWasCut) {
    const TemporaryFolder folder;
    const std::string_view content("MThd\0\0\0\6\0\0\0\1\0\x60"
                                   "MTrk\0\0\0\x0B\0\x90\1\1",
                                   26);
    const std::string file = folder.Write("cut.mid", content);

    ExpectRefusal(Midiserver({"replay", file}), file + ": byte 22: cut off in the track");
    ExpectRefusal(Midiserver({"replay", "-"}, std::string(content)), "standard input: byte 22: ");
}

TEST(ReplayInputTest, RefusesAPortThatThePreferencesDoNotPublish) {
    const TemporaryFolder none;
    const ProgramResult result = Midiserver(
        {"replay", Capture("ardour-hui.txt"), "--port", "5", "--prefs", none.Path().string()});

    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, HasSubstr("midiserver: port 5 is not there: the driver publishes 4"));
    EXPECT_EQ(result.out, "");
}

} // namespace
} // namespace QuorvelTest
