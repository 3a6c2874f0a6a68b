#include "tests/unit/platform/CoreMIDI/FakeDriver.h"
#include "tests/unit/platform/CoreMIDI/Told.h"

#include <thread>

using namespace MidiTest;

namespace {

MIDIClientRef MakeToldClient(Told& told) {
    MIDIClientRef client = 0;
    EXPECT_EQ(MIDIClientCreate(CFSTR("told"), Told::Notify, &told, &client), noErr);
    return client;
}

using Messages = std::vector<std::string>;

} // namespace

TEST(NotificationsTest, TellsOfDevicesEntitiesAndProperties) {
    Told told;
    MakeToldClient(told);
    const MIDIDeviceRef device = MakeDevice(nullptr, 1);
    EXPECT_EQ(told.All(), Messages{}) << "not in the setup yet";
    ASSERT_EQ(MIDISetupAddDevice(device), noErr);
    EXPECT_EQ(told.All(), (Messages{"added 0 in -1", "changed"}));
    ASSERT_EQ(MIDIDeviceAddEntity(device, CFSTR("e"), false, 1, 0, nullptr), noErr);
    EXPECT_EQ(told.All(), (Messages{"added 1 in 0", "changed"}));
    ASSERT_EQ(MIDIObjectSetStringProperty(SourceOf(device, 0), kMIDIPropertyName, CFSTR("x")),
              noErr);
    EXPECT_EQ(told.All(), (Messages{"property name of 2", "changed"}));
    ASSERT_EQ(MIDISetupRemoveDevice(device), noErr);
    EXPECT_EQ(told.All(), (Messages{"removed 0 in -1", "changed"}));
}

TEST(NotificationsTest, TellsOfVirtualEndpoints) {
    Told told;
    const MIDIClientRef client = MakeToldClient(told);
    const MIDIEndpointRef source = MakeSource(client);
    ASSERT_EQ(MIDIEndpointDispose(source), noErr);
    EXPECT_EQ(told.All(), (Messages{"added 2 in -1", "changed", "removed 2 in -1", "changed"}));
}

TEST(NotificationsTest, ComesOnTheLoopOfTheThreadOfTheFirstClient) {
    MakeClient();
    Told told;
    std::thread other([&told] { MakeToldClient(told); });
    other.join();
    std::thread third([] { MakeSource(MakeClient()); });
    third.join();
    EXPECT_EQ(told.All(), (Messages{"added 2 in -1", "changed"}));
    EXPECT_EQ(told.Thread(), std::this_thread::get_id());
}

TEST(NotificationsTest, EndsWithTheClient) {
    Told told;
    Told other;
    const MIDIClientRef client = MakeToldClient(told);
    MakeToldClient(other);
    MakeSource(client);
    EXPECT_EQ(MIDIClientDispose(client), noErr);
    EXPECT_FALSE(other.All().empty());
    EXPECT_EQ(told.All(), Messages{});
}

TEST(NotificationsTest, ReplacesWhatIsTooMuchByOneChange) {
    Told told;
    const MIDIClientRef client = MakeToldClient(told);
    const MIDIEndpointRef source = MakeSource(client);
    for (SInt32 i = 0; i < 5000; ++i) {
        ASSERT_EQ(MIDIObjectSetIntegerProperty(source, kMIDIPropertyDeviceID, i), noErr);
    }
    const Messages messages = told.All();
    EXPECT_LE(messages.size(), 1024U);
    EXPECT_EQ(messages.front(), "changed");
}

TEST(NotificationsTest, TellsOfErrorsOfADriversSend) {
    FakeDriver driver;
    Told told;
    const MIDIClientRef client = MakeToldClient(told);
    ASSERT_EQ(MIDIServerHostAttachDriver(driver.Ref(), CFSTR("fake")), noErr);
    const MIDIDeviceRef device = MakeDevice(driver.Ref(), 1);
    driver.SetResult(kMIDIInvalidPort);
    const List list({{0, {0xF8}}});
    ASSERT_EQ(MIDISend(MakeOutput(client), DestinationOf(device, 0), list.Get()), noErr);
    ASSERT_EQ(MIDIServerHostDetachDriver(driver.Ref()), noErr);
    EXPECT_EQ(told.All(), (Messages{"error -10831"}));
}
