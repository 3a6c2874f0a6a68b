// Conversions between the values of properties and the types of C++.
#pragma once

#include "platform/support/CFOwned.h"

#include <CoreFoundation/CoreFoundation.h>

#include <optional>
#include <string>

namespace CoreMIDI {

// Returns whether the value is a string that a property list can hold.
bool IsName(CFTypeRef value);

inline bool IsString(CFTypeRef value) {
    return value != nullptr && CFGetTypeID(value) == CFStringGetTypeID();
}

// Returns the text of a string in UTF-8, or nothing if the object is not a string. Throws
// std::bad_alloc.
std::optional<std::string> TextOf(CFStringRef string);
// Returns null if there is no memory.
CFOwned<CFStringRef> CreateString(const std::string& text) noexcept;
// These two throw std::bad_alloc if there is no memory.
CFOwned<CFStringRef> MakeString(const std::string& text);
CFOwned<CFNumberRef> MakeNumber(SInt32 number);
// Returns the value of a number, or nothing if the object is not an integer within the range.
std::optional<SInt32> NumberOf(CFTypeRef value);

} // namespace CoreMIDI
