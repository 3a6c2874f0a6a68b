// The Debian packages as cpack makes them of the build.
#include "tests/integration/packaging/SourceCopy.h"
#include "tests/support/Program.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <set>
#include <string>
#include <vector>

namespace {

using QuorvelTest::ContentOf;
using QuorvelTest::ProgramResult;
using QuorvelTest::RunProgram;
using ::testing::IsEmpty;

namespace fs = std::filesystem;

// What a script of this project ends with when it cannot run on a machine.
constexpr int kSkipped = 77;

const std::string kCheck = QUORVEL_SOURCE_DIR "/tests/integration/packaging/clean-root-check";

// Makes the packages of this revision from a build, in a folder.
void MakePackages(const fs::path& build, const fs::path& folder, const std::string& revision = "1",
                  const std::vector<std::string>& environment = {}) {
    const ProgramResult result =
        RunProgram({QUORVEL_CPACK, "-D", "CPACK_DEBIAN_PACKAGE_RELEASE=" + revision, "--config",
                    build / "CPackConfig.cmake", "-B", folder},
                   {}, environment);
    ASSERT_EQ(result.status, 0) << result.out << result.err;
    fs::remove_all(folder / "_CPack_Packages");
}

// The paths of the packages in a folder, sorted.
std::vector<std::string> PackagesIn(const fs::path& folder) {
    std::set<std::string> files;
    for (const auto& entry : fs::directory_iterator(folder)) {
        files.insert(entry.path());
    }
    return {files.begin(), files.end()};
}

// In seconds since 1970.
std::string DateOfTheLastCommit() {
    std::string date =
        RunProgram({"/usr/bin/env", "git", "-C", QUORVEL_SOURCE_DIR, "log", "-1", "--format=%ct"})
            .out;
    date.resize(std::min(date.find('\n'), date.size()));
    return date;
}

// Whether a file of a package is one that the distribution wants in each package, and that no other
// installation has.
bool IsDocument(const std::string& name) {
    const std::string file = fs::path(name).filename();
    return name.starts_with("usr/share/lintian/") ||
           (name.starts_with("usr/share/doc/") &&
            (file == "copyright" || file == "changelog.gz" || file == "changelog.Debian.gz"));
}

// The name of a package's file in an installation, which compresses no manual pages and knows no
// folder for the packages' completions.
std::string NameInAnInstallation(const std::string& name) {
    const std::string completion = "usr/share/zsh/vendor-completions/";
    if (name.starts_with(completion)) {
        return "usr/share/zsh/site-functions/" + name.substr(completion.size());
    }
    return name.starts_with("usr/share/man/") && name.ends_with(".gz")
               ? name.substr(0, name.size() - 3)
               : name;
}

// The packages of the build that the tests belong to.
class DebianPackageTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!fs::exists("/usr/bin/dpkg-shlibdeps")) {
            GTEST_SKIP()
                << "there is no dpkg-shlibdeps; scripts/install-packages package installs it";
        }
        ASSERT_NO_FATAL_FAILURE(MakePackages(QUORVEL_BUILD_DIR, Packages()));
    }

    fs::path Packages() const { return mFolder.Path() / "packages"; }

    void ExpectTheSamePackagesIn(const fs::path& others) const {
        const std::vector<std::string> packages = PackagesIn(Packages());
        EXPECT_EQ(packages.size(), PackagesIn(others).size());
        EXPECT_FALSE(packages.empty());
        for (const std::string& package : packages) {
            EXPECT_TRUE(ContentOf(package) == ContentOf(others / fs::path(package).filename()))
                << package;
        }
    }

    QuorvelTest::TemporaryFolder mFolder;
};

TEST_F(DebianPackageTest, HasNoFaultThatLintianKnows) {
    if (!fs::exists("/usr/bin/lintian")) {
        GTEST_SKIP() << "there is no lintian; scripts/install-packages root installs it";
    }
    std::vector<std::string> command = {"/usr/bin/lintian", "--allow-root", "--fail-on",
                                        "error,warning"};
    std::ranges::copy(PackagesIn(Packages()), std::back_inserter(command));
    const ProgramResult result = RunProgram(command);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "");
}

TEST_F(DebianPackageTest, HoldsTheFilesOfAnInstallation) {
    const fs::path prefix = mFolder.Path() / "root/usr";
    const ProgramResult installed =
        RunProgram({QUORVEL_CMAKE, "--install", QUORVEL_BUILD_DIR, "--strip", "--prefix", prefix});
    ASSERT_EQ(installed.status, 0) << installed.err;
    std::set<std::string> expected;
    for (const auto& entry : fs::recursive_directory_iterator(prefix)) {
        if (!entry.is_directory() || entry.is_symlink()) {
            expected.insert(entry.path().lexically_relative(prefix.parent_path()));
        }
    }
    // The list for scripts/uninstall.
    EXPECT_EQ(expected.erase("usr/" QUORVEL_PRIVATE_LIBDIR "/install_manifest.txt"), 1U);

    std::set<std::string> packaged;
    for (const std::string& package : PackagesIn(Packages())) {
        const fs::path root = mFolder.Path() / fs::path(package).stem();
        ASSERT_EQ(RunProgram({"/usr/bin/dpkg-deb", "-x", package, root}).status, 0);
        for (const auto& entry : fs::recursive_directory_iterator(root)) {
            if (entry.is_directory() && !entry.is_symlink()) {
                continue;
            }
            const std::string name = entry.path().lexically_relative(root);
            if (!IsDocument(name)) {
                packaged.insert(NameInAnInstallation(name));
            }
        }
    }
    EXPECT_EQ(packaged, expected);
}

