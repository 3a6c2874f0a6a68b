// Where the preferences of a domain are kept.
#pragma once

#include <CoreFoundation/CFPreferences.h>

#include <optional>
#include <string>

struct PreferencesDomain {
    std::string folder;
    std::string fileName;

    std::string Path() const { return folder + "/" + fileName; }
};

// Nothing when the arguments name no domain, or the current user has no folder.
std::optional<PreferencesDomain> FindPreferencesDomain(CFStringRef applicationID,
                                                       CFStringRef userName, CFStringRef hostName);
