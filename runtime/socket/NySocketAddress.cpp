#include "runtime/socket/NySocketAddress.h"

#include "runtime/socket/HostSocket.h"
#include "runtime/string/NyString.h"

#include <netinet/in.h>

#include <algorithm>
#include <cstring>

namespace {

std::string Narrow(const unsigned short* text) {
    std::string narrow;
    NyStringToString(text, narrow);
    return narrow;
}

} // namespace

NySocketAddress::NySocketAddress(unsigned char a, unsigned char b, unsigned char c, unsigned char d,
                                 unsigned short port)
    : mPort(port), mIPv4Address(ComponentsToIPv4Address(a, b, c, d)) {}

NySocketAddress::NySocketAddress(unsigned int address, unsigned short port)
    : mPort(port), mIPv4Address(address) {}

NySocketAddress::NySocketAddress(const sockaddr* address) {
    if (address == nullptr || address->sa_family == AF_UNSPEC) {
        return;
    }
    mFamily = HostFamilyToPlatform(address->sa_family);
    if (mFamily == kIPv4) {
        sockaddr_in ipv4;
        std::memcpy(&ipv4, address, sizeof ipv4);
        unsigned char octets[4];
        std::memcpy(octets, &ipv4.sin_addr, sizeof octets);
        mPort = ipv4.sin_port;
        mIPv4Address = ComponentsToIPv4Address(octets[0], octets[1], octets[2], octets[3]);
    } else if (mFamily == kIPv6) {
        sockaddr_in6 ipv6;
        std::memcpy(&ipv6, address, sizeof ipv6);
        mPort = ipv6.sin6_port;
        std::memcpy(mIPv6Address.data(), &ipv6.sin6_addr, mIPv6Address.size());
    } else {
        mFamily = 0;
    }
}

NySocketAddress::NySocketAddress(const char* text, unsigned short port) {
    StringToIPv4Address(text, mIPv4Address);
    if (port != 0) {
        mPort = port;
    } else {
        StringToPort(text, mPort);
    }
}

NySocketAddress::NySocketAddress(const unsigned short* text, unsigned short port)
    : NySocketAddress(Narrow(text).c_str(), port) {}

unsigned int NySocketAddress::ComponentsToIPv4Address(unsigned char a, unsigned char b,
                                                      unsigned char c, unsigned char d) {
    return a + (static_cast<unsigned int>(b) << 8) + (static_cast<unsigned int>(c) << 16) +
           (static_cast<unsigned int>(d) << 24);
}

void NySocketAddress::IPv4AddressToComponents(unsigned int address, unsigned char& a,
                                              unsigned char& b, unsigned char& c,
                                              unsigned char& d) {
    a = static_cast<unsigned char>(address);
    b = static_cast<unsigned char>(address >> 8);
    c = static_cast<unsigned char>(address >> 16);
    d = static_cast<unsigned char>(address >> 24);
}

bool NySocketAddress::StringToIPv4Address(const char* text, unsigned int& address) {
    std::string rest(text);
    rest.erase(std::min(rest.find(':'), rest.size()));
    unsigned int octets[4];
    for (int i = 0; i < 4; ++i) {
        if (i > 0) {
            const std::size_t dot = rest.find('.');
            if (dot == std::string::npos) {
                return false;
            }
            rest.erase(0, dot + 1);
            if (rest.empty()) {
                return false;
            }
        }
        // If there is no number, this value stays there, which no octet has.
        octets[i] = 256;
        NyStringToValue(rest, octets[i], 10);
        if (octets[i] > 255) {
            return false;
        }
    }
    address = octets[0] + (octets[1] << 8) + (octets[2] << 16) + (octets[3] << 24);
    return true;
}

bool NySocketAddress::StringToIPv4Address(const unsigned short* text, unsigned int& address) {
    return StringToIPv4Address(Narrow(text).c_str(), address);
}

bool NySocketAddress::StringToPort(const char* text, unsigned short& port) {
    const char* colon = std::strchr(text, ':');
    if (colon == nullptr) {
        return true;
    }
    if (colon[1] == '\0') {
        return false;
    }
    NyStringToValue(std::string(colon + 1), port, 10);
    return true;
}

bool NySocketAddress::StringToPort(const unsigned short* text, unsigned short& port) {
    return StringToPort(Narrow(text).c_str(), port);
}

void NySocketAddress::IPv4AddressToString(unsigned int address, std::string& out,
                                          unsigned short port) {
    unsigned char a;
    unsigned char b;
    unsigned char c;
    unsigned char d;
    IPv4AddressToComponents(address, a, b, c, d);
    out = std::to_string(a) + '.' + std::to_string(b) + '.' + std::to_string(c) + '.' +
          std::to_string(d);
    if (port != 0) {
        out += ':' + std::to_string(port);
    }
}

void NySocketAddress::IPv4AddressToString(unsigned int address, tString& out, unsigned short port) {
    std::string narrow;
    IPv4AddressToString(address, narrow, port);
    out = narrow;
}

void NySocketAddress::SetComponentsIPv4(unsigned char a, unsigned char b, unsigned char c,
                                        unsigned char d) {
    mIPv4Address = ComponentsToIPv4Address(a, b, c, d);
}

void NySocketAddress::GetComponentsIPv4(unsigned char& a, unsigned char& b, unsigned char& c,
                                        unsigned char& d) const {
    IPv4AddressToComponents(mIPv4Address, a, b, c, d);
}

void NySocketAddress::SetPort(unsigned short port, bool /*ignored*/) {
    mPort = port;
}

void NySocketAddress::ToNyOSSockAddrStorage(sockaddr_storage& storage) const {
    std::memset(&storage, 0, sizeof storage);
    if (mFamily == kIPv4) {
        sockaddr_in ipv4{};
        ipv4.sin_port = mPort;
        unsigned char octets[4];
        IPv4AddressToComponents(mIPv4Address, octets[0], octets[1], octets[2], octets[3]);
        std::memcpy(&ipv4.sin_addr, octets, sizeof octets);
        std::memcpy(&storage, &ipv4, sizeof ipv4);
        SetHostAddressHeader(storage, AF_INET, sizeof ipv4);
    } else if (mFamily == kIPv6) {
        sockaddr_in6 ipv6{};
        ipv6.sin6_port = mPort;
        std::memcpy(&ipv6.sin6_addr, mIPv6Address.data(), mIPv6Address.size());
        std::memcpy(&storage, &ipv6, sizeof ipv6);
        SetHostAddressHeader(storage, AF_INET6, sizeof ipv6);
    }
}

void NySocketAddress::ToString(std::string& out, bool withPort) const {
    IPv4AddressToString(mIPv4Address, out, withPort ? mPort : static_cast<unsigned short>(0));
}

void NySocketAddress::ToString(tString& out, bool withPort) const {
    IPv4AddressToString(mIPv4Address, out, withPort ? mPort : static_cast<unsigned short>(0));
}

bool NySocketAddress::FromString(const char* text, bool withPort) {
    mFamily = kIPv4;
    const bool addressRead = StringToIPv4Address(text, mIPv4Address);
    return addressRead && (!withPort || StringToPort(text, mPort));
}

bool NySocketAddress::FromString(const unsigned short* text, bool withPort) {
    return FromString(Narrow(text).c_str(), withPort);
}

bool NySocketAddress::operator<(const NySocketAddress& other) const {
    if (mFamily != kIPv4) {
        return false;
    }
    return mIPv4Address != other.mIPv4Address ? mIPv4Address < other.mIPv4Address
                                              : mPort < other.mPort;
}
