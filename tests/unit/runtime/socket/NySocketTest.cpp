// Against the real kernel, on the loopback interface.
#include "runtime/socket/NySocket.h"

#include "runtime/socket/HostSocket.h"
#include "runtime/socket/NyResult.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>

namespace {

NyTime Microseconds(long long value) {
    NyTime time;
    time.Set(NyTime::kMicroseconds, value);
    return time;
}

NySocketAddress Loopback(unsigned short port = 0) {
    return {127, 0, 0, 1, port};
}

NySocketAddress LoopbackIPv6() {
    sockaddr_in6 ipv6{};
    ipv6.sin6_family = AF_INET6;
    ipv6.sin6_addr = in6addr_loopback;
    return NySocketAddress(reinterpret_cast<const sockaddr*>(&ipv6));
}

int Connect(int descriptor, const NySocketAddress& address) {
    sockaddr_storage storage;
    address.ToNyOSSockAddrStorage(storage);
    const socklen_t length = address.GetFamily() == 30 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
    return ::connect(descriptor, reinterpret_cast<const sockaddr*>(&storage), length);
}

bool IPv6IsAvailable() {
    NySocket socket;
    return socket.Open(kNyIPv6, kNyStream) == 0 && socket.Bind(LoopbackIPv6()) == 0;
}

TEST(NySocketTest, OpenGivesADescriptorOfTheAskedFamilyAndType) {
    for (tNySocketType type : {kNyStream, kNyDatagram}) {
        NySocket socket;
        ASSERT_EQ(socket.Open(kNyIPv4, type), 0);
        int kernelType = 0;
        socklen_t length = sizeof kernelType;
        ASSERT_EQ(getsockopt(socket.GetDescriptor(), SOL_SOCKET, SO_TYPE, &kernelType, &length), 0);
        EXPECT_EQ(kernelType, type == kNyStream ? SOCK_STREAM : SOCK_DGRAM);
        int domain = 0;
        length = sizeof domain;
        ASSERT_EQ(getsockopt(socket.GetDescriptor(), SOL_SOCKET, SO_DOMAIN, &domain, &length), 0);
        EXPECT_EQ(domain, AF_INET);
    }
}

TEST(NySocketTest, FamilyThirtyOpensAnIPv6Socket) {
    if (!IPv6IsAvailable()) {
        GTEST_SKIP() << "this host has no IPv6 loopback";
    }
    NySocket socket;
    ASSERT_EQ(socket.Open(kNyIPv6, kNyDatagram), 0);
    int domain = 0;
    socklen_t length = sizeof domain;
    ASSERT_EQ(getsockopt(socket.GetDescriptor(), SOL_SOCKET, SO_DOMAIN, &domain, &length), 0);
    EXPECT_EQ(domain, AF_INET6);
    ASSERT_EQ(socket.Bind(LoopbackIPv6()), 0);
    NySocketAddress local;
    ASSERT_EQ(socket.GetLocalAddress(local), 0);
    EXPECT_EQ(local.GetFamily(), 30);
    EXPECT_NE(local.GetPort(), 0);
}

TEST(NySocketTest, OpeningAnOpenSocketIsRefusedAndKeepsTheDescriptor) {
    NySocket socket;
    ASSERT_EQ(socket.Open(kNyIPv4, kNyStream), 0);
    const int descriptor = socket.GetDescriptor();
    EXPECT_EQ(socket.Open(kNyIPv4, kNyDatagram), 4);
    EXPECT_EQ(socket.GetDescriptor(), descriptor);
    EXPECT_EQ(socket.GetType(), kNyDatagram) << "family and type are stored first";
}

TEST(NySocketTest, AFamilyThatTheSystemDoesNotHaveGivesItsMappedError) {
    NySocket socket;
    EXPECT_EQ(socket.Open(static_cast<tNySocketFamily>(12345), kNyStream), 41)
        << "address family not supported";
    EXPECT_EQ(socket.GetDescriptor(), -1);
}

TEST(NySocketTest, OpenMarksTheLayerInitialised) {
    NySocket::Cleanup();
    EXPECT_FALSE(NySocket::IsInitialized());
    NySocket socket;
    ASSERT_EQ(socket.Open(kNyIPv4, kNyStream), 0);
    EXPECT_TRUE(NySocket::IsInitialized());
}

TEST(NySocketTest, CloseForgetsTheDescriptorBlockingAndBinding) {
    NySocket socket;
    EXPECT_EQ(socket.Close(), 0);
    ASSERT_EQ(socket.Open(kNyIPv4, kNyDatagram), 0);
    ASSERT_EQ(socket.Bind(Loopback()), 0);
    const int descriptor = socket.GetDescriptor();
    EXPECT_TRUE(socket.IsBlocking());
    EXPECT_EQ(socket.Close(), 0);
    EXPECT_EQ(socket.GetDescriptor(), -1);
    EXPECT_FALSE(socket.IsBlocking());
    EXPECT_EQ(fcntl(descriptor, F_GETFD), -1);
    ASSERT_EQ(socket.Open(kNyIPv4, kNyDatagram), 0);
    EXPECT_EQ(socket.Bind(Loopback()), 0) << "not bound any more";
}

TEST(NySocketTest, ClosingADescriptorThatIsGoneGivesTheMappedErrorAndForgetsIt) {
    NySocket socket;
    ASSERT_EQ(socket.Open(kNyIPv4, kNyStream), 0);
    ASSERT_EQ(::close(socket.GetDescriptor()), 0);
    EXPECT_EQ(socket.Close(), 19);
    EXPECT_EQ(socket.GetDescriptor(), -1);
}

TEST(NySocketTest, AWrappedDescriptorIsClosedOnlyWhenItIsOwned) {
    const int kept = ::socket(AF_INET, SOCK_STREAM, 0);
    {
        NySocket socket(kept, false);
        EXPECT_EQ(socket.Close(), 0);
        EXPECT_EQ(socket.GetDescriptor(), kept);
    }
    EXPECT_NE(fcntl(kept, F_GETFD), -1);
    { const NySocket socket(kept, true); }
    EXPECT_EQ(fcntl(kept, F_GETFD), -1);
}

TEST(NySocketTest, EveryOperationWithoutADescriptorSaysSo) {
    NySocket socket;
    NySocketAddress address;
    NyTime time;
    bool on = false;
    unsigned long receive = 0;
    unsigned long send = 0;
    EXPECT_EQ(socket.Bind(Loopback()), 5);
    EXPECT_EQ(socket.GetRemoteAddress(address), 5);
    EXPECT_EQ(socket.GetLocalAddress(address), 5);
    EXPECT_EQ(socket.SetNoSigPipe(true), 5);
    EXPECT_EQ(socket.GetNoSigPipe(on), 5);
    EXPECT_EQ(socket.SetLinger(true, 1), 5);
    EXPECT_EQ(socket.GetLinger(on), 5);
    EXPECT_EQ(socket.SetReceiveTimeout(time), 5);
    EXPECT_EQ(socket.GetReceiveTimeout(time), 5);
    EXPECT_EQ(socket.SetSendTimeout(time), 5);
    EXPECT_EQ(socket.GetSendTimeout(time), 5);
    EXPECT_EQ(socket.SetNoDelay(true), 5);
    EXPECT_EQ(socket.GetNoDelay(on), 5);
    EXPECT_EQ(socket.SetBroadcast(true), 5);
    EXPECT_EQ(socket.GetBroadcast(on), 5);
    EXPECT_EQ(socket.SetReuseAddress(true), 5);
    EXPECT_EQ(socket.GetReuseAddress(on), 5);
    EXPECT_EQ(socket.SetKeepAlive(true), 5);
    EXPECT_EQ(socket.GetKeepAlive(on), 5);
    EXPECT_EQ(socket.SetBufferSizes(1, 1), 5);
    EXPECT_EQ(socket.GetBufferSizes(receive, send), 5);
    EXPECT_EQ(socket.SetBlocking(false), 7) << "not mapped";
}

class NySocketOptionTest : public ::testing::TestWithParam<tNySocketType> {
protected:
    void SetUp() override { ASSERT_EQ(mSocket.Open(kNyIPv4, GetParam()), 0); }

