#include "platform/CoreFoundation/src/plugin/PlugInError.h"

namespace {

thread_local std::string tlsLastError;

} // namespace

bool SetPlugInError(const std::string& text) {
    tlsLastError = text;
    for (char& character : tlsLastError) {
        if (character == '\n' || character == '\r') {
            character = ' ';
        }
    }
    return false;
}

const std::string& LastPlugInError() {
    return tlsLastError;
}
