#include "platform/CoreMIDI/src/state/SetupFormat.h"

#include <array>
#include <new>
#include <set>
#include <utility>

namespace CoreMIDI {

namespace {

constexpr SInt32 kVersion = 1;

CFTypeRef ValueIn(CFDictionaryRef dictionary, const char* key) {
    return CFDictionaryGetValue(dictionary, MakeString(key).Get());
}

CFOwned<CFMutableDictionaryRef> MakeDictionary() {
    return DictionaryOf({});
}

// An array of what `describe` makes of each part.
template <typename Part, typename Describe>
CFOwned<CFMutableArrayRef> MakeArray(const std::vector<Part*>& parts, const Describe& describe)
    QUORVEL_REQUIRES(sStateMutex) {
    CFOwned<CFMutableArrayRef> array(CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks));
    if (!array) {
        throw std::bad_alloc();
    }
    for (const Part* part : parts) {
        CFArrayAppendValue(array.Get(), describe(*part).Get());
    }
    // It says nothing where there is no memory.
    if (static_cast<std::size_t>(CFArrayGetCount(array.Get())) != parts.size()) {
        throw std::bad_alloc();
    }
    return array;
}

CFOwned<CFMutableDictionaryRef> OwnProperties(const PropertyObject& object)
    QUORVEL_REQUIRES(sStateMutex) {
    CFOwned<CFMutableDictionaryRef> dictionary = DictionaryOf(object.mProperties);
    SetValue(dictionary, kUniqueIDProperty, MakeNumber(object.mUniqueID).Get());
    return dictionary;
}

// The forms in which a tree of objects is described differ in where an object's properties stand.
template <typename Begin>
CFOwned<CFMutableDictionaryRef> DescribeTree(const PropertyObject& object, const Begin& begin)
    QUORVEL_REQUIRES(sStateMutex) {
    CFOwned<CFMutableDictionaryRef> dictionary = begin(object);
    const auto describe = [&begin](const PropertyObject& part)
                              QUORVEL_REQUIRES(sStateMutex) { return DescribeTree(part, begin); };
    if (const auto* const device = dynamic_cast<const Device*>(&object)) {
        SetValue(dictionary, "entities", MakeArray(device->mEntities, describe).Get());
    } else if (const auto* const entity = dynamic_cast<const Entity*>(&object)) {
        SetValue(dictionary, "sources", MakeArray(entity->mSources, describe).Get());
        SetValue(dictionary, "destinations", MakeArray(entity->mDestinations, describe).Get());
    }
    return dictionary;
}

// Setups saved by this library's first versions hold some properties under names of their own.
std::string PresentName(std::string name) {
    struct Renamed {
        const char* before;
        const char* now;
    };
    constexpr std::array<Renamed, 4> kRenamed{{
        {"receive channels", "receiveChannels"},
        {"transmit channels", "transmitChannels"},
        {"max SysEx speed", "maxSysExSpeed"},
        {"driver version", "driverVersion"},
    }};
    for (const Renamed& property : kRenamed) {
        if (name == property.before) {
            return property.now;
        }
    }
    return name;
}

// Reads a setup; throws NotASetup where it is not one.
class Reader {
public:
    struct NotASetup {};

    SetupDescription Read(CFPropertyListRef propertyList) {
        const CFDictionaryRef setup = Dictionary(propertyList);
        Require(NumberOf(ValueIn(setup, "version")) == kVersion);
        return Array<DeviceDescription>(setup, "devices", [this](CFDictionaryRef value) {
            DeviceDescription device;
            ReadPart(value, device);
            device.mEntities =
                Array<EntityDescription>(value, "entities", [this](CFDictionaryRef entityValue) {
                    EntityDescription entity;
                    ReadPart(entityValue, entity);
                    entity.mSources = Endpoints(entityValue, "sources");
                    entity.mDestinations = Endpoints(entityValue, "destinations");
                    return entity;
                });
            return device;
        });
    }

private:
    static void Require(bool condition) {
        if (!condition) {
            throw NotASetup{};
        }
    }

