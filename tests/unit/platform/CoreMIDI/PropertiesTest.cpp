#include "tests/unit/platform/CoreMIDI/MidiTestSupport.h"

#include <set>

using namespace MidiTest;

namespace {

// CFDictionary {key: value}.
CFDictionaryRef Dictionary(CFStringRef key, CFTypeRef value) {
    const void* keys[] = {key};
    const void* values[] = {value};
    return CFDictionaryCreate(nullptr, keys, values, 1, &kCFTypeDictionaryKeyCallBacks,
                              &kCFTypeDictionaryValueCallBacks);
}

} // namespace

TEST(PropertiesTest, KeepsValuesOfEachType) {
    const MIDIEndpointRef source = MakeSource(MakeClient());
    EXPECT_EQ(MIDIObjectSetIntegerProperty(source, CFSTR("an integer"), -5), noErr);
    EXPECT_EQ(IntegerProperty(source, CFSTR("an integer")), -5);
    EXPECT_EQ(MIDIObjectSetStringProperty(source, CFSTR("a string"), CFSTR("abc")), noErr);
    EXPECT_EQ(StringProperty(source, CFSTR("a string")), "abc");

    const UInt8 bytes[] = {1, 2, 3};
    CFDataRef data = CFDataCreate(nullptr, bytes, 3);
    EXPECT_EQ(MIDIObjectSetDataProperty(source, CFSTR("some data"), data), noErr);
    CFDataRef gotData = nullptr;
    EXPECT_EQ(MIDIObjectGetDataProperty(source, CFSTR("some data"), &gotData), noErr);
    EXPECT_TRUE(CFEqual(gotData, data));
    CFRelease(gotData);
    CFRelease(data);

    CFDictionaryRef dictionary = Dictionary(CFSTR("k"), CFSTR("v"));
    EXPECT_EQ(MIDIObjectSetDictionaryProperty(source, kMIDIPropertyNameConfiguration, dictionary),
              noErr);
    CFDictionaryRef gotDictionary = nullptr;
    EXPECT_EQ(
        MIDIObjectGetDictionaryProperty(source, kMIDIPropertyNameConfiguration, &gotDictionary),
        noErr);
    EXPECT_TRUE(CFEqual(gotDictionary, dictionary));
    CFRelease(gotDictionary);
    CFRelease(dictionary);
}

TEST(PropertiesTest, AnswersAbsentPropertiesAndUnknownObjects) {
    const MIDIClientRef client = MakeClient();
    const MIDIEndpointRef source = MakeSource(client);
    SInt32 integer = 7;
    CFStringRef string = nullptr;
    EXPECT_EQ(MIDIObjectGetIntegerProperty(source, kMIDIPropertyDeviceID, &integer),
              kMIDIUnknownProperty);
    EXPECT_EQ(MIDIObjectGetStringProperty(source, kMIDIPropertyModel, &string),
              kMIDIUnknownProperty);
    EXPECT_EQ(MIDIObjectRemoveProperty(source, kMIDIPropertyModel), kMIDIUnknownProperty);
    EXPECT_EQ(integer, 7);
    EXPECT_EQ(MIDIEndpointDispose(source), noErr);
    for (const MIDIObjectRef wrong : {source, client, MIDIObjectRef{0}}) {
        EXPECT_EQ(MIDIObjectGetIntegerProperty(wrong, kMIDIPropertyUniqueID, &integer),
                  kMIDIObjectNotFound);
        EXPECT_EQ(MIDIObjectSetIntegerProperty(wrong, kMIDIPropertyPrivate, 1),
                  kMIDIObjectNotFound);
        EXPECT_EQ(MIDIObjectRemoveProperty(wrong, kMIDIPropertyName), kMIDIObjectNotFound);
        CFPropertyListRef list = nullptr;
        EXPECT_EQ(MIDIObjectGetProperties(wrong, &list, true), kMIDIObjectNotFound);
    }
}

