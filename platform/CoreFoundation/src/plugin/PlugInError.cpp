#include "platform/CoreFoundation/src/plugin/PlugInError.h"

#include <algorithm>

namespace {

thread_local std::string tlsLastError;

} // namespace

void KeepPlugInError(std::string text) noexcept {
    const auto isLineBreak = [](char character) { return character == '\n' || character == '\r'; };
    std::replace_if(text.begin(), text.end(), isLineBreak, ' ');
    tlsLastError = std::move(text);
}

const std::string& LastPlugInError() {
    return tlsLastError;
}
