#include "midiserver/routing/ListsInDriver.h"

#include <gmock/gmock.h>

namespace MidiServer {
namespace {

using testing::SizeIs;

ListsInDriver::List ListOf(std::size_t dataBytes, std::size_t messages = 1) {
    return {dataBytes + 14, dataBytes, std::vector<ListsInDriver::TimePoint>(messages)};
}

TEST(ListsInDriverTest, TakesListsThatComeOutInOrder) {
    ListsInDriver lists;
    lists.Sent(ListOf(3));
    lists.Sent(ListOf(9, 3));
    EXPECT_EQ(lists.Messages(), 4U);
    const auto first = lists.TakeForwarded(3);
    ASSERT_TRUE(first);
    EXPECT_EQ(first->list.listBytes, 17U);
    EXPECT_THAT(first->lost, SizeIs(0));
    EXPECT_EQ(lists.Messages(), 3U);
}

TEST(ListsInDriverTest, TellsWhatWasPassedOver) {
    ListsInDriver lists;
    lists.Sent(ListOf(3));
    lists.Sent(ListOf(4));
    lists.Sent(ListOf(5));
    const auto last = lists.TakeForwarded(5);
    ASSERT_TRUE(last);
    ASSERT_THAT(last->lost, SizeIs(2));
    EXPECT_EQ(last->lost[0].dataBytes, 3U);
    EXPECT_EQ(lists.Messages(), 0U);
}

TEST(ListsInDriverTest, KnowsNoListThatWasNotSent) {
    ListsInDriver lists;
    lists.Sent(ListOf(3));
    EXPECT_FALSE(lists.TakeForwarded(4));
    EXPECT_EQ(lists.Messages(), 1U);
    EXPECT_TRUE(lists.TakeLast());
    EXPECT_FALSE(lists.TakeLast());
}

TEST(ListsInDriverTest, GivesAllThatIsLeft) {
    ListsInDriver lists;
    lists.Sent(ListOf(3));
    lists.Sent(ListOf(4));
    EXPECT_THAT(lists.TakeAll(), SizeIs(2));
    EXPECT_THAT(lists.TakeAll(), SizeIs(0));
}

} // namespace
} // namespace MidiServer
