#include "tests/unit/platform/CoreMIDI/MidiTestSupport.h"

#include <set>

using namespace MidiTest;

namespace {

void NoRead(const MIDIPacketList*, void*, void*) {}

} // namespace

TEST(ObjectsTest, AnswersDisposedAndUnknownClients) {
    const MIDIClientRef client = MakeClient();
    EXPECT_NE(client, 0U);
    EXPECT_EQ(MIDIClientDispose(client), noErr);
    MIDIObjectRef out = 0;
    for (const MIDIClientRef wrong : {client, MIDIClientRef{0}, MIDIClientRef{0xFFFFFFFF}}) {
        EXPECT_EQ(MIDIClientDispose(wrong), kMIDIInvalidClient);
        EXPECT_EQ(MIDISourceCreate(wrong, CFSTR("s"), &out), kMIDIInvalidClient);
        EXPECT_EQ(MIDIDestinationCreate(wrong, CFSTR("d"), NoRead, nullptr, &out),
                  kMIDIInvalidClient);
        EXPECT_EQ(MIDIInputPortCreate(wrong, CFSTR("i"), NoRead, nullptr, &out),
                  kMIDIInvalidClient);
        EXPECT_EQ(MIDIOutputPortCreate(wrong, CFSTR("o"), &out), kMIDIInvalidClient);
    }
    EXPECT_EQ(out, 0U);
}

TEST(ObjectsTest, AnswersDisposedUnknownAndWrongPorts) {
    Received received;
    const MIDIClientRef client = MakeClient();
    const MIDIEndpointRef source = MakeSource(client);
    const MIDIPortRef input = MakeInput(client, received);
    const MIDIPortRef output = MakeOutput(client);
    const MIDIPortRef gone = MakeInput(client, received);
    EXPECT_EQ(MIDIPortDispose(gone), noErr);
    EXPECT_EQ(MIDIPortDispose(gone), kMIDIInvalidPort);
    EXPECT_EQ(MIDIPortDispose(source), kMIDIInvalidPort);
    EXPECT_EQ(MIDIPortConnectSource(gone, source, nullptr), kMIDIInvalidPort);
    EXPECT_EQ(MIDIPortConnectSource(output, source, nullptr), kMIDIInvalidPort);
    EXPECT_EQ(MIDIPortDisconnectSource(output, source), kMIDIInvalidPort);
    const List list({{0, {0xF8}}});
    EXPECT_EQ(MIDISend(input, MakeDestination(client, received), list.Get()), kMIDIInvalidPort);
    EXPECT_EQ(MIDISend(gone, MakeDestination(client, received), list.Get()), kMIDIInvalidPort);
}

TEST(ObjectsTest, AnswersDisposedUnknownAndWrongEndpoints) {
    Received received;
    const MIDIClientRef client = MakeClient();
    const MIDIEndpointRef source = MakeSource(client);
    const MIDIEndpointRef destination = MakeDestination(client, received);
    const MIDIEndpointRef gone = MakeSource(client);
    const MIDIPortRef input = MakeInput(client, received);
    const MIDIPortRef output = MakeOutput(client);
    const List list({{0, {0xF8}}});
    EXPECT_EQ(MIDIEndpointDispose(gone), noErr);
    for (const MIDIEndpointRef wrong : {gone, MIDIEndpointRef{0}, client, input}) {
        EXPECT_EQ(MIDIEndpointDispose(wrong), kMIDIUnknownEndpoint);
        EXPECT_EQ(MIDIPortConnectSource(input, wrong, nullptr), kMIDIUnknownEndpoint);
        EXPECT_EQ(MIDIPortDisconnectSource(input, wrong), kMIDIUnknownEndpoint);
        EXPECT_EQ(MIDIReceived(wrong, list.Get()), kMIDIUnknownEndpoint);
        EXPECT_EQ(MIDISend(output, wrong, list.Get()), kMIDIUnknownEndpoint);
        EXPECT_EQ(MIDIEndpointSetRefCons(wrong, nullptr, nullptr), kMIDIUnknownEndpoint);
        EXPECT_EQ(MIDIEndpointGetRefCons(wrong, nullptr, nullptr), kMIDIUnknownEndpoint);
    }
    EXPECT_EQ(MIDIPortConnectSource(input, destination, nullptr), kMIDIWrongEndpointType);
    EXPECT_EQ(MIDIPortDisconnectSource(input, destination), kMIDIWrongEndpointType);
    EXPECT_EQ(MIDIReceived(destination, list.Get()), kMIDIWrongEndpointType);
    EXPECT_EQ(MIDISend(output, source, list.Get()), kMIDIWrongEndpointType);
    EXPECT_EQ(MIDIFlushOutput(source), kMIDIWrongEndpointType);
    EXPECT_EQ(MIDIFlushOutput(gone), kMIDIUnknownEndpoint);
    EXPECT_EQ(MIDIPortDisconnectSource(input, source), kMIDINoConnection);
}

