// The program in a terminal, with captures of real sessions and no service.
#include "tests/integration/midiserver/Midiserver.h"
#include "tests/integration/surface/TerminalScreen.h"
#include "tests/support/WaitUntil.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>

namespace SurfaceTest {
namespace {

using QuorvelTest::Capture;
using QuorvelTest::ContentOf;
using QuorvelTest::ProgramResult;
using QuorvelTest::RunProgram;
using testing::HasSubstr;
using TestSupport::WaitUntil;

ProgramResult Surface(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), SURFACE_PROGRAM);
    return RunProgram(arguments);
}

std::vector<std::string> Play(const std::string& capture, std::vector<std::string> more = {}) {
    std::vector<std::string> command = {SURFACE_PROGRAM, "--play", Capture(capture),
                                        "--as-fast-as-possible"};
    command.insert(command.end(), more.begin(), more.end());
    return command;
}

class PlayTest : public testing::Test {
protected:
    void SetUp() override {
        if (const std::string missing = TerminalScreen::Missing(); !missing.empty()) {
            GTEST_SKIP() << missing << " is not installed";
        }
    }

    static testing::AssertionResult Shows(const TerminalScreen& screen, const std::string& text) {
        const testing::AssertionResult result = WaitUntil(
            "it shows " + text, [&] { return screen.Text().find(text) != std::string::npos; });
        return result ? result : testing::AssertionFailure() << result.message() << screen.Text();
    }

    // The golden file says what the screen shows in the end.
    static void ExpectGolden(const TerminalScreen& screen, const std::string& name) {
        const std::string golden = ContentOf(std::string(SURFACE_SCREENS "/") + name);
        static_cast<void>(
            WaitUntil("the screen is " + name, [&] { return screen.Text() == golden; }));
        EXPECT_EQ(screen.Text(), golden);
    }
};

TEST_F(PlayTest, ShowsRealSessionsAtGivenMoments) {
    {
        const TerminalScreen screen(Play("ardour-mackie-a.txt", {"--at", "30"}), 80, 24);
        ExpectGolden(screen, "ardour-mackie-a-30s.txt");
    }
    {
        const TerminalScreen screen(Play("ardour-mackie-a.txt", {"--at", "62.5"}), 80, 30);
        ExpectGolden(screen, "ardour-mackie-a-62s.txt");
    }
    {
        const TerminalScreen screen(Play("ardour-buttons.txt"), 80, 24);
        ExpectGolden(screen, "ardour-buttons-end.txt");
    }
    {
        const TerminalScreen screen(Play("ardour-hui.txt", {"--protocol", "hui"}), 80, 24);
        ExpectGolden(screen, "ardour-hui-end.txt");
    }
}

TEST_F(PlayTest, PlaysInItsOwnTime) {
    const TerminalScreen screen(
        {SURFACE_PROGRAM, "--play", Capture("ardour-mackie-a.txt"), "--speed", "40"}, 80, 24);
    EXPECT_TRUE(Shows(screen, "Kick"));
    EXPECT_TRUE(Shows(screen, "74238 messages"));
}

TEST_F(PlayTest, SendsTheRightBytesForKeys) {
    const TerminalScreen screen(Play("ardour-mackie-a.txt", {"--at", "30"}), 80, 24);
    ASSERT_TRUE(Shows(screen, "? keys, q end"));
    screen.Type({"3", "m"});
    EXPECT_TRUE(Shows(screen, "sent 90 12 7F, 90 12 00 "));
    screen.Type({"Space"}); // while the light of play is lit
    EXPECT_TRUE(Shows(screen, "sent 90 5D 7F, 90 5D 00 "));
    // What it sends before it lets go stands there for a moment only.
    screen.Type({"8", "Up"});
    EXPECT_TRUE(Shows(screen, "sent 90 6F 00 "));
    screen.Type({"+"});
    EXPECT_TRUE(Shows(screen, "sent B0 17 01 "));
    screen.Type({"F3"});
    EXPECT_TRUE(Shows(screen, "sent 90 38 7F, 90 38 00 "));
    screen.Type({"."});
    EXPECT_TRUE(Shows(screen, "sent 90 2F 7F, 90 2F 00 "));
}

