#include "tests/unit/platform/CoreFoundation/values/CFTestValues.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace {

CFOwned<CFURLRef> FileURL(const std::string& path, bool isDirectory = false) {
    return CFOwned<CFURLRef>(CFURLCreateFromFileSystemRepresentation(
        nullptr, reinterpret_cast<const UInt8*>(path.data()), static_cast<CFIndex>(path.size()),
        isDirectory));
}

std::string Path(CFURLRef url) {
    UInt8 buffer[4096];
    return CFURLGetFileSystemRepresentation(url, true, buffer, sizeof(buffer))
               ? reinterpret_cast<const char*>(buffer)
               : "<failed>";
}

TEST(CFURL, KeepsPathsTidy) {
    EXPECT_EQ(Path(FileURL("/a//b/").Get()), "/a/b");
    EXPECT_EQ(Path(FileURL("/").Get()), "/");
    EXPECT_EQ(Path(FileURL("//").Get()), "/");
    EXPECT_EQ(Path(FileURL("/a/../b").Get()), "/a/../b");
    EXPECT_EQ(Path(FileURL("\x2F\xFF").Get()), "\x2F\xFF");
}

TEST(CFURL, CompletesRelativePaths) {
    const std::string here = std::filesystem::current_path().string();
    EXPECT_EQ(Path(FileURL("x/y").Get()), here + "/x/y");
}

TEST(CFURL, RefusesWhatIsNoPath) {
    EXPECT_FALSE(FileURL(""));
    EXPECT_FALSE(FileURL(std::string("/a\0b", 4)));
    EXPECT_EQ(CFURLCreateFromFileSystemRepresentation(nullptr, nullptr, 1, false), nullptr);
    EXPECT_EQ(CFURLCreateWithFileSystemPath(nullptr, CFSTR("/a"), 2, false), nullptr);
}

TEST(CFURL, FailsWhenThePathDoesNotFit) {
    UInt8 buffer[3];
    EXPECT_TRUE(CFURLGetFileSystemRepresentation(FileURL("/a").Get(), true, buffer, 3));
    EXPECT_FALSE(CFURLGetFileSystemRepresentation(FileURL("/ab").Get(), true, buffer, 3));
    EXPECT_FALSE(CFURLGetFileSystemRepresentation(FileURL("/a").Get(), true, buffer, 0));
}

TEST(CFURL, AddsAndRemovesParts) {
    const auto folder = FileURL("/lib/QuorvelMIDI.plugin", true);
    const CFOwned<CFURLRef> info(CFURLCreateCopyAppendingPathComponent(
        nullptr, folder.Get(), CFSTR("Contents/Info.plist"), false));
    EXPECT_EQ(Path(info.Get()), "/lib/QuorvelMIDI.plugin/Contents/Info.plist");
    EXPECT_FALSE(CFURLHasDirectoryPath(info.Get()));
    EXPECT_TRUE(CFURLHasDirectoryPath(folder.Get()));
    EXPECT_EQ(ReadOwned(CFURLCopyLastPathComponent(info.Get())), "Info.plist");
    EXPECT_EQ(ReadOwned(CFURLCopyPathExtension(folder.Get())), "plugin");
    EXPECT_EQ(CFURLCopyPathExtension(FileURL("/a/.hidden").Get()), nullptr);
    EXPECT_EQ(CFURLCopyPathExtension(FileURL("/a.b/c").Get()), nullptr);
    const CFOwned<CFURLRef> parent(CFURLCreateCopyDeletingLastPathComponent(nullptr, folder.Get()));
    EXPECT_EQ(Path(parent.Get()), "/lib");
    const CFOwned<CFURLRef> root(CFURLCreateCopyDeletingLastPathComponent(nullptr, parent.Get()));
    EXPECT_EQ(Path(root.Get()), "/");
    const CFOwned<CFURLRef> still(CFURLCreateCopyDeletingLastPathComponent(nullptr, root.Get()));
    EXPECT_EQ(Path(still.Get()), "/");
}

TEST(CFURL, IsWrittenAsAFileURL) {
    EXPECT_EQ(Read(CFURLGetString(FileURL("/a b/%\xFF?", true).Get())), "file:///a%20b/%25%FF%3F/");
    EXPECT_EQ(Read(CFURLGetString(FileURL("/", true).Get())), "file:///");
    EXPECT_EQ(CFURLCopyFileSystemPath(FileURL("/\xFF").Get(), 0), nullptr);
    EXPECT_EQ(ReadOwned(CFURLCopyFileSystemPath(FileURL("/ä").Get(), 0)), "/ä");
    EXPECT_TRUE(CFEqual(FileURL("/a/").Get(), FileURL("/a").Get()));
    EXPECT_FALSE(CFEqual(FileURL("/a", true).Get(), FileURL("/a").Get()));
}

} // namespace
