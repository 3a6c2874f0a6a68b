#include "tests/unit/platform/CoreFoundation/values/CFTestValues.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace {

CFOwned<CFURLRef> FileURL(const std::string& path) {
    return CFOwned<CFURLRef>(CFURLCreateFromFileSystemRepresentation(
        nullptr, reinterpret_cast<const UInt8*>(path.data()), static_cast<CFIndex>(path.size()),
        false));
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
}

TEST(CFURL, FailsWhenThePathDoesNotFit) {
    UInt8 buffer[3];
    EXPECT_TRUE(CFURLGetFileSystemRepresentation(FileURL("/a").Get(), true, buffer, 3));
    EXPECT_FALSE(CFURLGetFileSystemRepresentation(FileURL("/ab").Get(), true, buffer, 3));
    EXPECT_FALSE(CFURLGetFileSystemRepresentation(FileURL("/a").Get(), true, buffer, 0));
}

TEST(CFURL, IsDescribedByItsPath) {
    EXPECT_EQ(ReadOwned(CFCopyDescription(FileURL("/a b/Ã¤").Get())), "file:///a b/Ã¤");
    EXPECT_TRUE(CFEqual(FileURL("/a/").Get(), FileURL("/a").Get()));
    EXPECT_EQ(CFHash(FileURL("/a/").Get()), CFHash(FileURL("/a").Get()));
    EXPECT_FALSE(CFEqual(FileURL("/a").Get(), FileURL("/b").Get()));
}

} // namespace
