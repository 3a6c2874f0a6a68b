#pragma once

#include "platform/CoreMIDI/src/base/PropertyValues.h"

#include <functional>
#include <map>
#include <string>
#include <string_view>

namespace CoreMIDI {

enum class PropertyType { kInteger, kString, kData, kDictionary };

// An object's own properties by their names. The values are property lists of the four types above;
// integers have 32 bits. Looking a name up allocates nothing.
using PropertyMap = std::map<std::string, CFOwned<CFPropertyListRef>, std::less<>>;

// Returns the type of a value, or nothing if no property can have that value.
std::optional<PropertyType> TypeOf(CFPropertyListRef value);

// A PropertyRule tells what is allowed for the property of a certain name.
struct PropertyRule {
    std::optional<PropertyType>
        mType;               // the type that its values must have; empty if any type will do
    bool mIsSettable = true; // whether clients may set it
    bool mIsSaved = true;    // whether the setup file keeps it
};
const PropertyRule& RuleOf(std::string_view name);

// The names of the properties whose values the library itself uses.
inline constexpr const char* kNameProperty = "name";
inline constexpr const char* kManufacturerProperty = "manufacturer";
inline constexpr const char* kModelProperty = "model";
inline constexpr const char* kUniqueIDProperty = "uniqueID";
inline constexpr const char* kAdvanceScheduleTimeProperty = "scheduleAheadMuSec";
inline constexpr const char* kEmbeddedProperty = "embedded";
inline constexpr const char* kOfflineProperty = "offline";
inline constexpr const char* kPrivateProperty = "private";
inline constexpr const char* kDriverOwnerProperty = "driver";
inline constexpr const char* kDisplayNameProperty = "displayName";

// Returns the properties as a dictionary. Throws std::bad_alloc.
CFOwned<CFMutableDictionaryRef> DictionaryOf(const PropertyMap& properties);
// Sets a value of a dictionary. Throws std::bad_alloc.
void SetValue(const CFOwned<CFMutableDictionaryRef>& dictionary, const std::string& key,
              CFTypeRef value);

} // namespace CoreMIDI
