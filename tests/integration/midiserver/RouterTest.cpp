// The router with a real driver and the embedded backend, in this process.

#include "midiserver/routing/Router.h"

#include "midiserver/backends/embedded/EmbeddedBackend.h"
#include "midiserver/errors/Errors.h"
#include "midiserver/host/Setup.h"
#include "midiserver/midi/PacketList.h"
#include "midiserver/preferences/PreferencesEditor.h"
#include "midiserver/routing/pacing/PacingQueue.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/WaitUntil.h"

#include <gmock/gmock.h>

#include <stdlib.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace MidiServer {
namespace {

using Bytes = std::vector<std::uint8_t>;
using testing::IsEmpty;
using TestSupport::WaitUntil;

const Bytes kNote = {0x90, 0x3C, 0x40};
const Bytes kHuiPing = {0x90, 0x00, 0x00};
const Bytes kHuiReply = {0x90, 0x00, 0x7F};

Bytes SystemExclusive(std::size_t length) {
    Bytes message(length);
    for (std::size_t i = 0; i < length; ++i) {
        message[i] = static_cast<std::uint8_t>(i * 7 % 128);
    }
    message.front() = 0xF0;
    message.back() = 0xF7;
    return message;
}

Bytes Repeated(const Bytes& message, std::size_t times) {
    Bytes all;
    for (; times > 0; --times) {
        all.insert(all.end(), message.begin(), message.end());
    }
    return all;
}

// What came out of the ports, by port, all packets joined.
class Heard {
public:
    EmbeddedBackend::Receive Listener() {
        return [this](std::size_t port, const MIDIPacketList& packets) {
            const std::lock_guard lock(mMutex);
            for (const std::span<const std::uint8_t> packet : PacketsOf(packets)) {
                mBytes[port].insert(mBytes[port].end(), packet.begin(), packet.end());
            }
        };
    }
    Bytes On(std::size_t port) const {
        const std::lock_guard lock(mMutex);
        return mBytes[port];
    }

private:
    mutable std::mutex mMutex;
    std::array<Bytes, kMaximumPorts> mBytes;
};

class RouterTest : public testing::Test {
protected:
    RouterTest() {
        setenv("QUORVEL_RUNTIME_DIR", mRuntime.Path().c_str(), 1);
        UsePreferencesFolder(mPreferences.Path());
        PreferencesEditor::Set("Surface", "1-4", "HUI");
    }

    void MakeRouter(bool holdsBack, const RouterOptions& options = {}) {
        mRouter.emplace(std::vector<RoutedBackend>{{&mBackend, &mInput, holdsBack}}, mSignal,
                        options, [this] { ++mStalls; });
    }

    void Start(const std::string& bundle = MIDISERVER_PLUGIN) {
        mHost.reset();
        mSetup.emplace(std::nullopt);
        mHost.emplace(bundle, *mSetup);
        mHost->Start();
        PreferencesEditor editor;
        editor.Load();
        mRouter->Start(mHost->Ports(), editor.Configuration().protocols);
    }

    void Deliver(std::size_t port, const Bytes& bytes) {
        ASSERT_EQ(mBackend.Deliver(port, bytes), bytes.size());
    }

    PortCounters Counters(std::size_t port) const { return mRouter->Counters()[port]; }

    testing::AssertionResult WaitForForwarded(std::size_t port, std::uint64_t messages) {
        return WaitUntil("the messages are forwarded",
                         [&] { return Counters(port).forwardedMessages >= messages; });
    }

