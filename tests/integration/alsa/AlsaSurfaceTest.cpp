// The control surface in a terminal with the running service at a real sequencer, and another
// client as the DAW. Runs in the emulated machine of scripts/alsa-machine, as root.
#include "midiserver/replay/session/SessionFile.h"
#include "tests/integration/alsa/AlsaServiceFixture.h"
#include "tests/integration/alsa/SequencerPeer.h"
#include "tests/integration/surface/DisplayText.h"
#include "tests/integration/surface/TerminalScreen.h"

#include <fmt/format.h>

#include <filesystem>
#include <iostream>
#include <sstream>

namespace QuorvelTest {
namespace {

using SurfaceTest::DisplayText;
using SurfaceTest::TerminalScreen;
using testing::HasSubstr;
using testing::Not;
using TestSupport::WaitUntil;

const std::string kSession = Capture("ardour-buttons.txt");
const std::filesystem::path kSequencer = "/dev/snd/seq";
const std::filesystem::path kSequencerAway = "/dev/snd/seq.away";

// The lines of a log without the time in front.
std::vector<std::string> Messages(const std::string& log) {
    std::vector<std::string> messages;
    std::istringstream lines(log);
    for (std::string line; std::getline(lines, line);) {
        messages.push_back(line.substr(line.find(' ') + 1));
    }
    return messages;
}

// A DAW that is connected with the first port, both ways.
class Daw : public SequencerPeer {
public:
    Daw() : SequencerPeer("DAW") {
        SendTo(kPort1);
        ListenTo(kPort1);
    }
};

class AlsaSurfaceTest : public AlsaServiceFixture {
protected:
    AlsaSurfaceTest() : AlsaServiceFixture("MackieControl") {}

    void StartSurface() {
        mScreen = std::make_unique<TerminalScreen>(
            std::vector<std::string>{SURFACE_PROGRAM, "--port", "1"}, 80, 24, Environment());
    }

    void TearDown() override {
        if (std::filesystem::exists(kSequencerAway)) {
            std::filesystem::rename(kSequencerAway, kSequencer);
        }
        if (HasFailure() && mScreen) {
            std::cerr << mScreen->Text() << (mService ? mService->ErrorSoFar() : "");
        }
        mScreen.reset();
    }

    testing::AssertionResult Shows(const std::string& text) const {
        return WaitUntil("it shows " + text,
                         [&] { return mScreen->Text().find(text) != std::string::npos; });
    }

    nlohmann::json Status() const {
        return Summary(Midiserver({"status", "--json"}, "", Environment()));
    }

    testing::AssertionResult WaitForSurfaces(std::size_t count) const {
        return WaitUntil("so many hear the first port", [&] {
            std::size_t found = 0;
            const nlohmann::json status = Status();
            for (const nlohmann::json& connection : status["backends"][0]["connections"]) {
                found += connection["port"] == "Quorvel Virtual Source 1" &&
                                 connection["peer"] == "Quorvel Surface:Port 01"
                             ? 1
                             : 0;
            }
            return found == count;
        });
    }

    // Whether the DAW's text comes to the screen, and a key of the surface to the DAW.
    void ExpectBothWays(SequencerPeer& daw, const std::string& text) {
        daw.Send(DisplayText(text));
        EXPECT_TRUE(Shows("\n" + text));
        const std::size_t before = daw.Read().size();
        mScreen->Type({"p"});
        EXPECT_TRUE(WaitUntil("it hears the key", [&] { return daw.Read().size() >= before + 6; }));
        EXPECT_EQ(Bytes(daw.Read().begin() + static_cast<std::ptrdiff_t>(before), daw.Read().end()),
                  (Bytes{0x90, 0x5E, 0x7F, 0x90, 0x5E, 0x00}));
    }

