#include "surface/model/SurfacePort.h"

#include <gmock/gmock.h>

namespace Surface {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Message = std::array<std::uint8_t, 3>;
using MidiServer::Protocol;
using testing::ElementsAre;
using testing::IsEmpty;

const Bytes kQuery = {0xF0, 0x00, 0x00, 0x66, 0x14, 0x00, 0xF7};
const Bytes kForeign = {0xF0, 0x00, 0x00, 0x67, 0x15, 0x13, 0x00, 0x20, 0xF7};
const Bytes kUnknown = {0xB0, 0x4E, 0x30};
const Bytes kFader = {0xE2, 0x40, 0x55};
const Bytes kPing = {0x90, 0x00, 0x00};

void Receive(SurfacePort& port, const std::vector<Bytes>& messages) {
    for (const Bytes& message : messages) {
        port.Receive(message, {});
    }
}

TEST(SurfacePortTest, FillsTheModelByThePortsProtocol) {
    SurfacePort mackie(Protocol::kMackieControl);
    Receive(mackie, {kFader, {0x90, 0x5E, 0x7F}});
    EXPECT_EQ(mackie.Model().Fader(2), 0x2AC0);
    EXPECT_EQ(mackie.Model().Light({Button::kPlay}), LightState::kOn);

    SurfacePort none(Protocol::kNone);
    Receive(none, {kFader});
    EXPECT_EQ(none.Model().Fader(2), 0x2AC0) << "taken for a Mackie Control";

    SurfacePort hui(Protocol::kHui);
    Receive(hui, {{0xB0, 0x02, 0x55}, {0xB0, 0x22, 0x40}, {0xB0, 0x0C, 0x0E}, {0xB0, 0x2C, 0x44}});
    EXPECT_EQ(hui.Model().Fader(2), 0x2AC0);
    EXPECT_EQ(hui.Model().Light({Button::kPlay}), LightState::kOn);
}

TEST(SurfacePortTest, CountsWhatItReceives) {
    SurfacePort port(Protocol::kMackieControl);
    Receive(port, {kQuery, kForeign, kForeign, kUnknown, kFader, kFader, kFader, kUnknown, {}});
    EXPECT_EQ(port.Counts().messages, 9U);
    EXPECT_EQ(port.Counts().pings, 1U);
    EXPECT_EQ(port.Counts().foreignExclusive, 2U);
    EXPECT_EQ(port.Counts().unknown, 3U);
    EXPECT_EQ(port.Counts().repeated, 3U);
}

TEST(SurfacePortTest, CountsNoMessageAsRepeatedThatOnlyBeginsAlike) {
    SurfacePort port(Protocol::kMackieControl);
    Receive(port, {{0xD0, 0x11}, {0xD0}, {0xD0, 0x11}});
    EXPECT_EQ(port.Counts().repeated, 0U);
}

// A server was seen to replay the last buffer of a DAW that had gone, some hundred times.
TEST(SurfacePortTest, ToleratesTheSameResetAgainAndAgain) {
    SurfacePort port(Protocol::kMackieControl);
    Receive(port, {kFader});
    const Bytes reset = {0xF0, 0x00, 0x00, 0x66, 0x14, 0x08, 0x00, 0xF7};
    Receive(port, std::vector<Bytes>(194, reset));
    EXPECT_EQ(port.Model().Fader(2), 0);
    EXPECT_EQ(port.Counts().repeated, 193U);
    EXPECT_EQ(port.Counts().unknown, 0U);
    Receive(port, {kFader});
    EXPECT_EQ(port.Model().Fader(2), 0x2AC0);
}

TEST(SurfacePortTest, UnderstandsMackieControlOnAHuiPort) {
    SurfacePort port(Protocol::kHui);
    Receive(port, {kQuery, kPing});
    EXPECT_THAT(port.Perform(FaderPushed{2, 0x2AC1}),
                ElementsAre(Message{0xB0, 0x02, 0x55}, Message{0xB0, 0x22, 0x41}))
        << "queries come to every device";
    Receive(port, {kFader, kPing, {0x90, 0x12, 0x7F}});
    EXPECT_EQ(port.Model().Fader(2), 0x2AC0);
    EXPECT_EQ(port.Model().Light({Button::kMute, 2}), LightState::kOn);
    EXPECT_THAT(port.Perform(FaderPushed{2, 0x2AC1}), ElementsAre(Message{0xE2, 0x41, 0x55}));
    EXPECT_EQ(port.Counts().pings, 3U);
    EXPECT_EQ(port.Counts().unknown, 0U);
    Receive(port, {kForeign, kPing});
    EXPECT_EQ(port.Perform(FaderPushed{2, 1}).size(), 1U) << "still";
    Receive(port, {{0xB0, 0x0C, 0x0E}});
    EXPECT_EQ(port.Perform(FaderPushed{2, 1}).size(), 2U) << "another DAW, which speaks HUI";
}

TEST(SurfacePortTest, TakesThePingsNoteForNoLightOnAHuiPort) {
    SurfacePort port(Protocol::kHui);
    Receive(port, {{0x90, 0x00, 0x7F}, {0x80, 0x00, 0x40}});
    EXPECT_EQ(port.Model().Light({Button::kRecordReady, 0}), LightState::kOff);
    EXPECT_EQ(port.Counts().unknown, 2U);

    SurfacePort mackie(Protocol::kMackieControl);
    Receive(mackie, {{0x90, 0x00, 0x7F}});
    EXPECT_EQ(mackie.Model().Light({Button::kRecordReady, 0}), LightState::kOn);
    Receive(mackie, {kPing});
    EXPECT_EQ(mackie.Model().Light({Button::kRecordReady, 0}), LightState::kOff);
    EXPECT_EQ(mackie.Counts().pings, 0U) << "no ping of Mackie Control";
}

TEST(SurfacePortTest, LeavesAFaderWhereTheUserPutsIt) {
    SurfacePort port(Protocol::kMackieControl);
    port.Model().TakeChanges();
    EXPECT_THAT(port.Perform(FaderPushed{kMasterFader, 77}),
                ElementsAre(Message{0xE8, 0x4D, 0x00}));
    EXPECT_EQ(port.Model().Fader(kMasterFader), 77);
    EXPECT_TRUE(port.Model().TakeChanges().Has(SharedPart::kMaster));

    SurfacePort hui(Protocol::kHui);
    EXPECT_THAT(hui.Perform(FaderPushed{kMasterFader, 77}), IsEmpty());
    EXPECT_EQ(hui.Model().Fader(kMasterFader), 0) << "it has none";
}

TEST(SurfacePortTest, SwitchesNoLightForAButton) {
    SurfacePort port(Protocol::kMackieControl);
    EXPECT_THAT(port.Perform(ButtonMoved{{Button::kPlay}, true}),
                ElementsAre(Message{0x90, 0x5E, 0x7F}));
    EXPECT_EQ(port.Model().Light({Button::kPlay}), LightState::kOff);
}

TEST(SurfacePortTest, AnswersARequestOfTheVersion) {
    SurfacePort port(Protocol::kMackieControl);
    const Bytes request = {0xF0, 0x00, 0x00, 0x66, 0x15, 0x13, 0x00, 0xF7};
    const SurfaceEvent event = port.Receive(request, {});
    EXPECT_EQ(port.AnswerTo(event, "0.1.0"),
              (Bytes{0xF0, 0x00, 0x00, 0x66, 0x15, 0x14, '0', '.', '1', '.', '0', 0xF7}));
}

} // namespace
} // namespace Surface
