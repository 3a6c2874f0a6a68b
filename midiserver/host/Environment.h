#pragma once

#include <cstdlib>
#include <new>
#include <string>

namespace MidiServer {

// Sets a variable of this process's environment. Throws std::bad_alloc if there is no memory for
// it: a process that went on without it would use other folders than it was told to.
inline void SetEnvironment(const char* name, const std::string& value) {
    if (::setenv(name, value.c_str(), 1) != 0) {
        throw std::bad_alloc();
    }
}

} // namespace MidiServer
