// What the host says of a driver that does not do as it should.

#include "tests/integration/midiserver/Midiserver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace QuorvelTest {
namespace {

using testing::HasSubstr;

class FaultyDriverTest : public testing::Test {
protected:
    ProgramResult Replay(const std::string& fault) const {
        // One list a message, every message unlike the others.
        return Midiserver({"replay", "-", "--speed", "1000", "--json", "--prefs",
                           mPreferences.Folder(), "--plugin", MIDISERVER_FAULTY_PLUGIN},
                          "0 90 01 7F\n1 90 00 00\n2 90 02 7F\n3 90 03 7F\n4 90 04 7F\n",
                          {"FAULTY_DRIVER=" + fault});
    }

    // The replay's summary when it failed as it should, of which one figure is 1 and the other
    // faults that are not named 0.
    void ExpectFinding(const std::string& fault, const std::string& finding) const {
        const ProgramResult result = Replay(fault);
        EXPECT_EQ(result.status, 1) << result.out << result.err;
        const nlohmann::json summary = Summary(result);
        EXPECT_EQ(summary["passed"], false);
        EXPECT_EQ(summary[finding], 1) << summary;
        for (const char* other : {"reordered", "altered", "surplus", "refused"}) {
            if (other != finding) {
                EXPECT_EQ(summary[other], 0) << summary;
            }
        }
    }

    void ExpectFailure(const std::string& fault, int status, const std::string& text) const {
        const ProgramResult result = Replay(fault);
        EXPECT_EQ(result.status, status) << result.out << result.err;
        EXPECT_TRUE(IsOneLine(result.err)) << result.err;
        EXPECT_THAT(result.err, HasSubstr(text));
        EXPECT_EQ(result.out, "");
    }

    const Preferences mPreferences{"1-4", "HUI"};
};

TEST_F(FaultyDriverTest, PassesWhenItHasNoFault) {
    const ProgramResult result = Replay("none");

    EXPECT_EQ(result.status, 0) << result.out << result.err;
    EXPECT_EQ(Summary(result)["pings"]["answered"], 1);
}

TEST_F(FaultyDriverTest, IsCaughtLosingAMessage) {
    ExpectFinding("drop", "lost");
}

TEST_F(FaultyDriverTest, IsCaughtReorderingMessages) {
    ExpectFinding("reorder", "reordered");
}

TEST_F(FaultyDriverTest, IsCaughtAlteringAMessage) {
    ExpectFinding("alter", "altered");
}

TEST_F(FaultyDriverTest, IsCaughtRepeatingAMessage) {
    ExpectFinding("repeat", "surplus");
}

TEST_F(FaultyDriverTest, IsCaughtForwardingOnAnotherPort) {
    ExpectFinding("wrong-port", "surplus");
}

TEST_F(FaultyDriverTest, IsCaughtNotAnsweringAPing) {
    const ProgramResult result = Replay("no-reply");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(Summary(result)["pings"]["answered"], 0);
    EXPECT_EQ(Summary(result)["lost"], 0);
}

TEST_F(FaultyDriverTest, IsCaughtAnsweringAPingWronglyOrTwice) {
    for (const char* fault : {"wrong-reply", "two-replies"}) {
        const ProgramResult result = Replay(fault);
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(Summary(result)["pings"]["wrongReplies"], 1) << fault;
    }
}

TEST_F(FaultyDriverTest, IsWaitedForNoLongerThanTheRateAllows) {
    const ProgramResult result = Replay("stall");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(Summary(result)["stalled"], true);
    EXPECT_EQ(Summary(result)["lost"], 3);
}

TEST_F(FaultyDriverTest, IsNamedWhenItDoesNotLoad) {
    ExpectFailure("no-instance", 2, std::string("midiserver: plug-in ") + MIDISERVER_FAULTY_PLUGIN);
    ExpectFailure("no-interface", 2, "has not the interface of this MIDI server");
}

TEST_F(FaultyDriverTest, FailsTheReplayWhenItDoesNotServeIt) {
    ExpectFailure("no-start", 1, "midiserver: the driver did not start (status -1)");
    ExpectFailure("no-names", 1, "publishes no port \"Quorvel Port 1\"");
    ExpectFailure("no-message-port", 1, "\"Quorvel Virtual Source IDs Port\" is not there");
    ExpectFailure("short-ids", 1, "answered 4 bytes, 16 are expected");
    ExpectFailure("no-ids", 1, "the private source of port 1 with the unique ID 0 cannot");
}

} // namespace
} // namespace QuorvelTest
