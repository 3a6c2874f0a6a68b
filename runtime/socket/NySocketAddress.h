// An IPv4 address and port, with room for IPv6, and its text form "a.b.c.d" or "a.b.c.d:port".
//
// A plain value: no locking, and nothing blocks. Only the text functions allocate.
//
// Families are the first platform's numbers on every host: 2 is IPv4, 30 is IPv6. The port is kept
// and copied as it is, from and to a sockaddr too, without a byte-order conversion: what goes to
// the system must be in network byte order, and what comes from it is. The text functions write and
// read the number that is kept. The IPv4 word has the first octet in its least significant byte.
#pragma once

#include <array>
#include <string>

#include <sys/socket.h>

class tString;

class NySocketAddress {
public:
    static constexpr int kIPv4 = 2;
    static constexpr int kIPv6 = 30;

    // Family 2, port 0, all address bytes 0.
    NySocketAddress() = default;
    NySocketAddress(unsigned char a, unsigned char b, unsigned char c, unsigned char d,
                    unsigned short port);
    NySocketAddress(unsigned int address, unsigned short port);
    // Null or a sockaddr of family 0 gives the default address; one of a family that is neither
    // IPv4 nor IPv6 gives family 0 and port 0. At least a sockaddr_in or sockaddr_in6 must lie
    // there.
    explicit NySocketAddress(const sockaddr* address);
    // Family 2 and the address that the text starts with, 0 when it starts with none. A `port` of 0
    // stands for the port in the text.
    NySocketAddress(const char* text, unsigned short port);
    NySocketAddress(const unsigned short* text, unsigned short port);

    static unsigned int ComponentsToIPv4Address(unsigned char a, unsigned char b, unsigned char c,
                                                unsigned char d);
    static void IPv4AddressToComponents(unsigned int address, unsigned char& a, unsigned char& b,
                                        unsigned char& c, unsigned char& d);

    // Reads the four octets at the start of `text`, up to its first ":". Characters behind the
    // fourth octet are ignored. False, with `address` untouched, when there are no four octets of
    // at most 255.
    static bool StringToIPv4Address(const char* text, unsigned int& address);
    static bool StringToIPv4Address(const unsigned short* text, unsigned int& address);

    // Reads the port behind the first ":" of `text`. True, with `port` untouched, when there is no
    // ":" or no number behind it; false when nothing at all is behind it.
    static bool StringToPort(const char* text, unsigned short& port);
    static bool StringToPort(const unsigned short* text, unsigned short& port);

    // "a.b.c.d", and ":port" unless the port is 0.
    static void IPv4AddressToString(unsigned int address, std::string& out, unsigned short port);
    static void IPv4AddressToString(unsigned int address, tString& out, unsigned short port);

    void SetComponentsIPv4(unsigned char a, unsigned char b, unsigned char c, unsigned char d);
    void GetComponentsIPv4(unsigned char& a, unsigned char& b, unsigned char& c,
                           unsigned char& d) const;
    void SetAddressIPv4(unsigned int address) { mIPv4Address = address; }
    unsigned int GetAddressIPv4() const { return mIPv4Address; }
    // The flag is ignored.
    void SetPort(unsigned short port, bool ignored = false);
    unsigned short GetPort() const { return mPort; }
    int GetFamily() const { return mFamily; }

    // Zeroes all of `storage` and writes a sockaddr_in (family 2) or sockaddr_in6 (family 30) into
    // it; any other family leaves it zeroed.
    void ToNyOSSockAddrStorage(sockaddr_storage& storage) const;

    // The IPv4 address, with the port if `withPort`.
    void ToString(std::string& out, bool withPort) const;
    void ToString(tString& out, bool withPort) const;

    // Sets family 2, the address in `text` and, if `withPort`, the port. True when all of them
    // could be read; what could not keeps its value.
    bool FromString(const char* text, bool withPort);
    bool FromString(const unsigned short* text, bool withPort);

    bool operator==(const NySocketAddress& other) const = default;
    // By IPv4 word, then by port; always false unless this address is of family 2.
    bool operator<(const NySocketAddress& other) const;

private:
    int mFamily = kIPv4;
    unsigned short mPort = 0;
    unsigned int mIPv4Address = 0;
    std::array<unsigned char, 16> mIPv6Address{};
};
