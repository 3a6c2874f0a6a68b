// The running service between an independent JACK client in the place of the DAWs and another in
// the place of the surface.
#include "tests/integration/jack/JackService.h"

#include "midiserver/backends/jack/JackLibrary.h"
#include "tests/integration/jack/Peer.h"
#include "tests/integration/jack/Playback.h"
#include "tests/integration/jack/TestServer.h"
#include "tests/support/WaitUntil.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <iostream>
#include <iterator>
#include <map>
#include <memory>
#include <thread>

namespace JackTest {
namespace {

using QuorvelTest::Preferences;
using testing::Each;
using testing::HasSubstr;
using TestSupport::WaitUntil;

const Bytes kHuiPing = {0x90, 0x00, 0x00};
const Bytes kHuiAnswer = {0x90, 0x00, 0x7F};
const Bytes kMackiePing = {0xF0, 0x00, 0x00, 0x66, 0x14, 0x00, 0xF7};

// Ports from this one on are HUI's, those before it Mackie Control's.
constexpr std::size_t kPorts = 32;
constexpr std::size_t kFirstHuiPort = 17;

bool IsPing(std::size_t port, const Bytes& message) {
    if (port >= kFirstHuiPort) {
        return message == kHuiPing;
    }
    Bytes otherDevice = kMackiePing;
    otherDevice[4] = 0x15;
    return message == kMackiePing || message == otherDevice;
}

std::string InputPort(std::size_t port) {
    return fmt::format("Quorvel MIDI:Quorvel Port {:02} in", port);
}

std::string OutputPort(std::size_t port) {
    return fmt::format("Quorvel MIDI:Quorvel Port {:02} out", port);
}

std::string PrivateSource(std::size_t port) {
    return fmt::format("Quorvel MIDI private:Quorvel Virtual Source {:02}", port);
}

std::string PeerPort(const std::string& name, std::size_t port) {
    return fmt::format("{} {}", name, port);
}

// A message that says its number, of those below 2097152.
Bytes Numbered(std::size_t number) {
    return {0xF0, static_cast<std::uint8_t>(number >> 14),
            static_cast<std::uint8_t>((number >> 7) & 0x7F),
            static_cast<std::uint8_t>(number & 0x7F), 0xF7};
}

std::vector<Bytes> MessagesOf(const std::string& capture) {
    return ReadCapture(QuorvelTest::Capture(capture)).messages;
}

class JackServiceTest : public testing::Test {
protected:
    void SetUp() override {
        if (const std::string missing = TestServer::Missing(); !missing.empty()) {
            GTEST_SKIP() << missing << " is not installed";
        }
        // Ports come in blocks of four, each with a protocol.
        for (std::size_t first = 5; first <= kPorts; first += 4) {
            const std::string ports = fmt::format("{}-{}", first, first + 3);
            const QuorvelTest::ProgramResult result = QuorvelTest::Midiserver(
                {"prefs", "set", "Mixer " + ports, "--ports", ports, "--protocol",
                 first < kFirstHuiPort ? "MackieControl" : "HUI", "--prefs",
                 mPreferences.Folder()});
            ASSERT_EQ(result.status, 0) << result.err;
        }
    }

    void TearDown() override {
        if (HasFailure() && mServer) {
            std::cerr << mService.Log() << mServer->Log();
        }
        mServer.reset();
    }

    void Start(int frames = 1024) {
        mServer = std::make_unique<TestServer>(frames);
        mServer->Start();
        mService.Start();
    }

    // The service keeps a connection a moment after it was made.
    testing::AssertionResult WaitForConnections(std::size_t count) const {
        return WaitUntil(fmt::format("{} connections are there and kept", count), [&] {
            nlohmann::json kept = nlohmann::json::parse(
                QuorvelTest::ContentOf(mService.ConnectionsFile()), nullptr, false);
            return kept.is_object() && kept["jack"].size() == count &&
                   mService.Backend()["connections"].size() == count;
        });
    }

