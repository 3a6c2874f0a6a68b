// One port's output at a real sequencer. Runs in the emulated machine of scripts/alsa-machine.
#include "midiserver/backends/alsa/PortOutput.h"

#include "platform/packetlist/PacketListBuilder.h"
#include "tests/integration/alsa/SequencerPeer.h"
#include "tests/support/WaitUntil.h"

#include <gtest/gtest.h>

#include <chrono>

namespace MidiServer {
namespace {

using QuorvelTest::Bytes;
using TestSupport::WaitUntil;

TEST(PortOutputTest, SendsToAReceiverThatTheSequencerHasNotToldOfYet) {
    SequencerClient client("PortOutputTest");
    ASSERT_GE(client.CreatePort(0, "output", kReadablePort), 0);
    PortOutput output(4096);
    output.Open();
    QuorvelTest::SequencerPeer daw("DAW");
    daw.ListenTo("PortOutputTest:output");

    const Bytes message = {0x90, 60, 7};
    PacketListBuilder list;
    list.Add(message);
    output.Stream().Emit(*list.List());
    EventEncoder encoder;
    EXPECT_EQ(output.Play(client, 0, encoder, std::chrono::steady_clock::now()), std::nullopt);
    EXPECT_TRUE(WaitUntil("it is there", [&] { return daw.Read() == message; }));
    EXPECT_EQ(output.Lost(), 0U);
}

} // namespace
} // namespace MidiServer
