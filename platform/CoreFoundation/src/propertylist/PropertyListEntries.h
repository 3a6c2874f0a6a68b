// SortedEntries returns a dictionary's entries in the order of their keys, so that the same
// dictionary always gives the same bytes.
#pragma once

#include "platform/CoreFoundation/src/values/CFStringObject.h"

#include <CoreFoundation/CFDictionary.h>

#include <algorithm>
#include <string>
#include <vector>

struct PropertyListEntry {
    std::string name; // the key in UTF-8
    CFTypeRef key;
    CFTypeRef value;
};

inline std::vector<PropertyListEntry> SortedEntries(CFDictionaryRef dictionary) {
    std::vector<PropertyListEntry> entries;
    CFDictionaryApplyFunction(
        dictionary,
        [](const void* key, const void* value, void* list) {
            static_cast<decltype(entries)*>(list)->push_back(
                {UTF8OfString(key).value_or(""), key, value});
        },
        &entries);
    std::sort(entries.begin(), entries.end(),
              [](const auto& a, const auto& b) { return a.name < b.name; });
    return entries;
}
