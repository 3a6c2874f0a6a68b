#include "runtime/socket/NyResult.h"
#include "runtime/socket/NySocket.h"
#include "runtime/socket/NySocketAddress.h"

#include <gtest/gtest.h>

#include <string>

TEST(RuntimeSamples, Sockets) {
    // Text to address and back. The port is kept as it is: what goes to the system must be in
    // network byte order.
    NySocketAddress address;
    EXPECT_TRUE(address.FromString("10.0.0.1:80", true));
    EXPECT_EQ(address.GetAddressIPv4(), 0x0100000AU);
    std::string text;
    address.ToString(text, true);
    EXPECT_EQ(text, "10.0.0.1:80");

    NySocket socket;
    EXPECT_EQ(socket.Open(kNyIPv4, kNyDatagram), kNyOK);
    EXPECT_EQ(socket.Open(kNyIPv4, kNyDatagram), kNyAlreadyOpen);
    EXPECT_EQ(socket.SetNoDelay(true), kNyNotForThisSocketType); // a stream's option

    NyTime limit;
    limit.Set(NyTime::kMicroseconds, 1500000);
    EXPECT_EQ(socket.SetReceiveTimeout(limit), kNyOK);

    // Port 0: the system chooses one.
    EXPECT_EQ(socket.Bind(NySocketAddress(127, 0, 0, 1, 0)), kNyOK);
    NySocketAddress bound;
    EXPECT_EQ(socket.GetLocalAddress(bound), kNyOK);
    bound.ToString(text, false);
    EXPECT_EQ(text, "127.0.0.1");
    EXPECT_NE(bound.GetPort(), 0);
    EXPECT_EQ(socket.Close(), kNyOK);
}
