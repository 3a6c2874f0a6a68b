// What the headers of every program and library that is installed say of its safety.
#include "tests/support/Program.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

namespace {

using ::testing::AllOf;
using ::testing::AnyOf;
using ::testing::Each;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

// Given by the build: the name that the test carries and the file.
struct Binary {
    const char* mName;
    const char* mFile;
};

const std::vector<Binary> kBinaries = {QUORVEL_SHIPPED_BINARIES};

void PrintTo(const Binary& binary, std::ostream* out) {
    *out << binary.mFile;
}

std::string ReadHeaders(const Binary& binary, const std::string& options) {
    const QuorvelTest::ProgramResult result =
        QuorvelTest::RunProgram({QUORVEL_READELF, options, binary.mFile});
    EXPECT_EQ(result.status, 0) << result.err;
    return result.out;
}

// The lines that hold the text; every check below also fails when there is none.
std::vector<std::string> LinesWith(const std::string& text, const std::string& wanted) {
    std::istringstream lines(text);
    std::vector<std::string> found;
    for (std::string line; std::getline(lines, line);) {
        if (line.find(wanted) != std::string::npos) {
            found.push_back(line);
        }
    }
    return found;
}

// The folders of the run path, empty ones included.
std::vector<std::string> RunPath(const Binary& binary) {
    std::vector<std::string> folders;
    for (const std::string& line : LinesWith(ReadHeaders(binary, "-dW"), " runpath: [")) {
        const std::size_t start = line.find('[') + 1;
        std::istringstream path(line.substr(start, line.rfind(']') - start) + ":");
        for (std::string folder; std::getline(path, folder, ':');) {
            folders.push_back(folder);
        }
    }
    return folders;
}

class ShippedBinariesTest : public ::testing::TestWithParam<Binary> {};

TEST_P(ShippedBinariesTest, FindsItsLibrariesBesideItselfAndNowhereElse) {
    EXPECT_THAT(RunPath(GetParam()), Each(AnyOf("$ORIGIN", StartsWith("$ORIGIN/"))));
    EXPECT_EQ(RunPath(GetParam()).size(), 1U);
}

TEST_P(ShippedBinariesTest, IsBoundAtItsStartAndReadOnlyFromThenOn) {
    EXPECT_THAT(ReadHeaders(GetParam(), "-dW"), HasSubstr("BIND_NOW"));
    EXPECT_THAT(ReadHeaders(GetParam(), "-lW"), HasSubstr("GNU_RELRO"));
}

TEST_P(ShippedBinariesTest, ExecutesNothingThatCanBeWritten) {
    const std::string segments = ReadHeaders(GetParam(), "-lW");
    const std::vector<std::string> stack = LinesWith(segments, "GNU_STACK");
    ASSERT_EQ(stack.size(), 1U);
    EXPECT_THAT(stack[0], AllOf(HasSubstr(" RW "), Not(HasSubstr("RWE"))));
    EXPECT_FALSE(LinesWith(segments, "LOAD").empty());
    EXPECT_THAT(LinesWith(segments, "LOAD"), Each(Not(HasSubstr("RWE"))));
}

TEST_P(ShippedBinariesTest, LiesAtRandomAddresses) {
    EXPECT_THAT(ReadHeaders(GetParam(), "-hW"), HasSubstr("DYN ("));
}

TEST_P(ShippedBinariesTest, ChecksItsStackFrames) {
    EXPECT_THAT(ReadHeaders(GetParam(), "-sDW"), HasSubstr("__stack_chk_fail"));
}

#if defined(__x86_64__) || defined(__i386__)
TEST_P(ShippedBinariesTest, IsMarkedForControlFlowProtection) {
    EXPECT_THAT(ReadHeaders(GetParam(), "-nW"), AllOf(HasSubstr("IBT"), HasSubstr("SHSTK")));
}
#endif

INSTANTIATE_TEST_SUITE_P(Every, ShippedBinariesTest, ::testing::ValuesIn(kBinaries),
                         [](const auto& test) { return std::string(test.param.mName); });

#ifdef __OPTIMIZE__
// Not every one calls a function that has a checked form; together they do.
TEST(ShippedBinariesTogetherTest, CallTheCheckedFormsOfTheCLibrarysFunctions) {
    std::vector<std::string> calls;
    for (const Binary& binary : kBinaries) {
        std::ranges::move(LinesWith(ReadHeaders(binary, "-sDW"), "_chk@GLIBC"),
                          std::back_inserter(calls));
    }
    EXPECT_FALSE(calls.empty());
}
#endif

} // namespace
