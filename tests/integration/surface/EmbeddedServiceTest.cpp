// The program with the running service, whose ports no server shows.
#include "midiserver/midi/HexText.h"
#include "midiserver/service/control/ControlClient.h"
#include "tests/integration/midiserver/Midiserver.h"
#include "tests/integration/surface/TerminalScreen.h"
#include "tests/support/WaitUntil.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <memory>

namespace SurfaceTest {
namespace {

using MidiServer::ControlClient;
using MidiServer::ControlRequest;
using QuorvelTest::Program;
using testing::ElementsAre;
using testing::HasSubstr;
using TestSupport::WaitUntil;
using Json = nlohmann::ordered_json;

// What the DAWs at a port receive.
class AtDaw {
public:
    explicit AtDaw(const std::string& port)
        : mRecording(mService.Ask(ControlRequest::kStartRecording,
                                  {{"port", port}, {"stream", "toDaw"}})["recording"]) {}

    const std::vector<std::string>& Received() {
        const Json reply = mService.Ask(ControlRequest::kTakeRecorded, {{"recording", mRecording}});
        for (const Json& message : reply["messages"]) {
            mReceived.push_back(message[1].get<std::string>());
        }
        return mReceived;
    }

private:
    const ControlClient mService;
    const Json mRecording;
    std::vector<std::string> mReceived;
};

class EmbeddedServiceTest : public testing::Test {
protected:
    EmbeddedServiceTest() {
        // This process asks the service itself.
        ::setenv("QUORVEL_RUNTIME_DIR", (mFolder.Path() / "runtime").c_str(), 1);
        ::setenv("XDG_STATE_HOME", mFolder.Path().c_str(), 1);
    }

    void SetUp() override {
        if (const std::string missing = TerminalScreen::Missing(); !missing.empty()) {
            GTEST_SKIP() << missing << " is not installed";
        }
    }

    void StartService() {
        mService = std::make_unique<Program>(
            QuorvelTest::MidiserverCommand(
                {"run", "--backend", "embedded", "--prefs", mPreferences.Folder()}),
            "", std::vector<std::string>{"JOURNAL_STREAM=", "NOTIFY_SOCKET="});
        ASSERT_TRUE(WaitUntil("it serves", [&] {
            return mService->ErrorSoFar().find("\tserving ") != std::string::npos;
        })) << mService->ErrorSoFar();
    }

    void EndService() {
        mService->Signal(SIGTERM);
        EXPECT_EQ(mService->Wait().status, 0);
        mService.reset();
    }

    static testing::AssertionResult Shows(const TerminalScreen& screen, const std::string& text) {
        const testing::AssertionResult result = WaitUntil(
            "it shows " + text, [&] { return screen.Text().find(text) != std::string::npos; });
        return result ? result : testing::AssertionFailure() << result.message() << screen.Text();
    }

