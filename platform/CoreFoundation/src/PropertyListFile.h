// Property lists as bytes: the seam behind which a library does the work, or nothing does
// (PropertyListFileNone.cpp), as the build was configured.
#pragma once

#include <CoreFoundation/CFPropertyList.h>

#include <string>
#include <string_view>

struct PropertyListFailure {
    CFIndex code = 0;
    std::string text; // one line for people
};

bool PropertyListFilesAreSupported();

// The property list in the bytes, which the caller owns; null, and a failure, when there is none.
CFPropertyListRef ParsePropertyList(std::string_view bytes, bool mutableContainers,
                                    CFPropertyListFormat& format, PropertyListFailure& failure);

// `propertyList` has passed `CheckPropertyList`. False, and a failure, when it cannot be written.
bool WritePropertyList(CFPropertyListRef propertyList, CFPropertyListFormat format,
                       std::string& bytes, PropertyListFailure& failure);