    static CFDictionaryRef Dictionary(CFTypeRef value) {
        Require(value != nullptr && CFGetTypeID(value) == CFDictionaryGetTypeID());
        return static_cast<CFDictionaryRef>(value);
    }

    template <typename Element, typename ReadElement>
    static std::vector<Element> Array(CFDictionaryRef dictionary, const char* key,
                                      const ReadElement& readElement) {
        const CFTypeRef value = ValueIn(dictionary, key);
        Require(value != nullptr && CFGetTypeID(value) == CFArrayGetTypeID());
        const auto* const array = static_cast<CFArrayRef>(value);
        std::vector<Element> elements;
        for (CFIndex i = 0; i < CFArrayGetCount(array); ++i) {
            elements.push_back(readElement(Dictionary(CFArrayGetValueAtIndex(array, i))));
        }
        return elements;
    }

    std::vector<PartDescription> Endpoints(CFDictionaryRef entity, const char* key) {
        return Array<PartDescription>(entity, key, [this](CFDictionaryRef value) {
            PartDescription endpoint;
            ReadPart(value, endpoint);
            return endpoint;
        });
    }

    void ReadPart(CFDictionaryRef value, PartDescription& part) {
        const CFDictionaryRef properties = Dictionary(ValueIn(value, "properties"));
        const auto count = static_cast<std::size_t>(CFDictionaryGetCount(properties));
        std::vector<const void*> keys(count);
        std::vector<const void*> values(count);
        CFDictionaryGetKeysAndValues(properties, keys.data(), values.data());
        for (std::size_t i = 0; i < count; ++i) {
            auto name = TextOf(static_cast<CFStringRef>(keys[i]));
            Require(name.has_value());
            name = PresentName(std::move(*name));
            const auto type = TypeOf(values[i]);
            const auto& expected = RuleOf(*name).mType;
            Require(type && (!expected || type == expected));
            if (*name == kUniqueIDProperty) {
                part.mUniqueID = *NumberOf(values[i]);
            } else if (RuleOf(*name).mIsSaved) {
                part.mProperties[*name] = CFOwned<CFPropertyListRef>::Retained(values[i]);
            }
        }
        Require(part.mUniqueID != kMIDIInvalidUniqueID && mUniqueIDs.insert(part.mUniqueID).second);
    }

    std::set<MIDIUniqueID> mUniqueIDs;
};

} // namespace

std::optional<SetupDescription> ReadSetup(CFPropertyListRef propertyList) {
    try {
        return Reader().Read(propertyList);
    } catch (const Reader::NotASetup&) {
        return std::nullopt;
    }
}

CFOwned<CFPropertyListRef> WriteSetup(const ServerState& state) {
    const auto describe = [](const Device& device) QUORVEL_REQUIRES(sStateMutex) {
        return DescribeTree(device, [](const PropertyObject& object) QUORVEL_REQUIRES(sStateMutex) {
            CFOwned<CFMutableDictionaryRef> properties = OwnProperties(object);
            for (const auto& [name, value] : object.mProperties) {
                if (!RuleOf(name).mIsSaved) {
                    CFDictionaryRemoveValue(properties.Get(), MakeString(name).Get());
                }
            }
            CFOwned<CFMutableDictionaryRef> dictionary = MakeDictionary();
            SetValue(dictionary, "properties", properties.Get());
            return dictionary;
        });
    };
    CFOwned<CFMutableDictionaryRef> setup = MakeDictionary();
    SetValue(setup, "version", MakeNumber(kVersion).Get());
    SetValue(setup, "devices", MakeArray(state.mSetupDevices, describe).Get());
    return CFOwned<CFPropertyListRef>(setup.Release());
}

CFOwned<CFPropertyListRef> PropertiesOf(const PropertyObject& object, bool isDeep) {
    return CFOwned<CFPropertyListRef>(
        (isDeep ? DescribeTree(object, OwnProperties) : OwnProperties(object)).Release());
}

} // namespace CoreMIDI
