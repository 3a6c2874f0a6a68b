#pragma once

#include <cerrno>
#include <string>
#include <system_error>

// Why a file could not be read or written. True when there was a failure:
// `if (const FileFailure failure = ReadWholeFile(...))`.
struct [[nodiscard]] FileFailure {
    int error = 0;    // a value of errno; 0 when all went well
    std::string text; // one line for people

    explicit operator bool() const { return error != 0; }
};

// What errno says of an attempt: "cannot be opened: No such file or directory".
inline FileFailure LastFileFailure(const char* attempt, int error = errno) {
    return {error, std::string(attempt) + ": " + std::generic_category().message(error)};
}
