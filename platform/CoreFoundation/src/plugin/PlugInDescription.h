// These functions read and check what a plug-in's property list says about its factories.
#pragma once

#include "platform/CoreFoundation/src/values/UuidText.h"

#include <CoreFoundation/CFDictionary.h>

#include <optional>
#include <string>
#include <vector>

struct PlugInFactory {
    UuidBytes uuid;
    std::string function;
    std::vector<UuidBytes> types; // the types that it makes
};

// Returns a string value of a property list. If the key is missing, or if its value is not a string
// with at least one character, sets the thread's plug-in error and returns nothing.
std::optional<std::string> RequiredString(CFDictionaryRef info, const char* key,
                                          const std::string& listPath);

// Returns the factories of a plug-in. If a key is missing, has the wrong type or contradicts
// another, sets the thread's plug-in error and returns nothing.
std::optional<std::vector<PlugInFactory>> PlugInFactories(CFDictionaryRef info,
                                                          const std::string& listPath);
