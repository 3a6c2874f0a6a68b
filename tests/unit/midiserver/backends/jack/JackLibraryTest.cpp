#include "midiserver/backends/jack/JackLibrary.h"

#include <gtest/gtest.h>

namespace MidiServer {
namespace {

TEST(JackLibraryTest, AddsThePropertyThatLeavesMidiAlone) {
    EXPECT_EQ(WithMidiLeftAlone(""), "{ jack.fix-midi-events = false  }");
    EXPECT_EQ(WithMidiLeftAlone("node.latency=64/48000"),
              "{ jack.fix-midi-events = false node.latency=64/48000 }");
    EXPECT_EQ(WithMidiLeftAlone("{ node.latency = 64/48000 }"),
              "{ jack.fix-midi-events = false node.latency = 64/48000 }");
}

TEST(JackLibraryTest, LeavesTheUsersOwnValue) {
    EXPECT_EQ(WithMidiLeftAlone("{ jack.fix-midi-events = true }"),
              "{ jack.fix-midi-events = true }");
}

} // namespace
} // namespace MidiServer
