// The property functions.
#include "platform/CoreMIDI/src/state/Routing.h"
#include "platform/CoreMIDI/src/state/SetupFormat.h"

#include <CoreMIDI/MIDIProperties.h>

#include <utility>

namespace CoreMIDI {

namespace {

std::string OwnText(const PropertyObject& object, const char* name) QUORVEL_REQUIRES(sStateMutex) {
    return TextOf(static_cast<CFStringRef>(object.Find(name))).value_or("");
}

// See kMIDIPropertyDisplayName.
std::string DisplayNameOf(const PropertyObject& object) QUORVEL_REQUIRES(sStateMutex) {
    std::string name = OwnText(object, kNameProperty);
    const auto* const endpoint = dynamic_cast<const Endpoint*>(&object);
    if (endpoint == nullptr || endpoint->DeviceOrNull() == nullptr) {
        return name;
    }
    std::string device = OwnText(*endpoint->DeviceOrNull(), kNameProperty);
    if (name.empty()) {
        return device;
    }
    if (device.empty() || name.starts_with(device)) {
        return name;
    }
    return device + " " + name;
}

CFOwned<CFPropertyListRef> ValueOf(const PropertyObject& object, const std::string& name)
    QUORVEL_REQUIRES(sStateMutex) {
    if (name == kUniqueIDProperty) {
        return CFOwned<CFPropertyListRef>(MakeNumber(object.mUniqueID).Release());
    }
    if (name == kDisplayNameProperty) {
        return CFOwned<CFPropertyListRef>(MakeString(DisplayNameOf(object)).Release());
    }
    return CFOwned<CFPropertyListRef>::Retained(object.Find(name));
}

// Gets the value of a property. `give(value)` hands it to the caller of the interface function.
template <typename Give>
OSStatus Get(MIDIObjectRef reference, CFStringRef propertyID, PropertyType type, const void* out,
             const Give& give) {
    return Answer([&]() -> OSStatus {
        const std::optional<std::string> name = TextOf(propertyID);
        if (!name || out == nullptr) {
            return paramErr;
        }
        return WithObject<PropertyObject>(
            reference, kMIDIObjectNotFound,
            [&](const PropertyObject& object) QUORVEL_REQUIRES(sStateMutex) -> OSStatus {
                CFOwned<CFPropertyListRef> value = ValueOf(object, *name);
                if (!value) {
                    return kMIDIUnknownProperty;
                }
                if (TypeOf(value.Get()) != type) {
                    return kMIDIWrongPropertyType;
                }
                give(value);
                return noErr;
            });
    });
}

// Gets a value that is an object; the caller of the interface function owns it.
template <typename Reference>
OSStatus GetObject(MIDIObjectRef reference, CFStringRef propertyID, PropertyType type,
                   Reference* out) {
    return Get(reference, propertyID, type, out, [out](CFOwned<CFPropertyListRef>& value) {
        *out = static_cast<Reference>(value.Release());
    });
}

OSStatus SetUniqueID(Transaction& transaction, PropertyObject& object, SInt32 value)
    QUORVEL_REQUIRES(sStateMutex) {
    if (value == kMIDIInvalidUniqueID) {
        return kMIDINotPermitted;
    }
    if (!ServerState::Get().SetUniqueID(object, value)) {
        return kMIDIIDNotUnique;
    }
    transaction.NotifyProperty(object, kUniqueIDProperty);
    transaction.SetupChanged(object);
    return noErr;
}

// What follows from a property's change, which is to be undone if this throws.
void PropertyChanged(Transaction& transaction, const PropertyObject& object,
                     const std::string& name) QUORVEL_REQUIRES(sStateMutex) {
    if (name == kAdvanceScheduleTimeProperty) {
        UpdateRoutes(object);
    }
    transaction.NotifyProperty(object, name);
    if (RuleOf(name).mIsSaved) {
        transaction.SetupChanged(object);
    }
}

OSStatus Set(MIDIObjectRef reference, CFStringRef propertyID, CFOwned<CFPropertyListRef> value) {
    std::optional<std::string> name = TextOf(propertyID);
    if (!name || !IsName(propertyID) || !value) {
        return paramErr;
    }
    if (!CFPropertyListIsValid(value.Get(), kCFPropertyListXMLFormat_v1_0)) {
        return kMIDIWrongPropertyType;
    }
    const std::optional<PropertyType> type = TypeOf(value.Get());
    // Declared before the lock: what is replaced is released after it.
    CFOwned<CFPropertyListRef> replaced;
    Transaction transaction;
    auto* const object = ServerState::Get().Find<PropertyObject>(reference);
    if (object == nullptr) {
        return kMIDIObjectNotFound;
    }
    const PropertyRule& rule = RuleOf(*name);
    if (!type || (rule.mType && rule.mType != type)) {
        return kMIDIWrongPropertyType;
    }
    if (!rule.mIsSettable) {
        return kMIDINotPermitted;
    }
    if (*name == kUniqueIDProperty) {
        return SetUniqueID(transaction, *object, *NumberOf(value.Get()));
    }
    if (*name == kDisplayNameProperty) {
        name = kNameProperty;
    }
    const auto [place, isNew] = object->mProperties.try_emplace(*name);
    replaced = std::exchange(place->second, std::move(value));
    const OnFailure undo([&, place = place, isNew = isNew]() QUORVEL_REQUIRES(sStateMutex) {
        std::swap(place->second, replaced);
        if (isNew) {
            object->mProperties.erase(place);
        }
    });
    PropertyChanged(transaction, *object, *name);
    return noErr;
}

// Takes over the copy, which is null when there was no memory for it.
OSStatus SetCopy(MIDIObjectRef reference, CFStringRef propertyID, CFPropertyListRef copy) {
    return copy == nullptr ? OSStatus{memFullErr}
                           : Set(reference, propertyID, CFOwned<CFPropertyListRef>(copy));
}

} // namespace

} // namespace CoreMIDI