TEST(PropertiesTest, AnswersWrongTypes) {
    const MIDIEndpointRef source = MakeSource(MakeClient());
    SInt32 integer = 7;
    CFStringRef string = nullptr;
    CFDataRef data = nullptr;
    EXPECT_EQ(MIDIObjectGetIntegerProperty(source, kMIDIPropertyName, &integer),
              kMIDIWrongPropertyType);
    EXPECT_EQ(MIDIObjectGetDataProperty(source, kMIDIPropertyName, &data), kMIDIWrongPropertyType);
    EXPECT_EQ(MIDIObjectGetStringProperty(source, kMIDIPropertyUniqueID, &string),
              kMIDIWrongPropertyType);
    EXPECT_EQ(MIDIObjectSetStringProperty(source, kMIDIPropertyPrivate, CFSTR("yes")),
              kMIDIWrongPropertyType);
    EXPECT_EQ(MIDIObjectSetIntegerProperty(source, kMIDIPropertyName, 3), kMIDIWrongPropertyType);
    EXPECT_EQ(MIDIObjectSetStringProperty(source, kMIDIPropertyUniqueID, CFSTR("1")),
              kMIDIWrongPropertyType);
    // A dictionary that is not a property list could not be saved.
    CFUUIDRef uuid = CFUUIDCreateFromString(nullptr, CFSTR("43C98C3C-306C-11D5-AF73-003065A8301E"));
    CFDictionaryRef dictionary = Dictionary(CFSTR("k"), uuid);
    EXPECT_EQ(MIDIObjectSetDictionaryProperty(source, CFSTR("d"), dictionary),
              kMIDIWrongPropertyType);
    CFRelease(dictionary);
    CFRelease(uuid);
}

TEST(PropertiesTest, AnswersNullAndWrongArguments) {
    const MIDIEndpointRef source = MakeSource(MakeClient());
    EXPECT_EQ(MIDIObjectGetIntegerProperty(source, kMIDIPropertyUniqueID, nullptr), paramErr);
    SInt32 integer = 0;
    EXPECT_EQ(MIDIObjectGetIntegerProperty(source, nullptr, &integer), paramErr);
    EXPECT_EQ(MIDIObjectSetStringProperty(source, kMIDIPropertyName, nullptr), paramErr);
    EXPECT_EQ(
        MIDIObjectSetDataProperty(source, CFSTR("d"), reinterpret_cast<CFDataRef>(CFSTR("text"))),
        paramErr);
    EXPECT_EQ(MIDIObjectSetDictionaryProperty(source, CFSTR("d"), nullptr), paramErr);
    EXPECT_EQ(MIDIObjectFindByUniqueID(1, nullptr, nullptr), paramErr);
    EXPECT_EQ(MIDIObjectGetProperties(source, nullptr, false), paramErr);
}

TEST(PropertiesTest, InheritsFromEntityAndDevice) {
    const MIDIDeviceRef device = MakeDevice(nullptr, 1);
    const MIDIEntityRef entity = MIDIDeviceGetEntity(device, 0);
    const MIDIEndpointRef source = SourceOf(device, 0);
    EXPECT_EQ(StringProperty(source, kMIDIPropertyManufacturer), "Maker");
    EXPECT_EQ(StringProperty(source, kMIDIPropertyModel), "Model");
    EXPECT_EQ(StringProperty(source, kMIDIPropertyName), "Port 1");
    EXPECT_EQ(IntegerProperty(entity, kMIDIPropertyIsEmbeddedEntity), 0);
    ASSERT_EQ(MIDIObjectSetIntegerProperty(device, kMIDIPropertyMaxSysExSpeed, 3125), noErr);
    EXPECT_EQ(IntegerProperty(source, kMIDIPropertyMaxSysExSpeed), 3125);
    ASSERT_EQ(MIDIObjectSetIntegerProperty(entity, kMIDIPropertyMaxSysExSpeed, 100), noErr);
    EXPECT_EQ(IntegerProperty(source, kMIDIPropertyMaxSysExSpeed), 100);
    EXPECT_EQ(IntegerProperty(device, kMIDIPropertyMaxSysExSpeed), 3125);
    EXPECT_EQ(MIDIObjectRemoveProperty(source, kMIDIPropertyMaxSysExSpeed), kMIDIUnknownProperty)
        << "it is not the source's own";
    EXPECT_EQ(MIDIObjectRemoveProperty(entity, kMIDIPropertyMaxSysExSpeed), noErr);
    EXPECT_EQ(IntegerProperty(source, kMIDIPropertyMaxSysExSpeed), 3125);
}