TEST_F(PlayTest, SendsTheRightBytesForTheMouse) {
    const TerminalScreen screen(Play("ardour-mackie-a.txt", {"--at", "30"}), 80, 24);
    ASSERT_TRUE(Shows(screen, "? keys, q end"));
    ASSERT_TRUE(WaitUntil("it follows the mouse",
                          [&] { return screen.Variable("mouse_any_flag") == "1"; }));
    // As this terminal encodes them: button, column and row, counted from 33.
    const auto mouse = [&screen](char button, int column, int row) {
        screen.Send(std::string("\x1b[M") + button + static_cast<char>(33 + column) +
                    static_cast<char>(33 + row));
    };
    mouse(' ', 20, 6); // mute of the third strip
    EXPECT_TRUE(Shows(screen, "sent 90 12 7F "));
    mouse('#', 20, 6);
    EXPECT_TRUE(Shows(screen, "sent 90 12 00 "));
    mouse(' ', 67, 20); // the eighth fader at the bottom
    EXPECT_TRUE(Shows(screen, "sent 90 6F 7F, E7 00 00 "));
    mouse('@', 67, 7);
    EXPECT_TRUE(Shows(screen, "sent E7 7F 7F "));
    mouse('#', 67, 7);
    EXPECT_TRUE(Shows(screen, "sent 90 6F 00 "));
    mouse('`', 30, 4); // the wheel on the fourth pot
    EXPECT_TRUE(Shows(screen, "sent B0 13 01 "));
}

TEST_F(PlayTest, FollowsTheTerminalsSize) {
    const TerminalScreen screen(Play("ardour-mackie-a.txt", {"--at", "30"}), 80, 24);
    ASSERT_TRUE(Shows(screen, "? keys, q end"));
    screen.Resize(60, 20);
    EXPECT_TRUE(Shows(screen, "60 x 20 is too small, 80 x 24 are needed"));
    screen.Resize(80, 30);
    EXPECT_TRUE(Shows(screen, "? keys, q end"));
    EXPECT_TRUE(WaitUntil("the faders are longer", [&] {
        const std::string text = screen.Text();
        return std::count(text.begin(), text.end(), '\n') == 30 &&
               text.rfind("? keys, q end") > text.size() - 20;
    }));
    screen.Resize(80, 24);
    ExpectGolden(screen, "ardour-mackie-a-30s.txt");
}

TEST_F(PlayTest, ShowsItsKeys) {
    const TerminalScreen screen(Play("ardour-mackie-a.txt"), 80, 24);
    ASSERT_TRUE(Shows(screen, "? keys, q end"));
    screen.Type({"?"});
    EXPECT_TRUE(Shows(screen, "any key goes back"));
    EXPECT_THAT(screen.Text(), HasSubstr("play, or stop"));
    screen.Type({"x"});
    EXPECT_TRUE(Shows(screen, "Kick"));
    EXPECT_THAT(screen.Text(), testing::Not(HasSubstr("sent")));
}

TEST_F(PlayTest, EndsByKey) {
    const TerminalScreen screen(Play("ardour-mackie-a.txt"), 80, 24);
    ASSERT_TRUE(Shows(screen, "? keys, q end"));
    screen.Type({"q"});
    EXPECT_TRUE(Shows(screen, "ended with 0\nsettings as before\n"));
}

// Signals that ask for the end, and some that end the process.
class PlaySignalTest : public PlayTest, public testing::WithParamInterface<int> {};

TEST_P(PlaySignalTest, LeavesTheTerminalAsItWas) {
    const TerminalScreen screen(Play("ardour-mackie-a.txt"), 80, 24);
    ASSERT_TRUE(Shows(screen, "? keys, q end"));
    ASSERT_TRUE(WaitUntil("it has taken the terminal over", [&] {
        return screen.Variable("alternate_on") == "1" && screen.Variable("mouse_any_flag") == "1" &&
               screen.Variable("cursor_flag") == "0";
    }));
    ASSERT_EQ(::kill(screen.Process(), GetParam()), 0);
    const bool isOrderly = GetParam() == SIGTERM || GetParam() == SIGINT || GetParam() == SIGHUP;
    EXPECT_TRUE(Shows(screen, "ended with " + std::to_string(isOrderly ? 0 : 128 + GetParam())));
    EXPECT_TRUE(Shows(screen, "settings as before"));
    for (const char* const flag : {"alternate_on", "mouse_any_flag", "keypad_cursor_flag"}) {
        EXPECT_EQ(screen.Variable(flag), "0") << flag;
    }
    EXPECT_EQ(screen.Variable("cursor_flag"), "1");
}

INSTANTIATE_TEST_SUITE_P(Signals, PlaySignalTest,
                         testing::Values(SIGTERM, SIGINT, SIGHUP, SIGSEGV, SIGABRT, SIGQUIT,
                                         SIGUSR1));

