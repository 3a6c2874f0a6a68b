#pragma once

#include "platform/CoreFoundation/src/PropertyListFile.h"

// Whether a value is a property list within the limits that both formats have; else why not.
bool CheckPropertyList(CFPropertyListRef propertyList, PropertyListFailure& failure);
