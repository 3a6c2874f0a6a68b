#pragma once

#include <CoreFoundation/CFPropertyList.h>

// Throws a PropertyListFault if the value is no property list within the limits of both formats.
// Needs no memory.
void CheckPropertyList(CFPropertyListRef propertyList);