TEST(PropertiesTest, DerivesDisplayNames) {
    const MIDIDeviceRef device = MakeDevice(nullptr, 1, "Box");
    const MIDIEntityRef entity = MIDIDeviceGetEntity(device, 0);
    const MIDIEndpointRef source = SourceOf(device, 0);
    EXPECT_EQ(StringProperty(device, kMIDIPropertyDisplayName), "Box");
    EXPECT_EQ(StringProperty(entity, kMIDIPropertyDisplayName), "Port 1");
    EXPECT_EQ(StringProperty(source, kMIDIPropertyDisplayName), "Box Port 1");
    ASSERT_EQ(MIDIObjectSetStringProperty(source, kMIDIPropertyName, CFSTR("Box In")), noErr);
    EXPECT_EQ(StringProperty(source, kMIDIPropertyDisplayName), "Box In");
    ASSERT_EQ(MIDIObjectSetStringProperty(source, kMIDIPropertyName, CFSTR("")), noErr);
    EXPECT_EQ(StringProperty(source, kMIDIPropertyDisplayName), "Box");
    EXPECT_EQ(StringProperty(MakeSource(MakeClient(), "Alone"), kMIDIPropertyDisplayName), "Alone");
    ASSERT_EQ(MIDIObjectSetStringProperty(source, kMIDIPropertyDisplayName, CFSTR("New")), noErr);
    EXPECT_EQ(StringProperty(source, kMIDIPropertyName), "New");
    EXPECT_EQ(MIDIObjectRemoveProperty(source, kMIDIPropertyDisplayName), kMIDINotPermitted);
}

TEST(PropertiesTest, GivesEveryObjectAUniqueIDOfItsOwn) {
    const MIDIDeviceRef device = MakeDevice(nullptr, 32);
    std::set<SInt32> seen{0};
    EXPECT_TRUE(seen.insert(IntegerProperty(device, kMIDIPropertyUniqueID)).second);
    for (ItemCount i = 0; i < 32; ++i) {
        for (const MIDIObjectRef object : {MIDIObjectRef{MIDIDeviceGetEntity(device, i)},
                                           SourceOf(device, i), DestinationOf(device, i)}) {
            EXPECT_TRUE(seen.insert(IntegerProperty(object, kMIDIPropertyUniqueID)).second);
        }
    }
}

TEST(PropertiesTest, RefusesUniqueIDsThatAreTakenOrZero) {
    const MIDIClientRef client = MakeClient();
    const MIDIEndpointRef first = MakeSource(client);
    const MIDIEndpointRef second = MakeSource(client);
    const SInt32 taken = IntegerProperty(first, kMIDIPropertyUniqueID);
    EXPECT_EQ(MIDIObjectSetIntegerProperty(second, kMIDIPropertyUniqueID, taken), kMIDIIDNotUnique);
    EXPECT_EQ(MIDIObjectSetIntegerProperty(first, kMIDIPropertyUniqueID, taken), noErr)
        << "its own";
    EXPECT_EQ(MIDIObjectSetIntegerProperty(first, kMIDIPropertyUniqueID, 0), kMIDINotPermitted);
    EXPECT_EQ(MIDIObjectRemoveProperty(first, kMIDIPropertyUniqueID), kMIDINotPermitted);
    const SInt32 chosen = taken == 4711 ? 4712 : 4711;
    EXPECT_EQ(MIDIObjectSetIntegerProperty(first, kMIDIPropertyUniqueID, chosen), noErr);
    EXPECT_EQ(MIDIObjectSetIntegerProperty(second, kMIDIPropertyUniqueID, taken), noErr)
        << "free again";
    MIDIObjectRef found = 0;
    EXPECT_EQ(MIDIObjectFindByUniqueID(chosen, &found, nullptr), noErr);
    EXPECT_EQ(found, first);
    EXPECT_EQ(MIDIEndpointDispose(first), noErr);
    MIDIObjectType type = kMIDIObjectType_Source;
    EXPECT_EQ(MIDIObjectFindByUniqueID(chosen, &found, &type), kMIDIObjectNotFound);
    EXPECT_EQ(found, 0U);
    EXPECT_EQ(type, kMIDIObjectType_Other);
}