    // Returns when the way through a port carries both directions, and all that was sent to find
    // that out has arrived: PipeWire's carries nothing until a connection has become active, some
    // time after it was made. Nothing else is on the way, and `answersHeard` counts what has come
    // of the port's answers.
    void Settle(std::size_t port, Peer& daw, std::size_t dawOut, Peer& surface,
                std::size_t surfaceIn, const std::function<std::size_t()>& answersHeard) const {
        const Bytes& ping = port < kFirstHuiPort ? kMackiePing : kHuiPing;
        const nlohmann::json before = mService.Port(port);
        const std::size_t answersBefore = answersHeard();
        const std::size_t forwardedBefore = surface.EventsReceived(surfaceIn);
        ASSERT_TRUE(WaitUntil("a ping is answered and forwarded", [&] {
            daw.Send(dawOut, ping);
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            return answersHeard() > answersBefore &&
                   surface.EventsReceived(surfaceIn) > forwardedBefore;
        })) << mService.Port(port);
        // Nothing overtakes a message on its way to the driver but pings, which are all answered by
        // then. What the service has played before the second one is with the DAW in its period.
        for (std::size_t message = 1; message <= 2; ++message) {
            daw.Send(dawOut, Numbered(message));
            ASSERT_TRUE(WaitUntil("what was sent is there", [&] {
                return surface.Received(surfaceIn).back() == Numbered(message);
            }));
            ASSERT_TRUE(WaitUntil("all pings are answered", [&] {
                const nlohmann::json counters = mService.Port(port);
                return counters["answeredPings"].get<std::size_t>() + message +
                           before["in"]["messages"].get<std::size_t>() ==
                       counters["in"]["messages"].get<std::size_t>() +
                           before["answeredPings"].get<std::size_t>();
            }));
        }
    }

