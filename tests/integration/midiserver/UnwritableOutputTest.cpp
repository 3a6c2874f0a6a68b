// Standard streams that are full or closed: an orderly end with status 1, never a signal.
#include "tests/integration/midiserver/Midiserver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

namespace QuorvelTest {
namespace {

constexpr const char* kUnwritable = "midiserver: standard output cannot be written\n";

std::vector<std::string> ReplayOf(const std::string& file, const std::string& folder) {
    return {"replay", file, "--as-fast-as-possible", "--prefs", folder};
}

TEST(UnwritableOutputTest, EndsWith1WhereTheErrorCannotBeTold) {
    const Preferences folder;
    const std::string prefs = folder.Folder();
    for (const char* script : {"exec \"$@\" 2>/dev/full", "exec \"$@\" 2>&-"}) {
        for (const std::vector<std::string>& arguments :
             {std::vector<std::string>{},
              {"frobnicate"},
              {"prefs", "show", "--prefs", ""},
              {"prefs", "clear", "Nobody", "--prefs", prefs},
              ReplayOf("/nowhere", prefs),
              // No error: what is told is that the folder gives no ports.
              ReplayOf(Capture("ardour-hui.txt"), prefs)}) {
            EXPECT_EQ(Shell(script, arguments).status, 1)
                << script << (arguments.empty() ? "" : arguments.back());
        }
    }
}

TEST(UnwritableOutputTest, DoesItsWorkWhereNothingHasToBeTold) {
    const TemporaryFolder folder;
    const std::string prefs = folder.Path().string();
    EXPECT_EQ(Shell("exec \"$@\" 2>&- >&- <&-",
                    {"prefs", "set", "A", "--ports", "1-4", "--protocol", "HUI", "--prefs", prefs})
                  .status,
              0);
    const ProgramResult shown =
        Shell("exec \"$@\" 2>/dev/full", {"prefs", "show", "--prefs", prefs});
    EXPECT_EQ(shown.status, 0);
    EXPECT_THAT(shown.out, testing::HasSubstr("A: ports 1-4, protocol HUI"));
}

TEST(UnwritableOutputTest, SaysThatStandardOutputCannotBeWritten) {
    const Preferences preferences("1-4", "HUI");
    std::vector<std::string> json = ReplayOf(Capture("ardour-hui.txt"), preferences.Folder());
    json.emplace_back("--json");
    for (const char* script : {"exec \"$@\" >/dev/full", "exec \"$@\" >&-"}) {
        for (const std::vector<std::string>& arguments :
             {std::vector<std::string>{"--help"},
              {"replay", "--help"},
              {"--version"},
              {"prefs", "show", "--prefs", preferences.Folder()},
              {"prefs", "show", "--json", "--prefs", preferences.Folder()},
              ReplayOf(Capture("ardour-hui.txt"), preferences.Folder()),
              json}) {
            const ProgramResult result = Shell(script, arguments);
            EXPECT_EQ(result.status, 1) << script << arguments.back();
            EXPECT_EQ(result.err, kUnwritable) << script << arguments.back();
        }
    }
}

TEST(UnwritableOutputTest, SaysItOnceOfAReportThatIsLongerThanABuffer) {
    const TemporaryFolder folder;
    const std::string prefs = folder.Path().string();
    ASSERT_EQ(
        Midiserver({"prefs", "set", std::string(20000, 'A'), "--ports", "1-4", "--prefs", prefs})
            .status,
        0);
    const ProgramResult result =
        Shell("exec \"$@\" >/dev/full", {"prefs", "show", "--prefs", prefs});

    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, kUnwritable);
}

// A file that took the number of a closed stream would receive what is meant for the stream.
TEST(UnwritableOutputTest, KeepsWhatIsMeantForAClosedStreamOutOfFiles) {
    const Preferences folder;
    const std::string prefs = folder.Folder();
    const std::string capture = folder.Write("session.txt", "0 90 00 00\n");
    const std::string setup = (folder.Path() / "setup.plist").string();
    for (const char* script :
         {"exec \"$@\" <&-", "exec \"$@\" >&-", "exec \"$@\" 2>&-", "exec \"$@\" <&- >&- 2>&-"}) {
        std::filesystem::remove(setup);
        std::vector<std::string> arguments = ReplayOf(capture, prefs);
        arguments.insert(arguments.end(), {"--setup", setup, "--log-level", "chatty"});
        const ProgramResult result = Shell(script, arguments);
        EXPECT_THAT(result.status, testing::AnyOf(0, 1)) << script << result.err;
        EXPECT_THAT(ContentOf(setup), testing::StartsWith("<?xml")) << script;
        EXPECT_EQ(ContentOf(setup).find("midiserver:"), std::string::npos) << script;
        EXPECT_EQ(ContentOf(capture), "0 90 00 00\n") << script;
    }
    const ProgramResult closed = Shell("exec \"$@\" <&-", {"replay", "-", "--prefs", prefs});
    EXPECT_EQ(closed.status, 2);
    EXPECT_EQ(closed.err, "midiserver: standard input: Bad file descriptor\n");
}

} // namespace
} // namespace QuorvelTest