TEST(PropertiesTest, FindsObjectsOfEachTypeByUniqueID) {
    const MIDIDeviceRef device = MakeDevice(nullptr, 1);
    const std::pair<MIDIObjectRef, MIDIObjectType> expected[] = {
        {device, kMIDIObjectType_Device},
        {MIDIDeviceGetEntity(device, 0), kMIDIObjectType_Entity},
        {SourceOf(device, 0), kMIDIObjectType_Source},
        {DestinationOf(device, 0), kMIDIObjectType_Destination},
    };
    for (const auto& [object, type] : expected) {
        MIDIObjectRef found = 0;
        MIDIObjectType foundType = kMIDIObjectType_Other;
        EXPECT_EQ(MIDIObjectFindByUniqueID(IntegerProperty(object, kMIDIPropertyUniqueID), &found,
                                           &foundType),
                  noErr);
        EXPECT_EQ(found, object);
        EXPECT_EQ(foundType, type);
    }
}

TEST(PropertiesTest, RefusesToSetTheDriverOwner) {
    const MIDIDeviceRef device = MakeDevice(nullptr, 0);
    EXPECT_EQ(MIDIObjectSetStringProperty(device, kMIDIPropertyDriverOwner, CFSTR("me")),
              kMIDINotPermitted);
    EXPECT_EQ(MIDIObjectRemoveProperty(device, kMIDIPropertyDriverOwner), kMIDINotPermitted);
}

TEST(PropertiesTest, DescribesATreeOfObjects) {
    const MIDIDeviceRef device = MakeDevice(nullptr, 2);
    CFPropertyListRef shallow = nullptr;
    ASSERT_EQ(MIDIObjectGetProperties(device, &shallow, false), noErr);
    const auto* const own = static_cast<CFDictionaryRef>(shallow);
    EXPECT_EQ(CFDictionaryGetValue(own, CFSTR("entities")), nullptr);
    EXPECT_TRUE(CFEqual(CFDictionaryGetValue(own, kMIDIPropertyName), CFSTR("Box")));
    EXPECT_NE(CFDictionaryGetValue(own, kMIDIPropertyUniqueID), nullptr);
    CFRelease(shallow);

    CFPropertyListRef deep = nullptr;
    ASSERT_EQ(MIDIObjectGetProperties(device, &deep, true), noErr);
    const auto* const entities = static_cast<CFArrayRef>(
        CFDictionaryGetValue(static_cast<CFDictionaryRef>(deep), CFSTR("entities")));
    ASSERT_EQ(CFArrayGetCount(entities), 2);
    const auto* const second = static_cast<CFDictionaryRef>(CFArrayGetValueAtIndex(entities, 1));
    EXPECT_TRUE(CFEqual(CFDictionaryGetValue(second, kMIDIPropertyName), CFSTR("Port 2")));
    EXPECT_EQ(CFArrayGetCount(
                  static_cast<CFArrayRef>(CFDictionaryGetValue(second, CFSTR("destinations")))),
              1);
    CFRelease(deep);
}
