#pragma once

#include "platform/CoreMIDI/src/base/PropertyValues.h"

#include <functional>
#include <map>
#include <string>
#include <string_view>

namespace CoreMIDI {

enum class PropertyType { kInteger, kString, kData, kDictionary };

// An object's own properties by their names: property lists of the four types, integers of 32 bits.
// Looked through without memory.
using PropertyMap = std::map<std::string, CFOwned<CFPropertyListRef>, std::less<>>;

// The type of a value, nothing when no property can have it.
std::optional<PropertyType> TypeOf(CFPropertyListRef value);

// What is special about a property, by its name.
struct PropertyRule {
    std::optional<PropertyType> mType; // nothing: any
    bool mIsSettable = true;           // by clients
    bool mIsSaved = true;
};
const PropertyRule& RuleOf(std::string_view name);

// The names that the library itself looks at.
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

// The same as a dictionary. Throws std::bad_alloc.
CFOwned<CFMutableDictionaryRef> DictionaryOf(const PropertyMap& properties);
// Sets a value of a dictionary. Throws std::bad_alloc.
void SetValue(const CFOwned<CFMutableDictionaryRef>& dictionary, const std::string& key,
              CFTypeRef value);

} // namespace CoreMIDI
