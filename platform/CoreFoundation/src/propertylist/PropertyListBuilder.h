#pragma once

#include "platform/CoreFoundation/src/base/CFRuntimeObject.h"
#include "platform/CoreFoundation/src/propertylist/PropertyListLimits.h"

#include <CoreFoundation/CFPropertyList.h>

#include <cstdint>
#include <string_view>
#include <vector>

using PropertyListValue = CFOwned<CFPropertyListRef>; // never null
using PropertyListValues = std::vector<PropertyListValue>;

// A PropertyListBuilder makes the values that a reader finds in bytes, within the limits.
//
//     PropertyListBuilder builder(false);
//     const auto level = builder.Open();
//     PropertyListValues members;
//     members.push_back(builder.Integer(5));
//     return builder.Array(members);
//
// Every function throws a PropertyListFault if a limit is passed, and std::bad_alloc.
class PropertyListBuilder {
public:
    explicit PropertyListBuilder(bool mutableContainers) : mMutableContainers(mutableContainers) {}

    // Opens a level of containers. The caller keeps the result while it reads a container's
    // members, before it makes the container.
    using Level = PropertyListBudget::Level;
    Level Open() { return Level(mBudget); }

    PropertyListValue Boolean(bool value);
    PropertyListValue Integer(std::int64_t value);
    PropertyListValue Real(double value);
    PropertyListValue Date(double at); // in seconds since 2001
    PropertyListValue Data(std::string_view bytes);
    // Take valid UTF-8. A key is a string that does not count as a value.
    PropertyListValue String(std::string_view utf8);
    PropertyListValue Key(std::string_view utf8);
    PropertyListValue Array(const PropertyListValues& members);
    // Takes as many keys as members. Of entries with the same key the first one stays.
    PropertyListValue Dictionary(const PropertyListValues& keys, const PropertyListValues& members);

private:
    PropertyListValue Counted(CFTypeRef made); // null if there was no memory

    PropertyListBudget mBudget;
    const bool mMutableContainers;
};
