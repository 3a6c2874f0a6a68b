// What is installed works by itself, and goes without a trace.
#include "tests/support/Program.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

namespace {

using QuorvelTest::ContentOf;
using QuorvelTest::ProgramResult;
using QuorvelTest::RunProgram;
using ::testing::HasSubstr;
using ::testing::Not;

// The build tree installed below a prefix of the test's own.
class InstalledTreeTest : public ::testing::Test {
protected:
    InstalledTreeTest() {
        const ProgramResult result = RunProgram(
            {QUORVEL_CMAKE, "--install", QUORVEL_BUILD_DIR, "--strip", "--prefix", mPrefix});
        EXPECT_EQ(result.status, 0) << result.err;
    }

    // The programs and libraries, each once.
    std::vector<std::string> Binaries() const {
        const std::string libraries = mPrefix + "/" + QUORVEL_PRIVATE_LIBDIR;
        return {mPrefix + "/bin/midiserver", libraries + "/libCoreFoundation.so",
                libraries + "/libCoreMIDI.so", libraries + "/libCoreServices.so",
                libraries + "/QuorvelMIDI.plugin/Contents/Linux/QuorvelMIDI"};
    }

    QuorvelTest::TemporaryFolder mFolder;
    const std::string mPrefix = mFolder.Path() / "prefix";
};

TEST_F(InstalledTreeTest, FindsItsLibrariesInsideItself) {
    for (const std::string& binary : Binaries()) {
        const ProgramResult result = RunProgram({"/usr/bin/env", "ldd", binary});
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_THAT(result.out, Not(HasSubstr("not found"))) << binary;
        EXPECT_THAT(result.out, Not(HasSubstr(QUORVEL_BUILD_DIR))) << binary;
    }
}

TEST_F(InstalledTreeTest, IsStripped) {
    for (const std::string& binary : Binaries()) {
        const ProgramResult result = RunProgram({QUORVEL_READELF, "-SW", binary});
        EXPECT_THAT(result.out, HasSubstr(".dynsym")) << binary;
        EXPECT_THAT(result.out, Not(HasSubstr(".symtab"))) << binary;
        EXPECT_THAT(result.out, Not(HasSubstr(".debug_info"))) << binary;
    }
}

TEST_F(InstalledTreeTest, ReplaysWithThePlugInThatItBrings) {
    const std::string capture = mFolder.Write("capture", "0 90 3c 40\n1000 80 3c 00\n");
    mFolder.Write("com.quorvel.ControlSurface.plist", "<plist><dict/></plist>");
    const ProgramResult result = RunProgram(
        {mPrefix + "/bin/midiserver", "replay", capture, "--prefs", mFolder.Path().string()});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.out, HasSubstr("passed"));
}

// By the commands that the page shows, in a folder that stands for the sources'.
TEST_F(InstalledTreeTest, BuildsAndRunsTheMinimalHost) {
    const std::filesystem::path sources = mFolder.Path() / "sources";
    const std::filesystem::path runtime = mFolder.Path() / "runtime";
    std::filesystem::create_directories(sources / "scripts");
    std::filesystem::create_directory(runtime);
    std::filesystem::permissions(runtime, std::filesystem::perms::owner_all);
    std::filesystem::create_directory_symlink(QUORVEL_DOCS_DIR, sources / "docs");
    // What the page installs first is there already.
    std::filesystem::create_symlink("/bin/true", sources / "scripts/install");
    std::filesystem::create_directory_symlink(mPrefix, mFolder.Path() / "quorvel");
    const std::string page = ContentOf(QUORVEL_DOCS_DIR "/embedding.md");
    const std::string mark = "```sh\n";
    const std::size_t start = page.find(mark);
    ASSERT_NE(start, std::string::npos);
    const std::size_t end = page.find("```", start + mark.size());
    const std::string commands = page.substr(start + mark.size(), end - start - mark.size());
    const ProgramResult result =
        RunProgram({"/usr/bin/env", "-C", sources, "-u", "HOME", "HOME=" + mFolder.Path().string(),
                    "/bin/sh", "-e", "-c", commands},
                   {}, {"CXX=" QUORVEL_COMPILER, "QUORVEL_RUNTIME_DIR=" + runtime.string()});
    EXPECT_EQ(result.status, 0) << result.out << result.err;
    EXPECT_TRUE(result.out.ends_with("\n4 ports\nthe application received 90 3C 40\n"))
        << result.out;
}

// As those do who make packages of their own.
TEST_F(InstalledTreeTest, GoesIntoAFolderThatStandsForTheSystem) {
    const std::string stage = mFolder.Path() / "staging";
    const ProgramResult result =
        RunProgram({QUORVEL_CMAKE, "--install", QUORVEL_BUILD_DIR, "--strip", "--prefix", "/usr"},
                   {}, {"DESTDIR=" + stage});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(RunProgram({stage + "/usr/bin/midiserver", "--version"}).status, 0);
    EXPECT_TRUE(ContentOf(stage + "/usr/" QUORVEL_PRIVATE_LIBDIR "/install_manifest.txt")
                    .starts_with("/usr/"));
}

TEST_F(InstalledTreeTest, IsGoneAfterItWasUninstalled) {
    ASSERT_TRUE(std::filesystem::exists(Binaries().front()));
    const ProgramResult result = RunProgram({QUORVEL_SCRIPTS_DIR "/uninstall", mPrefix});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(std::filesystem::is_empty(mPrefix));
}

TEST_F(InstalledTreeTest, UninstallsOnlyWhatItHasInstalled) {
    const std::string own = mPrefix + "/bin/own";
    std::filesystem::copy_file("/proc/self/cmdline", own);
    EXPECT_EQ(RunProgram({QUORVEL_SCRIPTS_DIR "/uninstall", mPrefix}).status, 0);
    EXPECT_TRUE(std::filesystem::exists(own));
    // There is nothing more to uninstall, and that is an error.
    const ProgramResult again = RunProgram({QUORVEL_SCRIPTS_DIR "/uninstall", mPrefix});
    EXPECT_EQ(again.status, 1);
    EXPECT_THAT(again.err, HasSubstr(mPrefix));
}

} // namespace
