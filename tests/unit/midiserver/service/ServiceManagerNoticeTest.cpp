#include "midiserver/service/ServiceManagerNotice.h"

#include "platform/support/FileDescriptor.h"
#include "tests/support/TemporaryDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <stdexcept>
#include <string>

namespace MidiServer {
namespace {

// The socket on which a service manager listens.
class Manager {
public:
    Manager() : mSocket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
        const std::string path = mDirectory.Path() + "/notify";
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::copy(path.begin(), path.end(), address.sun_path);
        if (::bind(mSocket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) !=
            0) {
            throw std::runtime_error("no socket");
        }
        setenv("NOTIFY_SOCKET", path.c_str(), 1);
    }
    ~Manager() { unsetenv("NOTIFY_SOCKET"); }
    Manager(const Manager&) = delete;
    Manager& operator=(const Manager&) = delete;

    // The oldest notice, or "nothing".
    std::string Notice() const {
        std::array<char, 4096> buffer{};
        const ssize_t size = ::recv(mSocket.Get(), buffer.data(), buffer.size(), 0);
        return size < 0 ? "nothing" : std::string(buffer.data(), static_cast<std::size_t>(size));
    }

private:
    const TemporaryDirectory mDirectory;
    const FileDescriptor mSocket;
};

TEST(ServiceManagerNoticeTest, TellsEachState) {
    const Manager manager;
    ServiceManagerNotice::Ready("4 ports");
    ServiceManagerNotice::Reloading();
    ServiceManagerNotice::Stopping();
    ServiceManagerNotice::Status("waiting for JACK");
    ServiceManagerNotice::KeepAlive();

    EXPECT_EQ(manager.Notice(), "READY=1\nSTATUS=4 ports");
    EXPECT_THAT(
        manager.Notice(),
        testing::MatchesRegex("RELOADING=1\nMONOTONIC_USEC=[0-9]+\nSTATUS=restarting the driver"));
    EXPECT_EQ(manager.Notice(), "STOPPING=1\nSTATUS=stopping");
    EXPECT_EQ(manager.Notice(), "STATUS=waiting for JACK");
    EXPECT_EQ(manager.Notice(), "WATCHDOG=1");
    EXPECT_EQ(manager.Notice(), "nothing");
}

TEST(ServiceManagerNoticeTest, KeepsATextFromBecomingAnotherNotice) {
    const Manager manager;
    ServiceManagerNotice::Status("a\nSTOPPING=1");

    EXPECT_EQ(manager.Notice(), "STATUS=a?STOPPING=1");
}

TEST(ServiceManagerNoticeTest, DoesNothingWithoutAManager) {
    unsetenv("NOTIFY_SOCKET");
    ServiceManagerNotice::Ready("4 ports");
    setenv("NOTIFY_SOCKET", "/nonexistent/notify", 1);
    ServiceManagerNotice::Ready("4 ports");
    unsetenv("NOTIFY_SOCKET");
}

TEST(ServiceManagerNoticeTest, KnowsWhetherItIsWatched) {
    unsetenv("WATCHDOG_PID");
    unsetenv("WATCHDOG_USEC");
    EXPECT_EQ(ServiceManagerNotice::WatchdogTime(), std::nullopt);
    setenv("WATCHDOG_USEC", "2000000", 1);
    EXPECT_EQ(ServiceManagerNotice::WatchdogTime(), std::chrono::seconds(2));
    setenv("WATCHDOG_PID", std::to_string(getpid()).c_str(), 1);
    EXPECT_EQ(ServiceManagerNotice::WatchdogTime(), std::chrono::seconds(2));
    setenv("WATCHDOG_PID", "1", 1);
    EXPECT_EQ(ServiceManagerNotice::WatchdogTime(), std::nullopt);
    unsetenv("WATCHDOG_PID");
    unsetenv("WATCHDOG_USEC");
}

} // namespace
} // namespace MidiServer
