#pragma once

#include <stdexcept>
#include <string>

namespace MidiServer {

// A ServiceStateError says that a service runs where none may, or that none runs where one is
// needed. Its what() is one line; the program prints it and exits with status 3.
class ServiceStateError : public std::runtime_error {
public:
    explicit ServiceStateError(const std::string& line) : std::runtime_error(line) {}
};

} // namespace MidiServer
