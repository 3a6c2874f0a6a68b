// The program with the running service on a JACK server, and another JACK client as the DAW.
#include "tests/integration/jack/JackService.h"
#include "tests/integration/jack/Peer.h"
#include "tests/integration/jack/Playback.h"
#include "tests/integration/jack/TestServer.h"
#include "tests/integration/surface/DisplayText.h"
#include "tests/integration/surface/TerminalScreen.h"
#include "tests/support/WaitUntil.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <ctime>
#include <iostream>
#include <iterator>
#include <memory>
#include <sstream>

namespace SurfaceTest {
namespace {

using JackTest::Bytes;
using JackTest::Peer;
using std::chrono::microseconds;
using testing::ElementsAreArray;
using TestSupport::WaitUntil;
using Clock = std::chrono::steady_clock;

class JackSurfaceTest : public testing::Test {
protected:
    explicit JackSurfaceTest(const std::string& protocol = "MackieControl")
        : mPreferences("1-4", protocol) {}

    void SetUp() override {
        for (const std::string& missing :
             {TerminalScreen::Missing(), JackTest::TestServer::Missing()}) {
            if (!missing.empty()) {
                GTEST_SKIP() << missing << " is not installed";
            }
        }
        mServer = std::make_unique<JackTest::TestServer>();
        mServer->Start();
        mService.Start();
        mScreen = std::make_unique<TerminalScreen>(
            std::vector<std::string>{SURFACE_PROGRAM, "--port", "1"}, 80, 24,
            mService.Environment());
        ConnectDaw();
    }

    void TearDown() override {
        if (HasFailure() && mScreen) {
            std::cerr << mScreen->Text() << mService.Log() << mServer->Log();
        }
        mDaw.reset();
        mScreen.reset();
        mServer.reset();
    }

    // A DAW at the first port, and the surface at its private source.
    void ConnectDaw() {
        mDaw.reset();
        mDaw = std::make_unique<Peer>("daw");
        ASSERT_TRUE(WaitUntil("the DAW is connected", [&] {
            return mDaw->Connect("Quorvel MIDI:Quorvel Port 01 out", "daw:in 1") &&
                   mDaw->Connect("daw:out 1", "Quorvel MIDI:Quorvel Port 01 in");
        }));
        ASSERT_TRUE(Shows("\n jack "));
    }

    bool IsShown(const std::string& text) const {
        return mScreen->Text().find(text) != std::string::npos;
    }

    testing::AssertionResult Shows(const std::string& text) const {
        return WaitUntil("it shows " + text, [&] { return IsShown(text); });
    }

    // Whether the DAW's text comes to the screen, and a key of the surface to the DAW. A connection
    // may carry nothing for a moment after it was made.
    void ExpectBothWays(const std::string& text) {
        EXPECT_TRUE(WaitUntil("the DAW's text is shown", [&] {
            mDaw->Send(1, DisplayText(text));
            return IsShown("\n" + text);
        }));
        const std::size_t before = mDaw->Received(1).size();
        EXPECT_TRUE(WaitUntil("the DAW hears a key", [&] {
            mScreen->Type({"p"});
            return mDaw->Received(1).size() >= before + 2;
        }));
        const std::vector<Bytes> received = mDaw->Received(1);
        ASSERT_GE(received.size(), before + 2);
        EXPECT_EQ(received[before], (Bytes{0x90, 0x5E, 0x7F}));
        EXPECT_EQ(received[before + 1], (Bytes{0x90, 0x5E, 0x00}));
    }

