#pragma once

#include <stdexcept>
#include <string>

namespace MidiServer {

// A HostError says that the driver or the platform failed at run time. Its what() is one line; the
// program prints it and exits with status 1.
class HostError : public std::runtime_error {
public:
    explicit HostError(const std::string& line) : std::runtime_error(line) {}
};

} // namespace MidiServer
