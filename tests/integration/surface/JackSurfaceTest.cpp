// The program with the running service on a JACK server, and another JACK client as the DAW.
#include "tests/integration/jack/JackService.h"
#include "tests/integration/jack/Peer.h"
#include "tests/integration/jack/TestServer.h"
#include "tests/integration/surface/TerminalScreen.h"
#include "tests/support/WaitUntil.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <iterator>
#include <memory>

namespace SurfaceTest {
namespace {

using JackTest::Bytes;
using JackTest::Peer;
using TestSupport::WaitUntil;

class JackSurfaceTest : public testing::Test {
protected:
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

    testing::AssertionResult Shows(const std::string& text) const {
        return WaitUntil("it shows " + text,
                         [&] { return mScreen->Text().find(text) != std::string::npos; });
    }

    // Whether the DAW's text comes to the screen, and a key of the surface to the DAW. A connection
    // may carry nothing for a moment after it was made.
    void ExpectBothWays(const std::string& text) {
        Bytes message = {0xF0, 0x00, 0x00, 0x66, 0x14, 0x12, 0x00};
        message.insert(message.end(), text.begin(), text.end());
        message.push_back(0xF7);
        EXPECT_TRUE(WaitUntil("the DAW's text is shown", [&] {
            mDaw->Send(1, message);
            return mScreen->Text().find("\n" + text) != std::string::npos;
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

    const QuorvelTest::Preferences mPreferences{"1-4", "MackieControl"};
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

} // namespace
} // namespace SurfaceTest
