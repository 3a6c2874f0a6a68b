#pragma once

#include <CoreFoundation/CFPropertyList.h>

#include <string>

// The text of a property list that has passed `CheckPropertyList`, in XML, one value a line and
// indented by levels. Throws `PropertyListFault` when it is too long.
std::string WriteXMLPropertyList(CFPropertyListRef propertyList);
