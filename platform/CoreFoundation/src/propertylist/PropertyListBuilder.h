// Makes the values that a reader finds in bytes, within the limits.
#pragma once

#include "platform/CoreFoundation/src/base/CFRuntimeObject.h"
#include "platform/CoreFoundation/src/propertylist/PropertyListLimits.h"

#include <CoreFoundation/CFPropertyList.h>

#include <cstdint>
#include <string_view>
#include <vector>

using PropertyListValue = CFOwned<CFPropertyListRef>; // never null
using PropertyListValues = std::vector<PropertyListValue>;

// Every function throws `PropertyListFault` when a limit is passed, and `std::bad_alloc`.
class PropertyListBuilder {
public:
    explicit PropertyListBuilder(bool mutableContainers) : mMutableContainers(mutableContainers) {}

    // While a container's members are read, before it is made.
    using Level = PropertyListBudget::Level;
    Level Open() { return Level(mBudget); }

    PropertyListValue Boolean(bool value);
    PropertyListValue Integer(std::int64_t value);
    PropertyListValue Real(double value);
    PropertyListValue Date(double at); // seconds since 2001
    PropertyListValue Data(std::string_view bytes);
    // Valid UTF-8. A key is a string that does not count as a value.
    PropertyListValue String(std::string_view utf8);
    PropertyListValue Key(std::string_view utf8);
    PropertyListValue Array(const PropertyListValues& members);
    // As many keys as members. Of those with the same key the first one stays.
    PropertyListValue Dictionary(const PropertyListValues& keys, const PropertyListValues& members);

private:
    PropertyListBudget mBudget;
    const bool mMutableContainers;
};
