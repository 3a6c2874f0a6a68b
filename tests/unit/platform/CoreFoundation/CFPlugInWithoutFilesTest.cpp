// Plug-ins in a build that reads no property-list files.
#include <CoreFoundation/CFPlugIn.h>
#include <CoreFoundation/CFPlugInHost.h>

#include "tests/support/CFHandle.h"
#include "tests/support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

TEST(CFPlugInWithoutFiles, RefusesEveryBundleAndNamesTheFileThatItCannotRead) {
    const TemporaryDirectory directory;
    const std::string folder = std::filesystem::canonical(directory.Path()).string();
    std::filesystem::create_directory(folder + "/Contents");
    std::ofstream(folder + "/Contents/Info.plist") << "<plist><dict/></plist>";
    const CFHandle<CFURLRef> url(CFURLCreateFromFileSystemRepresentation(
        nullptr, reinterpret_cast<const UInt8*>(folder.data()), static_cast<CFIndex>(folder.size()),
        true));
    EXPECT_EQ(CFPlugInCreate(nullptr, url.Get()), nullptr);
    const CFHandle<CFStringRef> text(CFPlugInHostCopyLastError());
    std::array<char, 1024> buffer{};
    ASSERT_TRUE(
        CFStringGetCString(text.Get(), buffer.data(), buffer.size(), kCFStringEncodingUTF8));
    EXPECT_EQ(std::string(buffer.data()).find(folder + "/Contents/Info.plist: expected"), 0U)
        << buffer.data();
}

TEST(CFPlugInWithoutFiles, IgnoresInstancesOfFactoriesThatNobodyRegistered) {
    const CFHandle<CFUUIDRef> factory(CFUUIDCreate(nullptr));
    CFPlugInAddInstanceForFactory(factory.Get());
    CFPlugInRemoveInstanceForFactory(factory.Get());
    EXPECT_EQ(CFPlugInInstanceCreate(nullptr, factory.Get(), factory.Get()), nullptr);
    EXPECT_EQ(CFPlugInHostUnloadUnused(), 0);
}

} // namespace
