#include "runtime/socket/NyResult.h"

#include <gtest/gtest.h>

#include <map>

namespace {

TEST(NyResultTest, EveryListedErrorNumberHasItsResultAndAllOthersAreUnknown) {
    const std::map<int, int> listed = {
        {0, 0},   {1, 15},  {4, 16},  {5, 17},  {6, 18},  {9, 19},   {11, 20},  {12, 21},
        {13, 22}, {14, 23}, {22, 24}, {23, 25}, {24, 26}, {25, 27},  {32, 28},  {35, 29},
        {36, 30}, {37, 31}, {38, 32}, {39, 33}, {40, 34}, {41, 35},  {42, 36},  {43, 37},
        {44, 38}, {45, 39}, {46, 40}, {47, 41}, {48, 42}, {49, 43},  {50, 44},  {51, 45},
        {52, 46}, {53, 47}, {54, 48}, {55, 49}, {56, 50}, {57, 51},  {58, 52},  {59, 53},
        {60, 54}, {61, 55}, {64, 56}, {65, 57}, {77, 58}, {78, 59},  {89, 60},  {91, 61},
        {94, 63}, {95, 64}, {96, 65}, {98, 66}, {99, 67}, {100, 68}, {101, 69},
    };
    for (int error = -10; error <= 200; ++error) {
        const auto found = listed.find(error);
        EXPECT_EQ(OSToNyResult(error), found == listed.end() ? 7 : found->second) << error;
    }
    EXPECT_EQ(OSToNyResult(-2147483647 - 1), 7);
    EXPECT_EQ(OSToNyResult(2147483647), 7);
}

TEST(NyResultTest, NoErrorNumberGivesSixtyTwo) {
    for (int error = -200; error <= 1000; ++error) {
        EXPECT_NE(OSToNyResult(error), 62) << error;
    }
}

} // namespace
