#include "MidiDriver/worker/WorkerRecords.h"

#include "tests/unit/MidiDriver/worker/WorkerHarness.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstring>

namespace {

template <typename Record>
Bytes BytesOf(const Record& record) {
    Bytes bytes(sizeof record);
    std::memcpy(bytes.data(), &record, sizeof record);
    return bytes;
}

// The bytes of a number of that many bytes, which are given from the highest to the lowest.
Bytes InHostOrder(Bytes number) {
    if constexpr (std::endian::native == std::endian::little) {
        std::reverse(number.begin(), number.end());
    }
    return number;
}

} // namespace

TEST(WorkerRecords, LaysOutAnInfoRecordAsOneWordOfPortAndLength) {
    const InfoRecord record = InfoRecord::Make(0xAB, 0x123456);
    EXPECT_EQ(BytesOf(record), InHostOrder({0xAB, 0x12, 0x34, 0x56}));
    EXPECT_EQ(record.Port(), 0xABu);
    EXPECT_EQ(record.Length(), 0x123456u);
}

TEST(WorkerRecords, KeepsTheLengthOutOfThePort) {
    const InfoRecord record = InfoRecord::Make(255, 0xFFFFFFFF);
    EXPECT_EQ(record.Port(), 255u);
    EXPECT_EQ(record.Length(), 0xFFFFFFu);
    EXPECT_EQ(InfoRecord::Make(1, 0x01000002).Port(), 1u);
}

TEST(WorkerRecords, LaysOutAThrottleRecordAsTimeAndBytesWord) {
    UnsignedWide time;
    time.hi = 0x01020304;
    time.lo = 0x05060708;
    const ThrottleRecord record = ThrottleRecord::Make(time, 0xABCDEF);
    Bytes expected = InHostOrder({1, 2, 3, 4, 5, 6, 7, 8});
    const Bytes word = InHostOrder({0xAB, 0xCD, 0xEF, 0x00});
    expected.insert(expected.end(), word.begin(), word.end());
    EXPECT_EQ(BytesOf(record), expected);
    EXPECT_EQ(record.Bytes(), 0xABCDEFu);
    EXPECT_EQ(ToNumber(record.mTime), 0x0102030405060708u);
}

TEST(WorkerRecords, GivesNoMeaningToTheLowByteOfTheBytesWord) {
    ThrottleRecord record = ThrottleRecord::Make({}, 77);
    record.mBytesWord |= 0xFF;
    EXPECT_EQ(record.Bytes(), 77u);
}