    TemporaryDirectory mRuntime;
    TemporaryDirectory mPreferences;
    WakeUpSignal mSignal;
    InputQueue mInput{kMaximumPorts, mSignal};
    Heard mFromPorts;
    Heard mFromPrivateSources;
    EmbeddedBackend mBackend{mInput, {mFromPorts.Listener(), mFromPrivateSources.Listener()}};
    std::atomic<int> mStalls{0};
    std::optional<MidiServer::Setup> mSetup; // a new one for each host, which forgets its devices
    std::optional<Host> mHost;
    std::optional<Router> mRouter;
};

// Every message that came is accounted for.
void ExpectNothingLostSilently(const PortCounters& counters) {
    EXPECT_EQ(counters.messagesIn, counters.forwardedMessages + counters.queuedMessages +
                                       counters.messagesInDriver + counters.coalescedMessages +
                                       counters.dropped.Total());
}

TEST_F(RouterTest, CarriesMessagesToThePrivateSourceAndAnswersToTheDaw) {
    MakeRouter(true);
    Start();
    Deliver(1, kNote);
    Deliver(1, kHuiPing);
    ASSERT_TRUE(WaitForForwarded(1, 2));

    Bytes both = kNote;
    both.insert(both.end(), kHuiPing.begin(), kHuiPing.end());
    EXPECT_EQ(mFromPrivateSources.On(1), both);
    EXPECT_EQ(mFromPorts.On(1), kHuiReply);
    EXPECT_THAT(mFromPrivateSources.On(0), IsEmpty());
    const PortCounters counters = Counters(1);
    EXPECT_EQ(counters.messagesIn, 2U);
    EXPECT_EQ(counters.bytesIn, 6U);
    EXPECT_EQ(counters.forwardedBytes, 6U);
    EXPECT_EQ(counters.answeredPings, 1U);
    EXPECT_EQ(counters.forwarding.count, 2U);
    EXPECT_GT(counters.forwarding.max, std::chrono::nanoseconds(0));
    ASSERT_TRUE(counters.lastPing);
    EXPECT_LE(*counters.lastPing, std::chrono::steady_clock::now());
    ExpectNothingLostSilently(counters);
}

TEST_F(RouterTest, TurnsPingsBackThatABridgeHasRewritten) {
    MakeRouter(true);
    Start();
    Deliver(0, {0x80, 0x00, 0x40});
    ASSERT_TRUE(WaitForForwarded(0, 1));

    EXPECT_EQ(mFromPrivateSources.On(0), kHuiPing);
    EXPECT_EQ(mFromPorts.On(0), kHuiReply);
    EXPECT_EQ(Counters(0).restoredPings, 1U);
}

// Larger than the driver lets through in a second, so it goes out in parts.
TEST_F(RouterTest, PassesSystemExclusiveOfTwentyKilobytesWhole) {
    MakeRouter(true);
    Start();
    const Bytes message = SystemExclusive(20000);
    Deliver(3, message);
    ASSERT_TRUE(WaitForForwarded(3, 1));

    EXPECT_EQ(mFromPrivateSources.On(3), message);
    ExpectNothingLostSilently(Counters(3));
}

TEST_F(RouterTest, HoldsTheSenderBackWhenItsPortIsFull) {
    MakeRouter(true);
    Start();
    const Bytes flood = Repeated(kNote, 100000);
    const std::size_t taken = mBackend.Deliver(0, flood);
    EXPECT_LT(taken, flood.size());
    Deliver(1, kHuiPing);
    ASSERT_TRUE(WaitForForwarded(1, 1)) << "the flooded port stops another one";

    EXPECT_EQ(Counters(0).dropped.Total(), 0U);
    ExpectNothingLostSilently(Counters(0));
}

TEST_F(RouterTest, DropsAndCountsWhatAPortHasNoRoomForIfItCannotHoldBack) {
    MakeRouter(false);
    Start();
    const std::size_t messages = 2 * PacingQueue::kCapacity / kNote.size();
    const Bytes flood = Repeated(kNote, messages);
    for (std::span<const std::uint8_t> rest = flood; !rest.empty();) {
        rest = rest.subspan(mBackend.Deliver(0, rest));
    }
    ASSERT_TRUE(WaitUntil("all has come in", [&] { return Counters(0).messagesIn == messages; }));
    const PortCounters counters = Counters(0);
    EXPECT_GT(counters.dropped.queueFull, 0U);
    EXPECT_EQ(counters.dropped.queueFull, counters.dropped.Total());
    ExpectNothingLostSilently(counters);
}

// For two seconds, or for as many as QUORVEL_FLOOD_SECONDS says.
TEST_F(RouterTest, OutlastsAFloodOnOnePortWithoutAnErrorInTheDriver) {
    const char* given = std::getenv("QUORVEL_FLOOD_SECONDS");
    const std::chrono::seconds length(given != nullptr ? std::atoi(given) : 2);
    MakeRouter(false);
    Start();
    const Bytes hundredth = Repeated(kNote, 4 * 14336 / 100 / kNote.size());
    std::uint64_t pings = 0;
    const auto end = std::chrono::steady_clock::now() + length;
    while (std::chrono::steady_clock::now() < end) {
        mBackend.Deliver(0, hundredth);
        mBackend.Deliver(1, kHuiPing);
        ++pings;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ASSERT_TRUE(WaitForForwarded(1, pings));

    EXPECT_EQ(Counters(1).answeredPings, pings);
    EXPECT_EQ(Counters(1).dropped.Total(), 0U);
    EXPECT_EQ(Counters(0).dropped.lostInDriver, 0U);
    EXPECT_EQ(mRouter->Stalls(), 0U);
    ExpectNothingLostSilently(Counters(0));
    RecordProperty("p99_microseconds_beside_the_flood",
                   std::to_string(Counters(1).forwarding.p99.count() / 1000));
}

TEST_F(RouterTest, RefusesToConnectTheEmbeddedBackend) {
    EXPECT_EQ(mBackend.Deliver(0, kNote), 0U) << "nothing is published";
    EXPECT_THROW(mBackend.Connect(0, "daw"), InputError);
    EXPECT_THROW(mBackend.Disconnect(0, "daw"), InputError);
    EXPECT_THAT(mBackend.Peers(), IsEmpty());
}

TEST_F(RouterTest, KeepsWhatWaitsOverARestartOfTheDriver) {
    MakeRouter(true);
    Start();
    const Bytes session = Repeated(kNote, 8000);
    for (std::span<const std::uint8_t> rest = session; !rest.empty();) {
        rest = rest.subspan(mBackend.Deliver(0, rest));
    }
    ASSERT_TRUE(WaitForForwarded(0, 1));
    mRouter->Suspend();
    mHost.reset();
    EXPECT_GT(Counters(0).queuedMessages, 0U);
    Start();
    ASSERT_TRUE(WaitForForwarded(0, 8000 - Counters(0).dropped.lostInDriver));

    ExpectNothingLostSilently(Counters(0));
    EXPECT_EQ(Counters(0).messagesIn, 8000U);
}

TEST_F(RouterTest, CountsWhatWaitsWhenItStops) {
    MakeRouter(true);
    Start();
    Deliver(0, Repeated(kNote, 8000));
    ASSERT_TRUE(WaitForForwarded(0, 1));
    mRouter->Stop();

    const PortCounters counters = Counters(0);
    EXPECT_GT(counters.dropped.stopped, 0U);
    EXPECT_EQ(counters.queuedMessages, 0U);
    ExpectNothingLostSilently(counters);
    EXPECT_EQ(mBackend.Deliver(0, kNote), 0U) << "the port is still shown";
}

TEST_F(RouterTest, NoticesADriverThatForwardsNothingAnyMore) {
    setenv("FAULTY_DRIVER", "stall", 1);
    MakeRouter(true, {.stallTime = std::chrono::milliseconds(100)});
    Start(MIDISERVER_FAULTY_PLUGIN);
    ASSERT_TRUE(WaitUntil("the driver has stalled", [&] {
        mBackend.Deliver(0, kNote);
        return mStalls > 0;
    }));
    EXPECT_EQ(mRouter->Stalls(), 1U);
    EXPECT_GT(Counters(0).messagesInDriver, 0U);

    // A new one recovers, and the messages that the old one kept are counted.
    mRouter->Suspend();
    EXPECT_GT(Counters(0).dropped.lostInDriver, 0U);
    mHost.reset();
    setenv("FAULTY_DRIVER", "none", 1);
    const std::uint64_t before = Counters(0).forwardedMessages;
    Start(MIDISERVER_FAULTY_PLUGIN);
    Deliver(0, kNote);
    ASSERT_TRUE(WaitForForwarded(0, before + 1));
    EXPECT_EQ(mStalls, 1);
}

TEST_F(RouterTest, CountsAListThatTheDriverPassedOver) {
    setenv("FAULTY_DRIVER", "drop", 1);
    MakeRouter(true);
    Start(MIDISERVER_FAULTY_PLUGIN);
    // One after the other, so that each is a list of its own. The third one never comes out.
    for (const std::uint64_t forwarded : {1U, 2U}) {
        Deliver(0, SystemExclusive(10 + forwarded));
        ASSERT_TRUE(WaitForForwarded(0, forwarded));
    }
    Deliver(0, SystemExclusive(13));
    ASSERT_TRUE(
        WaitUntil("the driver has the third", [&] { return Counters(0).messagesInDriver == 1; }));
    Deliver(0, SystemExclusive(14));
    ASSERT_TRUE(WaitForForwarded(0, 3));
    EXPECT_EQ(Counters(0).dropped.lostInDriver, 1U);
    EXPECT_EQ(Counters(0).messagesInDriver, 0U);
    ExpectNothingLostSilently(Counters(0));
}

TEST_F(RouterTest, TakesInjectedMessagesAndCopiesStreams) {
    MakeRouter(true);
    Start();
    const auto fromDaw = mRouter->Tap(2, StreamDirection::kFromDaw, 1000);
    const auto toDaw = mRouter->Tap(2, StreamDirection::kToDaw, 1000);
    const auto toSurface = mRouter->Tap(2, StreamDirection::kToSurface, 1);
    const Injection injection = mRouter->Inject(2, kHuiPing);
    EXPECT_TRUE(injection.taken);
    EXPECT_GT(injection.room, 0U);
    EXPECT_FALSE(mRouter->Inject(kMaximumPorts, kNote).taken);
    ASSERT_TRUE(WaitForForwarded(2, 1));

    ASSERT_EQ(fromDaw->Take(1000).size(), 1U);
    const std::vector<TappedMessage> reply = toDaw->Take(1000);
    ASSERT_EQ(reply.size(), 1U);
    EXPECT_EQ(reply[0].bytes, kHuiReply);
    EXPECT_THAT(toSurface->Take(1000), IsEmpty());
    EXPECT_EQ(toSurface->Lost(), 1U);
}

TEST_F(RouterTest, EmitsOnAPortsOwnSourceWhatTheSurfaceSends) {
    const Bytes press = {0x90, 0x5E, 0x7F};
    MakeRouter(true);
    EXPECT_FALSE(mRouter->Emit(0, press)) << "nothing is shown yet";
    Start();
    const auto toDaw = mRouter->Tap(1, StreamDirection::kToDaw, 1000);
    EXPECT_TRUE(mRouter->Emit(1, press));
    EXPECT_FALSE(mRouter->Emit(4, press)) << "there are four ports";

    EXPECT_EQ(mFromPorts.On(1), press);
    EXPECT_THAT(mFromPorts.On(0), IsEmpty());
    EXPECT_THAT(mFromPrivateSources.On(1), IsEmpty());
    EXPECT_EQ(toDaw->Take(1000).size(), 1U);
    EXPECT_EQ(Counters(1).answeredPings, 0U) << "it is no answer of the driver's";
    mRouter->Stop();
    EXPECT_FALSE(mRouter->Emit(1, press)) << "nothing is shown any more";
}

// The driver answers pings on one thread while the surface sends on another.
TEST_F(RouterTest, EmitsMessagesWholeBesideTheDriversAnswers) {
    MakeRouter(true);
    Start();
    constexpr int kMessages = 300;
    for (int i = 0; i < kMessages; ++i) {
        Deliver(0, kHuiPing);
        EXPECT_TRUE(mRouter->Emit(0, kNote));
    }
    ASSERT_TRUE(WaitUntil("all pings are answered",
                          [&] { return Counters(0).answeredPings == kMessages; }));
    const Bytes heard = mFromPorts.On(0);
    ASSERT_EQ(heard.size(), 2 * kMessages * kNote.size());
    int notes = 0;
    for (std::size_t i = 0; i < heard.size(); i += kNote.size()) {
        const Bytes message(heard.begin() + static_cast<std::ptrdiff_t>(i),
                            heard.begin() + static_cast<std::ptrdiff_t>(i + kNote.size()));
        ASSERT_TRUE(message == kNote || message == kHuiReply) << "at byte " << i;
        notes += message == kNote ? 1 : 0;
    }
    EXPECT_EQ(notes, kMessages);
}

TEST_F(RouterTest, RefusesAnInjectedMessageThatFindsTheQueueFull) {
    MakeRouter(true);
    Start();
    const Bytes message = SystemExclusive(PacingQueue::kCapacity);
    EXPECT_TRUE(mRouter->Inject(0, message).taken);
    EXPECT_TRUE(mRouter->Inject(1, SystemExclusive(3)).taken) << "another port";
    const Injection refused = mRouter->Inject(0, message);
    EXPECT_FALSE(refused.taken);
    EXPECT_LT(refused.room, message.size());
    EXPECT_EQ(Counters(0).dropped.Total(), 0U);
}

TEST_F(RouterTest, CountsWhatIsNoWholeMessage) {
    MakeRouter(true);
    Start();
    mRouter->Inject(0, Bytes{0xF0, 0x01});
    mRouter->Inject(0, Bytes{0x01, 0x02});
    EXPECT_EQ(Counters(0).dropped.incomplete, 1U);
    EXPECT_EQ(Counters(0).dropped.malformed, 1U);
    EXPECT_EQ(Counters(0).messagesIn, 0U);
}

} // namespace
} // namespace MidiServer