    std::unique_ptr<TerminalScreen> mScreen;
};

TEST_F(AlsaSurfaceTest, ShowsEveryMessageOfASession) {
    Start();
    StartSurface();
    ASSERT_TRUE(Shows("\n alsa "));
    // A second one at the same port.
    Program log({SURFACE_PROGRAM, "--log", "--backend", "alsa"}, "", Environment());
    SequencerPeer daw("DAW");
    daw.SendTo(kPort1);
    ASSERT_TRUE(WaitForSurfaces(2)) << log.ErrorSoFar();

    const MidiServer::RecordedSession session = MidiServer::ReadSessionFile(kSession);
    std::size_t sent = 0;
    for (const MidiServer::RecordedMessage& message : session) {
        daw.Send(Bytes(message.bytes.begin(), message.bytes.end()));
        // So many have room at the service.
        if (++sent % 100 == 0) {
            ASSERT_TRUE(Shows(fmt::format(" {} messages,", sent)));
        }
    }
    EXPECT_TRUE(Shows(fmt::format(" {} messages,", sent)));
    EXPECT_THAT(mScreen->Text(), Not(HasSubstr(" lost")));

    const ProgramResult played =
        RunProgram({SURFACE_PROGRAM, "--play", kSession, "--as-fast-as-possible", "--log"});
    const std::vector<std::string> expected = Messages(played.out);
    ASSERT_EQ(expected.size(), session.MessageCount());
    EXPECT_TRUE(WaitUntil("the second has written all",
                          [&] { return Messages(log.OutputSoFar()).size() >= expected.size(); }));
    log.Signal(SIGTERM);
    EXPECT_EQ(Messages(log.Wait().out), expected);
    Stop();
}

TEST_F(AlsaSurfaceTest, TellsTheDawAtItsPortWhatKeysDo) {
    Start();
    StartSurface();
    ASSERT_TRUE(Shows("\n alsa "));
    SequencerPeer daw("DAW");
    daw.ListenTo(kPort1);
    mScreen->Type({"3", "m", "4", "PageUp"});
    const Bytes expected = {0x90, 0x12, 0x7F, 0x90, 0x12, 0x00, // mute 3
                            0x90, 0x6B, 0x7F, 0xE3, 0x00, 0x10, 0x90, 0x6B, 0x00};
    EXPECT_TRUE(WaitUntil("all is there", [&] { return daw.Read().size() >= expected.size(); }));
    EXPECT_EQ(daw.Read(), expected);
    Stop();
}

TEST_F(AlsaSurfaceTest, TakesALongMessageInPieces) {
    Start();
    Program log({SURFACE_PROGRAM, "--log"}, "", Environment());
    SequencerPeer daw("DAW");
    daw.SendTo(kPort1);
    ASSERT_TRUE(WaitForSurfaces(1)) << log.ErrorSoFar();
    Bytes message(20000, 0x11);
    message.front() = 0xF0;
    message.back() = 0xF7;
    for (std::size_t at = 0; at < message.size(); at += 250) {
        daw.Send(Bytes(message.begin() + static_cast<std::ptrdiff_t>(at),
                       message.begin() + static_cast<std::ptrdiff_t>(at + 250)));
    }
    EXPECT_TRUE(WaitUntil("it is there", [&] {
        return log.OutputSoFar().find(" 1 foreign system exclusive, 20000 bytes\n") !=
               std::string::npos;
    })) << log.OutputSoFar();
    Stop();
}

TEST_F(AlsaSurfaceTest, ComesBackWithTheService) {
    StartSurface();
    ASSERT_TRUE(Shows("no service runs in "));
    Start();
    ASSERT_TRUE(Shows("\n alsa "));
    Daw daw;
    ExpectBothWays(daw, "Before");
    Stop();
    ASSERT_TRUE(Shows("no service runs in "));
    const SequencerPeer other("another program"); // takes one of the service's numbers
    const SequencerPeer more("more programs");
    Start();
    ASSERT_TRUE(Shows("\n alsa "));
    ASSERT_TRUE(WaitUntil("the service has made the DAW's connections again",
                          [&] { return daw.SendsTo(kPort1) && daw.ListensTo(kPort1); }));
    ExpectBothWays(daw, "After");
    Stop();
}

TEST_F(AlsaSurfaceTest, HearsTheDriverThatWasStartedAnew) {
    Start();
    StartSurface();
    ASSERT_TRUE(Shows("\n alsa "));
    Daw daw;
    mService->Signal(SIGHUP);
    ASSERT_TRUE(WaitUntil("it serves again", [&] {
        const std::string log = mService->ErrorSoFar();
        const std::size_t restart = log.find("\trestarting the driver: SIGHUP\n");
        return restart != std::string::npos && log.find("\tserving ", restart) != std::string::npos;
    })) << mService->ErrorSoFar();
    ASSERT_TRUE(Shows("\n alsa "));
    ExpectBothWays(daw, "Anew");
    Stop();
}

TEST_F(AlsaSurfaceTest, WaitsForTheSequencer) {
    std::filesystem::rename(kSequencer, kSequencerAway);
    mService = std::make_unique<Program>(
        MidiserverCommand({"run", "--backend", "alsa", "--prefs", mPreferences.Folder()}), "",
        Environment());
    StartSurface();
    EXPECT_TRUE(Shows("there is no ALSA sequencer"));
    std::filesystem::rename(kSequencerAway, kSequencer);
    ASSERT_TRUE(Shows("\n alsa "));
    Daw daw;
    ExpectBothWays(daw, "Hello");
    Stop();
}

TEST_F(AlsaSurfaceTest, CountsWhatItWasTooSlowFor) {
    Start();
    StartSurface();
    ASSERT_TRUE(Shows("\n alsa "));
    Daw daw;
    ExpectBothWays(daw, "Before");
    ASSERT_EQ(::kill(mScreen->Process(), SIGSTOP), 0);
    // More than the sequencer keeps for one client.
    std::uint64_t sent = Status()["ports"][0]["in"]["messages"].get<std::uint64_t>();
    while (Status()["backends"][0]["lostToDaws"] == 0) {
        for (int i = 0; i < 100; ++i) {
            daw.Send({0xB0, 0x30, static_cast<std::uint8_t>(++sent % 12)});
        }
        ASSERT_TRUE(WaitUntil("the service has them",
                              [&] { return Status()["ports"][0]["in"]["messages"] >= sent; }));
        ASSERT_LT(sent, 10000U);
    }
    ASSERT_EQ(::kill(mScreen->Process(), SIGCONT), 0);
    EXPECT_TRUE(Shows(" lost, alsa "));
    ExpectBothWays(daw, "After");
    Stop();
}

} // namespace
} // namespace QuorvelTest
