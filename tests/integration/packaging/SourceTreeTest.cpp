// The sources may lie where nobody can write, and the build folder anywhere.
#include "tests/integration/packaging/SourceCopy.h"
#include "tests/support/Program.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>

namespace {

using QuorvelTest::ProgramResult;
using QuorvelTest::RunProgram;

namespace fs = std::filesystem;

// Every file with the time of its last change.
std::map<fs::path, fs::file_time_type> FilesIn(const fs::path& folder) {
    std::map<fs::path, fs::file_time_type> files;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        files.emplace(entry.path(), fs::last_write_time(entry.path()));
    }
    return files;
}

// Root may write where permissions forbid it, so what is there is compared as well.
TEST(SourceTreeTest, StaysAsItIsWhenItIsBuiltInAnotherFolder) {
    const QuorvelTest::TemporaryFolder folder;
    const fs::path sources = folder.Path() / "sources";
    CopySources(sources);
    const auto before = FilesIn(sources);
    ASSERT_EQ(RunProgram({"/usr/bin/env", "chmod", "-R", "a-w", sources}).status, 0);

    const std::string build = folder.Path() / "build";
    const ProgramResult configured =
        RunProgram({QUORVEL_CMAKE, "-S", sources, "-B", build, "-DCMAKE_BUILD_TYPE=RelWithDebInfo",
                    "-DQUORVEL_BUILD_TESTS=OFF", "-DCMAKE_CXX_COMPILER=" QUORVEL_COMPILER});
    EXPECT_EQ(configured.status, 0) << configured.out << configured.err;
    const ProgramResult built =
        RunProgram({QUORVEL_CMAKE, "--build", build, "--target", "CoreServices"});
    EXPECT_EQ(built.status, 0) << built.out << built.err;

    EXPECT_TRUE(fs::exists(folder.Path() / "build/lib/quorvel/libCoreServices.so"));
    EXPECT_EQ(FilesIn(sources), before);
    RunProgram({"/usr/bin/env", "chmod", "-R", "u+w", sources});
}

// Whoever looks at variables in a debugger sets the preset's flags anew.
TEST(SourceTreeTest, TakesOtherFlagsThanItsPresets) {
    const QuorvelTest::TemporaryFolder folder;
    const fs::path sources = folder.Path() / "sources";
    CopySources(sources);
    const ProgramResult configured =
        RunProgram({"/usr/bin/env", "-C", sources, QUORVEL_CMAKE, "--preset", "dev",
                    "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O2 -g", "-DQUORVEL_BUILD_TESTS=OFF"});
    EXPECT_EQ(configured.status, 0) << configured.out << configured.err;
    const std::string rules = QuorvelTest::ContentOf(sources / "build/dev/build.ninja");
    EXPECT_NE(rules.find(" -O2 -g "), std::string::npos);
    EXPECT_EQ(rules.find(" -g1"), std::string::npos);
}

} // namespace
