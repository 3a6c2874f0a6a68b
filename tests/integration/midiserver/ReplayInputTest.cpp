#include "tests/integration/midiserver/Midiserver.h"
#include "tests/support/Sanitized.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <fstream>

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
    const Preferences none;
    const ProgramResult result =
        Midiserver({"replay", Capture("ardour-hui.txt"), "--port", "5", "--prefs", none.Folder()});

    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, HasSubstr("midiserver: port 5 is not there: the driver publishes 4"));
    EXPECT_EQ(result.out, "");
}

#if !defined(                                                                                      \
    QUORVEL_SANITIZED) // where memory has shadows; the fuzz targets count what is allocated

// A long file of a few bytes over and over, written without holding it: a process counts the memory
// of the one that started it.
struct LongFile {
    bool midi; // a Standard MIDI File whose beat is a tick, else as it is
    std::string start;
    std::string unit;
    std::string end;

    std::size_t WriteTo(const std::string& path, std::size_t size) const {
        std::ofstream file(path, std::ios::binary);
        const std::size_t count = size / unit.size();
        if (midi) {
            file << std::string_view("MThd\0\0\0\6\0\0\0\1\0\1MTrk", 18);
            const std::size_t length = start.size() + count * unit.size() + end.size();
            for (int shift = 24; shift >= 0; shift -= 8) {
                file << static_cast<char>(length >> shift & 0xFF);
            }
        }
        file << start;
        for (std::size_t i = 0; i < count; ++i) {
            file << unit;
        }
        file << end;
        return static_cast<std::size_t>(file.tellp());
    }
};

TEST(ReplayInputTest, TakesAtMostFourTimesTheSizeOfAFileToReadIt) {
    const Preferences folder;
    const std::string path = (folder.Path() / "session").string();
    // Refused only when the session has been read.
    const auto peak = [&](bool fromPipe) {
        const std::vector<std::string> arguments = {"replay",  fromPipe ? "-" : path, "--port", "5",
                                                    "--prefs", folder.Folder()};
        const ProgramResult result =
            Shell(fromPipe ? "cat " + path + " | \"$@\"" : "exec \"$@\"", arguments);
        EXPECT_THAT(result.err, HasSubstr("midiserver: port 5 is not there"));
        return result.peakKibibytes;
    };
    constexpr std::size_t kSize = 8'000'000;
    const std::vector<LongFile> files = {
        // Messages of two bytes, an eighth of a second apart.
        {true, std::string("\0\xFF\x51\3\2\0\0\0\xC0\1", 10), "\1\2",
         std::string("\0\xFF\x2F\0", 4)},
        // One System Exclusive message in many parts.
        {true, std::string("\0\xF0\1\1", 4), "\1\xF7\x78" + std::string(0x78, '\1'),
         std::string("\1\xF7\1\xF7\0\xFF\x2F\0", 8)},
        {false, "", "0 F8\n", ""}};
    LongFile{false, "", "0 F8\n", ""}.WriteTo(path, 5);
    const long little = peak(false);
    for (const LongFile& file : files) {
        const std::size_t size = file.WriteTo(path, kSize);
        const long most = 4 * static_cast<long>(size) / 1024 + 512;
        EXPECT_LE(peak(false) - little, most);
        EXPECT_LE(peak(true) - little, most);
        EXPECT_GT(peak(false) - little, static_cast<long>(size) / 1024); // or nothing is measured
    }
}

#endif

} // namespace
} // namespace QuorvelTest
