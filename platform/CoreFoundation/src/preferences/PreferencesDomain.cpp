#include "platform/CoreFoundation/src/preferences/PreferencesDomain.h"

#include "platform/CoreFoundation/src/values/CFStringObject.h"

#include <unistd.h>

#include <cstdlib>

namespace {

constexpr const char* kDefaultFolder = "/etc/quorvel/preferences";

// An environment variable's value; nothing when it is missing or empty.
std::optional<std::string> Environment(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr || *value == '\0' ? std::nullopt : std::optional<std::string>(value);
}

std::optional<std::string> UserFolder() {
    if (const auto folder = Environment("QUORVEL_PREFERENCES_DIR")) {
        return *folder + "/Users/" + std::to_string(getuid());
    }
    if (const auto folder = Environment("XDG_CONFIG_HOME")) {
        return *folder + "/quorvel/preferences";
    }
    if (const auto folder = Environment("HOME")) {
        return *folder + "/.config/quorvel/preferences";
    }
    return std::nullopt;
}

std::optional<std::string> Folder(bool anyUser, bool anyHost) {
    if (anyUser) {
        const std::string folder = Environment("QUORVEL_PREFERENCES_DIR").value_or(kDefaultFolder);
        return anyHost ? folder + "/AnyHost" : folder;
    }
    const std::optional<std::string> folder = UserFolder();
    return folder && !anyHost ? *folder + "/ByHost" : folder;
}

std::optional<std::string> FileName(CFStringRef applicationID) {
    if (CFEqual(applicationID, kCFPreferencesAnyApplication)) {
        return ".GlobalPreferences.plist";
    }
    const std::optional<std::string> identifier = UTF8OfString(applicationID);
    if (!identifier || identifier->empty() || identifier->front() == '.' ||
        identifier->find('/') != std::string::npos || identifier->find('\0') != std::string::npos) {
        return std::nullopt;
    }
    return *identifier + ".plist";
}

} // namespace

std::optional<std::string> PreferencesPath(CFStringRef applicationID, CFStringRef userName,
                                           CFStringRef hostName) {
    if (applicationID == nullptr || userName == nullptr || hostName == nullptr) {
        return std::nullopt;
    }
    const bool anyUser = CFEqual(userName, kCFPreferencesAnyUser) != 0;
    const bool anyHost = CFEqual(hostName, kCFPreferencesAnyHost) != 0;
    if ((!anyUser && CFEqual(userName, kCFPreferencesCurrentUser) == 0) ||
        (!anyHost && CFEqual(hostName, kCFPreferencesCurrentHost) == 0)) {
        return std::nullopt;
    }
    const std::optional<std::string> folder = Folder(anyUser, anyHost);
    const std::optional<std::string> name = FileName(applicationID);
    return folder && name ? std::optional(*folder + "/" + *name) : std::nullopt;
}