    const QuorvelTest::Preferences mPreferences{"1-4", "MackieControl"};
    const QuorvelTest::TemporaryFolder mFolder;
    std::unique_ptr<Program> mService;
};

TEST_F(EmbeddedServiceTest, ShowsAWholeSessionAndLosesNoMessage) {
    ASSERT_NO_FATAL_FAILURE(StartService());
    const TerminalScreen screen({SURFACE_PROGRAM, "--port", "2"}, 80, 24);
    ASSERT_TRUE(Shows(screen, "\n embedded "));
    const QuorvelTest::ProgramResult replay =
        QuorvelTest::Midiserver({"replay", QuorvelTest::Capture("ardour-buttons.txt"), "--to", "2",
                                 "--as-fast-as-possible"});
    EXPECT_EQ(replay.status, 0) << replay.err;

    EXPECT_TRUE(Shows(screen, " 1754 messages,"));
    EXPECT_THAT(screen.Text(), testing::Not(HasSubstr(" lost")));
    EXPECT_THAT(screen.Text(), HasSubstr("Quorvel Port 2   Mackie Control"));
}

TEST_F(EmbeddedServiceTest, TellsTheDawAtItsPortWhatKeysDo) {
    ASSERT_NO_FATAL_FAILURE(StartService());
    const TerminalScreen screen({SURFACE_PROGRAM, "--port", "1", "3"}, 80, 24);
    ASSERT_TRUE(Shows(screen, "\n embedded "));
    AtDaw first("1");
    AtDaw third("3");
    screen.Type({"3", "m", "Tab", "p", "4", "PageUp"});
    ASSERT_TRUE(WaitUntil("all of it is there", [&] {
        return first.Received().size() >= 2 && third.Received().size() >= 5;
    }));
    EXPECT_THAT(first.Received(), ElementsAre("90 12 7F", "90 12 00"));
    EXPECT_THAT(third.Received(),
                ElementsAre("90 5E 7F", "90 5E 00", "90 6B 7F", "E3 00 10", "90 6B 00"));
}

TEST_F(EmbeddedServiceTest, LetsGoOfWhatItHoldsAsItEnds) {
    ASSERT_NO_FATAL_FAILURE(StartService());
    AtDaw daw("1");
    const TerminalScreen screen({SURFACE_PROGRAM}, 80, 24);
    ASSERT_TRUE(Shows(screen, "\n embedded "));
    screen.Type({"!", "q"});
    EXPECT_TRUE(Shows(screen, "ended with 0\nsettings as before\n"));
    EXPECT_THAT(daw.Received(), ElementsAre("90 46 7F", "90 46 00"));
}

TEST_F(EmbeddedServiceTest, WaitsForTheServiceAndComesBackAfterIt) {
    const TerminalScreen screen({SURFACE_PROGRAM}, 80, 24);
    ASSERT_TRUE(Shows(screen, "no service runs in "));
    screen.Type({"m"}); // to nobody, and not later either
    ASSERT_TRUE(Shows(screen, "2 not sent"));
    for (int round = 0; round < 2; ++round) {
        ASSERT_NO_FATAL_FAILURE(StartService());
        ASSERT_TRUE(Shows(screen, "\n 2 not sent, embedded "));
        AtDaw daw("1");
        screen.Type({"p"});
        ASSERT_TRUE(WaitUntil("it is there", [&] { return daw.Received().size() >= 2; }));
        EXPECT_THAT(daw.Received(), ElementsAre("90 5E 7F", "90 5E 00"));
        const ControlClient service;
        service.Ask(ControlRequest::kInject, {{"port", "1"},
                                              {"messages",
                                               {round == 0 ? "F0 00 00 66 14 12 00 41 61 F7"
                                                           : "F0 00 00 66 14 12 00 42 62 F7"}}});
        ASSERT_TRUE(Shows(screen, round == 0 ? "\nAa" : "\nBb"));
        EndService();
        ASSERT_TRUE(Shows(screen, "no service runs in "));
    }
}

TEST_F(EmbeddedServiceTest, SpeaksWhatThePortEmulates) {
    ASSERT_NO_FATAL_FAILURE(StartService());
    const TerminalScreen screen({SURFACE_PROGRAM}, 80, 24);
    ASSERT_TRUE(Shows(screen, "Mackie Control"));
    const QuorvelTest::ProgramResult set =
        QuorvelTest::Midiserver({"prefs", "set", "Test", "--ports", "1-4", "--protocol", "HUI",
                                 "--prefs", mPreferences.Folder()});
    ASSERT_EQ(set.status, 0) << set.err;
    ASSERT_TRUE(Shows(screen, "Quorvel Port 1   HUI "));
    ASSERT_TRUE(Shows(screen, "\n embedded"));
    AtDaw daw("1");
    screen.Type({"p"});
    ASSERT_TRUE(WaitUntil("it is there", [&] { return daw.Received().size() >= 4; }));
    EXPECT_THAT(daw.Received(), ElementsAre("B0 0F 0E", "B0 2F 44", "B0 0F 0E", "B0 2F 04"));
}

TEST_F(EmbeddedServiceTest, LogsAndDrawsWithoutATerminal) {
    const QuorvelTest::ProgramResult alone =
        QuorvelTest::RunProgram({SURFACE_PROGRAM, "--snapshot", "-"});
    EXPECT_EQ(alone.status, 3);
    EXPECT_THAT(alone.err, HasSubstr("no service runs in "));

    ASSERT_NO_FATAL_FAILURE(StartService());
    Program log({SURFACE_PROGRAM, "--log", "--port", "4"});
    ASSERT_TRUE(WaitUntil("it logs", [&] {
        const ControlClient service;
        service.Ask(ControlRequest::kInject, {{"port", "4"}, {"messages", {"90 5E 7F"}}});
        return log.OutputSoFar().find(" 4 light play on\n") != std::string::npos;
    })) << log.ErrorSoFar();
    log.Signal(SIGTERM);
    EXPECT_EQ(log.Wait().status, 0);
    const QuorvelTest::ProgramResult picture =
        QuorvelTest::RunProgram({SURFACE_PROGRAM, "--snapshot", "-", "--at", "0"});
    EXPECT_EQ(picture.status, 0) << picture.err;
    EXPECT_THAT(picture.out, HasSubstr("<title>Quorvel Port 1</title>"));
}

} // namespace
} // namespace SurfaceTest
