#pragma once

#include <stdexcept>
#include <string>

namespace MidiServer {

// The errors with which a command ends. Their what() is one line; the program prints it and exits
// with the status that is given for each.

// Returns the text with every control character replaced by '?', so that it stays one line on a
// terminal whatever the name or the content of a file holds.
inline std::string OneLine(std::string text) {
    for (char& c : text) {
        if (static_cast<unsigned char>(c) < ' ' || c == 0x7F) {
            c = '?';
        }
    }
    return text;
}

// The driver or the platform failed at run time. Status 1.
class HostError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Something that the user gave cannot be used: a file, the value of an option, a plug-in bundle or
// the preferences. The line names the file and the place in it. Status 2.
class InputError : public std::runtime_error {
public:
    explicit InputError(const std::string& line) : std::runtime_error(OneLine(line)) {}
};

// A service runs where none may, or none runs where one is needed. Status 3.
class ServiceStateError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

} // namespace MidiServer
