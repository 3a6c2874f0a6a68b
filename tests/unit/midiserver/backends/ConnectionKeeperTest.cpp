#include "midiserver/backends/ConnectionKeeper.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace MidiServer {

static bool operator==(const BackendConnection& a, const BackendConnection& b) {
    return a.port == b.port && a.peer == b.peer;
}

namespace {

using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;

const BackendConnection kIn{"ours:in", "daw:out"};
const BackendConnection kOut{"ours:out", "daw:in"};
const std::set<std::string> kOurs{"ours:in", "ours:out"};
const std::set<std::string> kAll{"ours:in", "ours:out", "daw:in", "daw:out"};

class ConnectionKeeperTest : public testing::Test {
protected:
    std::vector<BackendConnection> Update(const std::set<std::string>& ports,
                                          const std::vector<BackendConnection>& connections) {
        return mKeeper.Update({ports, connections, {}}, mNow);
    }

    ConnectionKeeper mKeeper{{}};
    ConnectionKeeper::Time mNow{seconds(1000)};
};

TEST_F(ConnectionKeeperTest, KeepsWhatSomeoneConnected) {
    EXPECT_THAT(Update(kAll, {}), IsEmpty());
    EXPECT_FALSE(mKeeper.TakeChange());
    EXPECT_THAT(Update(kAll, {kIn}), IsEmpty());
    EXPECT_TRUE(mKeeper.TakeChange());
    EXPECT_FALSE(mKeeper.TakeChange());
    EXPECT_THAT(mKeeper.Wanted(), ElementsAre(kIn));
}

TEST_F(ConnectionKeeperTest, AsksForAKeptConnectionOnceBothPortsAreThere) {
    mKeeper = ConnectionKeeper({kIn, kOut});
    EXPECT_THAT(Update(kOurs, {}), IsEmpty());
    EXPECT_THAT(Update({"ours:in", "daw:in", "daw:out"}, {}), ElementsAre(kIn));
    EXPECT_THAT(Update(kAll, {kIn}), ElementsAre(kOut));
    EXPECT_THAT(Update(kAll, {kIn, kOut}), IsEmpty());
    EXPECT_FALSE(mKeeper.TakeChange());
}

TEST_F(ConnectionKeeperTest, RestoresTheConnectionsOfAProgramThatComesBack) {
    Update(kAll, {kIn});
    Update(kOurs, {});
    EXPECT_THAT(Update(kAll, {}), ElementsAre(kIn));
}

TEST_F(ConnectionKeeperTest, RestoresThemWhenTheProgramDisconnectedBeforeItLeft) {
    Update(kAll, {kIn});
    EXPECT_THAT(Update(kAll, {}), IsEmpty());
    mNow += ConnectionKeeper::kAfterthought - seconds(1);
    EXPECT_THAT(Update(kOurs, {}), IsEmpty());
    mNow += seconds(100);
    EXPECT_THAT(Update(kAll, {}), ElementsAre(kIn));
}

TEST_F(ConnectionKeeperTest, RestoresThemWhenTheProgramWasAwayBetweenTwoLooks) {
    Update(kAll, {kIn, kOut});
    EXPECT_THAT(mKeeper.Update({kAll, {kOut}, {"daw:out"}}, mNow), ElementsAre(kIn));
    EXPECT_FALSE(mKeeper.NextUpdate());
    EXPECT_THAT(Update(kAll, {kIn, kOut}), IsEmpty());
    // Also if it was seen as it disconnected.
    EXPECT_THAT(Update(kAll, {}), IsEmpty());
    EXPECT_THAT(mKeeper.Update({kAll, {}, {"daw:in", "daw:out"}}, mNow), ElementsAre(kIn, kOut));
}

TEST_F(ConnectionKeeperTest, DoesNotTakeAnotherProgramsEndForThatOfThePeer) {
    Update(kAll, {kIn});
    EXPECT_THAT(mKeeper.Update({kAll, {}, {"other:out"}}, mNow), IsEmpty());
    EXPECT_EQ(mKeeper.NextUpdate(), mNow + ConnectionKeeper::kAfterthought);
}

TEST_F(ConnectionKeeperTest, ForgetsWhatSomeoneDisconnected) {
    Update(kAll, {kIn, kOut});
    mKeeper.TakeChange();
    EXPECT_FALSE(mKeeper.NextUpdate());
    EXPECT_THAT(Update(kAll, {kOut}), IsEmpty());
    EXPECT_EQ(mKeeper.NextUpdate(), mNow + ConnectionKeeper::kAfterthought);
    EXPECT_THAT(mKeeper.Wanted(), ElementsAre(kIn, kOut));
    mNow += ConnectionKeeper::kAfterthought;
    EXPECT_THAT(Update(kAll, {kOut}), IsEmpty());
    EXPECT_THAT(mKeeper.Wanted(), ElementsAre(kOut));
    EXPECT_TRUE(mKeeper.TakeChange());
    EXPECT_FALSE(mKeeper.NextUpdate());
}

TEST_F(ConnectionKeeperTest, TakesAConnectionThatComesBackInTimeForKept) {
    Update(kAll, {kIn});
    Update(kAll, {});
    mNow += seconds(1);
    Update(kAll, {kIn});
    EXPECT_FALSE(mKeeper.NextUpdate());
    mNow += seconds(1000);
    Update(kAll, {kIn});
    EXPECT_THAT(mKeeper.Wanted(), ElementsAre(kIn));
}

TEST_F(ConnectionKeeperTest, AsksForAllAgainAfterTheServerHasEnded) {
    Update(kAll, {kIn, kOut});
    mKeeper.PortsGone();
    EXPECT_THAT(Update(kAll, {}), ElementsAre(kIn, kOut));
}

TEST_F(ConnectionKeeperTest, ForgetsAtOnceWhatIsDisconnectedThroughIt) {
    Update(kAll, {kIn, kOut});
    mKeeper.Forget(kIn);
    EXPECT_THAT(Update(kAll, {kOut}), IsEmpty());
    EXPECT_THAT(mKeeper.Wanted(), ElementsAre(kOut));
}

} // namespace
} // namespace MidiServer