    const QuorvelTest::Preferences mPreferences;
    JackTest::JackService mService{mPreferences.Folder()};
    std::unique_ptr<JackTest::TestServer> mServer;
    std::unique_ptr<TerminalScreen> mScreen;
    std::unique_ptr<Peer> mDaw;
};

TEST_F(JackSurfaceTest, PlaysWithADawThroughThePort) {
    ExpectBothWays("Hello");
}

TEST_F(JackSurfaceTest, ComesBackWithTheService) {
    ExpectBothWays("Before");
    mService.End();
    ASSERT_TRUE(Shows("no service runs in "));
    mService.Start();
    ASSERT_NO_FATAL_FAILURE(ConnectDaw());
    ExpectBothWays("After");
}

TEST_F(JackSurfaceTest, ComesBackWithTheServer) {
    ExpectBothWays("Before");
    mServer->Stop();
    ASSERT_TRUE(Shows("JACK server"));
    mDaw.reset();
    mServer->Start();
    ASSERT_NO_FATAL_FAILURE(ConnectDaw());
    ExpectBothWays("After");
}

TEST_F(JackSurfaceTest, MayRunTwice) {
    const TerminalScreen second({SURFACE_PROGRAM, "--port", "1"}, 80, 24, mService.Environment());
    EXPECT_TRUE(WaitUntil("both are clients", [&] {
        const std::vector<std::string> ports = mDaw->Ports();
        return std::count(ports.begin(), ports.end(), "Quorvel Surface:Port 01") == 1 &&
               std::count(ports.begin(), ports.end(), "Quorvel Surface 2:Port 01") == 1;
    }));
    ExpectBothWays("Hello");
    EXPECT_TRUE(WaitUntil("the second shows it too",
                          [&] { return second.Text().find("\nHello") != std::string::npos; }));
}

// How many messages a screen says that there were, or none while it does not say.
std::size_t MessagesOn(const std::string& screen) {
    const std::size_t end = screen.find(" messages,");
    if (end == std::string::npos || end == 0) {
        return 0;
    }
    const std::size_t start = screen.find_last_not_of("0123456789", end - 1) + 1;
    return std::strtoul(screen.c_str() + start, nullptr, 10);
}

// A screen without that number and its last line, which says where it all comes from.
std::string PictureOn(std::string screen) {
    if (const std::size_t end = screen.find(" messages,"); end != std::string::npos && end > 0) {
        const std::size_t start = screen.find_last_not_of(" 0123456789", end - 1) + 1;
        screen.erase(start, end - start);
    }
    if (screen.size() > 1) {
        screen.erase(screen.rfind('\n', screen.size() - 2) + 1);
    }
    return screen;
}

// The processor time of all threads that the process has ever had.
std::chrono::nanoseconds ProcessorTime(pid_t process) {
    clockid_t clock = 0;
    timespec time{};
    EXPECT_EQ(::clock_getcpuclockid(process, &clock), 0);
    EXPECT_EQ(::clock_gettime(clock, &time), 0);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

// What --log writes, each line without its time. A query overtakes what waits for the port's rate,
// so these are left out.
std::vector<std::string> Logged(const std::string& log) {
    std::vector<std::string> events;
    std::istringstream lines(log);
    for (std::string line; std::getline(lines, line);) {
        const std::string event = line.substr(std::min(line.find(' ') + 1, line.size()));
        if (event.find(" query of 1") == std::string::npos) {
            events.push_back(event);
        }
    }
    return events;
}

// The DAW sends what one sent in a recorded session.
class JackSessionTest : public JackSurfaceTest {
protected:
    using JackSurfaceTest::JackSurfaceTest;

    void Load(const std::string& capture) {
        mCapture = QuorvelTest::Capture(capture);
        mSession = JackTest::ReadCapture(mCapture);
        ASSERT_FALSE(mSession.messages.empty());
        ASSERT_NO_FATAL_FAILURE(Settle());
    }

    // Makes sure that the connections carry what comes, and leaves the surface as one that was just
    // switched on. Nothing overtakes these messages, so all of the first one's are there with the
    // last.
    void Settle() {
        ASSERT_TRUE(WaitUntil("a text is shown", [&] {
            mDaw->Send(1, DisplayText("first"));
            return IsShown("\nfirst") && IsLogged("first");
        }));
        mDaw->Send(1, DisplayText("last "));
        ASSERT_TRUE(Shows("\nlast "));
        mDaw->Send(1, {0xF0, 0x00, 0x00, 0x66, 0x14, 0x08, 0x00, 0xF7});
        ASSERT_TRUE(
            WaitUntil("it is reset", [&] { return !IsShown("\nlast ") && IsLogged("reset"); }));
        mMessagesBefore = MessagesOn(mScreen->Text());
        mLoggedBefore = mLog ? LinesLogged() : 0;
        mCountersBefore = mService.Port(1);
        ASSERT_EQ(mCountersBefore["forwarded"]["messages"], mCountersBefore["in"]["messages"]);
    }

    bool IsLogged(const std::string& text) const {
        return !mLog || mLog->OutputSoFar().find(text) != std::string::npos;
    }

    std::size_t LinesLogged() const {
        const std::string log = mLog->OutputSoFar();
        return static_cast<std::size_t>(std::count(log.begin(), log.end(), '\n'));
    }

    // How many of the session's messages the surface has taken, and the log if there is one.
    std::size_t MessagesTaken() const {
        const std::size_t taken =
            std::max(MessagesOn(mScreen->Text()), mMessagesBefore) - mMessagesBefore;
        return mLog ? std::min(taken, LinesLogged() - mLoggedBefore) : taken;
    }

    // Plays on until this time of the session, as fast as the driver and the surface take it, or
    // no faster than it was recorded. All of it is shown then.
    void PlayUntil(microseconds time, bool isInItsOwnTime = false) {
        const std::size_t first = mPlayed;
        const std::size_t count = mSession.CountUntil(time) - first;
        const std::span messages = std::span(mSession.messages).subspan(first, count);
        std::vector<std::size_t> bytesUntil = {0}; // each of them
        for (const Bytes& message : messages) {
            bytesUntil.push_back(bytesUntil.back() + message.size());
        }
        // Asking the terminal takes a program's start.
        constexpr auto kBetweenLooks = std::chrono::milliseconds(50);
        const auto arrived = [&, nextLook = Clock::time_point(), bytes = std::size_t{0}]() mutable {
            if (const auto now = Clock::now(); now >= nextLook) {
                nextLook = now + kBetweenLooks;
                const std::size_t taken = MessagesTaken();
                bytes = bytesUntil[std::min(taken - std::min(taken, first), count)];
            }
            return bytes;
        };
        // The surface has room for more than so many, be they as short as they like.
        constexpr std::size_t kMostOnItsWay = 4000;
        JackTest::Playback playback(*mDaw, kMostOnItsWay);
        playback.Add(1, messages, arrived,
                     isInItsOwnTime ? std::span<const microseconds>(mSession.times).subspan(first)
                                    : std::span<const microseconds>());
        ASSERT_TRUE(playback.Play()) << mScreen->Text();
        mPlayed += count;
    }

    void PlayToTheEnd() { PlayUntil(mSession.times.back()); }

    // While the DAW is silent the screen comes to rest, with its meters at the bottom, and is what
    // this golden file says.
    void ExpectGolden(const std::string& name) const {
        const std::string golden =
            PictureOn(QuorvelTest::ContentOf(std::string(SURFACE_SCREENS "/") + name));
        static_cast<void>(WaitUntil("the screen is " + name,
                                    [&] { return PictureOn(mScreen->Text()) == golden; }));
        EXPECT_EQ(PictureOn(mScreen->Text()), golden);
    }

    // By the counters of the service and of the surface. Adds a failure unless all answers of the
    // driver come to the DAW, after which nothing comes to it by itself.
    void ExpectNothingLost() {
        const nlohmann::json counters = mService.Port(1);
        const Bytes::size_type bytes =
            JackTest::BytesOf({mSession.messages.begin(),
                               mSession.messages.begin() + static_cast<std::ptrdiff_t>(mPlayed)});
        for (const char* const counter : {"in", "forwarded"}) {
            const auto more = [&](const char* unit) {
                return counters[counter][unit].get<std::size_t>() -
                       mCountersBefore[counter][unit].get<std::size_t>();
            };
            EXPECT_EQ(more("messages"), mPlayed) << counter;
            EXPECT_EQ(more("bytes"), bytes) << counter;
        }
        EXPECT_EQ(counters["dropped"]["total"], 0) << counters;
        EXPECT_EQ(mService.Backend()["lostToDaws"], 0);
        const std::string screen = mScreen->Text();
        EXPECT_EQ(MessagesOn(screen), mMessagesBefore + mPlayed);
        EXPECT_THAT(screen, testing::Not(testing::HasSubstr(" lost")));
        EXPECT_TRUE(WaitUntil("all queries and pings are answered", [&] {
            return mDaw->Received(1).size() == counters["answeredPings"];
        })) << counters;
        EXPECT_GT(mDaw->Received(1).size(), 0U);
    }

    // Presses keys, after which the DAW gets these messages and no others.
    void ExpectKeys(const std::vector<std::string>& keys,
                    const std::vector<Bytes>& expected) const {
        const std::size_t before = mDaw->Received(1).size();
        mScreen->Type(keys);
        static_cast<void>(WaitUntil("the DAW hears them", [&] {
            return mDaw->Received(1).size() >= before + expected.size();
        }));
        std::vector<Bytes> received = mDaw->Received(1);
        received.erase(received.begin(), received.begin() + static_cast<std::ptrdiff_t>(before));
        EXPECT_THAT(received, ElementsAreArray(expected));
    }

    std::unique_ptr<QuorvelTest::Program> mLog; // a second surface, that prints what it hears
    JackTest::Session mSession;
    std::string mCapture;
    std::size_t mPlayed = 0;
    std::size_t mMessagesBefore = 0;
    std::size_t mLoggedBefore = 0;
    nlohmann::json mCountersBefore;
};

TEST_F(JackSessionTest, ShowsAMixAtGivenMoments) {
    ASSERT_NO_FATAL_FAILURE(Load("ardour-mackie-a.txt"));
    // The transport stands since a second and a half.
    ASSERT_NO_FATAL_FAILURE(PlayUntil(std::chrono::milliseconds(31500)));
    ExpectGolden("ardour-mackie-a-31s-rest.txt");
    ASSERT_NO_FATAL_FAILURE(PlayUntil(std::chrono::milliseconds(62500)));
    ExpectGolden("ardour-mackie-a-62s-rest.txt");
    ASSERT_NO_FATAL_FAILURE(PlayToTheEnd());
    ExpectGolden("ardour-mackie-a-end-rest.txt");
    ExpectNothingLost();
}

// The sessions' ends, which a played capture shows alike.
TEST_F(JackSessionTest, ShowsASessionOfButtonsAndTellsTheDawOfKeys) {
    ASSERT_NO_FATAL_FAILURE(Load("ardour-buttons.txt"));
    ASSERT_NO_FATAL_FAILURE(PlayToTheEnd());
    ExpectGolden("ardour-buttons-end.txt");
    ExpectNothingLost();
    ExpectKeys({"Space"}, {{0x90, 0x5E, 0x7F}, {0x90, 0x5E, 0x00}}); // the light of play is off
    ExpectKeys({"3", "m"}, {{0x90, 0x12, 0x7F}, {0x90, 0x12, 0x00}});
    ExpectKeys({"8", "End", "Home"},
               {{0x90, 0x6F, 0x7F}, {0xE7, 0x00, 0x00}, {0xE7, 0x08, 0x64}, {0x90, 0x6F, 0x00}});
    ExpectKeys({"+", "-", "Enter"},
               {{0xB0, 0x17, 0x01}, {0xB0, 0x17, 0x41}, {0x90, 0x27, 0x7F}, {0x90, 0x27, 0x00}});
    ExpectKeys({"F3", "."},
               {{0x90, 0x38, 0x7F}, {0x90, 0x38, 0x00}, {0x90, 0x2F, 0x7F}, {0x90, 0x2F, 0x00}});
}

class JackHuiSessionTest : public JackSessionTest {
protected:
    JackHuiSessionTest() : JackSessionTest("HUI") {}
};

TEST_F(JackHuiSessionTest, ShowsASessionAndTellsTheDawOfKeysInItsLanguage) {
    ASSERT_NO_FATAL_FAILURE(Load("ardour-hui.txt"));
    ASSERT_NO_FATAL_FAILURE(PlayToTheEnd());
    ExpectGolden("ardour-hui-end.txt");
    ExpectNothingLost();
    // This DAW has the ping of HUI answered, and speaks Mackie Control to its device of type HUI.
    ExpectKeys({"x"}, {{0x90, 0x5D, 0x7F}, {0x90, 0x5D, 0x00}});
    // Another one lights rewind as HUI does.
    mDaw->Send(1, {0xB0, 0x0C, 0x0E});
    mDaw->Send(1, {0xB0, 0x2C, 0x41});
    ASSERT_TRUE(Shows("\n REW ffw"));
    ExpectKeys({"x"},
               {{0xB0, 0x0F, 0x0E}, {0xB0, 0x2F, 0x43}, {0xB0, 0x0F, 0x0E}, {0xB0, 0x2F, 0x03}});
    ExpectKeys({"2", "End"}, {{0xB0, 0x0F, 0x01},
                              {0xB0, 0x2F, 0x40},
                              {0xB0, 0x01, 0x00},
                              {0xB0, 0x21, 0x00},
                              {0xB0, 0x0F, 0x01},
                              {0xB0, 0x2F, 0x00}});
}

// Of the recorded sessions this one has the most messages and bytes a second. The bound is on the
// surface's own processor time, which other programs do not add to.
TEST_F(JackSessionTest, TakesAMinuteOfTheFastestSessionWithoutLossAndWithLittleOfAProcessor) {
    constexpr std::chrono::milliseconds kEnd(66500); // it begins after 6.4 s
    mLog = std::make_unique<QuorvelTest::Program>(
        std::vector<std::string>{SURFACE_PROGRAM, "--log", "--port", "1"}, "",
        mService.Environment());
    ASSERT_NO_FATAL_FAILURE(Load("ardour-mackie-a.txt"));

    const auto before = ProcessorTime(mScreen->Process());
    const auto start = Clock::now();
    ASSERT_NO_FATAL_FAILURE(PlayUntil(kEnd, true));
    const std::chrono::duration<double> took = Clock::now() - start;
    const std::chrono::duration<double> used = ProcessorTime(mScreen->Process()) - before;
    const double share = used / took;
    std::cout << fmt::format("{} messages in {:.1f} s: {:.2f} s of processor time, {:.2f} % of a "
                             "core\n",
                             mPlayed, took.count(), used.count(), 100 * share);
    EXPECT_GE(took, std::chrono::seconds(60));
    EXPECT_GT(used.count(), 0);
    EXPECT_LE(share, 0.1);

    ExpectNothingLost();
    ExpectGolden("ardour-mackie-a-66s-rest.txt");
    mLog->Signal(SIGTERM);
    const QuorvelTest::ProgramResult log = mLog->Wait();
    EXPECT_EQ(log.status, 0) << log.err;
    std::vector<std::string> heard = Logged(log.out);
    heard.erase(heard.begin(), std::find(heard.begin(), heard.end(), "1 reset"));
    ASSERT_FALSE(heard.empty());
    heard.erase(heard.begin());
    const QuorvelTest::ProgramResult played = QuorvelTest::RunProgram(
        {SURFACE_PROGRAM, "--play", mCapture, "--log", "--as-fast-as-possible", "--at", "66.5"});
    const std::vector<std::string> sent = Logged(played.out);
    EXPECT_EQ(heard.size(), sent.size());
    EXPECT_TRUE(heard == sent);
}

} // namespace
} // namespace SurfaceTest
