#include "platform/support/LockedFile.h"

#include "tests/support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

namespace {

namespace fs = std::filesystem;

class LockedFileTest : public testing::Test {
protected:
    std::string Path() const { return mFolder.Path() + "/file"; }
    static void Write(const fs::path& path, const std::string& bytes) {
        std::ofstream(path, std::ios::binary) << bytes;
    }
    static std::string Read(const fs::path& path) {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    static struct stat StatusOf(const std::string& path) {
        struct stat status {};
        EXPECT_EQ(stat(path.c_str(), &status), 0);
        return status;
    }
    std::ptrdiff_t Files() const {
        return std::distance(fs::directory_iterator(mFolder.Path()), {});
    }

    TemporaryDirectory mFolder;
};

TEST_F(LockedFileTest, MakesAFileWithItsFoldersThatAllMayRead) {
    const std::string path = mFolder.Path() + "/a/b/file";
    const FileFailure failure = LockedFile(path).Replace("new");
    EXPECT_FALSE(failure) << failure.text;
    EXPECT_EQ(Read(path), "new");
    EXPECT_EQ(StatusOf(path).st_mode & 07777U, 0644U);
}

TEST_F(LockedFileTest, KeepsTheModeOfWhatItReplaces) {
    Write(Path(), "old");
    for (const mode_t mode : {0600U, 0640U, 0666U}) {
        ASSERT_EQ(chmod(Path().c_str(), mode), 0);
        const ino_t before = StatusOf(Path()).st_ino;
        EXPECT_FALSE(LockedFile(Path()).Replace("new"));
        EXPECT_NE(StatusOf(Path()).st_ino, before) << "it is another file";
        EXPECT_EQ(StatusOf(Path()).st_mode & 07777U, mode);
    }
    EXPECT_EQ(Files(), 1);
}

TEST_F(LockedFileTest, KeepsTheOwnerOfWhatItReplaces) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root, who may give files away";
    }
    Write(Path(), "old");
    ASSERT_EQ(chown(Path().c_str(), 12345, 23456), 0);
    EXPECT_FALSE(LockedFile(Path()).Replace("new"));
    EXPECT_EQ(Read(Path()), "new");
    EXPECT_EQ(StatusOf(Path()).st_uid, 12345U);
    EXPECT_EQ(StatusOf(Path()).st_gid, 23456U);
}

TEST_F(LockedFileTest, ReplacesWhatASymbolicLinkLeadsTo) {
    fs::create_directory(mFolder.Path() + "/there");
    fs::create_symlink("there/real", Path());
    EXPECT_FALSE(LockedFile(Path()).Replace("one")) << "although there is no file yet";
    EXPECT_FALSE(LockedFile(Path()).Replace("two"));
    EXPECT_TRUE(fs::is_symlink(Path()));
    EXPECT_EQ(Read(mFolder.Path() + "/there/real"), "two");
    EXPECT_EQ(Files(), 2);
}

TEST_F(LockedFileTest, TakesOverWhatAKilledWriterLeft) {
    Write(mFolder.Path() + "/.file.new", "half a fi");
    EXPECT_FALSE(LockedFile(Path()).Replace("new"));
    EXPECT_EQ(Read(Path()), "new");
    EXPECT_EQ(Files(), 1);
}

TEST_F(LockedFileTest, TellsWhyItCannotBeLockedOrReplaced) {
    Write(Path(), "a file where a folder should be");
    LockedFile below(Path() + "/file");
    EXPECT_EQ(below.Failure().error, ENOTDIR);
    EXPECT_EQ(below.Failure().text, "the folder cannot be made: Not a directory");
    EXPECT_EQ(below.Replace("new").text, below.Failure().text);
    std::string aside;
    EXPECT_EQ(below.MoveAside(aside).text, below.Failure().text);

    fs::create_symlink("itself", mFolder.Path() + "/itself");
    EXPECT_EQ(LockedFile(mFolder.Path() + "/itself").Failure().error, ELOOP);

    fs::create_directory(mFolder.Path() + "/folder");
    const FileFailure failure = LockedFile(mFolder.Path() + "/folder").Replace("new");
    EXPECT_EQ(failure.error, EISDIR);
    EXPECT_EQ(failure.text, "cannot be written: Is a directory");
    EXPECT_EQ(Files(), 3) << "nothing is left of the attempt";
}

TEST_F(LockedFileTest, MovesTheFileToAFreeName) {
    fs::create_symlink("real", Path());
    for (const char* name : {"real.broken", "real.broken-2", "real.broken-3"}) {
        Write(mFolder.Path() + "/real", name);
        std::string aside;
        const FileFailure failure = LockedFile(Path()).MoveAside(aside);
        EXPECT_FALSE(failure) << failure.text;
        EXPECT_EQ(aside, mFolder.Path() + "/" + name);
        EXPECT_EQ(Read(aside), name);
        EXPECT_FALSE(fs::exists(mFolder.Path() + "/real"));
    }
    EXPECT_TRUE(fs::is_symlink(Path()));
    std::string aside;
    EXPECT_EQ(LockedFile(Path()).MoveAside(aside).error, ENOENT);
}

// Each takes a number from the file and puts back the next: none is lost.
TEST_F(LockedFileTest, KeepsOtherWritersOutWhileItExists) {
    constexpr int kRounds = 50;
    Write(Path(), "0");
    const auto count = [this] {
        for (int i = 0; i < kRounds; ++i) {
            LockedFile file(Path());
            EXPECT_FALSE(file.Replace(std::to_string(std::stoi(Read(Path())) + 1)));
        }
    };
    std::thread other(count);
    count();
    other.join();
    EXPECT_EQ(Read(Path()), std::to_string(2 * kRounds));
}

} // namespace
