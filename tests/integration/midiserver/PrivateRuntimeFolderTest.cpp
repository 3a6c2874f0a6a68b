#include "tests/integration/midiserver/Midiserver.h"
#include "tests/support/WaitUntil.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <thread>

namespace QuorvelTest {
namespace {

// A replay of a long session whose temporary files all lie in a folder of the test.
class PrivateRuntimeFolderTest : public testing::Test {
protected:
    std::vector<std::string> Arguments() const {
        return {"replay", Capture("ardour-mackie-a.txt"), "--prefs", mPreferences.Folder()};
    }

    std::vector<std::string> Environment() const {
        return {"JOURNAL_STREAM=", "TMPDIR=" + mTemporary.Path().string()};
    }

    // Without the file that the thread sanitizer's runtime has there for a moment of its own start.
    std::ptrdiff_t FilesLeft() const {
        return std::count_if(std::filesystem::recursive_directory_iterator(mTemporary.Path()), {},
                             [](const std::filesystem::directory_entry& entry) {
                                 return !entry.path().filename().string().starts_with("tsan.");
                             });
    }

    // Waits until the driver's message port is there.
    void WaitUntilItPlays() const {
        EXPECT_TRUE(TestSupport::WaitUntil("the folders and a file of the message port are there",
                                           [this] { return FilesLeft() >= 3; }));
    }

    const Preferences mPreferences{"1-4", "MackieControl"};
    const TemporaryFolder mTemporary;
};

TEST_F(PrivateRuntimeFolderTest, GoesWhenASignalEndsTheProgram) {
    for (const int number : {SIGHUP, SIGPIPE, SIGQUIT}) {
        Program program(MidiserverCommand(Arguments()), {}, Environment());
        WaitUntilItPlays();
        program.Signal(number);

        EXPECT_EQ(program.Wait().status, 128 + number);
        EXPECT_EQ(FilesLeft(), 0) << number;
    }
}

TEST_F(PrivateRuntimeFolderTest, GoesWithTheProgramHoweverOftenItIsInterrupted) {
    for (const int number : {SIGINT, SIGTERM}) {
        // The third one ends the program at once, if it comes before the end.
        for (int times = 1; times <= 4; ++times) {
            Program program(MidiserverCommand(Arguments()), {}, Environment());
            WaitUntilItPlays();
            for (int i = 0; i < times; ++i) {
                program.Signal(number);
            }
            EXPECT_THAT(program.Wait().status, testing::AnyOf(0, 1, 128 + number));
            EXPECT_EQ(FilesLeft(), 0) << number;
        }
    }
}

// At any moment of the start, most of all while the folder is made.
TEST_F(PrivateRuntimeFolderTest, GoesWheneverTheSignalComes) {
    for (int delay = 0; delay < 60; ++delay) {
        const int number = delay % 2 == 0 ? SIGHUP : SIGTERM;
        Program program(MidiserverCommand(Arguments()), {}, Environment());
        std::this_thread::sleep_for(std::chrono::milliseconds(delay));
        program.Signal(number);

        EXPECT_THAT(program.Wait().status, testing::AnyOf(0, 1, 128 + number));
        EXPECT_EQ(FilesLeft(), 0) << delay;
    }
}

TEST_F(PrivateRuntimeFolderTest, GoesWhenNobodyReadsTheOutputAnyMore) {
    const std::string status = (mPreferences.Path() / "status").string();
    const ProgramResult result = Shell(
        "TMPDIR=" + mTemporary.Path().string() + " && export TMPDIR && { \"$@\" 2>&1; echo $? >" +
            status + "; } | true",
        {"replay", Capture("ardour-hui.txt"), "--speed", "2", "--prefs", mPreferences.Folder()});

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(ContentOf(status), std::to_string(128 + SIGPIPE) + "\n");
    EXPECT_EQ(FilesLeft(), 0);
}

TEST_F(PrivateRuntimeFolderTest, IsMadeWhenTheVariableThatNamesOneIsEmpty) {
    Program program(
        MidiserverCommand(Arguments()), {},
        {"JOURNAL_STREAM=", "TMPDIR=" + mTemporary.Path().string(), "QUORVEL_RUNTIME_DIR="});
    WaitUntilItPlays();
    program.Signal(SIGTERM);
    program.Wait();

    EXPECT_EQ(FilesLeft(), 0);
}

TEST_F(PrivateRuntimeFolderTest, LetsASignalBeIgnoredThatTheCallerIgnores) {
    const ProgramResult result = Shell(
        "trap '' HUP; \"$@\" & kill -HUP $!; sleep 0.3; kill -HUP $!; wait $!",
        {"replay", Capture("ardour-hui.txt"), "--speed", "2", "--prefs", mPreferences.Folder()});

    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.out, testing::HasSubstr("result        passed"));
}

} // namespace
} // namespace QuorvelTest
