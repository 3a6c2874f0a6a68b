#include "midiserver/backends/alsa/SequencerClient.h"

#include "midiserver/errors/Errors.h"

#include <gtest/gtest.h>

namespace MidiServer {
namespace {

TEST(SequencerClientTest, ReadsTheAddressesThatItWrites) {
    for (const PortAddress address : {PortAddress{0, 0}, {129, 31}, {255, 255}}) {
        EXPECT_EQ(AddressOfText(AddressText(address)), address);
    }
    EXPECT_EQ(AddressText({129, 3}), "129:3");
}

TEST(SequencerClientTest, RefusesWhatIsNoAddress) {
    for (const char* const text :
         {"", ":", "129", "129:", ":3", "129:3 ", "129: 3", " 129:3", "129:3:1", "0129:3", "1000:3",
          "-1:3", "129:x", "Quorvel MIDI:Quorvel Port 1"}) {
        EXPECT_THROW(AddressOfText(text), InputError) << text;
    }
}

} // namespace
} // namespace MidiServer
