// The backend at a real sequencer, with the usual tools and clients of the test's own as the other
// side. Runs in the emulated machine of scripts/alsa-machine, as root.
#include "midiserver/backends/alsa/AlsaBackend.h"

#include "midiserver/errors/Errors.h"
#include "platform/packetlist/PacketListBuilder.h"
#include "tests/integration/alsa/SequencerPeer.h"
#include "tests/support/Program.h"
#include "tests/support/WaitUntil.h"

#include <gmock/gmock.h>

#include <sched.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>

namespace MidiServer {
namespace {

using namespace std::chrono_literals;
using QuorvelTest::Bytes;
using QuorvelTest::Program;
using QuorvelTest::RunProgram;
using QuorvelTest::SequencerPeer;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;
using TestSupport::WaitUntil;

constexpr std::size_t kPorts = 32;
constexpr std::uint8_t kTuneRequest = 0xF6;
const std::string kPort1 = "Quorvel MIDI:Quorvel Port 1";
const std::string kPort2 = "Quorvel MIDI:Quorvel Port 2";
const std::string kPrivate1 = "Quorvel MIDI private:Quorvel Virtual Source 1";
const std::string kVirtualCard = "Virtual Raw MIDI 0-0:VirMIDI 0-0";

std::vector<BackendPort> DriversPorts(std::size_t count = kPorts) {
    std::vector<BackendPort> ports;
    for (std::size_t i = 0; i < count; ++i) {
        ports.push_back({"Quorvel Port " + std::to_string(i + 1), 0, 0});
    }
    return ports;
}

// A System Exclusive message of this many bytes whose pieces cannot be mistaken for each other.
Bytes SystemExclusive(std::size_t size) {
    Bytes message(size);
    for (std::size_t i = 0; i < size; ++i) {
        message[i] = static_cast<std::uint8_t>((i * 31 + i / 128) & 0x7F);
    }
    message.front() = 0xF0;
    message.back() = 0xF7;
    return message;
}

class AlsaBackendTest : public testing::Test {
protected:
    void SetUp() override { Start(); }

    void Start() {
        mBackend = std::make_unique<AlsaBackend>(mInput, mFolder.Path() / "connections.json");
        mBackend->Publish(DriversPorts());
        ASSERT_TRUE(mBackend->State().isUp) << mBackend->State().detail;
    }

    void Emit(std::size_t port, const Bytes& bytes) {
        mBackend->EmitFromPort(port, *ListOf(bytes));
    }
    // Emits on the first port until something of it has come. A connection that another program
    // makes is in the sequencer's lists before it carries.
    template <typename HasCome>
    testing::AssertionResult Carries(const HasCome& hasCome) {
        int asked = 0;
        return WaitUntil("the connection carries", [&] {
            if (asked++ % 100 == 0) { // a program that is not ready yet has little memory
                Emit(0, {kTuneRequest});
            }
            return hasCome();
        });
    }
    void EmitPrivate(std::size_t port, const Bytes& bytes) {
        mBackend->EmitFromPrivateSource(port, *ListOf(bytes));
    }
    const MIDIPacketList* ListOf(const Bytes& bytes) {
        mList.Clear();
        mList.Add(bytes);
        return mList.List();
    }

    // Everything that has come for the port so far.
    const Bytes& FromDaws(std::size_t port = 0) {
        InputEvent event;
        while (mInput.Read(port, event)) {
            mFromDaws[port].insert(mFromDaws[port].end(), event.bytes.begin(), event.bytes.end());
        }
        return mFromDaws[port];
    }

    bool IsConnected(const std::string& port, const std::string& peer) const {
        const std::vector<BackendConnection> connections = mBackend->Connections();
        return std::any_of(connections.begin(), connections.end(),
                           [&](const BackendConnection& connection) {
                               return connection.port == port && connection.peer == peer;
                           });
    }

