// Gives arbitrary text to the address parser, and arbitrary addresses to the printer and the
// parser.
#include "fuzz/Require.h"
#include "runtime/socket/NySocketAddress.h"
#include "runtime/string/NyString.h"

#include <arpa/inet.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr unsigned int kOtherAddress = 0x5A5A5A5A;
constexpr unsigned short kOtherPort = 0x5A5A;

std::string Print(const NySocketAddress& address, bool withPort) {
    std::string text;
    address.ToString(text, withPort);
    return text;
}

// A printed address reads back as itself, and as the system's own functions print and read it.
void CheckRoundTrip(const NySocketAddress& address) {
    const std::string plain = Print(address, false);
    in_addr word{};
    Require(inet_pton(AF_INET, plain.c_str(), &word) == 1, "the system reads what is printed");
    unsigned char octets[4];
    std::memcpy(octets, &word, sizeof octets);
    Require(NySocketAddress::ComponentsToIPv4Address(octets[0], octets[1], octets[2], octets[3]) ==
                address.GetAddressIPv4(),
            "the system reads the same address");
    char peer[INET_ADDRSTRLEN];
    Require(inet_ntop(AF_INET, &word, peer, sizeof peer) != nullptr && plain == peer,
            "the system prints the same text");

    // A port of 0 is not printed, so the reader keeps its own.
    NySocketAddress read(kOtherAddress, address.GetPort() == 0 ? 0 : kOtherPort);
    Require(read.FromString(Print(address, true).c_str(), true), "what is printed is readable");
    Require(read == address, "what is printed reads back");

    tString wide;
    address.ToString(wide, true);
    NySocketAddress readWide(kOtherAddress, address.GetPort() == 0 ? 0 : kOtherPort);
    Require(readWide.FromString(wide.c_str(), true) && readWide == address,
            "what is printed in UTF-16 reads back");
}

void CheckText(const std::string& text) {
    unsigned int word = kOtherAddress;
    unsigned short port = kOtherPort;
    const bool addressRead = NySocketAddress::StringToIPv4Address(text.c_str(), word);
    const bool portRead = NySocketAddress::StringToPort(text.c_str(), port);
    Require(addressRead || word == kOtherAddress, "a failed read leaves the address");
    Require(portRead || port == kOtherPort, "a failed read leaves the port");
    in_addr peer{};
    if (inet_pton(AF_INET, text.c_str(), &peer) == 1) {
        Require(addressRead, "all that the system reads is readable");
    }

    for (const bool withPort : {false, true}) {
        NySocketAddress address(kOtherAddress, kOtherPort);
        const bool read = address.FromString(text.c_str(), withPort);
        Require(read == (addressRead && (!withPort || portRead)), "the whole is its parts");
        Require(address.GetAddressIPv4() == word, "the whole reads the address of its part");
        Require(address.GetPort() == (withPort && addressRead ? port : kOtherPort),
                "the whole reads the port of its part");
        if (withPort && read) {
            CheckRoundTrip(address);
        }
    }

    const NySocketAddress built(text.c_str(), 0);
    Require(built.GetAddressIPv4() == (addressRead ? word : 0), "the constructor reads the same");
    Require(NySocketAddress(text.c_str(), kOtherPort).GetPort() == kOtherPort,
            "a given port goes before the text's");
}

// The same text in UTF-16, and the bytes taken for UTF-16 as they are.
void CheckWideText(const std::string& text) {
    tString wide;
    if (NyStringToString(text.c_str(), wide) == 0) {
        unsigned int word = kOtherAddress;
        unsigned int wideWord = kOtherAddress;
        Require(NySocketAddress::StringToIPv4Address(text.c_str(), word) ==
                        NySocketAddress::StringToIPv4Address(wide.c_str(), wideWord) &&
                    word == wideWord,
                "UTF-16 reads the same address");
    }
    std::vector<unsigned short> units(text.size() / 2 + 1);
    std::memcpy(units.data(), text.data(), text.size() / 2 * 2);
    const NySocketAddress address(units.data(), 0);
    Require(address.GetFamily() == NySocketAddress::kIPv4, "text gives an IPv4 address");
}

// Arbitrary bytes as a system's address.
void CheckSystemAddress(const std::uint8_t* data, std::size_t size) {
    sockaddr_storage storage{};
    std::memcpy(&storage, data, size < sizeof storage ? size : sizeof storage);
    if (size > 2) {
        constexpr sa_family_t kFamilies[] = {AF_UNSPEC, AF_UNIX, AF_INET, AF_INET6};
        storage.ss_family = kFamilies[data[2] % 4];
    }
    const NySocketAddress address(reinterpret_cast<const sockaddr*>(&storage));
    sockaddr_storage back;
    address.ToNyOSSockAddrStorage(back);
    Require(address.GetFamily() == 0 ||
                NySocketAddress(reinterpret_cast<const sockaddr*>(&back)) == address,
            "a system's address comes back");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string all(data, data + size);
    const std::string text(all.c_str());
    CheckText(text);
    CheckWideText(text);
    CheckSystemAddress(data, size);
    if (size >= 6) {
        CheckRoundTrip(NySocketAddress(data[0], data[1], data[2], data[3],
                                       static_cast<unsigned short>(data[4] | data[5] << 8)));
    }
    return 0;
}
