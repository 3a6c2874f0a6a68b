#pragma once

#include <CoreFoundation/CFPropertyList.h>

// Throws `PropertyListFault` when the value is no property list, or not one within the limits that
// both formats have.
void CheckPropertyList(CFPropertyListRef propertyList);
