#include "midiserver/errors/Errors.h"
#include "midiserver/host/Host.h"
#include "tests/integration/jack/BackendFixture.h"

#include <algorithm>

namespace JackTest {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

class JackBackendTest : public BackendFixture {
protected:
    void SetUp() override {
        BackendFixture::SetUp();
        if (!IsSkipped()) {
            mServer->Start();
        }
    }

    // Whether it hears the first private source.
    testing::AssertionResult IsHeardBy(Peer& surface) {
        return Carries([this](const Bytes& bytes) { EmitFromPrivateSource(0, bytes); }, surface);
    }
};

Bytes LongMessage(std::size_t size) {
    Bytes message(size);
    for (std::size_t i = 0; i < size; ++i) {
        message[i] = static_cast<std::uint8_t>((i * 31 + i / 127) & 0x7F);
    }
    message.front() = 0xF0;
    message.back() = 0xF7;
    return message;
}

TEST_F(JackBackendTest, ShowsPortsWithNamesAndIds) {
    Publish(12);
    ASSERT_TRUE(WaitUntilUp());
    Peer daw("daw");
    EXPECT_THAT(daw.Ports(), AllOf(Contains("Quorvel MIDI:Quorvel Port 01 in"),
                                   Contains("Quorvel MIDI:Quorvel Port 12 out"),
                                   Contains("Quorvel MIDI private:Quorvel Virtual Source 07"),
                                   Not(Contains("Quorvel MIDI:Quorvel Port 13 in"))));
    EXPECT_THAT(daw.Ask("aliases Quorvel MIDI:Quorvel Port 02 out"),
                HasSubstr("Quorvel MIDI ID:1002"));
    EXPECT_THAT(daw.Ask("aliases Quorvel MIDI private:Quorvel Virtual Source 07"),
                HasSubstr("Quorvel MIDI ID:-7"));
    const auto metadata = [&](const std::string& key, const std::string& port) {
        return WaitUntil(key, [&] { return !daw.Ask("meta " + key + " " + port).empty(); })
                   ? daw.Ask("meta " + key + " " + port)
                   : "";
    };
    EXPECT_EQ(
        metadata("urn:quorvel:midi:unique-id", "Quorvel MIDI private:Quorvel Virtual Source 07"),
        "-7");
    EXPECT_EQ(
        metadata("http://jackaudio.org/metadata/pretty-name", "Quorvel MIDI:Quorvel Port 12 in"),
        "Quorvel Port 12");
}

// What only passes MIDI on is neither where it comes from nor where it ends.
TEST_F(JackBackendTest, ShowsNoPortAsPhysicalOrTerminal) {
    Publish(1);
    ASSERT_TRUE(WaitUntilUp());
    Peer daw("daw");
    EXPECT_THAT(daw.Ask("ports"), HasSubstr("Quorvel MIDI:Quorvel Port 01 in"));
    EXPECT_THAT(daw.Ask("devices"), Not(HasSubstr("Quorvel MIDI")));
}

TEST_F(JackBackendTest, LetsAnApplicationConnectAPrivateSourceByItsId) {
    Publish(3);
    ASSERT_TRUE(WaitUntilUp());
    Peer surface("surface");
    ASSERT_TRUE(surface.Connect("Quorvel MIDI ID:-2", "surface:in 1"));
    EXPECT_TRUE(Carries([this](const Bytes& bytes) { EmitFromPrivateSource(1, bytes); }, surface));
}

TEST_F(JackBackendTest, CarriesMessagesBothWays) {
    Publish(2);
    ASSERT_TRUE(WaitUntilUp());
    Peer daw("daw");
    ASSERT_TRUE(daw.Connect("daw:out 1", "Quorvel MIDI:Quorvel Port 02 in"));
    ASSERT_TRUE(daw.Connect("Quorvel MIDI:Quorvel Port 02 out", "daw:in 1"));
    ASSERT_TRUE(Carries(daw, 1));
    ASSERT_TRUE(Carries([this](const Bytes& bytes) { EmitFromPort(1, bytes); }, daw));
    const Bytes ping{0x90, 0x00, 0x00};
    const Bytes query{0xF0, 0x00, 0x00, 0x66, 0x14, 0x00, 0xF7};
    const auto before = std::chrono::steady_clock::now();
    daw.Send(1, ping);
    daw.Send(1, query);
    daw.Send(1, {0xF8});
    ASSERT_TRUE(WaitUntil("all arrived", [&] { return Input(1).size() == 3; }));
    EXPECT_THAT(Input(1), ElementsAre(ping, query, Bytes{0xF8}));
    EXPECT_TRUE(Input(0).empty());
    EXPECT_GT(std::chrono::steady_clock::now(), before);

    EmitFromPort(1, {0x90, 0x00, 0x7F, 0xB0, 0x07, 0x64});
    ASSERT_TRUE(WaitUntil("both arrived", [&] { return daw.Received(1).size() == 2; }));
    EXPECT_THAT(daw.Received(1), ElementsAre(Bytes{0x90, 0x00, 0x7F}, Bytes{0xB0, 0x07, 0x64}));
    EXPECT_EQ(mBackend->LostToDaws(), 0U);
}

TEST_F(JackBackendTest, StampsWhatArrivesWithTheMonotonicClock) {
    Publish(1);
    ASSERT_TRUE(WaitUntilUp());
    Peer daw("daw");
    ASSERT_TRUE(daw.Connect("daw:out 1", "Quorvel MIDI:Quorvel Port 01 in"));
    const auto now = [] {
        return static_cast<std::uint64_t>(
            std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count());
    };
    const std::uint64_t before = now();
    MidiServer::InputEvent event;
    // PipeWire carries nothing until the connection has become active, some time after it was made.
    ASSERT_TRUE(WaitUntil("it arrived", [&] {
        daw.Send(1, {0xF8});
        return mInput->Read(0, event);
    }));
    // A period may have begun just before, and the server smooths the times at which they begin.
    EXPECT_LE(event.time, now() + 1'000'000'000);
    EXPECT_GE(event.time + 1'000'000'000, before);
}

TEST_F(JackBackendTest, WakesTheReaderOnlyWhenSomethingCame) {
    Publish(1);
    ASSERT_TRUE(WaitUntilUp());
    Peer daw("daw");
    ASSERT_TRUE(daw.Connect("daw:out 1", "Quorvel MIDI:Quorvel Port 01 in"));
    const auto in = [](int milliseconds) {
        return std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    };
    EXPECT_FALSE(mArrived.WaitUntil(in(200)));
    daw.Send(1, {0xF8});
    EXPECT_TRUE(mArrived.WaitUntil(in(120000)));
}

TEST_F(JackBackendTest, CarriesSystemExclusiveOfAMebibyteFromADaw) {
    Publish(1);
    ASSERT_TRUE(WaitUntilUp());
    Peer daw("daw");
    ASSERT_TRUE(daw.Connect("daw:out 1", "Quorvel MIDI:Quorvel Port 01 in"));
    ASSERT_TRUE(Carries(daw, 0));
    const Bytes message = LongMessage(1 << 20);
    daw.Send(1, message);
    daw.Send(1, {0xF8});
    ASSERT_TRUE(WaitUntil("all arrived", [&] { return Input(0).size() == 2; }));
    EXPECT_TRUE(Input(0)[0] == message);
    EXPECT_GT(mEvents[0], 2U); // it came in pieces
    EXPECT_EQ(mInput->TakeLoss(0).noRoom, 0U);
}

TEST_F(JackBackendTest, CarriesSystemExclusiveOfAMebibyteToTheSurface) {
    Publish(1);
    ASSERT_TRUE(WaitUntilUp());
    Peer surface("surface");
    ASSERT_TRUE(surface.Connect("Quorvel MIDI private:Quorvel Virtual Source 01", "surface:in 1"));
    ASSERT_TRUE(IsHeardBy(surface));
    const Bytes message = LongMessage(1 << 20);
    // As the driver forwards it: packet after packet, no faster than they are played.
    constexpr std::size_t kPacket = 60000;
    std::size_t sent = 0;
    while (sent < message.size()) {
        const std::size_t size = std::min(kPacket, message.size() - sent);
        const auto begin = message.begin() + static_cast<std::ptrdiff_t>(sent);
        EmitFromPrivateSource(0, Bytes(begin, begin + static_cast<std::ptrdiff_t>(size)));
        sent += size;
        ASSERT_TRUE(
            WaitUntil("the packet has arrived", [&] { return surface.BytesReceived(1) == sent; }));
    }
    EmitFromPrivateSource(0, {0xF8});
    ASSERT_TRUE(WaitUntil("all arrived", [&] { return surface.Received(1).size() == 2; }));
    EXPECT_TRUE(surface.Received(1)[0] == message);
    EXPECT_EQ(mBackend->LostToDaws(), 0U);
}

TEST_F(JackBackendTest, PlaysWhatDoesNotFitAPeriodInTheNextOnesWhole) {
    Publish(1);
    ASSERT_TRUE(WaitUntilUp());
    Peer surface("surface");
    ASSERT_TRUE(surface.Connect("Quorvel MIDI private:Quorvel Virtual Source 01", "surface:in 1"));
    ASSERT_TRUE(IsHeardBy(surface));
    // Some three periods of large and small messages.
    std::vector<Bytes> messages;
    mList.Clear();
    std::size_t bytes = 0;
    for (int i = 0; bytes < 90000; ++i) {
        messages.push_back(i % 2 == 0 ? LongMessage(9000)
                                      : Bytes{0x90, static_cast<std::uint8_t>(i & 0x7F), 0x01});
        mList.Add(messages.back());
        bytes += messages.back().size();
    }
    mBackend->EmitFromPrivateSource(0, *mList.List());
    ASSERT_TRUE(
        WaitUntil("all arrived", [&] { return surface.Received(1).size() >= messages.size(); }));
    EXPECT_TRUE(surface.Received(1) == messages);
    EXPECT_EQ(surface.EventsReceived(1), messages.size()); // none in pieces
    EXPECT_EQ(mBackend->LostToDaws(), 0U);
}

TEST_F(JackBackendTest, CountsWhatDoesNotFitItsQueue) {
    Publish(1);
    ASSERT_TRUE(WaitUntilUp());
    Peer surface("surface");
    ASSERT_TRUE(surface.Connect("Quorvel MIDI private:Quorvel Virtual Source 01", "surface:in 1"));
    ASSERT_TRUE(IsHeardBy(surface));
    constexpr std::size_t kMessages = 400;
    const Bytes message = LongMessage(2000);
    for (std::size_t i = 0; i < kMessages; ++i) {
        EmitFromPrivateSource(0, message);
    }
    EXPECT_GT(mBackend->LostToDaws(), 0U);
    EXPECT_TRUE(WaitUntil("the rest arrived", [&] {
        return surface.Received(1).size() + mBackend->LostToDaws() == kMessages;
    }));
    EXPECT_THAT(surface.Received(1), testing::Each(message));
}

TEST_F(JackBackendTest, LosesAndCountsWhatIsEmittedWhileThePortsAreWithdrawn) {
    Publish(1);
    ASSERT_TRUE(WaitUntilUp());
    mBackend->Withdraw();
    EXPECT_FALSE(mBackend->State().isUp);
    EmitFromPort(0, {0x90, 0x00, 0x7F});
    EXPECT_EQ(mBackend->LostToDaws(), 1U);
}

TEST_F(JackBackendTest, KeepsConnectionsOfPortsThatStayWhenPortsArePublishedAnew) {
    Publish(4);
    ASSERT_TRUE(WaitUntilUp());
    Peer daw("daw");
    // The server tells each program of a change at a time of its own.
    const auto isShown = [&](const std::string& port) {
        const std::vector<std::string> ports = daw.Ports();
        return std::find(ports.begin(), ports.end(), port) != ports.end();
    };
    const auto isConnected = [&] { return mBackend->Connections().size() == 1; };
    ASSERT_TRUE(daw.Connect("daw:out 1", "Quorvel MIDI:Quorvel Port 01 in"));
    ASSERT_TRUE(WaitUntil("they are connected", isConnected));
    Publish(2);
    EXPECT_TRUE(isConnected());
    EXPECT_TRUE(
        WaitUntil("a port has gone", [&] { return !isShown("Quorvel MIDI:Quorvel Port 03 in"); }));
    Publish(5);
    EXPECT_TRUE(isConnected());
    EXPECT_TRUE(
        WaitUntil("a port has come", [&] { return isShown("Quorvel MIDI:Quorvel Port 05 out"); }));
    daw.Send(1, {0xF8});
    EXPECT_TRUE(WaitUntil("it arrives", [&] { return Input(0).size() == 1; }));
}

TEST_F(JackBackendTest, ConnectsAndDisconnectsByName) {
    Publish(2);
    ASSERT_TRUE(WaitUntilUp());
    Peer daw("daw");
    ASSERT_TRUE(WaitUntil("both are seen", [&] { return mBackend->Peers().size() >= 2; }));
    EXPECT_THAT(mBackend->Peers(), AllOf(Contains("daw:in 1"), Contains("daw:out 1"),
                                         Not(Contains(HasSubstr("Quorvel")))));
    mBackend->Connect(1, "daw:in 1");
    mBackend->Connect(1, "daw:out 1");
    EXPECT_TRUE(Carries(daw, 1));
    EXPECT_TRUE(WaitUntil("both are there", [&] { return mBackend->Connections().size() == 2; }));
    mBackend->Disconnect(1, "daw:out 1");
    EXPECT_TRUE(WaitUntil("one is gone", [&] { return mBackend->Connections().size() == 1; }));
    try {
        mBackend->Connect(0, "dow:in 1");
        FAIL() << "connected to a port that is not there";
    } catch (const MidiServer::InputError& error) {
        EXPECT_THAT(error.what(), AllOf(HasSubstr("dow:in 1"), HasSubstr("daw:in 1")));
    }
}

TEST_F(JackBackendTest, TakesAllItsPortsAwayFromAServerThatGoesOn) {
    for (int i = 0; i < 2; ++i) {
        Publish(kPorts);
        ASSERT_TRUE(WaitUntilUp());
        mBackend->Withdraw();
    }
    Peer daw("daw");
    EXPECT_THAT(daw.Ports(), Not(Contains(HasSubstr("Quorvel"))));
}

TEST_F(JackBackendTest, SaysWhoHasItsName) {
    Peer other("Quorvel MIDI");
    Publish(1);
    ASSERT_TRUE(WaitUntil("it says so", [&] {
        return mBackend->State().detail.find("another program") != std::string::npos;
    }));
    EXPECT_FALSE(mBackend->State().isUp);
    EXPECT_THROW(mBackend->Connect(0, "x"), MidiServer::HostError);
}

} // namespace
} // namespace JackTest
