#include "midiserver/service/BackendChoice.h"

#include <gtest/gtest.h>

namespace MidiServer {
namespace {

using Choices = std::vector<BackendChoice>;

const std::vector<std::string> kAll = {"jack", "alsa", "embedded"};

TEST(BackendChoiceTest, TakesJackAndTheSequencerWhereBothAreThere) {
    EXPECT_EQ(
        ChooseBackends({"auto"}, {kAll, true, false, true}),
        (Choices{{"jack", "a JACK server answers"}, {"alsa", "the ALSA sequencer is there"}}));
}

TEST(BackendChoiceTest, LeavesTheSequencerToPipeWire) {
    EXPECT_EQ(ChooseBackends({"auto"}, {kAll, true, true, true}),
              (Choices{{"jack", "PipeWire answers as a JACK server"}}));
}

TEST(BackendChoiceTest, TakesTheSequencerWhereNoJackServerAnswers) {
    const Choices sequencer = {{"alsa", "the ALSA sequencer is there"}};
    EXPECT_EQ(ChooseBackends({"auto"}, {kAll, false, false, true}), sequencer);
    // PipeWire's library without PipeWire shows nothing.
    EXPECT_EQ(ChooseBackends({"auto"}, {kAll, false, true, true}), sequencer);
}

TEST(BackendChoiceTest, WaitsForJackWhereNothingIsThere) {
    EXPECT_EQ(ChooseBackends({"auto"}, {kAll, false, false, false}),
              (Choices{{"jack", "there is neither a JACK server nor the ALSA sequencer yet, and a "
                                "JACK server may come"}}));
}

TEST(BackendChoiceTest, WaitsForTheSequencerWhereTheProgramKnowsNoJack) {
    EXPECT_EQ(ChooseBackends({"auto"}, {{"alsa", "embedded"}, false, false, false}),
              (Choices{{"alsa", "the ALSA sequencer may come"}}));
}

TEST(BackendChoiceTest, TakesNoneThatTheProgramWasNotBuiltWith) {
    EXPECT_EQ(ChooseBackends({"auto"}, {{"jack", "embedded"}, true, false, true}),
              (Choices{{"jack", "a JACK server answers"}}));
    EXPECT_EQ(
        ChooseBackends({"auto"}, {{"embedded"}, true, false, true}),
        (Choices{{"embedded", "this program was built without a backend for what there is"}}));
}

TEST(BackendChoiceTest, TakesEachThatIsAskedForOnce) {
    EXPECT_EQ(ChooseBackends({"alsa", "embedded", "alsa"}, {kAll, true, false, false}),
              (Choices{{"alsa", "it was asked for"}, {"embedded", "it was asked for"}}));
    EXPECT_EQ(ChooseBackends({"jack", "auto"}, {kAll, true, false, true}),
              (Choices{{"jack", "it was asked for"}, {"alsa", "the ALSA sequencer is there"}}));
}

} // namespace
} // namespace MidiServer
