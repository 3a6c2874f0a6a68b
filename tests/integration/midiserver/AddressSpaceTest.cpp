#include "tests/integration/midiserver/Midiserver.h"
#include "tests/support/Sanitized.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace QuorvelTest {
namespace {

#if !defined(QUORVEL_SANITIZED) // their shadow memory alone is beyond any limit

// Limits in KiB from where the program itself just starts to where there is room for all.
TEST(AddressSpaceTest, SaysWhatADriverNeedsWhateverTheLimit) {
    const Preferences preferences("1-4", "HUI");
    const std::string capture = preferences.Write("session.txt", "0 90 00 00\n");
    unsigned refused = 0;
    unsigned passed = 0;
    for (unsigned limit = 40'000; limit < 4'000'000; limit += limit / 8 + 1000) {
        const ProgramResult result =
            Shell("ulimit -v " + std::to_string(limit) + "; exec \"$@\"",
                  {"replay", capture, "--as-fast-as-possible", "--prefs", preferences.Folder()});
        if (result.status == 0) {
            ++passed;
            EXPECT_THAT(result.out, testing::HasSubstr("1 sent, 1 answered"));
        } else {
            ++refused;
            EXPECT_EQ(result.status, 1) << limit;
            EXPECT_TRUE(IsOneLine(result.err)) << limit << result.err;
            EXPECT_THAT(result.err,
                        testing::HasSubstr("midiserver: out of address space: the driver reserves "
                                           "about 2.7 GB of it and touches 60 MB"));
            EXPECT_THAT(result.err, testing::HasSubstr("ulimit -v unlimited"));
            EXPECT_EQ(passed, 0U) << limit;
        }
    }
    EXPECT_GT(refused, 10U);
    EXPECT_GT(passed, 0U);
}

#endif

} // namespace
} // namespace QuorvelTest