    template <typename Set, typename Get>
    void ExpectFlag(Set set, Get get) {
        for (bool wanted : {true, false, true}) {
            ASSERT_EQ((mSocket.*set)(wanted), 0);
            bool on = !wanted;
            ASSERT_EQ((mSocket.*get)(on), 0);
            EXPECT_EQ(on, wanted);
        }
    }

    template <typename Set, typename Get>
    void ExpectStreamFlag(Set set, Get get) {
        if (GetParam() == kNyStream) {
            ExpectFlag(set, get);
        } else {
            bool on = false;
            EXPECT_EQ((mSocket.*set)(true), 35);
            EXPECT_EQ((mSocket.*get)(on), 35);
        }
    }

    NySocket mSocket;
};

INSTANTIATE_TEST_SUITE_P(Types, NySocketOptionTest, ::testing::Values(kNyStream, kNyDatagram),
                         [](const auto& type) {
                             return type.param == kNyStream ? "Stream" : "Datagram";
                         });

TEST_P(NySocketOptionTest, FlagsReadBackAsTheyWereSet) {
    ExpectFlag(&NySocket::SetBroadcast, &NySocket::GetBroadcast);
    ExpectFlag(&NySocket::SetReuseAddress, &NySocket::GetReuseAddress);
}

TEST_P(NySocketOptionTest, StreamFlagsAreRefusedOnADatagramSocket) {
    ExpectStreamFlag(&NySocket::SetNoDelay, &NySocket::GetNoDelay);
    ExpectStreamFlag(&NySocket::SetKeepAlive, &NySocket::GetKeepAlive);
}

TEST_P(NySocketOptionTest, LingerIsForStreamsAndReadsBackItsFlag) {
    bool on = false;
    if (GetParam() == kNyDatagram) {
        EXPECT_EQ(mSocket.SetLinger(true, 1), 35);
        EXPECT_EQ(mSocket.GetLinger(on), 35);
        return;
    }
    ASSERT_EQ(mSocket.SetLinger(true, 7), 0);
    ASSERT_EQ(mSocket.GetLinger(on), 0);
    EXPECT_TRUE(on);
    linger value{};
    socklen_t length = sizeof value;
    ASSERT_EQ(getsockopt(mSocket.GetDescriptor(), SOL_SOCKET, SO_LINGER, &value, &length), 0);
    EXPECT_EQ(value.l_linger, 7);
    ASSERT_EQ(mSocket.SetLinger(false, 0), 0);
    ASSERT_EQ(mSocket.GetLinger(on), 0);
    EXPECT_FALSE(on);
}

TEST_P(NySocketOptionTest, TimeoutsReadBackAndZeroIsInfinite) {
    const auto check = [this](auto set, auto get) {
        NyTime time;
        ASSERT_EQ((mSocket.*set)(Microseconds(2500000)), 0);
        ASSERT_EQ((mSocket.*get)(time), 0);
        EXPECT_EQ(time.mSpecial, 0);
        EXPECT_EQ(time.mMicroseconds, 2500000);

        for (long long value : {0LL, -1LL}) {
            NyTime unlimited = Microseconds(0);
            if (value < 0) {
                unlimited.Set(NyTime::kInfinite, 0);
            }
            ASSERT_EQ((mSocket.*set)(unlimited), 0);
            ASSERT_EQ((mSocket.*get)(time), 0);
            EXPECT_EQ(time.mSpecial, 1);
        }
    };
    check(&NySocket::SetReceiveTimeout, &NySocket::GetReceiveTimeout);
    check(&NySocket::SetSendTimeout, &NySocket::GetSendTimeout);
}

TEST_P(NySocketOptionTest, BufferSizesReadBackAsTheyWereSet) {
    unsigned long receive = 0;
    unsigned long send = 0;
    ASSERT_EQ(mSocket.SetBufferSizes(65536, 32768), 0);
    ASSERT_EQ(mSocket.GetBufferSizes(receive, send), 0);
    EXPECT_EQ(receive, 65536U);
    EXPECT_EQ(send, 32768U);
}

TEST_P(NySocketOptionTest, NoSigPipeIsNotAvailableOnThisHostAndSaysSo) {
    bool on = true;
    EXPECT_EQ(mSocket.SetNoSigPipe(true), 36) << "protocol option not available";
    EXPECT_EQ(mSocket.GetNoSigPipe(on), 36);
}

TEST_P(NySocketOptionTest, BlockingIsSwitchedInTheKernelToo) {
    ASSERT_EQ(mSocket.SetBlocking(false), 0);
    EXPECT_FALSE(mSocket.IsBlocking());
    EXPECT_NE(fcntl(mSocket.GetDescriptor(), F_GETFL) & O_NONBLOCK, 0);
    ASSERT_EQ(mSocket.SetBlocking(true), 0);
    EXPECT_TRUE(mSocket.IsBlocking());
    EXPECT_EQ(fcntl(mSocket.GetDescriptor(), F_GETFL) & O_NONBLOCK, 0);
}

TEST(NySocketTest, ASecondBindIsRefusedAndAConflictGivesAddressInUse) {
    NySocket first;
    ASSERT_EQ(first.Open(kNyIPv4, kNyStream), 0);
    ASSERT_EQ(first.Bind(Loopback()), 0);
    EXPECT_EQ(first.Bind(Loopback()), 8);
    NySocketAddress taken;
    ASSERT_EQ(first.GetLocalAddress(taken), 0);

    NySocket second;
    ASSERT_EQ(second.Open(kNyIPv4, kNyStream), 0);
    EXPECT_EQ(second.Bind(taken), 42);
    EXPECT_EQ(second.Bind(Loopback()), 0) << "a failed bind does not count";
}

TEST(NySocketTest, AnAddressOfNoInterfaceCannotBeBound) {
    NySocket socket;
    ASSERT_EQ(socket.Open(kNyIPv4, kNyStream), 0);
    EXPECT_EQ(socket.Bind(NySocketAddress(203, 0, 113, 1, 0)), 43);
}

TEST(NySocketTest, TheTwoEndsOfAConnectionKnowEachOther) {
    NySocket listener;
    ASSERT_EQ(listener.Open(kNyIPv4, kNyStream), 0);
    ASSERT_EQ(listener.Bind(Loopback()), 0);
    ASSERT_EQ(::listen(listener.GetDescriptor(), 1), 0);
    NySocketAddress address;
    ASSERT_EQ(listener.GetLocalAddress(address), 0);

    NySocket client;
    ASSERT_EQ(client.Open(kNyIPv4, kNyStream), 0);
    NySocketAddress none;
    EXPECT_EQ(client.GetRemoteAddress(none), 51) << "not connected";
    ASSERT_EQ(Connect(client.GetDescriptor(), address), 0);
    NySocket server(::accept(listener.GetDescriptor(), nullptr, nullptr), true);
    ASSERT_NE(server.GetDescriptor(), -1);

    NySocketAddress clientLocal;
    NySocketAddress clientRemote;
    NySocketAddress serverLocal;
    NySocketAddress serverRemote;
    ASSERT_EQ(client.GetLocalAddress(clientLocal), 0);
    ASSERT_EQ(client.GetRemoteAddress(clientRemote), 0);
    ASSERT_EQ(server.GetLocalAddress(serverLocal), 0);
    ASSERT_EQ(server.GetRemoteAddress(serverRemote), 0);
    EXPECT_EQ(clientRemote, address);
    EXPECT_EQ(serverLocal, address);
    EXPECT_EQ(serverRemote, clientLocal);
    EXPECT_EQ(clientLocal.GetAddressIPv4(), 0x0100007FU);
}

TEST(NySocketTest, TheEndsOfAnIPv6ConnectionKnowEachOther) {
    if (!IPv6IsAvailable()) {
        GTEST_SKIP() << "this host has no IPv6 loopback";
    }
    NySocket listener;
    ASSERT_EQ(listener.Open(kNyIPv6, kNyStream), 0);
    ASSERT_EQ(listener.Bind(LoopbackIPv6()), 0);
    ASSERT_EQ(::listen(listener.GetDescriptor(), 1), 0);
    NySocketAddress address;
    ASSERT_EQ(listener.GetLocalAddress(address), 0);
    NySocket client;
    ASSERT_EQ(client.Open(kNyIPv6, kNyStream), 0);
    ASSERT_EQ(Connect(client.GetDescriptor(), address), 0);
    NySocketAddress remote;
    ASSERT_EQ(client.GetRemoteAddress(remote), 0);
    EXPECT_EQ(remote, address);
}

TEST(NySocketTest, ARefusedConnectionGivesTheSameResultOnEveryHost) {
    NySocket closed;
    ASSERT_EQ(closed.Open(kNyIPv4, kNyStream), 0);
    ASSERT_EQ(closed.Bind(Loopback()), 0);
    NySocketAddress nobodyListens;
    ASSERT_EQ(closed.GetLocalAddress(nobodyListens), 0);
    NySocket client;
    ASSERT_EQ(client.Open(kNyIPv4, kNyStream), 0);
    ASSERT_EQ(Connect(client.GetDescriptor(), nobodyListens), -1);
    EXPECT_EQ(OSToNyResult(HostErrorToPlatformError(errno)), 55);
}

TEST(NySocketTest, AReceiveTimeoutReallyExpires) {
    NySocket socket;
    ASSERT_EQ(socket.Open(kNyIPv4, kNyDatagram), 0);
    ASSERT_EQ(socket.Bind(Loopback()), 0);
    ASSERT_EQ(socket.SetReceiveTimeout(Microseconds(50000)), 0);
    const auto start = std::chrono::steady_clock::now();
    char byte;
    EXPECT_EQ(::recv(socket.GetDescriptor(), &byte, 1, 0), -1);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(40));
}

TEST(NySocketTest, ASendTimeoutReallyExpires) {
    NySocket listener;
    ASSERT_EQ(listener.Open(kNyIPv4, kNyStream), 0);
    ASSERT_EQ(listener.Bind(Loopback()), 0);
    ASSERT_EQ(::listen(listener.GetDescriptor(), 1), 0);
    NySocketAddress address;
    ASSERT_EQ(listener.GetLocalAddress(address), 0);
    NySocket client;
    ASSERT_EQ(client.Open(kNyIPv4, kNyStream), 0);
    ASSERT_EQ(Connect(client.GetDescriptor(), address), 0);
    ASSERT_EQ(client.SetSendTimeout(Microseconds(50000)), 0);
    // Nobody reads: once the buffers are full, the send waits and gives up.
    const char block[65536] = {};
    ssize_t sent = 0;
    for (int i = 0; i < 10000 && sent != -1; ++i) {
        sent = ::send(client.GetDescriptor(), block, sizeof block, MSG_NOSIGNAL);
    }
    EXPECT_EQ(sent, -1);
    EXPECT_EQ(errno, EAGAIN);
}

} // namespace