TEST_F(DebianPackageTest, NamesNoFolderOfTheBuild) {
    for (const std::string& package : PackagesIn(Packages())) {
        const fs::path root = mFolder.Path() / fs::path(package).stem();
        ASSERT_EQ(RunProgram({"/usr/bin/dpkg-deb", "-R", package, root}).status, 0);
        EXPECT_THAT(RunProgram({"/usr/bin/env", "grep", "-rlF", "-e", QUORVEL_SOURCE_DIR, "-e",
                                QUORVEL_BUILD_DIR, root})
                        .out,
                    IsEmpty());
    }
}

TEST_F(DebianPackageTest, HasTheDateOfTheLastCommit) {
    const std::string package = PackagesIn(Packages()).front();
    const fs::path root = mFolder.Path() / "root";
    ASSERT_EQ(RunProgram({"/usr/bin/dpkg-deb", "-x", package, root}).status, 0);
    const std::string date = RunProgram({"/usr/bin/env", "date", "-r", root / "usr", "+%s"}).out;
    EXPECT_EQ(date, DateOfTheLastCommit() + "\n");
}

TEST_F(DebianPackageTest, ComesOutTheSameWhoeverMakesIt) {
    const fs::path others = mFolder.Path() / "others";
    ASSERT_NO_FATAL_FAILURE(MakePackages(QUORVEL_BUILD_DIR, others, "1",
                                         {"TZ=Pacific/Apia", "LC_ALL=C.UTF-8", "USER=somebody"}));
    ExpectTheSamePackagesIn(others);
}

TEST_F(DebianPackageTest, ComesOutTheSameFromASecondBuildInAnotherFolder) {
    // The folder is one where a cache of the compiler's output treats names of files as it does in
    // the first build. What is in such a cache could be the first build's, so everything is
    // compiled anew.
    const fs::path folder = QUORVEL_BUILD_DIR "/Testing/another";
    const std::vector<std::string> environment = {"CCACHE_RECACHE=1"};
    fs::remove_all(folder);
    const fs::path sources = folder / "folder";
    CopySources(sources);
    const fs::path build =
        (sources / fs::path(QUORVEL_BUILD_DIR).lexically_relative(QUORVEL_SOURCE_DIR))
            .lexically_normal();
    const ProgramResult configured =
        RunProgram({QUORVEL_CMAKE, "-S", sources, "-B", build, "-G", QUORVEL_GENERATOR,
                    "-DQUORVEL_BUILD_TESTS=OFF", "-DCMAKE_BUILD_TYPE=" QUORVEL_BUILD_TYPE,
                    "-D" QUORVEL_BUILD_FLAGS, "-DCMAKE_C_COMPILER=" QUORVEL_C_COMPILER,
                    "-DCMAKE_CXX_COMPILER=" QUORVEL_COMPILER,
                    "-DCMAKE_CXX_COMPILER_LAUNCHER=" QUORVEL_COMPILER_LAUNCHER},
                   {}, environment);
    ASSERT_EQ(configured.status, 0) << configured.out << configured.err;
    const ProgramResult built = RunProgram({QUORVEL_CMAKE, "--build", build}, {}, environment);
    ASSERT_EQ(built.status, 0) << built.out << built.err;

    // The copy is no Git repository, which would know the date.
    const fs::path others = mFolder.Path() / "others";
    ASSERT_NO_FATAL_FAILURE(
        MakePackages(build, others, "1", {"SOURCE_DATE_EPOCH=" + DateOfTheLastCommit()}));
    ExpectTheSamePackagesIn(others);
    if (!HasFailure()) {
        fs::remove_all(folder);
    }
}

TEST_F(DebianPackageTest, IsInstalledUsedUpdatedAndPurgedOnACleanSystem) {
    ASSERT_NO_FATAL_FAILURE(MakePackages(QUORVEL_BUILD_DIR, mFolder.Path() / "later", "2"));
    const fs::path session = mFolder.Path() / "session.txt";
    const fs::path screen = mFolder.Path() / "screen.txt";
    fs::copy_file(QUORVEL_SOURCE_DIR "/tests/data/captures/ardour-buttons.txt", session);
    fs::copy_file(QUORVEL_SOURCE_DIR "/tests/integration/surface/golden/ardour-buttons-end.txt",
                  screen);
    const std::string later = mFolder.Path() / "later";
    std::vector<std::string> command = {
        QUORVEL_SCRIPTS_DIR "/clean-root", "-t", "1200", "-f", later, "-f", session, "-f", screen};
    if (const std::string peer = QUORVEL_JACK_PEER; !peer.empty()) {
        command.insert(command.end(), {"-f", peer});
    }
    for (const std::string& package : PackagesIn(Packages())) {
        command.insert(command.end(), {"-f", package});
    }
    command.emplace_back(kCheck);
    const ProgramResult result = RunProgram(command);
    if (result.status == kSkipped) {
        GTEST_SKIP() << result.err;
    }
    EXPECT_EQ(result.status, 0) << result.out << result.err;
}

} // namespace
