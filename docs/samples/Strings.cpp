#include "runtime/string/ConvertUTF.h"
#include "runtime/string/NyString.h"

#include <gtest/gtest.h>

#include <string>

TEST(RuntimeSamples, Strings) {
    const tString wide("Fl\xC3\xB6te"); // UTF-8 in, UTF-16 inside
    EXPECT_EQ(wide.size(), 5U);
    EXPECT_EQ(static_cast<std::string>(wide), "Fl\xC3\xB6te");

    // Where it matters whether all of a text was converted.
    tString cut;
    EXPECT_EQ(NyStringToString("whole", cut), 0);
    EXPECT_EQ(NyStringToString("broken \xFF", cut), 1);
    EXPECT_EQ(static_cast<std::string>(cut), "broken ");

    int value = -1;
    NyStringToValue("7f", value, 16);
    EXPECT_EQ(value, 127);

    // Straight into the caller's memory, as much as there is room for.
    const NYPL::UTF16 units[] = {'a', 0xD83C, 0xDFB9};
    const NYPL::UTF16* source = units;
    NYPL::UTF8 bytes[4];
    NYPL::UTF8* target = bytes;
    EXPECT_EQ(
        NYPL::ConvertUTF16toUTF8(&source, units + 3, &target, bytes + 4, NYPL::strictConversion),
        NYPL::targetExhausted);
    EXPECT_EQ(source - units, 1); // stands on the first unit not converted
    EXPECT_EQ(target - bytes, 1);
}
