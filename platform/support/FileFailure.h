#pragma once

#include <cerrno>
#include <string>
#include <system_error>

// A FileFailure tells why a file could not be read or written. It is true if there was a failure:
//
//     if (const FileFailure failure = ReadWholeFile(path, limit, bytes)) {
//         syslog(LOG_ERR, "%s: %s", path.c_str(), failure.text.c_str());
//     }
struct [[nodiscard]] FileFailure {
    int error = 0;    // a value of errno; 0 when all went well
    std::string text; // one line for people

    explicit operator bool() const { return error != 0; }
};

// Returns a failure that describes an attempt and its errno, for instance "cannot be opened: No
// such file or directory".
inline FileFailure LastFileFailure(const char* attempt, int error = errno) {
    return {error, std::string(attempt) + ": " + std::generic_category().message(error)};
}
