// The running service between a real DAW and the control-surface application.
#include "tests/integration/ardour/ArdourFixture.h"
#include "tests/integration/jack/Peer.h"
#include "tests/support/WaitUntil.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>

namespace ArdourTest {
namespace {

using JackTest::Bytes;
using JackTest::BytesOf;
using JackTest::Peer;
using TestSupport::WaitUntil;

bool StartsWith(const Bytes& message, const Bytes& start) {
    return message.size() >= start.size() &&
           std::equal(start.begin(), start.end(), message.begin());
}

// The text of a strip's display.
bool IsDisplayText(const Bytes& message) {
    return StartsWith(message, {0xF0, 0x00, 0x00, 0x66, 0x14, 0x12}) ||
           StartsWith(message, {0xF0, 0x00, 0x00, 0x66, 0x15, 0x12});
}

// A digit of the time, which changes all the time while the DAW plays.
bool IsTimeDigit(const Bytes& message) {
    return message.size() == 3 && message[0] == 0xB0 && message[1] >= 0x40 && message[1] < 0x4A;
}

bool IsFader(const Bytes& message) {
    return message.size() == 3 && message[0] == 0xE0;
}

// What the driver answers a device query.
bool IsAnswer(const Bytes& message) {
    return message.size() == 18 && StartsWith(message, {0xF0, 0x00, 0x00, 0x66}) &&
           message[5] == 0x01;
}

class ArdourTest : public ArdourFixture {
protected:
    static constexpr std::size_t kPrivateSource = 1; // the surface's inputs
    static constexpr std::size_t kAnswers = 2;

    ArdourTest() : ArdourFixture("MackieControl") {}

    void SetUp() override {
        StartService();
        if (!IsSkipped()) {
            mSurface = std::make_unique<Peer>("surface", 2);
        }
    }

    void TearDown() override {
        ArdourFixture::TearDown();
        mSurface.reset();
    }

    std::size_t Connections() const { return mService.Backend()["connections"].size(); }

    void ConnectSurface() {
        ASSERT_TRUE(
            mSurface->Connect("Quorvel MIDI private:Quorvel Virtual Source 01", "surface:in 1"));
        ASSERT_TRUE(mSurface->Connect("Quorvel MIDI:Quorvel Port 01 out", "surface:in 2"));
        ASSERT_TRUE(WaitUntil("they are kept", [&] { return Connections() == 2; }));
    }

    // As if the surface had been connected after the DAW, which then is connected again first.
    void PutFirstConnectionsLast() const {
        const std::filesystem::path file = mService.ConnectionsFile();
        nlohmann::json connections = nlohmann::json::parse(QuorvelTest::ContentOf(file));
        ASSERT_EQ(connections["jack"].size(), 4U);
        std::reverse(connections["jack"].begin(), connections["jack"].end());
        std::ofstream(file) << connections;
    }

    std::size_t CountReceived(bool (*isCounted)(const Bytes&)) const {
        const std::vector<Bytes> messages = mSurface->Received(kPrivateSource);
        return static_cast<std::size_t>(std::count_if(
            messages.begin() + static_cast<std::ptrdiff_t>(mBefore), messages.end(), isCounted));
    }

    // Whether the DAW has written onto the surface and goes on with it.
    bool IsDriven() const {
        return CountReceived(IsDisplayText) > 0 && CountReceived(IsFader) > 10 &&
               CountReceived(IsTimeDigit) > 50;
    }

    testing::AssertionResult IsDrivenAtLast() {
        return HappensAtLast("the DAW drives the surface", [this] { return IsDriven(); });
    }

    // Whether each message that came to the service is with the surface, and every query is
    // answered: of all that the service has carried since it started.
    void ExpectNothingLost() {
        // From here on the DAW sends nothing, so all that is on its way arrives.
        WithArdour("disconnect");
        nlohmann::json port;
        std::vector<Bytes> received;
        EXPECT_TRUE(WaitUntil("everything is with the surface",
                              [&] {
                                  port = mService.Port(1);
                                  received = mSurface->Received(kPrivateSource);
                                  received.erase(received.begin(),
                                                 received.begin() +
                                                     static_cast<std::ptrdiff_t>(mBefore));
                                  return port["forwarded"]["messages"] == port["in"]["messages"] &&
                                         port["forwarded"]["messages"] == received.size();
                              }))
            << received.size() << " arrived of " << port;
        EXPECT_EQ(port["in"]["bytes"], BytesOf(received));
        EXPECT_EQ(port["forwarded"]["bytes"], BytesOf(received));
        EXPECT_EQ(port["dropped"]["total"], 0) << port;
        EXPECT_EQ(mService.Backend()["lostToDaws"], 0);
        const std::vector<Bytes> answers = mSurface->Received(kAnswers);
        EXPECT_GE(answers.size(), mAnswersBefore + 2);
        EXPECT_EQ(port["answeredPings"], answers.size() - mAnswersBefore);
        EXPECT_TRUE(std::all_of(answers.begin(), answers.end(), IsAnswer));
        std::cout << received.size() << " messages, " << BytesOf(received) << " bytes, "
                  << answers.size() - mAnswersBefore << " answers\n";
        mBefore += received.size();
        mAnswersBefore = answers.size();
    }

    std::unique_ptr<Peer> mSurface;
    std::size_t mBefore = 0; // what the surface had when the service started
    std::size_t mAnswersBefore = 0;
};

TEST_F(ArdourTest, DrivesTheSurfaceAndDoesSoAgainAfterARestartOfTheService) {
    ConnectSurface();
    StartArdour(Ardour::kMackieControl);
    mArdour->Ask("session:request_roll(ARDOUR.TransportRequestSource.TRS_UI)");
    WithArdour("connect");
    ASSERT_TRUE(IsDrivenAtLast());
    ExpectNothingLost();

    WithArdour("connect");
    ASSERT_TRUE(WaitUntil("they are connected", [&] { return Connections() == 4; }));
    ASSERT_TRUE(IsDrivenAtLast());
    mService.End();
    EXPECT_EQ(mSurface->Ask("lost"), "0"); // after which all that the service sent is here
    mBefore = mSurface->Received(kPrivateSource).size();
    mAnswersBefore = mSurface->Received(kAnswers).size();
    PutFirstConnectionsLast();
    mService.Start();
    EXPECT_TRUE(WaitUntil("the connections are back", [&] { return Connections() == 4; }));
    ASSERT_TRUE(IsDrivenAtLast());
    ExpectNothingLost();
    EXPECT_TRUE(mArdour->IsAlive());
}

} // namespace
} // namespace ArdourTest
