#pragma once

#include <CoreFoundation/CFPropertyList.h>

#include <string>

// The bytes of a property list that has passed `CheckPropertyList`, in the binary format; equal
// strings and numbers are written once. Throws `PropertyListFault` when they are too many.
std::string WriteBinaryPropertyList(CFPropertyListRef propertyList);