TEST(ObjectsTest, AnswersNullAndWrongArguments) {
    const MIDIClientRef client = MakeClient();
    MIDIObjectRef out = 0;
    EXPECT_EQ(MIDIClientCreate(nullptr, nullptr, nullptr, &out), paramErr);
    EXPECT_EQ(MIDIClientCreate(CFSTR("c"), nullptr, nullptr, nullptr), paramErr);
    EXPECT_EQ(
        MIDIClientCreate(reinterpret_cast<CFStringRef>(kCFBooleanTrue), nullptr, nullptr, &out),
        paramErr);
    EXPECT_EQ(MIDISourceCreate(client, nullptr, &out), paramErr);
    EXPECT_EQ(MIDISourceCreate(client, CFSTR("s"), nullptr), paramErr);
    EXPECT_EQ(MIDIDestinationCreate(client, CFSTR("d"), nullptr, nullptr, &out), paramErr);
    EXPECT_EQ(MIDIInputPortCreate(client, CFSTR("i"), nullptr, nullptr, &out), paramErr);
    EXPECT_EQ(MIDIDeviceCreate(nullptr, CFSTR("n"), nullptr, CFSTR("m"), &out), paramErr);
    EXPECT_EQ(MIDIReceived(MakeSource(client), nullptr), paramErr);
    EXPECT_EQ(out, 0U);
}

TEST(ObjectsTest, EndsPortsAndEndpointsWithTheirClient) {
    Received received;
    const MIDIClientRef client = MakeClient();
    const MIDIEndpointRef source = MakeSource(client);
    const MIDIPortRef port = MakeInput(client, received);
    ASSERT_EQ(MIDIPortConnectSource(port, source, nullptr), noErr);
    const MIDIClientRef other = MakeClient();
    const MIDIEndpointRef others = MakeSource(other);
    ASSERT_EQ(MIDIPortConnectSource(port, others, nullptr), noErr);
    EXPECT_EQ(MIDIClientDispose(client), noErr);
    EXPECT_EQ(MIDIPortDispose(port), kMIDIInvalidPort);
    EXPECT_EQ(MIDIEndpointDispose(source), kMIDIUnknownEndpoint);
    const List list({{0, {0xF8}}});
    EXPECT_EQ(MIDIReceived(others, list.Get()), noErr);
    EXPECT_EQ(received.Lists(), 0);
}

TEST(ObjectsTest, DoesNotReuseReferencesSoon) {
    const MIDIClientRef client = MakeClient();
    std::set<MIDIObjectRef> seen;
    for (int i = 0; i < 20000; ++i) {
        const MIDIEndpointRef source = MakeSource(client);
        ASSERT_TRUE(seen.insert(source).second) << "after " << i;
        ASSERT_EQ(MIDIEndpointDispose(source), noErr);
    }
    for (const MIDIObjectRef stale : seen) {
        ASSERT_EQ(MIDIEndpointDispose(stale), kMIDIUnknownEndpoint);
    }
}

TEST(ObjectsTest, RefusesObjectsWhenTheyAreUsedUpAndRecovers) {
    const MIDIDeviceRef device = MakeDevice(nullptr, 0);
    MIDIEntityRef entity = 0;
    EXPECT_EQ(MIDIDeviceAddEntity(device, CFSTR("huge"), false, 1000000, 0, &entity), memFullErr);
    EXPECT_EQ(entity, 0U);
    EXPECT_EQ(MIDIDeviceGetNumberOfEntities(device), 0U);
    EXPECT_EQ(MIDIDeviceAddEntity(device, CFSTR("small"), false, 1, 1, &entity), noErr);
    EXPECT_NE(entity, 0U);
}