    bool IsSaved(const std::string& peer) const {
        const std::filesystem::path file = mFolder.Path() / "connections.json";
        return std::filesystem::exists(file) &&
               QuorvelTest::ContentOf(file).find(peer) != std::string::npos;
    }

    QuorvelTest::TemporaryFolder mFolder;
    WakeUpSignal mReader;
    InputQueue mInput{kPorts, mReader};
    PacketListBuilder mList;
    std::array<Bytes, kPorts> mFromDaws;
    std::unique_ptr<AlsaBackend> mBackend;
};

TEST_F(AlsaBackendTest, ShowsDuplexPortsInTheUsualLists) {
    for (const char* const direction : {"-i", "-o", "-l"}) {
        const std::string list = RunProgram({"/usr/bin/aconnect", direction}).out;
        EXPECT_THAT(list, HasSubstr("'Quorvel MIDI' [type=user"));
        EXPECT_THAT(list, HasSubstr(" 0 'Quorvel Port 1"));
        EXPECT_THAT(list, HasSubstr("31 'Quorvel Port 32"));
        EXPECT_THAT(list, Not(HasSubstr("Virtual Source"))) << direction;
        EXPECT_THAT(list, Not(HasSubstr("announcements"))) << direction;
    }
    EXPECT_THAT(RunProgram({"/usr/bin/aplaymidi", "-l"}).out, HasSubstr("Quorvel Port 32"));
}

TEST_F(AlsaBackendTest, GivesThePrivateSourcesToThoseThatKnowThem) {
    const auto ports = QuorvelTest::PortsNamed(kPrivate1);
    ASSERT_EQ(ports.size(), 1U);
    EXPECT_EQ(ports[0].capability,
              static_cast<unsigned>(SND_SEQ_PORT_CAP_READ | SND_SEQ_PORT_CAP_SUBS_READ |
                                    SND_SEQ_PORT_CAP_NO_EXPORT));
    SequencerPeer application("application");
    application.ListenTo(kPrivate1);
    ASSERT_TRUE(WaitUntil("it is known", [&] {
        return IsConnected("Quorvel Virtual Source 1", "application:port");
    }));
    EmitPrivate(0, {0x90, 0, 0, 0xB0, 16, 1, 17, 2, 0xE0, 1, 2});
    const Bytes whole = {0x90, 0, 0, 0xB0, 16, 1, 0xB0, 17, 2, 0xE0, 1, 2};
    EXPECT_TRUE(
        WaitUntil("all is there", [&] { return application.Read().size() >= whole.size(); }));
    EXPECT_EQ(application.Read(), whole);
    EXPECT_EQ(application.Events(), 4U);
}

TEST_F(AlsaBackendTest, TakesAWholeFileFromAplaymidi) {
    // Four notes at once, of which two end by velocity 0 in running status, and System Exclusive.
    const Bytes file = {'M', 'T',  'h',  'd', 0, 0,  0,   6,    0, 0, 0, 1, 0, 96, //
                        'M', 'T',  'r',  'k', 0, 0,  0,   32,                      //
                        0,   0x90, 60,   100, 0, 61, 101,                          //
                        0,   0xF0, 5,    1,   2, 3,  4,   0xF7,                    //
                        0,   0x90, 60,   0,   0, 61, 0,                            //
                        0,   0xB0, 16,   1,                                        //
                        1,   0xFF, 0x2F, 0};
    Bytes exact = file;
    exact[21] = static_cast<std::uint8_t>(file.size() - 22);
    const std::string path = mFolder.Write("song.mid", std::string(exact.begin(), exact.end()));
    const auto played = RunProgram({"/usr/bin/aplaymidi", "-p", "Quorvel MIDI:0", "-d", "0", path});
    ASSERT_EQ(played.status, 0) << played.err;
    const Bytes expected = {0x90, 60,   100, 0x90, 61,   101, 0xF0, 1,    2,  3, 4,
                            0xF7, 0x90, 60,  0,    0x90, 61,  0,    0xB0, 16, 1};
    EXPECT_TRUE(WaitUntil("it is there", [&] { return FromDaws().size() >= expected.size(); }));
    EXPECT_EQ(FromDaws(), expected);
    EXPECT_TRUE(FromDaws(1).empty());
}

TEST_F(AlsaBackendTest, TakesLongSystemExclusiveFromARawMidiCard) {
    const Bytes message = SystemExclusive(20000);
    mBackend->Connect(0, kVirtualCard);
    const std::string path =
        mFolder.Write("message.syx", std::string(message.begin(), message.end()));
    const auto sent = RunProgram({"/usr/bin/amidi", "-p", "hw:0,0", "-s", path});
    ASSERT_EQ(sent.status, 0) << sent.err;
    EXPECT_TRUE(WaitUntil("it is there", [&] { return FromDaws().size() >= message.size(); }));
    EXPECT_EQ(FromDaws(), message);
}

TEST_F(AlsaBackendTest, GivesRunningStatusOfACardItsStatusBytes) {
    mBackend->Connect(0, kVirtualCard);
    ASSERT_EQ(RunProgram({"/usr/bin/amidi", "-p", "hw:0,0", "-S", "90 3C 7F 3C 00 3D 7F"}).status,
              0);
    const Bytes expected = {0x90, 0x3C, 0x7F, 0x90, 0x3C, 0, 0x90, 0x3D, 0x7F};
    EXPECT_TRUE(WaitUntil("it is there", [&] { return FromDaws().size() >= expected.size(); }));
    EXPECT_EQ(FromDaws(), expected);
}

TEST_F(AlsaBackendTest, SendsLongSystemExclusiveToAmidi) {
    const std::string file = mFolder.Path() / "received.syx";
    Program amidi({"/usr/bin/amidi", "-p", "virtual", "-r", file});
    std::string peer;
    ASSERT_TRUE(WaitUntil("amidi shows its port", [&] {
        for (const std::string& name : mBackend->Peers()) {
            if (name.find("Virtual RawMIDI") != std::string::npos) {
                peer = name;
            }
        }
        return !peer.empty();
    }));
    mBackend->Connect(0, peer);
    ASSERT_TRUE(IsConnected("Quorvel Port 1 out", peer));
    // It shows its port before it sets up its memory, which drops what has come until then.
    ASSERT_TRUE(Carries([&] { return !QuorvelTest::ContentOf(file).empty(); }));
    const Bytes message = SystemExclusive(20000);
    Emit(0, message);
    const std::string expected(message.begin(), message.end());
    std::string received;
    int asked = 0;
    EXPECT_TRUE(WaitUntil("it is there", [&] {
        // A piece that has come into its memory is read when the next event comes. It leaves
        // active sensing out of its file.
        if (asked++ % 10 == 0) {
            Emit(0, {0xFE});
        }
        received = QuorvelTest::ContentOf(file);
        received.erase(0, received.find_first_not_of(static_cast<char>(kTuneRequest)));
        return received.size() >= expected.size();
    }));
    amidi.Signal(SIGINT);
    amidi.Wait();
    EXPECT_TRUE(received == expected);
    EXPECT_EQ(mBackend->LostToDaws(), 0U);
}

TEST_F(AlsaBackendTest, SendsNotesToAseqdump) {
    Program aseqdump({"/usr/bin/aseqdump", "-p", "Quorvel MIDI:0"});
    ASSERT_TRUE(WaitUntil("it listens",
                          [&] { return IsConnected("Quorvel Port 1 out", "aseqdump:aseqdump"); }));
    ASSERT_TRUE(
        Carries([&] { return aseqdump.OutputSoFar().find("Tune request") != std::string::npos; }));
    Emit(0, {0x90, 60, 0, 0x91, 61, 7});
    ASSERT_TRUE(WaitUntil("it has printed both", [&] {
        return aseqdump.OutputSoFar().find("velocity 7\n") != std::string::npos;
    }));
    aseqdump.Signal(SIGTERM);
    const std::string out = aseqdump.Wait().out;
    // So it writes a note-on of velocity 0; a note-off has a velocity there.
    EXPECT_THAT(out, HasSubstr("Note off                0, note 60\n"));
    EXPECT_THAT(out, HasSubstr("Note on                 1, note 61, velocity 7"));
}

TEST_F(AlsaBackendTest, KeepsTheLongMessagesOfTwoDawsApart) {
    SequencerPeer first("first DAW");
    SequencerPeer second("second DAW");
    first.SendTo(kPort1);
    second.SendTo(kPort1);
    first.Send({0xF0, 1});
    second.Send({0xF0, 2});
    second.Send({0xF8});
    first.Send({3});
    second.Send({4, 0xF7});
    second.Send({0x90, 60, 0});
    first.Send({5, 0xF7});
    const Bytes expected = {0xF0, 1, 0xF8, 3, 5, 0xF7, 0xF0, 2, 4, 0xF7, 0x90, 60, 0};
    EXPECT_TRUE(WaitUntil("it is there", [&] { return FromDaws().size() >= expected.size(); }));
    EXPECT_EQ(FromDaws(), expected);
}

TEST_F(AlsaBackendTest, LetsOthersGoOnWhenADawLeavesAMessageUnfinished) {
    SequencerPeer second("second DAW");
    second.SendTo(kPort1);
    {
        SequencerPeer first("first DAW");
        first.SendTo(kPort1);
        first.Send({0xF0, 1});
    }
    second.Send({0x90, 60, 0});
    EXPECT_TRUE(WaitUntil("it is there", [&] { return FromDaws().size() >= 5; }));
    EXPECT_EQ(FromDaws(), (Bytes{0xF0, 1, 0x90, 60, 0}));
}

TEST_F(AlsaBackendTest, WaitsForAReceiverOfOrdinaryMemoryThatReads) {
    SequencerPeer daw("DAW");
    daw.ListenTo(kPort1);
    ASSERT_TRUE(
        WaitUntil("it is known", [&] { return IsConnected("Quorvel Port 1 out", "DAW:port"); }));
    // Many times what it has room for, and more than there would be time for without a wait.
    const Bytes message = SystemExclusive(15000);
    Bytes expected;
    for (int i = 0; i < 20; ++i) {
        Emit(0, message);
        expected.insert(expected.end(), message.begin(), message.end());
        ASSERT_TRUE(WaitUntil("it is there", [&] { return daw.Read().size() >= expected.size(); }));
    }
    EXPECT_TRUE(daw.Read() == expected);
    EXPECT_LE(daw.LargestEvent(), 256U);
    EXPECT_EQ(daw.Overruns(), 0);
    EXPECT_EQ(mBackend->LostToDaws(), 0U);
}

TEST_F(AlsaBackendTest, DoesNotLetOneThatDoesNotReadStopTheOthers) {
    SequencerPeer asleep("asleep");
    SequencerPeer awake("awake");
    SequencerPeer elsewhere("elsewhere");
    asleep.ListenTo(kPort1);
    awake.ListenTo(kPort1);
    elsewhere.ListenTo(kPort2);
    ASSERT_TRUE(WaitUntil("they are known", [&] {
        return IsConnected("Quorvel Port 1 out", "asleep:port") &&
               IsConnected("Quorvel Port 1 out", "awake:port") &&
               IsConnected("Quorvel Port 2 out", "elsewhere:port");
    }));
    Bytes expected;
    constexpr int kMessages = 1000;
    for (int i = 0; i < kMessages; ++i) {
        const Bytes message = {0xB0, static_cast<std::uint8_t>(i / 128),
                               static_cast<std::uint8_t>(i % 128)};
        Emit(0, message);
        Emit(1, message);
        expected.insert(expected.end(), message.begin(), message.end());
        ASSERT_TRUE(WaitUntil("the others have it",
                              [&] {
                                  return awake.Read().size() == expected.size() &&
                                         elsewhere.Read().size() == expected.size();
                              }))
            << i << ": " << awake.Read().size() << ", " << elsewhere.Read().size();
    }
    EXPECT_EQ(awake.Read(), expected);
    EXPECT_EQ(elsewhere.Read(), expected);
    // What does not fit into the library's usual memory of 200 events.
    EXPECT_GE(mBackend->LostToDaws(), kMessages - 201U);
    EXPECT_LE(mBackend->LostToDaws(), static_cast<std::uint64_t>(kMessages));
    asleep.Read();
    EXPECT_EQ(asleep.Overruns(), 1) << "the sequencer tells it";

    // It reads again, and is served again.
    const std::size_t before = asleep.Read().size();
    Emit(0, {0x90, 60, 0});
    EXPECT_TRUE(WaitUntil("it has it", [&] { return asleep.Read().size() == before + 3; }));
}

TEST_F(AlsaBackendTest, CountsWhatTheSequencerHadNoRoomFor) {
    SequencerPeer daw("DAW");
    daw.SendTo(kPort1);
    daw.Send({0x90, 60, 0});
    ASSERT_TRUE(WaitUntil("it is there", [&] { return FromDaws().size() == 3; }));
    // The machine has one processor: until this thread sleeps, nobody reads.
    sched_param priority{};
    priority.sched_priority = 10;
    ASSERT_EQ(sched_setscheduler(0, SCHED_FIFO, &priority), 0);
    const Bytes large(10000, 1);
    for (int i = 0; i < 5; ++i) {
        daw.Send(large);
    }
    EXPECT_DEATH(daw.Send(large), "send: Resource temporarily unavailable");
    priority.sched_priority = 0;
    ASSERT_EQ(sched_setscheduler(0, SCHED_OTHER, &priority), 0);
    EXPECT_TRUE(WaitUntil("it is counted", [&] { return mInput.TakeLoss(0).upstream > 0; }));
    EXPECT_EQ(mInput.TakeLoss(1).upstream, 0U);
    daw.Send({0x90, 61, 0});
    InputEvent event;
    ASSERT_TRUE(WaitUntil("the next is there", [&] { return mInput.Read(0, event); }));
    EXPECT_EQ(event.bytes, (std::vector<std::uint8_t>{0x90, 61, 0}));
    EXPECT_TRUE(event.followsLoss);
}

TEST_F(AlsaBackendTest, RestoresConnectionsByNameAfterARestart) {
    auto daw = std::make_unique<SequencerPeer>("DAW");
    auto oneWay = std::make_unique<SequencerPeer>("one way");
    auto application = std::make_unique<SequencerPeer>("application");
    mBackend->Connect(1, "DAW:port");
    oneWay->SendTo(kPort1);
    application->ListenTo(kPrivate1);
    ASSERT_TRUE(WaitUntil("all are saved", [&] {
        return IsSaved("DAW:port") && IsSaved("one way:port") && IsSaved("application:port");
    }));
    const int id = QuorvelTest::PortsNamed(kPort1)[0].address.client;
    mBackend.reset();
    EXPECT_FALSE(daw->ListensTo(kPort2));

    // The application comes back later, and everybody's numbers differ.
    application.reset();
    const SequencerPeer first("another program");
    const SequencerPeer second("yet another");
    Start();
    EXPECT_NE(QuorvelTest::PortsNamed(kPort1)[0].address.client, id);
    EXPECT_TRUE(WaitUntil("they are back", [&] {
        return daw->ListensTo(kPort2) && daw->SendsTo(kPort2) && oneWay->SendsTo(kPort1);
    }));
    EXPECT_FALSE(oneWay->ListensTo(kPort1));
    EXPECT_FALSE(daw->ListensTo(kPort1));
    application = std::make_unique<SequencerPeer>("application");
    EXPECT_TRUE(WaitUntil("it listens again", [&] { return application->ListensTo(kPrivate1); }));
}

TEST_F(AlsaBackendTest, KeepsConnectionsOfPortsThatStay) {
    SequencerPeer daw("DAW");
    daw.ListenTo(kPort1);
    const int id = QuorvelTest::PortsNamed(kPort1)[0].address.client;
    mBackend->Publish(DriversPorts(2));
    EXPECT_TRUE(daw.ListensTo(kPort1));
    EXPECT_TRUE(QuorvelTest::PortsNamed("Quorvel MIDI:Quorvel Port 3").empty());
    mBackend->Publish(DriversPorts(3));
    EXPECT_TRUE(daw.ListensTo(kPort1));
    EXPECT_EQ(QuorvelTest::PortsNamed("Quorvel MIDI:Quorvel Port 3").size(), 1U);
    EXPECT_EQ(QuorvelTest::PortsNamed(kPort1)[0].address.client, id);
    mBackend->Withdraw();
    EXPECT_TRUE(QuorvelTest::PortsNamed(kPort1).empty());
    mBackend->Publish(DriversPorts(3));
    EXPECT_TRUE(WaitUntil("it is back", [&] { return daw.ListensTo(kPort1); }));
}

TEST_F(AlsaBackendTest, StoresAConnectionThatWasMadeAtTheLastMoment) {
    SequencerPeer daw("DAW");
    for (std::size_t port = 0; port < kPorts; ++port) {
        daw.ListenTo("Quorvel MIDI:Quorvel Port " + std::to_string(port + 1));
    }
    mBackend->Withdraw();
    mBackend.reset();
    const MidiServer::SavedConnections saved(mFolder.Path() / "connections.json", "alsa");
    EXPECT_EQ(saved.Load().size(), kPorts);
}

TEST_F(AlsaBackendTest, ForgetsWhatTheUserDisconnects) {
    const SequencerPeer daw("DAW");
    mBackend->Connect(0, "DAW:port");
    ASSERT_TRUE(daw.ListensTo(kPort1));
    ASSERT_TRUE(daw.SendsTo(kPort1));
    ASSERT_TRUE(WaitUntil("it is saved", [&] { return IsSaved("DAW:port"); }));
    mBackend->Disconnect(0, "DAW:port");
    EXPECT_FALSE(daw.ListensTo(kPort1));
    EXPECT_FALSE(daw.SendsTo(kPort1));
    EXPECT_TRUE(WaitUntil("it is forgotten", [&] { return !IsSaved("DAW:port"); }));
}

TEST_F(AlsaBackendTest, NamesThePeersThatThereAre) {
    EXPECT_THAT(mBackend->Peers(), Contains(kVirtualCard));
    EXPECT_THAT(mBackend->Peers(), Not(Contains(kPort1)));
    try {
        mBackend->Connect(0, "nobody");
        ADD_FAILURE() << "nobody is there";
    } catch (const InputError& error) {
        EXPECT_THAT(error.what(), HasSubstr(kVirtualCard));
    }
}

TEST_F(AlsaBackendTest, SaysThatThereIsNoSequencerAndTakesItWhenItComes) {
    mBackend.reset();
    std::filesystem::rename("/dev/snd/seq", "/dev/snd/away");
    mBackend = std::make_unique<AlsaBackend>(mInput, mFolder.Path() / "connections.json");
    mBackend->Publish(DriversPorts());
    const BackendState state = mBackend->State();
    EXPECT_FALSE(state.isUp);
    EXPECT_THAT(state.detail,
                testing::StartsWith("there is no ALSA sequencer: /dev/snd/seq is missing"));
    EXPECT_THAT(state.detail, Not(HasSubstr("\n")));
    Emit(0, {0x90, 60, 0});
    EXPECT_EQ(mBackend->LostToDaws(), 1U);
    std::filesystem::rename("/dev/snd/away", "/dev/snd/seq");
    EXPECT_TRUE(WaitUntil("it is up", [&] { return mBackend->State().isUp; }));
    EXPECT_EQ(QuorvelTest::PortsNamed(kPort1).size(), 1U);
}

} // namespace
} // namespace MidiServer
