#include "midiserver/midi/EventSplitter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Bytes = std::vector<std::uint8_t>;

class EventSplitterTest : public testing::Test {
protected:
    std::vector<Bytes> Split(const Bytes& bytes) {
        std::vector<Bytes> events;
        mSplitter.Split(bytes, [&](std::span<const std::uint8_t> event) {
            events.emplace_back(event.begin(), event.end());
        });
        return events;
    }

    MidiServer::EventSplitter mSplitter;
};

TEST_F(EventSplitterTest, SplitsMessagesThatComeTogether) {
    EXPECT_THAT(Split({0x90, 0x00, 0x7F, 0xC0, 0x05, 0xF6, 0xF2, 0x01, 0x02, 0xF3, 0x01}),
                ElementsAre(Bytes{0x90, 0x00, 0x7F}, Bytes{0xC0, 0x05}, Bytes{0xF6},
                            Bytes{0xF2, 0x01, 0x02}, Bytes{0xF3, 0x01}));
}

TEST_F(EventSplitterTest, GivesEveryMessageItsStatus) {
    EXPECT_THAT(Split({0xE0, 0x00, 0x40, 0x01, 0x41}),
                ElementsAre(Bytes{0xE0, 0x00, 0x40}, Bytes{0xE0, 0x01, 0x41}));
    EXPECT_THAT(Split({0x02, 0x42}), ElementsAre(Bytes{0xE0, 0x02, 0x42}));
}

TEST_F(EventSplitterTest, KeepsAnUnfinishedMessageForTheNextCall) {
    EXPECT_THAT(Split({0x90, 0x3C}), IsEmpty());
    EXPECT_THAT(Split({0x40}), ElementsAre(Bytes{0x90, 0x3C, 0x40}));
}

TEST_F(EventSplitterTest, KeepsSystemExclusiveInOneEventOrInThePiecesInWhichItComes) {
    EXPECT_THAT(Split({0xF0, 0x00, 0x01, 0xF7, 0xF0, 0xF7}),
                ElementsAre(Bytes{0xF0, 0x00, 0x01, 0xF7}, Bytes{0xF0, 0xF7}));
    EXPECT_THAT(Split({0xF0, 0x01}), ElementsAre(Bytes{0xF0, 0x01}));
    EXPECT_THAT(Split({0x02, 0x03}), ElementsAre(Bytes{0x02, 0x03}));
    EXPECT_THAT(Split({0xF7, 0x90, 0x01, 0x02}), ElementsAre(Bytes{0xF7}, Bytes{0x90, 0x01, 0x02}));
}

TEST_F(EventSplitterTest, TakesRealTimeMessagesOutOfOthers) {
    EXPECT_THAT(Split({0xF0, 0x01, 0xF8, 0x02, 0xF7}),
                ElementsAre(Bytes{0xF0, 0x01}, Bytes{0xF8}, Bytes{0x02, 0xF7}));
    EXPECT_THAT(Split({0x90, 0xFE, 0x3C, 0xF8, 0x40}),
                ElementsAre(Bytes{0xFE}, Bytes{0xF8}, Bytes{0x90, 0x3C, 0x40}));
}

TEST_F(EventSplitterTest, EndsSystemExclusiveAtAnyOtherStatus) {
    EXPECT_THAT(Split({0xF0, 0x01, 0x90, 0x3C, 0x40, 0x3D, 0x41}),
                ElementsAre(Bytes{0xF0, 0x01}, Bytes{0x90, 0x3C, 0x40}, Bytes{0x90, 0x3D, 0x41}));
}

TEST_F(EventSplitterTest, PassesOverWhatBelongsToNoMessage) {
    EXPECT_THAT(Split({0x01, 0x02, 0xF7, 0x03}), IsEmpty());
    EXPECT_THAT(Split({0xF1, 0x01, 0x02, 0x90, 0x3C, 0xB0, 0x07, 0x64}),
                ElementsAre(Bytes{0xF1, 0x01}, Bytes{0xB0, 0x07, 0x64}));
}

} // namespace