using namespace CoreMIDI;

OSStatus MIDIObjectGetIntegerProperty(MIDIObjectRef obj, CFStringRef propertyID, SInt32* outValue) {
    return Get(
        obj, propertyID, PropertyType::kInteger, outValue,
        [&](const CFOwned<CFPropertyListRef>& value) { *outValue = *NumberOf(value.Get()); });
}

OSStatus MIDIObjectSetIntegerProperty(MIDIObjectRef obj, CFStringRef propertyID, SInt32 value) {
    return Answer([&] {
        return Set(obj, propertyID, CFOwned<CFPropertyListRef>(MakeNumber(value).Release()));
    });
}

OSStatus MIDIObjectGetStringProperty(MIDIObjectRef obj, CFStringRef propertyID, CFStringRef* str) {
    return GetObject(obj, propertyID, PropertyType::kString, str);
}

OSStatus MIDIObjectSetStringProperty(MIDIObjectRef obj, CFStringRef propertyID, CFStringRef str) {
    return Answer([&]() -> OSStatus {
        if (!IsString(str)) {
            return paramErr;
        }
        return Set(obj, propertyID, CFOwned<CFPropertyListRef>::Retained(str));
    });
}

OSStatus MIDIObjectGetDataProperty(MIDIObjectRef obj, CFStringRef propertyID, CFDataRef* outData) {
    return GetObject(obj, propertyID, PropertyType::kData, outData);
}

OSStatus MIDIObjectSetDataProperty(MIDIObjectRef obj, CFStringRef propertyID, CFDataRef data) {
    return Answer([&]() -> OSStatus {
        if (data == nullptr || CFGetTypeID(data) != CFDataGetTypeID()) {
            return paramErr;
        }
        // The caller's may be mutable.
        return SetCopy(obj, propertyID, CFDataCreateCopy(nullptr, data));
    });
}

OSStatus MIDIObjectGetDictionaryProperty(MIDIObjectRef obj, CFStringRef propertyID,
                                         CFDictionaryRef* outDict) {
    return GetObject(obj, propertyID, PropertyType::kDictionary, outDict);
}

OSStatus MIDIObjectSetDictionaryProperty(MIDIObjectRef obj, CFStringRef propertyID,
                                         CFDictionaryRef dict) {
    return Answer([&]() -> OSStatus {
        if (dict == nullptr || CFGetTypeID(dict) != CFDictionaryGetTypeID()) {
            return paramErr;
        }
        if (!CFPropertyListIsValid(dict, kCFPropertyListXMLFormat_v1_0)) {
            return kMIDIWrongPropertyType;
        }
        return SetCopy(obj, propertyID,
                       CFPropertyListCreateDeepCopy(nullptr, dict, kCFPropertyListImmutable));
    });
}

OSStatus MIDIObjectRemoveProperty(MIDIObjectRef obj, CFStringRef propertyID) {
    return Answer([&]() -> OSStatus {
        const std::optional<std::string> name = TextOf(propertyID);
        if (!name) {
            return paramErr;
        }
        return ChangeObject<PropertyObject>(
            obj, kMIDIObjectNotFound,
            [&](Transaction& transaction, PropertyObject& object)
                QUORVEL_REQUIRES(sStateMutex) -> OSStatus {
                    if (*name == kUniqueIDProperty || *name == kDisplayNameProperty ||
                        !RuleOf(*name).mIsSettable) {
                        return kMIDINotPermitted;
                    }
                    auto removed = object.mProperties.extract(*name);
                    if (removed.empty()) {
                        return kMIDIUnknownProperty;
                    }
                    const OnFailure undo([&]() QUORVEL_REQUIRES(sStateMutex) {
                        object.mProperties.insert(std::move(removed));
                    });
                    PropertyChanged(transaction, object, *name);
                    return noErr;
                });
    });
}

OSStatus MIDIObjectGetProperties(MIDIObjectRef obj, CFPropertyListRef* outProperties,
                                 Boolean deep) {
    if (outProperties == nullptr) {
        return paramErr;
    }
    return WithObject<PropertyObject>(
        obj, kMIDIObjectNotFound, [&](const PropertyObject& object) QUORVEL_REQUIRES(sStateMutex) {
            *outProperties = PropertiesOf(object, deep != 0).Release();
            return noErr;
        });
}

OSStatus MIDIObjectFindByUniqueID(MIDIUniqueID inUniqueID, MIDIObjectRef* outObject,
                                  MIDIObjectType* outObjectType) {
    return Answer([&]() -> OSStatus {
        if (outObject == nullptr) {
            return paramErr;
        }
        *outObject = 0;
        if (outObjectType != nullptr) {
            *outObjectType = kMIDIObjectType_Other;
        }
        ServerState& state = ServerState::Get();
        const MutexLock lock(sStateMutex);
        const auto found = state.mUniqueIDs.find(inUniqueID);
        if (found == state.mUniqueIDs.end()) {
            return kMIDIObjectNotFound;
        }
        *outObject = found->second->mReference;
        if (outObjectType != nullptr) {
            *outObjectType = TypeOf(*outObject);
        }
        return noErr;
    });
}
