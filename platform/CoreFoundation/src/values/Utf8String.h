// Strings of this library as C++ strings in UTF-8.
#pragma once

#include <CoreFoundation/CFString.h>

#include <optional>
#include <string>

// Null for null, for what is not a string, and for a string that has no UTF-8 form.
std::optional<std::string> Utf8Of(CFStringRef string);

// The caller owns the result.
CFStringRef CopyUtf8String(const std::string& text);
