#include "midiserver/replay/session/RecordedSession.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <utility>

namespace MidiServer {
namespace {

using Bytes = std::vector<std::uint8_t>;

TEST(RecordedSessionTest, IsEmptyAtFirst) {
    const RecordedSession session;

    EXPECT_EQ(session.MessageCount(), 0U);
    EXPECT_EQ(session.ByteCount(), 0U);
    EXPECT_EQ(session.begin(), session.end());
}

// Lengths and times around every limit of the packed form and of a block.
TEST(RecordedSessionTest, GivesBackWhatWasAppended) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    std::vector<std::pair<std::uint64_t, Bytes>> expected;
    std::uint64_t time = 0;
    const auto add = [&](std::uint64_t step, std::size_t length) {
        time += step;
        Bytes bytes(length);
        for (std::uint8_t& byte : bytes) {
            byte = static_cast<std::uint8_t>(random());
        }
        expected.emplace_back(time, std::move(bytes));
    };
    for (const int length :
         {0, 1, 2, 3, 4, 127, 128, 16383, 16384, 65500, 65516, 65536, 65537, 200'000, 1}) {
        for (const std::uint64_t step : {0ULL, 1ULL, 31ULL, 32ULL, 4095ULL, 4096ULL, 1ULL << 39}) {
            add(step, static_cast<std::size_t>(length));
        }
    }
    for (int i = 0; i < 100'000; ++i) {
        add(random() % 100, 1 + random() % 4);
    }

    RecordedSession session;
    std::size_t byteCount = 0;
    for (const auto& [microseconds, bytes] : expected) {
        session.Append(microseconds, bytes);
        byteCount += bytes.size();
    }
    ASSERT_EQ(session.MessageCount(), expected.size());
    EXPECT_EQ(session.ByteCount(), byteCount);
    const RecordedSession moved = std::move(session);
    auto next = expected.begin();
    for (const RecordedMessage& message : moved) {
        ASSERT_EQ(message.microseconds, next->first);
        ASSERT_TRUE(std::equal(message.bytes.begin(), message.bytes.end(), next->second.begin(),
                               next->second.end()));
        ++next;
    }
    EXPECT_EQ(next, expected.end());
}

TEST(RecordedSessionTest, LeavesBytesWhereTheyAre) {
    RecordedSession session;
    session.Append(0, Bytes{0x90, 0x01, 0x02});
    const std::uint8_t* const first = session.begin()->bytes.data();
    for (int i = 0; i < 100'000; ++i) {
        session.Append(1, Bytes{0x90, 0x03, 0x04});
    }
    const RecordedSession moved = std::move(session);

    EXPECT_EQ(moved.begin()->bytes.data(), first);
}

} // namespace
} // namespace MidiServer
