#include "surface/feed/FedPorts.h"

#include "midiserver/replay/session/CaptureFile.h"
#include "surface/feed/PlayedCapture.h"

#include <gtest/gtest.h>

namespace Surface {
namespace {

using namespace std::chrono_literals;

PlayedCapture Play(const PlayOptions& options) {
    return {MidiServer::ReadCaptureFile("1000 90 10 7F\n500000 E0 7F 7F\n", "name.txt"), "name.txt",
            options};
}

TEST(FedPortsTest, ShowsWhatIsPlayedAndAnswersForTheUser) {
    PlayedCapture feed = Play({.speed = std::nullopt, .at = 2s});
    FedPorts ports(feed, {3}, std::nullopt);
    EXPECT_TRUE(ports.TakeChange()) << "a first picture";
    EXPECT_FALSE(ports.TakeChange());
    EXPECT_TRUE(ports.Take());
    EXPECT_TRUE(ports.TakeChange());
    EXPECT_FALSE(ports.Take());
    EXPECT_EQ(ports.NumberOf(0), 3U);
    EXPECT_EQ(ports.Ports()[0].Protocol(), MidiServer::Protocol::kMackieControl);
    EXPECT_EQ(ports.Ports()[0].Model().Fader(0), kHighestFader);

    const ShortMessages pressed = ports.Perform(0, ButtonMoved{{Button::kPlay}, true});
    EXPECT_EQ(pressed, (ShortMessages{{0x90, 0x5E, 0x7F}}));
}

TEST(FedPortsTest, BeginsAnewWithAnotherProtocolUnlessOneIsGiven) {
    PlayedCapture feed = Play({.speed = std::nullopt, .protocol = MidiServer::Protocol::kHui});
    FedPorts following(feed, {1}, std::nullopt);
    FedPorts given(feed, {1}, MidiServer::Protocol::kMackieControl);
    following.Take();
    given.Take();
    EXPECT_EQ(following.Ports()[0].Protocol(), MidiServer::Protocol::kHui);
    EXPECT_EQ(given.Ports()[0].Protocol(), MidiServer::Protocol::kMackieControl);
}

} // namespace
} // namespace Surface
