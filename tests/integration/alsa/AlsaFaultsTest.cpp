// Every call of the backend into ALSA's library fails once, at the start and while it runs. Runs in
// the emulated machine of scripts/alsa-machine. The other side are programs of their own, because
// all calls of this one are the backend's.
#include "tests/integration/alsa/AlsaFaults.h"

#include "midiserver/backends/alsa/AlsaBackend.h"
#include "midiserver/errors/Errors.h"
#include "midiserver/host/Host.h"
#include "platform/packetlist/PacketListBuilder.h"
#include "tests/support/LibraryFaults.h"
#include "tests/support/Program.h"
#include "tests/support/WaitUntil.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace MidiServer {
namespace {

using QuorvelTest::Program;
using QuorvelTest::RunProgram;
using testing::HasSubstr;
using testing::Not;
using TestSupport::LibraryFaults;
using TestSupport::WaitUntil;

const std::string kVirtualCard = "Virtual Raw MIDI 0-0:VirMIDI 0-0";

std::vector<BackendPort> DriversPorts(std::size_t count) {
    std::vector<BackendPort> ports;
    for (std::size_t i = 0; i < count; ++i) {
        ports.push_back({"Quorvel Port " + std::to_string(i + 1), 0, 0});
    }
    return ports;
}

class AlsaFaultsTest : public testing::TestWithParam<std::string> {
protected:
    ~AlsaFaultsTest() override { LibraryFaults::FailNone(); }

    void Make() {
        mBackend = std::make_unique<AlsaBackend>(mInput, mFolder.Path() / "connections.json");
        mBackend->Publish(DriversPorts(4));
    }

    void ExpectALine() {
        const std::string line = mBackend->State().detail;
        EXPECT_THAT(line, HasSubstr("ALSA sequencer"));
        EXPECT_THAT(line, HasSubstr("Input/output error; trying again every 5 seconds"));
        EXPECT_THAT(line, Not(HasSubstr("\n")));
    }

    // Sends a note each way, until one has come through.
    void ExpectThatMidiPasses(const Program& aseqdump) {
        static int note = 0;
        note = (note + 1) % 128;
        const std::string printed = "note " + std::to_string(note) + ", velocity 99\n";
        EXPECT_TRUE(WaitUntil("the driver's note is printed", [&] {
            mList.Clear();
            mList.Add(std::vector<Byte>{0x90, static_cast<Byte>(note), 99});
            mBackend->EmitFromPort(0, *mList.List());
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            return aseqdump.OutputSoFar().find(printed) != std::string::npos;
        }));
        const std::vector<std::uint8_t> program = {0xC0, static_cast<std::uint8_t>(note)};
        EXPECT_TRUE(WaitUntil("the DAW's message is there", [&] {
            const std::string bytes = fmt::format("C0 {:02X}", note);
            RunProgram({"/usr/bin/amidi", "-p", "hw:0,0", "-S", bytes});
            bool isThere = false;
            InputEvent event;
            while (mInput.Read(0, event)) {
                isThere = isThere || event.bytes == program;
            }
            return isThere;
        }));
    }

    QuorvelTest::TemporaryFolder mFolder;
    WakeUpSignal mReader;
    InputQueue mInput{32, mReader};
    PacketListBuilder mList;
    std::unique_ptr<AlsaBackend> mBackend;
};

class AlsaFaultsAtTheStartTest : public AlsaFaultsTest {};
class AlsaFaultsWhileRunningTest : public AlsaFaultsTest {};

TEST_P(AlsaFaultsAtTheStartTest, AreSaidInALineAndOvercome) {
    LibraryFaults::FailNext(GetParam().c_str());
    Make();
    ASSERT_TRUE(WaitUntil("it has failed", [] { return LibraryFaults::HasFailed(); }));
    // The thread that reads says so a moment later.
    if (GetParam() == "snd_seq_event_input") {
        ASSERT_TRUE(WaitUntil("it is down", [&] { return !mBackend->State().isUp; }));
    }
    if (!mBackend->State().isUp) {
        ExpectALine();
        mBackend->Publish(DriversPorts(4)); // which looks for the sequencer at once
    }
    ASSERT_TRUE(WaitUntil("it is up", [&] { return mBackend->State().isUp; }));
    Program aseqdump({"/usr/bin/aseqdump", "-p", "Quorvel MIDI:0"});
    mBackend->Connect(0, kVirtualCard);
    ExpectThatMidiPasses(aseqdump);
}

TEST_P(AlsaFaultsWhileRunningTest, AreOvercome) {
    Make();
    Program aseqdump({"/usr/bin/aseqdump", "-p", "Quorvel MIDI:0"});
    mBackend->Connect(0, kVirtualCard);
    ExpectThatMidiPasses(aseqdump);

    LibraryFaults::FailNext(GetParam().c_str());
    try {
        mBackend->Disconnect(1, kVirtualCard);
        mBackend->Connect(1, kVirtualCard);
        mBackend->Disconnect(1, kVirtualCard);
    } catch (const HostError& error) {
        EXPECT_THAT(error.what(), HasSubstr("Input/output error"));
    } catch (const InputError& error) {
        EXPECT_THAT(error.what(), HasSubstr("no ALSA port has the name")); // the list was cut short
    }
    mBackend->Publish(DriversPorts(2));
    mBackend->Publish(DriversPorts(4));
    if (!mBackend->State().isUp) {
        ExpectALine();
    }
    ExpectThatMidiPasses(aseqdump);
    EXPECT_TRUE(LibraryFaults::HasFailed());
    EXPECT_TRUE(WaitUntil("it is up", [&] { return mBackend->State().isUp; }));
}

INSTANTIATE_TEST_SUITE_P(EachCall, AlsaFaultsAtTheStartTest,
                         testing::ValuesIn(QuorvelTest::CallsAtTheStart()),
                         [](const auto& call) { return call.param; });
INSTANTIATE_TEST_SUITE_P(EachCall, AlsaFaultsWhileRunningTest,
                         testing::ValuesIn(QuorvelTest::CallsWhileRunning()),
                         [](const auto& call) { return call.param; });

} // namespace
} // namespace MidiServer
