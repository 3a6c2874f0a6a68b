#pragma once

#include <stdexcept>
#include <string>

namespace MidiServer {

// The text with every control character replaced, so that it stays one line of a terminal whatever
// a file's name or content holds.
inline std::string OneLine(std::string text) {
    for (char& c : text) {
        if (static_cast<unsigned char>(c) < ' ' || c == 0x7F) {
            c = '?';
        }
    }
    return text;
}

// What the user gave cannot be used: a file, an option's value, a plug-in bundle, preferences.
// what() is one line that names the file and the place in it; the program prints it and exits
// with status 2.
class InputError : public std::runtime_error {
public:
    explicit InputError(const std::string& line) : std::runtime_error(OneLine(line)) {}
};

} // namespace MidiServer
