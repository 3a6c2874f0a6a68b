#pragma once

#include <stdexcept>
#include <string>

namespace MidiServer {

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

// An InputError says that something that the user gave cannot be used: a file, the value of an
// option, a plug-in bundle or the preferences. Its what() is one line that names the file and the
// place in it; the program prints the line and exits with status 2.
class InputError : public std::runtime_error {
public:
    explicit InputError(const std::string& line) : std::runtime_error(OneLine(line)) {}
};

} // namespace MidiServer
