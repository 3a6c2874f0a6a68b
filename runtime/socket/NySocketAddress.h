#pragma once

#include <sys/socket.h>

#include <array>
#include <string>

class tString;

// An IPv4 address and port, with room for an IPv6 address, and its text form "a.b.c.d" or
// "a.b.c.d:port".
//
//     NySocketAddress address;
//     if (address.FromString("10.0.0.7:8000", true)) {
//         address.SetPort(htons(address.GetPort())); // as the system wants it
//     }
//
// An address is a plain value without locking. Nothing blocks, and only the text functions
// allocate.
//
// Families have the first platform's numbers on every host: 2 is IPv4 and 30 is IPv6. The port is
// never converted between byte orders. An address that goes to the system must have its port in
// network byte order, and one that comes from the system has it so; the text functions write and
// read the number as it is kept. The IPv4 address is one number, whose least significant byte is
// the first octet.
class NySocketAddress {
public:
    static constexpr int kIPv4 = 2;
    static constexpr int kIPv6 = 30;

    // Has family 2, port 0 and an address of zeros.
    NySocketAddress() = default;
    NySocketAddress(unsigned char a, unsigned char b, unsigned char c, unsigned char d,
                    unsigned short port);
    NySocketAddress(unsigned int address, unsigned short port);
    // Copies a sockaddr, behind which a whole sockaddr_in or sockaddr_in6 must lie. Null and family
    // 0 give the default address. A family that is neither IPv4 nor IPv6 gives family 0 and port 0.
    explicit NySocketAddress(const sockaddr* address);
    // Has family 2 and the address that the text starts with, or 0 when it starts with none. A
    // `port` of 0 stands for the port in the text.
    NySocketAddress(const char* text, unsigned short port);
    NySocketAddress(const unsigned short* text, unsigned short port);

    // Convert between the four octets of a.b.c.d and the number.
    static unsigned int ComponentsToIPv4Address(unsigned char a, unsigned char b, unsigned char c,
                                                unsigned char d);
    static void IPv4AddressToComponents(unsigned int address, unsigned char& a, unsigned char& b,
                                        unsigned char& c, unsigned char& d);

    // Reads the four octets at the start of `text`, up to its first ":". Characters after the
    // fourth octet are ignored. Returns false, with `address` untouched, when the text does not
    // have four octets of at most 255.
    static bool StringToIPv4Address(const char* text, unsigned int& address);
    static bool StringToIPv4Address(const unsigned short* text, unsigned int& address);

    // Reads the port after the first ":" of `text`. Returns false when the text ends with that ":".
    // Returns true, with `port` untouched, when there is no ":" or no number after it.
    static bool StringToPort(const char* text, unsigned short& port);
    static bool StringToPort(const unsigned short* text, unsigned short& port);

    // Writes "a.b.c.d", followed by ":port" unless the port is 0.
    static void IPv4AddressToString(unsigned int address, std::string& out, unsigned short port);
    static void IPv4AddressToString(unsigned int address, tString& out, unsigned short port);

    void SetComponentsIPv4(unsigned char a, unsigned char b, unsigned char c, unsigned char d);
    void GetComponentsIPv4(unsigned char& a, unsigned char& b, unsigned char& c,
                           unsigned char& d) const;
    void SetAddressIPv4(unsigned int address) { mIPv4Address = address; }
    unsigned int GetAddressIPv4() const { return mIPv4Address; }
    // Sets the port. The flag is ignored.
    void SetPort(unsigned short port, bool ignored = false);
    unsigned short GetPort() const { return mPort; }
    int GetFamily() const { return mFamily; }

    // Zeroes all of `storage` and writes a sockaddr_in (family 2) or sockaddr_in6 (family 30) into
    // it; any other family leaves it zeroed.
    void ToNyOSSockAddrStorage(sockaddr_storage& storage) const;

    // Writes the IPv4 address, with the port if `withPort`.
    void ToString(std::string& out, bool withPort) const;
    void ToString(tString& out, bool withPort) const;

    // Sets family 2, the address in `text` and, if `withPort`, the port. Returns true when it could
    // read all of them. What it could not read keeps its value.
    bool FromString(const char* text, bool withPort);
    bool FromString(const unsigned short* text, bool withPort);

    bool operator==(const NySocketAddress& other) const = default;
    // Orders by the IPv4 number, then by the port. Always false unless this address has family 2.
    bool operator<(const NySocketAddress& other) const;

private:
    int mFamily = kIPv4;
    unsigned short mPort = 0;
    unsigned int mIPv4Address = 0;
    std::array<unsigned char, 16> mIPv6Address{};
};