    const Preferences mPreferences{"1-4", "MackieControl"};
    JackService mService{mPreferences.Folder()};
    std::unique_ptr<TestServer> mServer;
};

TEST_F(JackServiceTest, CarriesRealSessionsThroughAllPortsAtOnceByteForByte) {
    std::vector<Bytes> mixer = MessagesOf("ardour-mackie-a.txt");
    const std::vector<Bytes> buttons = MessagesOf("ardour-buttons.txt");
    const std::vector<Bytes> hui = MessagesOf("ardour-hui.txt");
    ASSERT_EQ(mixer.size(), 74238U);
    // JACK's server waits for its clients here; PipeWire does not, and what it carries in a period
    // that a busy machine runs too late is lost. So it has long periods, and less of them.
    if (MidiServer::JackIsPipeWire()) {
        mixer.resize(4000);
        Start(4096);
    } else {
        Start();
    }
    Peer daw("daw", kPorts);
    Peer surface("surface", kPorts);
    constexpr std::size_t kMostOnItsWay = 24000; // less than the service's queue takes
    Playback playback(daw, kMostOnItsWay);
    std::map<std::size_t, const std::vector<Bytes>*> sessions;
    std::map<std::size_t, std::ptrdiff_t> messagesBefore;
    std::map<std::size_t, std::ptrdiff_t> answersBefore;
    for (std::size_t port = 1; port <= kPorts; ++port) {
        ASSERT_TRUE(surface.Connect(PrivateSource(port), PeerPort("surface:in", port)));
        ASSERT_TRUE(daw.Connect(OutputPort(port), PeerPort("daw:in", port)));
        ASSERT_TRUE(daw.Connect(PeerPort("daw:out", port), InputPort(port)));
        const std::vector<Bytes>& other = port < kFirstHuiPort ? buttons : hui;
        sessions[port] = port % 3 == 0 ? &mixer : &other;
    }
    ASSERT_TRUE(WaitForConnections(3 * kPorts));
    for (std::size_t port = 1; port <= kPorts; ++port) {
        Settle(port, daw, port, surface, port, [&] { return daw.EventsReceived(port); });
        daw.Ask("lost"); // after which what it has received is here
        messagesBefore[port] = std::ssize(surface.Received(port));
        answersBefore[port] = std::ssize(daw.Received(port));
        playback.Add(port, *sessions[port],
                     [&surface, port, bytesBefore = surface.BytesReceived(port)] {
                         return surface.BytesReceived(port) - bytesBefore;
                     });
    }
    const nlohmann::json lostBefore = mService.Backend()["lostToDaws"];
    const nlohmann::json before = mService.Status()["ports"];
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(playback.Play());
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(daw.Ask("lost"), "0");
    EXPECT_EQ(surface.Ask("lost"), "0");

    const nlohmann::json status = mService.Status();
    EXPECT_EQ(status["backends"][0]["lostToDaws"], lostBefore);
    std::size_t messages = 0;
    std::size_t bytes = 0;
    std::size_t delayed = 0;
    const Bytes mackieAnswer = daw.Received(1).front();
    EXPECT_EQ(mackieAnswer.size(), 18U);
    for (std::size_t port = 1; port <= kPorts; ++port) {
        SCOPED_TRACE(fmt::format("port {}", port));
        // A ping overtakes what waits; everything else keeps its order.
        std::vector<Bytes> sent = *sessions[port];
        std::vector<Bytes> received = surface.Received(port);
        received.erase(received.begin(), received.begin() + messagesBefore[port]);
        const auto isPing = [port](const Bytes& message) { return IsPing(port, message); };
        const std::size_t pings = std::erase_if(sent, isPing);
        EXPECT_EQ(std::erase_if(received, isPing), pings);
        EXPECT_TRUE(received == sent);
        std::vector<Bytes> answers = daw.Received(port);
        EXPECT_EQ(std::ssize(answers), answersBefore[port] + static_cast<std::ptrdiff_t>(pings));
        // Mackie Control's is one and the same for the whole process.
        EXPECT_THAT(answers, Each(port < kFirstHuiPort ? mackieAnswer : kHuiAnswer));
        const auto counted = [&](const char* counter, const char* unit) {
            return status["ports"][port - 1][counter][unit].get<std::size_t>() -
                   before[port - 1][counter][unit].get<std::size_t>();
        };
        const std::size_t sessionBytes = BytesOf(*sessions[port]);
        EXPECT_EQ(counted("in", "messages"), sessions[port]->size());
        EXPECT_EQ(counted("in", "bytes"), sessionBytes);
        EXPECT_EQ(counted("forwarded", "messages"), sessions[port]->size());
        EXPECT_EQ(counted("forwarded", "bytes"), sessionBytes);
        const nlohmann::json& counters = status["ports"][port - 1];
        EXPECT_EQ(counters["answeredPings"].get<std::size_t>(),
                  before[port - 1]["answeredPings"].get<std::size_t>() + pings);
        EXPECT_EQ(counters["dropped"]["total"], 0) << counters;
        messages += sessions[port]->size();
        bytes += sessionBytes;
        delayed += counters["delayedMessages"].get<std::size_t>();
    }
    EXPECT_GT(delayed, 0U); // the ports were at their limit
    std::cout << fmt::format("{} messages, {} bytes, {} waited for their port's rate, {:.1f} s\n",
                             messages, bytes, delayed, took.count());
}

// One client asks, and another one hears both the question and the answer: it gets the question in
// the period in which the service gets it, with the same frame time. The service plays an answer at
// a period's beginning, so one within a period stands in the next one. How late a busy machine
// runs the driver's threads is not judged, only that they hold up nothing by themselves: at least
// half of the answers are in time.
TEST_F(JackServiceTest, AnswersPingsWithinAPeriod) {
    constexpr int kPeriod = 4096;
    constexpr std::size_t kPings = 60;
    Start(kPeriod);
    Peer asker("asker", 2);
    Peer listener("listener", 6);
    const std::size_t ports[] = {1, kFirstHuiPort};
    // The listener's inputs.
    const std::size_t questions[] = {1, 2};
    const std::size_t answers[] = {3, 4};
    const std::size_t privateSources[] = {5, 6};
    for (std::size_t i = 0; i < 2; ++i) {
        const std::string from = PeerPort("asker:out", i + 1);
        ASSERT_TRUE(listener.Connect(from, PeerPort("listener:in", questions[i])));
        ASSERT_TRUE(listener.Connect(OutputPort(ports[i]), PeerPort("listener:in", answers[i])));
        ASSERT_TRUE(
            listener.Connect(PrivateSource(ports[i]), PeerPort("listener:in", privateSources[i])));
        ASSERT_TRUE(asker.Connect(from, InputPort(ports[i])));
    }
    ASSERT_TRUE(WaitForConnections(6));
    std::map<std::size_t, std::size_t> before; // what an input has received
    for (std::size_t i = 0; i < 2; ++i) {
        Settle(ports[i], asker, i + 1, listener, privateSources[i], [&] {
            return std::min(listener.EventsReceived(answers[i]),
                            listener.EventsReceived(questions[i]));
        });
        listener.Ask("lost"); // after which what it has received is here
        before[answers[i]] = listener.Received(answers[i]).size();
        before[questions[i]] = listener.Received(questions[i]).size();
    }
    for (std::size_t ping = 1; ping <= kPings; ++ping) {
        asker.Send(1, kMackiePing);
        asker.Send(2, kHuiPing);
        ASSERT_TRUE(WaitUntil("both are heard and answered", [&] {
            return std::all_of(before.begin(), before.end(), [&](const auto& input) {
                return listener.EventsReceived(input.first) >= input.second + ping;
            });
        }));
    }
    for (std::size_t i = 0; i < 2; ++i) {
        std::vector<std::uint32_t> asked = listener.FramesReceived(questions[i]);
        std::vector<std::uint32_t> answered = listener.FramesReceived(answers[i]);
        ASSERT_EQ(asked.size(), before[questions[i]] + kPings);
        ASSERT_EQ(answered.size(), before[answers[i]] + kPings);
        asked.erase(asked.begin(), asked.end() - kPings);
        answered.erase(answered.begin(), answered.end() - kPings);
        std::map<std::uint32_t, std::size_t> delays; // how many took so many frames
        std::size_t inTime = 0;
        for (std::size_t ping = 0; ping < kPings; ++ping) {
            const std::uint32_t delay = answered[ping] - asked[ping];
            ++delays[delay];
            inTime += delay <= kPeriod ? 1 : 0;
        }
        std::cout << (i == 0 ? "Mackie Control" : "HUI") << ", answers after so many frames: ";
        for (const auto& [delay, count] : delays) {
            std::cout << delay << " (" << count << " times) ";
        }
        std::cout << "\n";
        EXPECT_GE(inTime, kPings / 2);
    }
}

TEST_F(JackServiceTest, LosesNothingUncountedWhenTheServerIsKilled) {
    constexpr std::size_t kPort = 20;
    constexpr std::size_t kRounds = 5;
    constexpr std::size_t kMessages = 100;
    constexpr std::size_t kOvertaken = 2000;
    Start(MidiServer::JackIsPipeWire() ? 4096 : 1024); // as above
    std::size_t sent = 0;
    std::size_t notCarried = 0; // before a connection was active, which PipeWire tells nobody
    std::vector<Bytes> received;
    for (std::size_t round = 0; round < kRounds; ++round) {
        SCOPED_TRACE(fmt::format("round {}", round));
        Peer daw("daw");
        Peer surface("surface");
        if (round == 0) {
            ASSERT_TRUE(surface.Connect(PrivateSource(kPort), "surface:in 1"));
            ASSERT_TRUE(daw.Connect("daw:out 1", InputPort(kPort)));
        }
        ASSERT_TRUE(WaitForConnections(2));
        const std::size_t sentBefore = sent;
        ASSERT_TRUE(WaitUntil("the way carries", [&] {
            daw.Send(1, Numbered(sent++));
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            return surface.EventsReceived(1) > 0;
        })) << mService.Port(kPort);
        ASSERT_TRUE(WaitUntil("the last one arrives", [&] {
            return surface.Received(1).back() == Numbered(sent - 1);
        })) << mService.Port(kPort);
        const std::size_t carried = surface.Received(1).size();
        notCarried += sent - sentBefore - carried;
        for (std::size_t i = 0; i < kMessages; ++i) {
            daw.Send(1, Numbered(sent++));
        }
        ASSERT_TRUE(WaitUntil("they arrive", [&] {
            return surface.Received(1).size() == carried + kMessages;
        })) << mService.Port(kPort);
        // Some periods' traffic, in the middle of which the server ends.
        for (std::size_t i = 0; i < kOvertaken; ++i) {
            daw.Send(1, Numbered(sent++));
        }
        ASSERT_TRUE(WaitUntil("the first ones arrive",
                              [&] { return surface.EventsReceived(1) > carried + kMessages; }));
        mServer->Kill();
        ASSERT_TRUE(
            WaitUntil("the service knows", [&] { return mService.Backend()["isUp"] == false; }));
        surface.Ask("lost"); // after which all that came is here
        const std::vector<Bytes> arrived = surface.Received(1);
        received.insert(received.end(), arrived.begin(), arrived.end());
        mServer->Start();
        ASSERT_TRUE(
            WaitUntil("its ports are there", [&] { return mService.Backend()["isUp"] == true; }));
    }
    // Numbers grow, so nothing is doubled.
    EXPECT_TRUE(std::is_sorted(received.begin(), received.end(), std::less_equal<>()));
    const nlohmann::json port = mService.Port(kPort);
    const auto in = port["in"]["messages"].get<std::size_t>();
    const auto forwarded = port["forwarded"]["messages"].get<std::size_t>();
    const auto lost = mService.Backend()["lostToDaws"].get<std::size_t>();
    EXPECT_EQ(in, forwarded + port["dropped"]["total"].get<std::size_t>()) << port;
    // What a server had taken and not passed on when it ended, nobody else can count.
    EXPECT_LE(in, sent);
    EXPECT_GE(in + kRounds * kOvertaken + notCarried, sent);
    EXPECT_LE(received.size() + lost, forwarded);
    EXPECT_GE(received.size() + lost + kRounds * kOvertaken + notCarried, forwarded);
    std::cout << fmt::format("{} sent, {} came in, {} went out, {} arrived, {} counted as lost\n",
                             sent, in, forwarded, received.size(), lost);
}

// Each value of a running server is followed, and what DAWs send then comes through whole, messages
// that are longer than a period's buffer too. PipeWire's periods are long ones, see above, and it
// alone changes its rate while it runs.
TEST_F(JackServiceTest, FollowsTheServersPeriodAndRate) {
    const bool isPipeWire = MidiServer::JackIsPipeWire();
    int frames = 2048;
    int rate = 48000;
    Start(frames);
    Peer daw("daw");
    Peer surface("surface");
    ASSERT_TRUE(surface.Connect(PrivateSource(1), "surface:in 1"));
    ASSERT_TRUE(daw.Connect("daw:out 1", InputPort(1)));
    ASSERT_TRUE(daw.Connect(OutputPort(1), "daw:in 1"));
    ASSERT_TRUE(WaitForConnections(3));
    Bytes longMessage(40000, 0x01);
    longMessage.front() = 0xF0;
    longMessage.back() = 0xF7;
    const auto saysSo = [&] {
        return WaitUntil("the service says so", [&] {
            return mService.Backend()["detail"] == fmt::format("{}, {} Hz, {} frames a period",
                                                               isPipeWire ? "PipeWire" : "JACK",
                                                               rate, frames);
        });
    };
    const auto expectThatAllPasses = [&] {
        EXPECT_TRUE(saysSo()) << mService.Backend();
        Settle(1, daw, 1, surface, 1, [&] { return daw.EventsReceived(1); });
        const auto before = static_cast<std::ptrdiff_t>(surface.Received(1).size());
        std::vector<Bytes> sent{longMessage};
        for (std::size_t i = 0; i < 300; ++i) {
            sent.push_back(Numbered(i));
        }
        for (const Bytes& message : sent) {
            daw.Send(1, message);
        }
        std::vector<Bytes> received;
        EXPECT_TRUE(WaitUntil("all of it is there", [&] {
            received = surface.Received(1);
            received.erase(received.begin(), received.begin() + before);
            return received.size() >= sent.size();
        })) << received.size();
        EXPECT_TRUE(received == sent);
        EXPECT_EQ(mService.Port(1)["dropped"]["total"], 0) << mService.Port(1);
    };
    for (const int next : isPipeWire ? std::vector{8192, 4096} : std::vector{512, 2048, 64}) {
        SCOPED_TRACE(next);
        frames = next;
        mServer->SetPeriod(frames);
        ASSERT_NO_FATAL_FAILURE(expectThatAllPasses());
    }
    SCOPED_TRACE("another rate");
    rate = 44100;
    if (isPipeWire) {
        mServer->SetRate(rate);
        ASSERT_NO_FATAL_FAILURE(expectThatAllPasses());
    } else {
        frames = 2048;
        mServer->Stop();
        mServer->Start(rate);
        EXPECT_TRUE(saysSo()) << mService.Backend();
    }
}

// JACK counts what did not fit the sender's buffer, and PipeWire what did not fit the service's, in
// which it puts together what comes over several connections.
TEST_F(JackServiceTest, CountsWhatDidNotFitTheServersBuffer) {
    const std::size_t connections = MidiServer::JackIsPipeWire() ? 3 : 1;
    const std::size_t sent = MidiServer::JackIsPipeWire() ? 1300 : 5000; // on each of them
    Start(4096);
    Peer daw("daw", connections);
    Peer surface("surface");
    ASSERT_TRUE(surface.Connect(PrivateSource(1), "surface:in 1"));
    ASSERT_TRUE(daw.Connect(OutputPort(1), "daw:in 1"));
    for (std::size_t i = 1; i <= connections; ++i) {
        ASSERT_TRUE(daw.Connect(PeerPort("daw:out", i), InputPort(1)));
    }
    ASSERT_TRUE(WaitForConnections(2 + connections));
    for (std::size_t i = 1; i <= connections; ++i) {
        Settle(1, daw, i, surface, 1, [&] { return daw.EventsReceived(1); });
    }
    const std::size_t receivedBefore = surface.Received(1).size();
    const nlohmann::json before = mService.Port(1);
    ASSERT_EQ(before["dropped"]["total"], 0);
    daw.Ask(fmt::format("flood {}", sent));
    std::size_t came = 0;
    std::size_t lost = 0;
    EXPECT_TRUE(WaitUntil("each has come or is counted as lost",
                          [&] {
                              const nlohmann::json port = mService.Port(1);
                              came = port["in"]["messages"].get<std::size_t>() -
                                     before["in"]["messages"].get<std::size_t>();
                              lost = port["dropped"]["lostInBackend"].get<std::size_t>();
                              return came + lost == connections * sent;
                          }))
        << came << " " << lost;
    EXPECT_GT(lost, 0U);
    EXPECT_GT(came, 1000U);
    EXPECT_TRUE(WaitUntil("the rest arrives", [&] {
        return surface.Received(1).size() - receivedBefore == came;
    })) << mService.Port(1);
    EXPECT_EQ(mService.Port(1)["dropped"]["total"], lost);
}

// The session manager connects nothing anew by itself, and PipeWire comes back as JACK does.
TEST_F(JackServiceTest, IsBackWithItsConnectionsWhenTheServerStartsAnew) {
    Start();
    std::size_t answered = 0;
    for (int round = 0; round < 3; ++round) {
        SCOPED_TRACE(round);
        Peer daw("daw");
        Peer surface("surface");
        if (round == 0) {
            ASSERT_TRUE(surface.Connect(PrivateSource(kPorts), "surface:in 1"));
            ASSERT_TRUE(daw.Connect("daw:out 1", InputPort(kPorts)));
            ASSERT_TRUE(daw.Connect(OutputPort(kPorts), "daw:in 1"));
        }
        ASSERT_TRUE(WaitForConnections(3));
        // PipeWire carries nothing until a connection has become active, some time after it was
        // made.
        ASSERT_TRUE(WaitUntil("a ping is answered", [&] {
            daw.Send(1, kHuiPing);
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            return daw.Received(1).size() > 0;
        })) << mService.Port(kPorts);
        ASSERT_TRUE(WaitUntil("and forwarded", [&] { return surface.Received(1).size() > 0; }));
        EXPECT_THAT(daw.Received(1), Each(kHuiAnswer));
        EXPECT_THAT(surface.Received(1), Each(kHuiPing));
        answered += daw.Received(1).size();
        if (round % 2 == 0) {
            mServer->Kill();
        } else {
            mServer->Stop();
        }
        ASSERT_TRUE(
            WaitUntil("the service knows", [&] { return mService.Backend()["isUp"] == false; }));
        mServer->Start();
        ASSERT_TRUE(
            WaitUntil("its ports are there", [&] { return mService.Backend()["isUp"] == true; }));
    }
    EXPECT_GE(mService.Port(kPorts)["answeredPings"].get<std::size_t>(), answered);
}

} // namespace
} // namespace JackTest
