// For systems without the library: there are no property-list files.
#include "platform/CoreFoundation/src/PropertyListFile.h"

bool PropertyListFilesAreSupported() {
    return false;
}

CFPropertyListRef ParsePropertyList(std::string_view /*bytes*/, bool /*mutableContainers*/,
                                    CFPropertyListFormat& /*format*/,
                                    PropertyListFailure& failure) {
    failure = {kCFPropertyListReadUnknownVersionError,
               "this build does not read property-list files"};
    return nullptr;
}

bool WritePropertyList(CFPropertyListRef /*propertyList*/, CFPropertyListFormat /*format*/,
                       std::string& /*bytes*/, PropertyListFailure& failure) {
    failure = {kCFPropertyListWriteStreamError, "this build does not write property-list files"};
    return false;
}
