#include "tests/integration/jack/BackendFixture.h"

#include <algorithm>
#include <thread>

namespace JackTest {
namespace {

using testing::HasSubstr;

class JackServerRestartTest : public BackendFixture {
protected:
    // Numbered messages, so that each is known when it comes.
    static Bytes Message(int number) {
        return {0xF0, static_cast<std::uint8_t>(number >> 7),
                static_cast<std::uint8_t>(number & 0x7F), 0xF7};
    }

    static int NumberOf(const Bytes& message) { return message.at(1) * 128 + message.at(2); }

    testing::AssertionResult WaitUntilDown() {
        return WaitUntil("the backend is down", [&] { return !mBackend->State().isUp; });
    }

    testing::AssertionResult WaitForConnections(std::size_t count) {
        return WaitUntil("the connections are there",
                         [&] { return mBackend->Connections().size() == count; });
    }
};

// Each came later than the one before it, so none came twice.
testing::AssertionResult AreInOrder(const std::vector<Bytes>& messages) {
    const auto notLater = std::adjacent_find(
        messages.begin(), messages.end(), [](const Bytes& a, const Bytes& b) { return !(a < b); });
    if (notLater == messages.end()) {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure() << "message " << notLater - messages.begin() + 1;
}

TEST_F(JackServerRestartTest, WaitsForAServerThatStartsLater) {
    Publish(1);
    EXPECT_FALSE(mBackend->State().isUp);
    EXPECT_THAT(mBackend->State().detail, HasSubstr("no JACK server answers"));
    mServer->Start();
    EXPECT_TRUE(WaitUntilUp());
    EXPECT_THAT(mBackend->State().detail, HasSubstr("48000 Hz, 1024 frames"));
}

TEST_F(JackServerRestartTest, SurvivesTheServerTwentyTimes) {
    mServer->Start();
    Publish(2);
    int sent = 0;
    int emitted = 0;
    std::vector<Bytes> played;
    std::uint64_t inNoCounter = 0;
    constexpr int kRounds = 20;
    constexpr int kMessages = 10;
    for (int round = 0; round < kRounds; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        ASSERT_TRUE(WaitUntilUp());
        const std::uint64_t lostBefore = mBackend->LostToDaws();
        const std::size_t arrivedBefore = Input(1).size();
        {
            Peer daw("daw");
            Peer surface("surface");
            if (round == 0) {
                ASSERT_TRUE(daw.Connect("daw:out 1", "Quorvel MIDI:Quorvel Port 02 in"));
                ASSERT_TRUE(
                    daw.Connect("Quorvel MIDI private:Quorvel Virtual Source 02", "surface:in 1"));
            }
            ASSERT_TRUE(WaitForConnections(2));
            const MidiServer::SavedConnections saved(mFolder.Path() + "/state.json", "jack");
            ASSERT_TRUE(WaitUntil("they are kept", [&] { return saved.Load().size() == 2; }));
            // PipeWire carries nothing until a connection has become active, some time after it was
            // made.
            const int emittedBefore = emitted;
            ASSERT_TRUE(WaitUntil("both ways carry", [&] {
                daw.Send(1, Message(sent++));
                EmitFromPrivateSource(1, Message(emitted++));
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
                return Input(1).size() > arrivedBefore && surface.EventsReceived(1) > 0;
            }));
            ASSERT_TRUE(WaitUntil("the last one has arrived", [&] {
                return Input(1).back() == Message(sent - 1) &&
                       surface.Received(1).back() == Message(emitted - 1);
            }));
            const std::size_t arrived = Input(1).size();
            const std::size_t heard = surface.Received(1).size();
            inNoCounter += static_cast<std::size_t>(emitted - emittedBefore) - heard;
            for (int i = 0; i < kMessages; ++i) {
                daw.Send(1, Message(sent++));
                EmitFromPrivateSource(1, Message(emitted++));
            }
            ASSERT_TRUE(WaitUntil("the messages have arrived", [&] {
                return Input(1).size() == arrived + kMessages &&
                       surface.Received(1).size() == heard + kMessages;
            }));
            EXPECT_EQ(mBackend->LostToDaws(), lostBefore);
            // And some that the end of the server overtakes.
            for (int i = 0; i < kMessages; ++i) {
                daw.Send(1, Message(sent++));
                EmitFromPrivateSource(1, Message(emitted++));
            }
            if (round % 2 == 0) {
                mServer->Kill();
            } else {
                mServer->Stop();
            }
            ASSERT_TRUE(WaitUntilDown());
            const std::vector<Bytes> here = surface.Received(1);
            played.insert(played.end(), here.begin(), here.end());
        }
        const std::uint64_t lost = mBackend->LostToDaws();
        EmitFromPrivateSource(1, Message(emitted++));
        EmitFromPort(0, {0x90, 0x00, 0x7F});
        EXPECT_EQ(mBackend->LostToDaws(), lost + 2);
        inNoCounter += kMessages;
        mServer->Start();
    }
    ASSERT_TRUE(WaitUntilUp());
    EXPECT_TRUE(AreInOrder(Input(1)));
    EXPECT_TRUE(AreInOrder(played));
    // What a server had taken and not passed on when it ended, nobody else can count.
    const std::uint64_t accounted = played.size() + mBackend->LostToDaws() - kRounds;
    EXPECT_LE(accounted, static_cast<std::uint64_t>(emitted));
    EXPECT_GE(accounted + inNoCounter, static_cast<std::uint64_t>(emitted));
}

TEST_F(JackServerRestartTest, RestoresConnectionsAfterItsOwnRestart) {
    mServer->Start();
    Publish(2);
    ASSERT_TRUE(WaitUntilUp());
    Peer daw("daw");
    ASSERT_TRUE(daw.Connect("daw:out 1", "Quorvel MIDI:Quorvel Port 01 in"));
    mBackend->Connect(1, "daw:in 1");
    MakeBackend();
    Publish(2);
    ASSERT_TRUE(WaitUntilUp());
    ASSERT_TRUE(WaitForConnections(2));
    daw.Send(1, Message(1));
    EXPECT_TRUE(WaitUntil("it arrives", [&] { return Input(0).size() == 1; }));

    mBackend->Disconnect(1, "daw:in 1");
    MakeBackend();
    Publish(2);
    ASSERT_TRUE(WaitUntilUp());
    ASSERT_TRUE(WaitForConnections(1));
}

TEST_F(JackServerRestartTest, RestoresConnectionsWhenTheirProgramComesBack) {
    mServer->Start();
    Publish(1);
    ASSERT_TRUE(WaitUntilUp());
    {
        Peer daw("daw");
        ASSERT_TRUE(daw.Connect("daw:out 1", "Quorvel MIDI:Quorvel Port 01 in"));
        ASSERT_TRUE(WaitUntil(
            "it is kept", [&] { return std::filesystem::exists(mFolder.Path() + "/state.json"); }));
    }
    ASSERT_TRUE(WaitUntil("the program has gone", [&] { return mBackend->Peers().empty(); }));
    // Connecting looks at what there is: from here on the backend knows that the program was away.
    Peer other("other");
    mBackend->Connect(0, "other:in 1");
    ASSERT_TRUE(WaitForConnections(1));
    Peer daw("daw");
    EXPECT_TRUE(WaitForConnections(2));
}

TEST_F(JackServerRestartTest, RestoresTheConnectionOfAPortThatIsBackAtOnce) {
    mServer->Start();
    Publish(1);
    ASSERT_TRUE(WaitUntilUp());
    Peer daw("daw");
    mBackend->Connect(0, "daw:in 1");
    mBackend->Connect(0, "daw:out 1");
    ASSERT_EQ(daw.Ask("renew"), "0");
    ASSERT_TRUE(WaitForConnections(2));
    daw.Send(1, Message(1));
    EXPECT_TRUE(WaitUntil("it arrives", [&] { return Input(0).size() == 1; }));
}

TEST_F(JackServerRestartTest, ForgetsTheConnectionWithAnAbsentProgramWhenItIsAsked) {
    const MidiServer::SavedConnections saved(mFolder.Path() + "/state.json", "jack");
    saved.Store({{"Quorvel MIDI:Quorvel Port 01 out", "daw:in 1"},
                 {"Quorvel MIDI:Quorvel Port 02 out", "daw:in 1"}});
    MakeBackend();
    EXPECT_FALSE(mBackend->Forget(0, "daw:out 1"));
    EXPECT_TRUE(mBackend->Forget(0, "daw:in 1"));
    EXPECT_FALSE(mBackend->Forget(0, "daw:in 1"));
    ASSERT_EQ(saved.Load().size(), 1U);
    EXPECT_EQ(saved.Load()[0].port, "Quorvel MIDI:Quorvel Port 02 out");
}

TEST_F(JackServerRestartTest, MakesNoConnectionThatAnotherProgramBroke) {
    mServer->Start();
    Publish(1);
    ASSERT_TRUE(WaitUntilUp());
    Peer daw("daw");
    ASSERT_TRUE(daw.Connect("daw:out 1", "Quorvel MIDI:Quorvel Port 01 in"));
    ASSERT_TRUE(daw.Connect("Quorvel MIDI:Quorvel Port 01 out", "daw:in 1"));
    const std::string file = mFolder.Path() + "/state.json";
    const MidiServer::SavedConnections saved(file, "jack");
    ASSERT_TRUE(WaitUntil("both are kept", [&] { return saved.Load().size() == 2; }));
    ASSERT_TRUE(daw.Disconnect("daw:out 1", "Quorvel MIDI:Quorvel Port 01 in"));
    ASSERT_TRUE(WaitUntil("it is forgotten", [&] { return saved.Load().size() == 1; }));
    EXPECT_EQ(mBackend->Connections().size(), 1U);
}

} // namespace
} // namespace JackTest
