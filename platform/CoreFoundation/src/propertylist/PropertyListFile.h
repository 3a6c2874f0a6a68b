// Property lists as bytes, in either format: the one place where foreign bytes become values.
#pragma once

#include <CoreFoundation/CFPropertyList.h>

#include <string>
#include <string_view>

struct PropertyListFailure {
    CFIndex code = 0;
    std::string text; // one line for people
};

// The property list in the bytes, which the caller owns; null, and a failure, when there is none.
CFPropertyListRef ParsePropertyList(std::string_view bytes, bool mutableContainers,
                                    CFPropertyListFormat& format, PropertyListFailure& failure);

// False, and a failure, when the value is no property list or cannot be written.
bool WritePropertyList(CFPropertyListRef propertyList, CFPropertyListFormat format,
                       std::string& bytes, PropertyListFailure& failure);
