// The version stands in the project's CMakeLists.txt, and everything else follows it.
#include "tests/support/Program.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <string>

namespace {

using QuorvelTest::ContentOf;
using QuorvelTest::RunProgram;

TEST(VersionTest, IsPrintedByEveryProgram) {
    for (const std::filesystem::path program : {QUORVEL_PROGRAMS}) {
        EXPECT_EQ(RunProgram({program, "--version"}).out,
                  program.filename().string() + " " QUORVEL_VERSION "\n");
    }
}

TEST(VersionTest, IsThatOfTheChangelogsNewestHeading) {
    std::istringstream changelog(ContentOf(QUORVEL_SOURCE_DIR "/CHANGELOG.md"));
    std::string line;
    while (std::getline(changelog, line) && !line.starts_with("## ")) {
    }
    std::istringstream heading(line);
    std::string marks;
    std::string version;
    heading >> marks >> version;
    EXPECT_EQ(version, QUORVEL_VERSION) << line;
}

TEST(VersionTest, IsLeftToTheProgramsByTheirManuals) {
    for (const char* const page : {"/midiserver.1", "/quorvel-surface.1"}) {
        const std::string manual = ContentOf(std::string(QUORVEL_DOCS_DIR) + page);
        EXPECT_TRUE(manual.starts_with(".TH ")) << page;
        EXPECT_EQ(manual.find(QUORVEL_VERSION), std::string::npos) << page;
    }
}

} // namespace
