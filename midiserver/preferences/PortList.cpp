#include "midiserver/preferences/PortList.h"

#include "midiserver/errors/Errors.h"

#include <fmt/format.h>

#include <charconv>
#include <sstream>
#include <string_view>

namespace MidiServer {

namespace {

// Returns 0 if the text is no port's number.
unsigned PortNumber(std::string_view text) {
    unsigned number = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && rest == end && number <= kMaximumPorts ? number : 0;
}

} // namespace

std::bitset<kMaximumPorts> ParsePortList(const std::string& text) {
    std::bitset<kMaximumPorts> ports;
    if (text == "all") {
        return ports.set();
    }
    std::istringstream items(text + ",");
    for (std::string item; std::getline(items, item, ',');) {
        const std::string_view view = item;
        const std::size_t dash = view.find('-');
        const unsigned first = PortNumber(view.substr(0, dash));
        const unsigned last =
            dash == std::string_view::npos ? first : PortNumber(view.substr(dash + 1));
        if (first == 0 || last < first) {
            throw InputError(
                fmt::format("\"{}\" names no ports; ports are \"all\", or numbers from "
                            "1 to {} and ranges, such as \"1,3-5\"",
                            text, kMaximumPorts));
        }
        for (unsigned port = first; port <= last; ++port) {
            ports.set(port - 1);
        }
    }
    return ports;
}

} // namespace MidiServer
