#include "surface/screen/Keys.h"

#include "tests/support/Program.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <utility>

namespace Surface {
namespace {

TEST(KeysTest, EachDoesOneThing) {
    std::set<std::pair<SpecialKey, char32_t>> keys;
    for (const KeyBinding& binding : KeyBindings()) {
        EXPECT_TRUE(keys.insert({binding.key, binding.character}).second) << binding.name;
        UserInput input;
        input.key = binding.key;
        input.character = binding.character;
        const std::optional<Command> command = CommandOf(input);
        ASSERT_TRUE(command) << binding.name;
        EXPECT_EQ(command->kind, binding.command.kind) << binding.name;
        EXPECT_EQ(command->amount, binding.command.amount) << binding.name;
    }
}

TEST(KeysTest, OthersDoNothing) {
    UserInput input;
    input.character = U'ß';
    EXPECT_FALSE(CommandOf(input));
    input.kind = UserInput::Kind::kResize;
    input.character = U'q';
    EXPECT_FALSE(CommandOf(input));
}

TEST(KeysTest, LinesFitTheHelpPage) {
    const std::vector<KeyLine> lines = KeyLines();
    EXPECT_LE(lines.size(), 34U);
    for (const KeyLine& line : lines) {
        EXPECT_LE(line.keys.size(), 14U) << line.keys;
        EXPECT_LE(line.meaning.size(), 24U) << line.meaning;
    }
}

TEST(KeysTest, AreAllInTheManual) {
    const std::string page = QuorvelTest::ContentOf(QUORVEL_DOCS "/surface.md");
    for (const KeyLine& line : KeyLines()) {
        EXPECT_THAT(page, testing::HasSubstr(fmt::format("\n| `{}` |", line.keys))) << line.meaning;
    }
}

} // namespace
} // namespace Surface
