// Reads and writes property lists as bytes, in either format. This is the one place where foreign
// bytes become values.
#pragma once

#include <CoreFoundation/CFPropertyList.h>

#include <string>
#include <string_view>

struct PropertyListFailure {
    CFIndex code = 0;
    std::string text; // one line for people
};

// Returns the property list in the bytes, which the caller owns. If there is none, returns null and
// sets `failure`.
CFPropertyListRef ParsePropertyList(std::string_view bytes, bool mutableContainers,
                                    CFPropertyListFormat& format, PropertyListFailure& failure);

// Returns false and sets `failure` if the value is no property list or cannot be written.
bool WritePropertyList(CFPropertyListRef propertyList, CFPropertyListFormat format,
                       std::string& bytes, PropertyListFailure& failure);
