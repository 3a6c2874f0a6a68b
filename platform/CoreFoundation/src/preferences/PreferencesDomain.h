#pragma once

#include <CoreFoundation/CFPreferences.h>

#include <optional>
#include <string>

// Returns the path of the file that keeps a domain's preferences, whether there is a file or not.
// Returns nothing if the arguments name no domain or the current user has no folder.
std::optional<std::string> PreferencesPath(CFStringRef applicationID, CFStringRef userName,
                                           CFStringRef hostName);