TEST(SurfaceProgramTest, LogsEveryMessageWithTimeAndPort) {
    const ProgramResult result = Surface(
        {"--play", Capture("ardour-hui.txt"), "--log", "--as-fast-as-possible", "--port", "4"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), 775);
    const std::string first = result.out.substr(0, result.out.find('\n'));
    EXPECT_THAT(first, testing::MatchesRegex("[0-9]+\\.[0-9]{6} 4 .+"));
    const ProgramResult mackie = Surface(
        {"--play", Capture("ardour-mackie-a.txt"), "--log", "--as-fast-as-possible", "--at", "7"});
    EXPECT_THAT(mackie.out, HasSubstr("\n6.412044 1 timecode digit from 0: \"0\"\n"));
}

TEST(SurfaceProgramTest, WritesTheSamePictureEachTime) {
    const QuorvelTest::TemporaryFolder folder;
    const std::vector<std::string> command = {"--play", Capture("ardour-mackie-a.txt"), "--at",
                                              "30", "--snapshot"};
    std::vector<std::string> toFile = command;
    toFile.push_back((folder.Path() / "picture.svg").string());
    EXPECT_EQ(Surface(toFile).status, 0);
    EXPECT_EQ(Surface(toFile).status, 0) << "one that is there is replaced";
    std::vector<std::string> toOutput = command;
    toOutput.push_back("-");
    const std::string picture = ContentOf(folder.Path() / "picture.svg");
    EXPECT_EQ(Surface(toOutput).out, picture);
    EXPECT_THAT(picture, HasSubstr(">Kick"));
    EXPECT_THAT(picture, HasSubstr("<title>Quorvel Port 1</title>"));
}

TEST(SurfaceProgramTest, DrawsThePictureOfTheDocuments) {
    const ProgramResult drawn =
        Surface({"--play", Capture("ardour-mackie-a.txt"), "--at", "30", "--snapshot", "-"});
    EXPECT_EQ(drawn.status, 0) << drawn.err;
    EXPECT_TRUE(drawn.out == ContentOf(SURFACE_DOCUMENTS "/quorvel-surface.svg"))
        << "docs/quorvel-surface.svg is not what the program draws; it is drawn by\n"
           "quorvel-surface --play tests/data/captures/ardour-mackie-a.txt --at 30 "
           "--snapshot docs/quorvel-surface.svg";
}

TEST(SurfaceProgramTest, SaysWhatIsWrongAndEndsWithItsStatus) {
    const std::string capture = Capture("ardour-hui.txt");
    const auto fails = [](const std::vector<std::string>& arguments, int status,
                          const std::string& text) {
        const ProgramResult result = Surface(arguments);
        EXPECT_EQ(result.status, status) << result.out << result.err;
        EXPECT_THAT(result.err, testing::StartsWith("quorvel-surface: "));
        EXPECT_THAT(result.err, HasSubstr(text));
    };
    fails({"--play", "/nowhere", "--log"}, 2, "/nowhere: No such file or directory");
    fails({"--play", "/proc/version", "--log"}, 2, "/proc/version:1: not a line of a capture");
    fails({"--play", capture}, 2, "standard input and output are no terminal");
    fails({"--play", capture, "--log", "--port", "1", "2"}, 2, "a capture is of one port");
    fails({"--port", "2", "2"}, 2, "named twice");
    fails({"--port", "33"}, 2, "--port");
    fails({"--backend", "nothing"}, 2, "--backend");
    fails({"--protocol", "other"}, 2, "--protocol");
    fails({"--speed", "nan", "--play", capture}, 2, "nan is no number");
    fails({"--at", "5"}, 2, "--at");
    fails({"--play", capture, "--snapshot", "x", "--size", "79x24"}, 2, "79x24 is no size");
    fails({"--play", capture, "--snapshot", "/nowhere/x.svg"}, 2, "/nowhere/x.svg: ");
    fails({"--play", capture, "--snapshot"}, 2, "--snapshot");
    fails({"--unknown"}, 2, "--unknown");
}

TEST(SurfaceProgramTest, TellsItsVersionAndItsOptions) {
    EXPECT_THAT(Surface({"--version"}).out, testing::MatchesRegex("quorvel-surface [0-9.]+\n"));
    const ProgramResult help = Surface({"--help"});
    EXPECT_EQ(help.status, 0);
    for (const char* const option : {"--backend", "--port", "--protocol", "--play", "--speed",
                                     "--log", "--snapshot", "--size", "--at"}) {
        EXPECT_THAT(help.out, HasSubstr(option));
    }
}

} // namespace
} // namespace SurfaceTest