TEST(ObjectsTest, ListsDevicesOnlyOnceTheyAreInTheSetup) {
    const MIDIDeviceRef device = MakeDevice(nullptr, 2);
    EXPECT_EQ(MIDIGetNumberOfDevices(), 0U);
    EXPECT_EQ(MIDIGetNumberOfSources(), 0U);
    EXPECT_EQ(MIDISetupAddDevice(device), noErr);
    EXPECT_EQ(MIDISetupAddDevice(device), noErr) << "adding twice is harmless";
    EXPECT_EQ(MIDIGetNumberOfDevices(), 1U);
    EXPECT_EQ(MIDIGetDevice(0), device);
    EXPECT_EQ(MIDIGetDevice(1), 0U);
    EXPECT_EQ(MIDIGetNumberOfSources(), 2U);
    EXPECT_EQ(MIDIGetNumberOfDestinations(), 2U);
    EXPECT_EQ(MIDIGetSource(1), SourceOf(device, 1));
    EXPECT_EQ(MIDIGetDestination(0), DestinationOf(device, 0));
    EXPECT_EQ(MIDIGetDestination(2), 0U);
}

TEST(ObjectsTest, WalksDevicesBothWays) {
    const MIDIDeviceRef device = MakeDevice(nullptr, 0);
    MIDIEntityRef entity = 0;
    ASSERT_EQ(MIDIDeviceAddEntity(device, CFSTR("e"), true, 2, 3, &entity), noErr);
    EXPECT_EQ(MIDIDeviceGetNumberOfEntities(device), 1U);
    EXPECT_EQ(MIDIDeviceGetEntity(device, 0), entity);
    EXPECT_EQ(MIDIDeviceGetEntity(device, 1), 0U);
    EXPECT_EQ(MIDIEntityGetNumberOfSources(entity), 2U);
    EXPECT_EQ(MIDIEntityGetNumberOfDestinations(entity), 3U);
    EXPECT_EQ(MIDIEntityGetSource(entity, 2), 0U);
    EXPECT_EQ(MIDIEntityGetDestination(entity, 3), 0U);
    MIDIObjectRef up = 0;
    EXPECT_EQ(MIDIEndpointGetEntity(MIDIEntityGetDestination(entity, 2), &up), noErr);
    EXPECT_EQ(up, entity);
    EXPECT_EQ(MIDIEntityGetDevice(entity, &up), noErr);
    EXPECT_EQ(up, device);
    EXPECT_EQ(MIDIEntityGetDevice(device, &up), kMIDIObjectNotFound);
    EXPECT_EQ(MIDIDeviceGetNumberOfEntities(entity), 0U) << "not a device";
    EXPECT_EQ(MIDIEndpointGetEntity(MakeSource(MakeClient()), &up), kMIDIObjectNotFound);
    EXPECT_EQ(up, 0U) << "a virtual endpoint has no entity";
}

TEST(ObjectsTest, RemovesDevicesWithAllTheyHold) {
    const MIDIDeviceRef device = MakeDevice(nullptr, 2);
    const MIDIEntityRef entity = MIDIDeviceGetEntity(device, 0);
    const MIDIEndpointRef source = SourceOf(device, 0);
    EXPECT_EQ(MIDISetupRemoveDevice(device), kMIDIObjectNotFound) << "not in the setup yet";
    ASSERT_EQ(MIDISetupAddDevice(device), noErr);
    EXPECT_EQ(MIDIDeviceDispose(device), kMIDINotPermitted);
    EXPECT_EQ(MIDIEndpointDispose(source), kMIDINotPermitted);
    EXPECT_EQ(MIDISetupRemoveDevice(device), noErr);
    EXPECT_EQ(MIDISetupRemoveDevice(device), kMIDIObjectNotFound);
    EXPECT_EQ(MIDISetupAddDevice(device), kMIDIObjectNotFound);
    EXPECT_EQ(MIDIGetNumberOfDevices(), 0U);
    EXPECT_EQ(MIDIEntityGetNumberOfSources(entity), 0U);
    EXPECT_EQ(MIDIEndpointDispose(source), kMIDIUnknownEndpoint);
    SInt32 value = 0;
    EXPECT_EQ(MIDIObjectGetIntegerProperty(entity, kMIDIPropertyUniqueID, &value),
              kMIDIObjectNotFound);
}

TEST(ObjectsTest, RemovesEntitiesOfTheGivenDeviceOnly) {
    const MIDIDeviceRef device = MakeDevice(nullptr, 2);
    const MIDIDeviceRef other = MakeDevice(nullptr, 1);
    const MIDIEntityRef entity = MIDIDeviceGetEntity(device, 0);
    EXPECT_EQ(MIDIDeviceRemoveEntity(other, entity), kMIDIObjectNotFound);
    EXPECT_EQ(MIDIDeviceRemoveEntity(device, entity), noErr);
    EXPECT_EQ(MIDIDeviceRemoveEntity(device, entity), kMIDIObjectNotFound);
    EXPECT_EQ(MIDIDeviceGetNumberOfEntities(device), 1U);
}

