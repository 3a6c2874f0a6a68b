// Converts strings between the test and CoreFoundation.
#pragma once

#include "platform/support/CFOwned.h"

#include <CoreFoundation/CFString.h>

#include <string>

namespace TestSupport {

inline CFOwned<CFStringRef> MakeString(const std::string& text) {
    return CFOwned(CFStringCreateWithCString(nullptr, text.c_str(), kCFStringEncodingUTF8));
}

// Returns the text in UTF-8, or "" if the string is null, has no UTF-8 form or is too long.
inline std::string TextOf(CFStringRef string) {
    char text[1024];
    return string != nullptr && CFStringGetCString(string, text, sizeof text, kCFStringEncodingUTF8)
               ? text
               : "";
}

} // namespace TestSupport
