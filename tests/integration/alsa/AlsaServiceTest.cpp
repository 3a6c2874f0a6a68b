// The running service at a real sequencer: a DAW and the control-surface application talk to each
// other through the driver. Runs in the emulated machine of scripts/alsa-machine.
#include "tests/integration/alsa/AlsaServiceFixture.h"
#include "tests/integration/alsa/SequencerPeer.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <string>

namespace QuorvelTest {
namespace {

using testing::HasSubstr;
using TestSupport::WaitUntil;

const Bytes kHuiPing = {0x90, 0, 0};
const Bytes kHuiReply = {0x90, 0, 0x7F};

class AlsaServiceTest : public AlsaServiceFixture {
protected:
    AlsaServiceTest() : AlsaServiceFixture("HUI") {}

    void SetUp() override { Start(); }
};

TEST_F(AlsaServiceTest, TakesTheSequencerBecauseItIsThere) {
    EXPECT_TRUE(WaitUntil("it says so", [&] {
        return mService->ErrorSoFar().find("backend alsa, because the ALSA sequencer is there") !=
               std::string::npos;
    })) << mService->ErrorSoFar();
    const ProgramResult status = Midiserver({"status"}, "", Environment());
    EXPECT_EQ(status.status, 0) << status.err;
    EXPECT_THAT(status.out, HasSubstr("ALSA sequencer, clients "));
    EXPECT_THAT(RunProgram({"/usr/bin/aconnect", "-l"}).out, HasSubstr("1 'Quorvel Port 2"));
    Stop();
    EXPECT_TRUE(PortsNamed(kPort1).empty());
}

TEST_F(AlsaServiceTest, AnswersPingsAndForwardsEveryByte) {
    SequencerPeer daw("DAW");
    SequencerPeer application("application");
    daw.ListenTo(kPort1);
    daw.SendTo(kPort1);
    application.ListenTo(kPrivate1);

    daw.Send(kHuiPing);
    EXPECT_TRUE(WaitUntil("the ping is answered", [&] { return daw.Read() == kHuiReply; }));
    EXPECT_TRUE(WaitUntil("and forwarded", [&] { return application.Read() == kHuiPing; }));

    // 20 kB of System Exclusive, of which no two pieces are alike.
    Bytes message = {0xF0};
    while (message.size() < 20000) {
        message.push_back(static_cast<std::uint8_t>(message.size() * 31 / 16 % 128));
    }
    message.push_back(0xF7);
    for (std::size_t sent = 0; sent < message.size(); sent += 256) {
        const std::size_t end = std::min(sent + 256, message.size());
        daw.Send(Bytes(message.begin() + static_cast<std::ptrdiff_t>(sent),
                       message.begin() + static_cast<std::ptrdiff_t>(end)));
    }
    const std::size_t whole = kHuiPing.size() + message.size();
    EXPECT_TRUE(WaitUntil("all is forwarded", [&] { return application.Read().size() >= whole; }))
        << application.Read().size();
    EXPECT_TRUE(std::equal(message.begin(), message.end(), application.Read().begin() + 3,
                           application.Read().end()));
    Stop();
}

TEST_F(AlsaServiceTest, IsBackWithItsConnectionsAfterARestart) {
    SequencerPeer daw("DAW");
    const ProgramResult connected = Midiserver({"connect", "1", "DAW:port"}, "", Environment());
    ASSERT_EQ(connected.status, 0) << connected.err;
    daw.Send(kHuiPing);
    EXPECT_TRUE(WaitUntil("the ping is answered", [&] { return daw.Read() == kHuiReply; }));
    Stop();
    EXPECT_FALSE(daw.SendsTo(kPort1));

    const SequencerPeer other("another program"); // takes the client's number
    Start();
    EXPECT_TRUE(
        WaitUntil("they are back", [&] { return daw.SendsTo(kPort1) && daw.ListensTo(kPort1); }));
    const std::size_t before = daw.Read().size();
    daw.Send(kHuiPing);
    EXPECT_TRUE(WaitUntil("the ping is answered again",
                          [&] { return daw.Read().size() == before + kHuiReply.size(); }));
    Stop();
}

} // namespace
} // namespace QuorvelTest