TEST(ObjectsTest, DisposesOfDevicesThatWereNeverAdded) {
    const MIDIDeviceRef device = MakeDevice(nullptr, 1);
    EXPECT_EQ(MIDIDeviceDispose(device), noErr);
    EXPECT_EQ(MIDIDeviceDispose(device), kMIDIObjectNotFound);
    EXPECT_EQ(MIDIDeviceAddEntity(device, CFSTR("e"), false, 1, 1, nullptr), kMIDIObjectNotFound);
}

TEST(ObjectsTest, KeepsAListsLengthWhileItsDevicesAreRemoved) {
    const MIDIDeviceListRef list = MIDIGetDriverDeviceList(nullptr);
    ASSERT_NE(list, 0U);
    EXPECT_EQ(MIDIDeviceListGetNumberOfDevices(list), 0U);
    const MIDIDeviceRef first = MakeDevice(nullptr, 0);
    const MIDIDeviceRef second = MakeDevice(nullptr, 0);
    for (const MIDIDeviceRef device : {first, second}) {
        ASSERT_EQ(MIDISetupAddDevice(device), noErr);
        EXPECT_EQ(MIDIDeviceListAddDevice(list, device), noErr);
    }
    for (ItemCount i = 0; i < MIDIDeviceListGetNumberOfDevices(list); ++i) {
        EXPECT_EQ(MIDISetupRemoveDevice(MIDIDeviceListGetDevice(list, i)), noErr);
    }
    EXPECT_EQ(MIDIGetNumberOfDevices(), 0U);
    EXPECT_EQ(MIDIDeviceListGetDevice(list, 2), 0U);
    EXPECT_EQ(MIDIDeviceListAddDevice(list, first), kMIDIObjectNotFound);
    EXPECT_EQ(MIDIDeviceListDispose(list), noErr);
    EXPECT_EQ(MIDIDeviceListDispose(list), kMIDIObjectNotFound);
    EXPECT_EQ(MIDIDeviceListGetNumberOfDevices(list), 0U);
    EXPECT_EQ(MIDIDeviceListAddDevice(list, first), kMIDIObjectNotFound);
}

TEST(ObjectsTest, KeepsRefConsOfAnEndpoint) {
    const MIDIEndpointRef destination = DestinationOf(MakeDevice(nullptr, 1), 0);
    int first = 0;
    void* got1 = &first;
    void* got2 = &first;
    EXPECT_EQ(MIDIEndpointGetRefCons(destination, &got1, &got2), noErr);
    EXPECT_EQ(got1, nullptr);
    EXPECT_EQ(got2, nullptr);
    EXPECT_EQ(MIDIEndpointSetRefCons(destination, &first, reinterpret_cast<void*>(31)), noErr);
    EXPECT_EQ(MIDIEndpointGetRefCons(destination, &got1, nullptr), noErr);
    EXPECT_EQ(MIDIEndpointGetRefCons(destination, nullptr, &got2), noErr);
    EXPECT_EQ(got1, &first);
    EXPECT_EQ(got2, reinterpret_cast<void*>(31));
}

TEST(ObjectsTest, LeavesPrivateAndOfflineEndpointsOutOfTheLists) {
    const MIDIClientRef client = MakeClient();
    const MIDIEndpointRef open = MakeSource(client);
    const MIDIEndpointRef hidden = MakeSource(client);
    ASSERT_EQ(MIDIObjectSetIntegerProperty(hidden, kMIDIPropertyPrivate, 1), noErr);
    EXPECT_EQ(MIDIGetNumberOfSources(), 1U);
    EXPECT_EQ(MIDIGetSource(0), open);
    EXPECT_EQ(MIDIGetSource(1), 0U);
    MIDIObjectRef found = 0;
    MIDIObjectType type = kMIDIObjectType_Other;
    EXPECT_EQ(
        MIDIObjectFindByUniqueID(IntegerProperty(hidden, kMIDIPropertyUniqueID), &found, &type),
        noErr);
    EXPECT_EQ(found, hidden);
    EXPECT_EQ(type, kMIDIObjectType_Source);
    const MIDIDeviceRef device = MakeDevice(nullptr, 1);
    ASSERT_EQ(MIDISetupAddDevice(device), noErr);
    EXPECT_EQ(MIDIGetNumberOfSources(), 2U);
    ASSERT_EQ(MIDIObjectSetIntegerProperty(device, kMIDIPropertyOffline, 1), noErr);
    EXPECT_EQ(MIDIGetNumberOfSources(), 1U);
    EXPECT_EQ(MIDIGetNumberOfDevices(), 1U);
}
