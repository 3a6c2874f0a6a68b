#include "runtime/socket/HostSocket.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <set>

namespace {

TEST(HostSocketTest, ErrorsAreMatchedByNameToTheFirstPlatformsNumbers) {
    EXPECT_EQ(HostErrorToPlatformError(0), 0);
    EXPECT_EQ(HostErrorToPlatformError(EPERM), 1);
    EXPECT_EQ(HostErrorToPlatformError(EBADF), 9);
    EXPECT_EQ(HostErrorToPlatformError(EDEADLK), 11);
    EXPECT_EQ(HostErrorToPlatformError(EAGAIN), 35);
    EXPECT_EQ(HostErrorToPlatformError(EINPROGRESS), 36);
    EXPECT_EQ(HostErrorToPlatformError(ENOPROTOOPT), 42);
    EXPECT_EQ(HostErrorToPlatformError(EADDRINUSE), 48);
    EXPECT_EQ(HostErrorToPlatformError(EADDRNOTAVAIL), 49);
    EXPECT_EQ(HostErrorToPlatformError(ENOTCONN), 57);
    EXPECT_EQ(HostErrorToPlatformError(ETIMEDOUT), 60);
    EXPECT_EQ(HostErrorToPlatformError(ECONNREFUSED), 61);
    EXPECT_EQ(HostErrorToPlatformError(EHOSTUNREACH), 65);
    EXPECT_EQ(HostErrorToPlatformError(ENOSYS), 78);
    EXPECT_EQ(HostErrorToPlatformError(ETIME), 101);
}

TEST(HostSocketTest, AnErrorWithoutACounterpartIsNoPlatformError) {
    EXPECT_EQ(HostErrorToPlatformError(-1), -1);
    EXPECT_EQ(HostErrorToPlatformError(4095), -1);
}

TEST(HostSocketTest, NoTwoHostErrorsShareAPlatformError) {
    std::set<int> seen;
    for (int error = 1; error < 200; ++error) {
        const int platform = HostErrorToPlatformError(error);
        if (platform != -1) {
            EXPECT_TRUE(seen.insert(platform).second) << error << " gives " << platform;
        }
    }
    EXPECT_GE(seen.size(), 80U);
}

TEST(HostSocketTest, ThirtyIsIPv6OnEveryHost) {
    EXPECT_EQ(PlatformFamilyToHost(30), AF_INET6);
    EXPECT_EQ(PlatformFamilyToHost(2), AF_INET);
    EXPECT_EQ(HostFamilyToPlatform(AF_INET6), 30);
    EXPECT_EQ(HostFamilyToPlatform(AF_INET), 2);
    EXPECT_EQ(HostFamilyToPlatform(AF_UNIX), AF_UNIX);
}

} // namespace
