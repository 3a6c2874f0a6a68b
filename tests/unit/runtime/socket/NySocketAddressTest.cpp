#include "runtime/socket/NySocketAddress.h"

#include "runtime/string/NyString.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/un.h>

#include <cstring>
#include <random>
#include <string>

namespace {

std::string Text(const NySocketAddress& address, bool withPort = true) {
    std::string text;
    address.ToString(text, withPort);
    return text;
}

TEST(NySocketAddressTest, TheDefaultIsFamilyTwoWithEverythingZero) {
    const NySocketAddress address;
    EXPECT_EQ(address.GetFamily(), 2);
    EXPECT_EQ(address.GetPort(), 0);
    EXPECT_EQ(address.GetAddressIPv4(), 0U);
    EXPECT_EQ(Text(address), "0.0.0.0");
}

TEST(NySocketAddressTest, TheFirstOctetLiesInTheLeastSignificantByte) {
    EXPECT_EQ(NySocketAddress::ComponentsToIPv4Address(10, 0, 0, 1), 0x0100000AU);
    EXPECT_EQ(NySocketAddress::ComponentsToIPv4Address(255, 254, 253, 252), 0xFCFDFEFFU);
    unsigned char a = 0;
    unsigned char b = 0;
    unsigned char c = 0;
    unsigned char d = 0;
    NySocketAddress::IPv4AddressToComponents(0x0403FF01, a, b, c, d);
    EXPECT_EQ(a, 1);
    EXPECT_EQ(b, 255);
    EXPECT_EQ(c, 3);
    EXPECT_EQ(d, 4);
}

TEST(NySocketAddressTest, TextWithAPortIsReadAndPrintedAgain) {
    NySocketAddress address;
    ASSERT_TRUE(address.FromString("10.0.0.1:80", true));
    EXPECT_EQ(address.GetAddressIPv4(), 0x0100000AU);
    EXPECT_EQ(address.GetPort(), 80);
    EXPECT_EQ(Text(address), "10.0.0.1:80");
    EXPECT_EQ(Text(address, false), "10.0.0.1");
}

TEST(NySocketAddressTest, TextThatIsNotFourOctetsFailsAndKeepsTheAddress) {
    for (const char* text : {"", "10", "10.0.0", "10.0.0.", "10.0.0.256", "256.0.0.1", "a.0.0.1",
                             "10..0.1", "10.0.0.x", ".0.0.1", ":80", "10.0.0:1.2", "-1.0.0.1"}) {
        NySocketAddress address(1, 2, 3, 4, 5);
        EXPECT_FALSE(address.FromString(text, false)) << text;
        EXPECT_EQ(Text(address), "1.2.3.4:5") << text;
    }
}

TEST(NySocketAddressTest, CharactersBehindTheFourthOctetAreIgnored) {
    NySocketAddress address;
    EXPECT_TRUE(address.FromString("1.2.3.4.5", false));
    EXPECT_EQ(Text(address), "1.2.3.4");
    EXPECT_TRUE(address.FromString("1.2.3.5 and more", false));
    EXPECT_EQ(Text(address), "1.2.3.5");
}

TEST(NySocketAddressTest, AColonWithoutDigitsFailsOnlyWhenThePortIsAskedFor) {
    NySocketAddress address;
    EXPECT_FALSE(address.FromString("10.0.0.1:", true));
    EXPECT_TRUE(address.FromString("10.0.0.1:", false));
}

TEST(NySocketAddressTest, ATextWithoutAPortKeepsTheOldPort) {
    NySocketAddress address(1, 2, 3, 4, 5555);
    EXPECT_TRUE(address.FromString("10.0.0.1", true));
    EXPECT_EQ(Text(address), "10.0.0.1:5555");
}

TEST(NySocketAddressTest, APortThatIsNoNumberSucceedsAndKeepsTheOldPort) {
    unsigned short port = 99;
    EXPECT_TRUE(NySocketAddress::StringToPort("1.2.3.4:http", port));
    EXPECT_EQ(port, 99);
    EXPECT_TRUE(NySocketAddress::StringToPort("1.2.3.4:65536", port));
    EXPECT_EQ(port, 99);
    EXPECT_TRUE(NySocketAddress::StringToPort("no colon", port));
    EXPECT_EQ(port, 99);
    EXPECT_FALSE(NySocketAddress::StringToPort("1.2.3.4:", port));
    EXPECT_TRUE(NySocketAddress::StringToPort(":65535", port));
    EXPECT_EQ(port, 65535);
}

TEST(NySocketAddressTest, AGivenPortWinsOverTheOneInTheText) {
    EXPECT_EQ(Text(NySocketAddress("10.1.2.3:80", 443)), "10.1.2.3:443");
    EXPECT_EQ(Text(NySocketAddress("10.1.2.3:80", 0)), "10.1.2.3:80");
    EXPECT_EQ(Text(NySocketAddress("nonsense", 7)), "0.0.0.0:7");
}

TEST(NySocketAddressTest, SixteenBitTextBehavesAsItsUTF8Form) {
    const tString text("192.168.0.17:1234");
    EXPECT_EQ(Text(NySocketAddress(text.c_str(), 0)), "192.168.0.17:1234");
    NySocketAddress address;
    EXPECT_TRUE(address.FromString(text.c_str(), true));
    EXPECT_EQ(address.GetPort(), 1234);
    unsigned int word = 0;
    EXPECT_TRUE(NySocketAddress::StringToIPv4Address(text.c_str(), word));
    EXPECT_EQ(word, 0x1100A8C0U);
    unsigned short port = 0;
    EXPECT_TRUE(NySocketAddress::StringToPort(text.c_str(), port));
    EXPECT_EQ(port, 1234);
    tString printed;
    address.ToString(printed, true);
    EXPECT_EQ(printed, text);
}

TEST(NySocketAddressTest, PortZeroIsNotPrinted) {
    std::string text;
    NySocketAddress::IPv4AddressToString(0x0100007F, text, 0);
    EXPECT_EQ(text, "127.0.0.1");
    NySocketAddress::IPv4AddressToString(0x0100007F, text, 65535);
    EXPECT_EQ(text, "127.0.0.1:65535");
}

TEST(NySocketAddressTest, ASockaddrCopiesThePortAsItLies) {
    sockaddr_in ipv4{};
    ipv4.sin_family = AF_INET;
    ipv4.sin_port = 0x1234;
    inet_pton(AF_INET, "10.20.30.40", &ipv4.sin_addr);
    const NySocketAddress address(reinterpret_cast<const sockaddr*>(&ipv4));
    EXPECT_EQ(address.GetFamily(), 2);
    EXPECT_EQ(address.GetPort(), 0x1234);
    EXPECT_EQ(Text(address, false), "10.20.30.40");

    sockaddr_storage storage;
    std::memset(&storage, 0xEE, sizeof storage);
    address.ToNyOSSockAddrStorage(storage);
    sockaddr_storage expected{};
    std::memcpy(&expected, &ipv4, sizeof ipv4);
    EXPECT_EQ(std::memcmp(&storage, &expected, sizeof storage), 0);
}

TEST(NySocketAddressTest, AnIPv6SockaddrKeepsItsBytesUnderFamilyThirty) {
    sockaddr_in6 ipv6{};
    ipv6.sin6_family = AF_INET6;
    ipv6.sin6_port = 0x5678;
    inet_pton(AF_INET6, "2001:db8::17", &ipv6.sin6_addr);
    const NySocketAddress address(reinterpret_cast<const sockaddr*>(&ipv6));
    EXPECT_EQ(address.GetFamily(), 30);
    EXPECT_EQ(address.GetPort(), 0x5678);
    EXPECT_EQ(address.GetAddressIPv4(), 0U);

    sockaddr_storage storage;
    std::memset(&storage, 0xEE, sizeof storage);
    address.ToNyOSSockAddrStorage(storage);
    EXPECT_EQ(std::memcmp(&storage, &ipv6, sizeof ipv6), 0);
}

TEST(NySocketAddressTest, NullAndFamilyZeroGiveTheDefaultAndOtherFamiliesGiveZero) {
    EXPECT_EQ(NySocketAddress(static_cast<const sockaddr*>(nullptr)), NySocketAddress());
    sockaddr_storage storage{};
    EXPECT_EQ(NySocketAddress(reinterpret_cast<const sockaddr*>(&storage)), NySocketAddress());

    storage.ss_family = AF_UNIX;
    const NySocketAddress other(reinterpret_cast<const sockaddr*>(&storage));
    EXPECT_EQ(other.GetFamily(), 0);
    EXPECT_EQ(other.GetPort(), 0);

    std::memset(&storage, 0xEE, sizeof storage);
    other.ToNyOSSockAddrStorage(storage);
    const sockaddr_storage zero{};
    EXPECT_EQ(std::memcmp(&storage, &zero, sizeof storage), 0);
}

TEST(NySocketAddressTest, EqualityLooksAtEverythingAndOrderAtFamilyTwoOnly) {
    const NySocketAddress a(10, 0, 0, 1, 80);
    EXPECT_EQ(a, NySocketAddress(0x0100000AU, 80));
    EXPECT_NE(a, NySocketAddress(0x0100000AU, 81));
    EXPECT_NE(a, NySocketAddress(0x0200000AU, 80));
    EXPECT_TRUE(a < NySocketAddress(0x0100000AU, 81));
    EXPECT_TRUE(a < NySocketAddress(0x0100000BU, 1));
    EXPECT_TRUE(a < NySocketAddress(0xFF00000AU, 80)) << "the word is unsigned";
    EXPECT_FALSE(a < a);

    sockaddr_in6 ipv6{};
    ipv6.sin6_family = AF_INET6;
    ipv6.sin6_port = 1;
    const NySocketAddress six(reinterpret_cast<const sockaddr*>(&ipv6));
    EXPECT_FALSE(six < a);
    EXPECT_TRUE(NySocketAddress(0U, 0) < six) << "only this address's family is looked at";
    EXPECT_NE(six, NySocketAddress(0U, 1));
}

TEST(NySocketAddressTest, AccessorsSetWhatTheyName) {
    NySocketAddress address;
    address.SetComponentsIPv4(1, 2, 3, 4);
    address.SetPort(9, true);
    unsigned char octets[4];
    address.GetComponentsIPv4(octets[0], octets[1], octets[2], octets[3]);
    EXPECT_EQ(octets[3], 4);
    EXPECT_EQ(Text(address), "1.2.3.4:9");
    address.SetAddressIPv4(0x0100007F);
    EXPECT_EQ(Text(address), "127.0.0.1:9");
}

TEST(NySocketAddressTest, RandomAddressesPrintAsTheSystemDoesAndReadBack) {
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE(::testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    for (int round = 0; round < 20000; ++round) {
        const auto word = static_cast<unsigned int>(random());
        const auto port = static_cast<unsigned short>(random());
        const NySocketAddress address(word, port);
        sockaddr_storage storage;
        address.ToNyOSSockAddrStorage(storage);
        sockaddr_in ipv4;
        std::memcpy(&ipv4, &storage, sizeof ipv4);
        char system[INET_ADDRSTRLEN];
        ASSERT_NE(inet_ntop(AF_INET, &ipv4.sin_addr, system, sizeof system), nullptr);
        ASSERT_EQ(Text(address, false), system);
        NySocketAddress read;
        ASSERT_TRUE(read.FromString(Text(address).c_str(), true));
        ASSERT_EQ(read, address);
    }
}

} // namespace
