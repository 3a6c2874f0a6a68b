#include "midiserver/service/watch/FileWatch.h"

#include "tests/support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <poll.h>

#include <filesystem>
#include <fstream>

namespace MidiServer {
namespace {

namespace fs = std::filesystem;

// The events of inotify are there once the call that made them has returned, so nothing waits.
class FileWatchTest : public testing::Test {
protected:
    static void Write(const fs::path& path) { std::ofstream(path) << "text"; }

    static bool IsReadable(const FileWatch& watch) {
        pollfd descriptor{watch.Descriptor(), POLLIN, 0};
        return ::poll(&descriptor, 1, 0) == 1;
    }

    const TemporaryDirectory mDirectory;
    const fs::path mFolder = mDirectory.Path();
    const fs::path mFile = mFolder / "file";
};

TEST_F(FileWatchTest, NoticesThatTheFileIsMadeWrittenReplacedAndRemoved) {
    FileWatch watch(mFile);
    EXPECT_FALSE(IsReadable(watch));
    EXPECT_FALSE(watch.TakeChanges());
    Write(mFile);
    EXPECT_TRUE(IsReadable(watch));
    EXPECT_TRUE(watch.TakeChanges());
    EXPECT_FALSE(IsReadable(watch));
    Write(mFile);
    EXPECT_TRUE(watch.TakeChanges());
    Write(mFolder / "new");
    fs::rename(mFolder / "new", mFile);
    EXPECT_TRUE(watch.TakeChanges());
    fs::remove(mFile);
    EXPECT_TRUE(watch.TakeChanges());
    EXPECT_FALSE(watch.TakeChanges());
}

TEST_F(FileWatchTest, LeavesOtherFilesAlone) {
    FileWatch watch(mFile);
    Write(mFolder / "other");
    fs::remove(mFolder / "other");

    EXPECT_FALSE(watch.TakeChanges());
}

TEST_F(FileWatchTest, FollowsAFolderThatIsMadeLater) {
    FileWatch watch(mFolder / "a" / "b" / "file");
    fs::create_directory(mFolder / "a");
    EXPECT_TRUE(watch.TakeChanges());
    fs::create_directory(mFolder / "a" / "b");
    EXPECT_TRUE(watch.TakeChanges());
    Write(mFolder / "a" / "b" / "file");
    EXPECT_TRUE(watch.TakeChanges());
    fs::remove_all(mFolder / "a");
    EXPECT_TRUE(watch.TakeChanges());
    fs::create_directories(mFolder / "a" / "b");
    EXPECT_TRUE(watch.TakeChanges());
    Write(mFolder / "a" / "b" / "file");
    EXPECT_TRUE(watch.TakeChanges());
}

TEST_F(FileWatchTest, NoticesAFolderThatComesInTheOldOnesPlace) {
    fs::create_directory(mFolder / "a");
    FileWatch watch(mFolder / "a" / "file");
    fs::rename(mFolder / "a", mFolder / "old");
    EXPECT_TRUE(watch.TakeChanges());
    fs::create_directory(mFolder / "a");
    EXPECT_TRUE(watch.TakeChanges());
    Write(mFolder / "a" / "file");
    EXPECT_TRUE(watch.TakeChanges());
    Write(mFolder / "old" / "file");
    EXPECT_FALSE(watch.TakeChanges());
}

TEST_F(FileWatchTest, FollowsSymbolicLinks) {
    fs::create_directory(mFolder / "one");
    fs::create_directory(mFolder / "two");
    Write(mFolder / "one" / "target");
    fs::create_symlink("one/target", mFile);
    FileWatch watch(mFile);
    Write(mFolder / "one" / "target");
    EXPECT_TRUE(watch.TakeChanges());
    fs::remove(mFile);
    fs::create_symlink(mFolder / "two" / "target", mFile);
    EXPECT_TRUE(watch.TakeChanges());
    Write(mFolder / "two" / "target");
    EXPECT_TRUE(watch.TakeChanges());
    Write(mFolder / "one" / "target");
    EXPECT_FALSE(watch.TakeChanges());
}

TEST_F(FileWatchTest, EndsAtLinksThatLeadToEachOther) {
    fs::create_symlink("other", mFile);
    fs::create_symlink("file", mFolder / "other");
    FileWatch watch(mFile);
    fs::remove(mFolder / "other");

    EXPECT_TRUE(watch.TakeChanges());
}

} // namespace
} // namespace MidiServer
