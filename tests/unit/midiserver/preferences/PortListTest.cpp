#include "midiserver/preferences/PortList.h"

#include "midiserver/errors/Errors.h"

#include <gtest/gtest.h>

namespace MidiServer {
namespace {

TEST(PortListTest, ReadsNumbersAndRanges) {
    EXPECT_EQ(ParsePortList("1").to_ulong(), 0b1U);
    EXPECT_EQ(ParsePortList("2,4-6,32").to_ulong(), 0x80000000UL | 0b111010U);
    EXPECT_EQ(ParsePortList("3-3,3").to_ulong(), 0b100U);
}

TEST(PortListTest, ReadsAll) {
    EXPECT_TRUE(ParsePortList("all").all());
    EXPECT_TRUE(ParsePortList("1-32").all());
}

TEST(PortListTest, RefusesWhatNamesNoPorts) {
    for (const char* text : {"", ",", "1,", "0", "33", "5-3", "1-", "-1", "1-33", "1 ", " 1", "+1",
                             "one", "All", "1-2-3", "4294967297"}) {
        EXPECT_THROW(ParsePortList(text), InputError) << text;
    }
}

} // namespace
} // namespace MidiServer
