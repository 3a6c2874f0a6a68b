// These functions read and check what a bundle's property list says about a plug-in. They throw a
// PlugInFault if a key is missing, has the wrong type or contradicts another.
#pragma once

#include "platform/CoreFoundation/src/values/UuidText.h"

#include <CoreFoundation/CFDictionary.h>

#include <cstddef>
#include <string>
#include <vector>

struct PlugInFactory {
    UuidBytes uuid;
    std::string function;
    std::vector<UuidBytes> types; // the types that it makes
    std::size_t instances = 0;    // how many are registered
};

// Returns the name of the bundle's module, which is a file name.
std::string ExecutableName(CFDictionaryRef info, const std::string& listPath);

// Returns the factories of a plug-in.
std::vector<PlugInFactory> PlugInFactories(CFDictionaryRef info, const std::string& listPath);
