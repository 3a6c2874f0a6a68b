#include "midiserver/backends/OutputStream.h"

#include "platform/packetlist/PacketListBuilder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Bytes = std::vector<std::uint8_t>;

class OutputStreamTest : public testing::Test {
protected:
    void Emit(const std::vector<Bytes>& packets) {
        mList.Clear();
        for (const Bytes& packet : packets) {
            mList.Add(packet);
        }
        mStream.Emit(*mList.List());
    }

    std::vector<Bytes> Events() {
        std::vector<Bytes> events;
        while (const std::size_t size = mStream.Events().Next()) {
            mStream.Events().Take(events.emplace_back(size));
        }
        return events;
    }

    static constexpr std::size_t kQueueBytes = 64;
    MidiServer::OutputStream mStream{kQueueBytes};
    PacketListBuilder mList;
};

TEST_F(OutputStreamTest, CarriesEachMessageOfAListAsAnEvent) {
    mStream.Open();
    Emit({{0x90, 0x00, 0x7F}, {0xB0, 0x01, 0x02, 0xF0, 0x01, 0xF7}});
    EXPECT_THAT(Events(), ElementsAre(Bytes{0x90, 0x00, 0x7F}, Bytes{0xB0, 0x01, 0x02},
                                      Bytes{0xF0, 0x01, 0xF7}));
    EXPECT_EQ(mStream.Lost(), 0U);
}

TEST_F(OutputStreamTest, LosesWhatIsEmittedWhileClosedAndCountsMessages) {
    Emit({{0x90, 0x00, 0x7F, 0xF8}});
    EXPECT_EQ(mStream.Lost(), 2U);
    Emit({{0xF0, 0x01}, {0x02}, {0xF7}});
    EXPECT_EQ(mStream.Lost(), 3U);
    mStream.Open();
    EXPECT_THAT(Events(), IsEmpty());
    Emit({{0xF8}});
    EXPECT_THAT(Events(), ElementsAre(Bytes{0xF8}));
    EXPECT_EQ(mStream.Lost(), 3U);
}

TEST_F(OutputStreamTest, DropsWhatWaitsWhenItCloses) {
    mStream.Open();
    Emit({{0xF8, 0xF8}});
    mStream.Close();
    EXPECT_EQ(mStream.Lost(), 2U);
    mStream.Open();
    EXPECT_THAT(Events(), IsEmpty());
}

TEST_F(OutputStreamTest, PlaysNoRestOfAMessageThatBeganBeforeItWasClosed) {
    mStream.Open();
    Emit({{0xF0, 0x01}});
    EXPECT_THAT(Events(), ElementsAre(Bytes{0xF0, 0x01}));
    mStream.Close();
    mStream.Open();
    Emit({{0x02}, {0x03, 0xF7}, {0xF0, 0x04, 0xF7}});
    EXPECT_THAT(Events(), ElementsAre(Bytes{0xF0, 0x04, 0xF7}));
    EXPECT_EQ(mStream.Lost(), 1U);
}

TEST_F(OutputStreamTest, DropsTheRestOfAMessageOfWhichAPieceDidNotFit) {
    mStream.Open();
    Bytes large(50, 0x01);
    large[0] = 0xF0;
    Emit({large, Bytes(20, 0x02)});
    EXPECT_EQ(mStream.Lost(), 1U);
    EXPECT_THAT(Events(), ElementsAre(large));
    Emit({{0x03, 0xF7}, {0xF8}});
    EXPECT_THAT(Events(), ElementsAre(Bytes{0xF8}));
    EXPECT_EQ(mStream.Lost(), 1U);
}

TEST_F(OutputStreamTest, DropsAMessageWholeThatDoesNotFit) {
    mStream.Open();
    Bytes large(kQueueBytes, 0x01);
    large.front() = 0xF0;
    large.back() = 0xF7;
    Emit({large, {0x90, 0x01, 0x02}});
    EXPECT_THAT(Events(), ElementsAre(Bytes{0x90, 0x01, 0x02}));
    EXPECT_EQ(mStream.Lost(), 1U);
}

} // namespace
