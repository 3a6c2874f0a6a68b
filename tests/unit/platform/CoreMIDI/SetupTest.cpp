#include "tests/support/TestSeed.h"
#include "tests/support/platform/SyslogCapture.h"
#include "tests/unit/platform/CoreMIDI/FakeDriver.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

using namespace MidiTest;

namespace {

// Whether this build has property-list files.
bool HasFiles() {
    CFDictionaryRef empty = CFDictionaryCreate(nullptr, nullptr, nullptr, 0, nullptr, nullptr);
    CFDataRef bytes =
        CFPropertyListCreateData(nullptr, empty, kCFPropertyListXMLFormat_v1_0, 0, nullptr);
    const bool hasFiles = bytes != nullptr;
    if (hasFiles) {
        CFRelease(bytes);
    }
    CFRelease(empty);
    return hasFiles;
}

class SetupTest : public testing::Test {
protected:
    void SetUp() override {
        std::string name = testing::TempDir() + "/midi-setup-XXXXXX";
        ASSERT_NE(mkdtemp(name.data()), nullptr);
        mFolder = name;
        mPath = (mFolder / "setup.plist").string();
    }
    void TearDown() override {
        MIDIServerHostOpenSetup(nullptr);
        std::filesystem::remove_all(mFolder);
    }

    OSStatus Open() const { return MIDIServerHostOpenSetup(Text(mPath.c_str())); }
    // As a restart does: forget all, and read the file.
    OSStatus Reopen() const {
        EXPECT_EQ(MIDIServerHostOpenSetup(nullptr), noErr);
        EXPECT_EQ(MIDIGetNumberOfDevices(), 0U);
        return Open();
    }
    std::string Contents() const { return ContentsOf(mPath); }
    static std::string ContentsOf(const std::filesystem::path& path) {
        std::ifstream file(path, std::ios::binary);
        std::stringstream text;
        text << file.rdbuf();
        return text.str();
    }
    void Write(const std::string& contents) const {
        std::ofstream(mPath, std::ios::binary) << contents;
    }
    std::size_t FilesInFolder() const {
        return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(mFolder),
                                                      std::filesystem::directory_iterator()));
    }

    std::filesystem::path mFolder;
    std::string mPath;
};

// Those that need property-list files.
class SetupFileTest : public SetupTest {
protected:
    void SetUp() override {
        if (!HasFiles()) {
            GTEST_SKIP() << "this build has no property-list files";
        }
        SetupTest::SetUp();
    }
};

// The unique IDs of a device and all that it holds, in order.
std::vector<SInt32> UniqueIDs(MIDIDeviceRef device) {
    std::vector<SInt32> ids{IntegerProperty(device, kMIDIPropertyUniqueID)};
    for (ItemCount e = 0; e < MIDIDeviceGetNumberOfEntities(device); ++e) {
        ids.push_back(IntegerProperty(MIDIDeviceGetEntity(device, e), kMIDIPropertyUniqueID));
        ids.push_back(IntegerProperty(SourceOf(device, e), kMIDIPropertyUniqueID));
        ids.push_back(IntegerProperty(DestinationOf(device, e), kMIDIPropertyUniqueID));
    }
    return ids;
}

} // namespace

TEST_F(SetupTest, IsInMemoryUntilOneIsOpened) {
    EXPECT_EQ(MIDIServerHostSaveSetup(), kMIDINoCurrentSetup);
    ASSERT_EQ(MIDISetupAddDevice(MakeDevice(nullptr, 1)), noErr);
    EXPECT_EQ(MIDIServerHostOpenSetup(nullptr), noErr);
    EXPECT_EQ(MIDIGetNumberOfDevices(), 0U) << "the devices of the setup before are gone";
    EXPECT_EQ(MIDIServerHostSaveSetup(), kMIDINoCurrentSetup);
    EXPECT_EQ(MIDIServerHostOpenSetup(reinterpret_cast<CFStringRef>(kCFBooleanTrue)), paramErr);
}

TEST_F(SetupTest, SaysSoWhenTheBuildKeepsNoFiles) {
    if (HasFiles()) {
        EXPECT_EQ(Open(), noErr);
        return;
    }
    Write("anything");
    EXPECT_EQ(Open(), kMIDINotPermitted);
    EXPECT_EQ(Contents(), "anything");
    EXPECT_EQ(MIDIServerHostSaveSetup(), kMIDINoCurrentSetup);
    EXPECT_EQ(MIDISetupAddDevice(MakeDevice(nullptr, 1)), noErr);
}

TEST_F(SetupFileTest, ReadsPropertiesUnderTheNamesOfItsFirstVersions) {
    const struct {
        CFStringRef name;
        const char* now;
        const char* before;
    } properties[] = {
        {kMIDIPropertyReceiveChannels, "receiveChannels", "receive channels"},
        {kMIDIPropertyTransmitChannels, "transmitChannels", "transmit channels"},
        {kMIDIPropertyMaxSysExSpeed, "maxSysExSpeed", "max SysEx speed"},
        {kMIDIPropertyDriverVersion, "driverVersion", "driver version"},
    };
    ASSERT_EQ(Open(), noErr);
    const MIDIDeviceRef device = MakeDevice(nullptr, 1);
    SInt32 value = 1;
    for (const auto& property : properties) {
        EXPECT_EQ(ToString(property.name), property.now);
        ASSERT_EQ(MIDIObjectSetIntegerProperty(device, property.name, value++), noErr);
    }
    ASSERT_EQ(MIDISetupAddDevice(device), noErr);
    ASSERT_EQ(MIDIServerHostOpenSetup(nullptr), noErr);
    std::string contents = Contents();
    for (const auto& property : properties) {
        const std::size_t at = contents.find(property.now);
        ASSERT_NE(at, std::string::npos) << property.now;
        contents.replace(at, std::strlen(property.now), property.before);
    }
    Write(contents);
    ASSERT_EQ(Open(), noErr);
    ASSERT_EQ(MIDIGetNumberOfDevices(), 1U);
    value = 1;
    for (const auto& property : properties) {
        EXPECT_EQ(IntegerProperty(MIDIGetDevice(0), property.name), value++) << property.now;
    }
}

TEST_F(SetupFileTest, KeepsDevicesEntitiesPropertiesAndUniqueIDs) {
    ASSERT_EQ(Open(), noErr);
    const MIDIDeviceRef device = MakeDevice(nullptr, 32, "Box \xC3\xA9 <&>");
    ASSERT_EQ(MIDISetupAddDevice(device), noErr);
    ASSERT_EQ(MIDIObjectSetStringProperty(SourceOf(device, 3), CFSTR("mine"), CFSTR("x")), noErr);
    ASSERT_EQ(MIDIObjectSetIntegerProperty(device, kMIDIPropertyDeviceID, -2147483647 - 1), noErr);
    const UInt8 byte = 7;
    CFDataRef data = CFDataCreate(nullptr, &byte, 1);
    ASSERT_EQ(MIDIObjectSetDataProperty(device, CFSTR("data"), data), noErr);
    CFRelease(data);
    const std::vector<SInt32> ids = UniqueIDs(device);

    ASSERT_EQ(Reopen(), noErr);
    ASSERT_EQ(MIDIGetNumberOfDevices(), 1U);
    const MIDIDeviceRef loaded = MIDIGetDevice(0);
    EXPECT_NE(loaded, device);
    EXPECT_EQ(UniqueIDs(loaded), ids);
    EXPECT_EQ(StringProperty(loaded, kMIDIPropertyName), "Box \xC3\xA9 <&>");
    EXPECT_EQ(StringProperty(loaded, kMIDIPropertyManufacturer), "Maker");
    EXPECT_EQ(StringProperty(MIDIDeviceGetEntity(loaded, 31), kMIDIPropertyName), "Port 32");
    EXPECT_EQ(StringProperty(SourceOf(loaded, 3), CFSTR("mine")), "x");
    EXPECT_EQ(IntegerProperty(loaded, kMIDIPropertyDeviceID), -2147483647 - 1);
    CFDataRef got = nullptr;
    ASSERT_EQ(MIDIObjectGetDataProperty(loaded, CFSTR("data"), &got), noErr);
    EXPECT_EQ(CFDataGetBytePtr(got)[0], 7);
    CFRelease(got);
    MIDIObjectRef found = 0;
    EXPECT_EQ(MIDIObjectFindByUniqueID(ids[5], &found, nullptr), noErr);
    EXPECT_EQ(found, SourceOf(loaded, 1));
}

TEST_F(SetupFileTest, WritesEveryChangeBeforeTheCallReturns) {
    ASSERT_EQ(Open(), noErr);
    EXPECT_FALSE(std::filesystem::exists(mPath)) << "nothing to save yet";
    const MIDIDeviceRef device = MakeDevice(nullptr, 1);
    EXPECT_FALSE(std::filesystem::exists(mPath)) << "not in the setup yet";
    std::string before;
    const auto expectWritten = [&](const char* what) {
        EXPECT_NE(Contents(), before) << what;
        before = Contents();
    };
    ASSERT_EQ(MIDISetupAddDevice(device), noErr);
    expectWritten("device added");
    ASSERT_EQ(MIDIDeviceAddEntity(device, CFSTR("more"), true, 1, 1, nullptr), noErr);
    expectWritten("entity added");
    ASSERT_EQ(MIDIObjectSetStringProperty(device, kMIDIPropertyName, CFSTR("New")), noErr);
    expectWritten("property set");
    ASSERT_EQ(MIDIObjectRemoveProperty(device, kMIDIPropertyModel), noErr);
    expectWritten("property removed");
    ASSERT_EQ(MIDIDeviceRemoveEntity(device, MIDIDeviceGetEntity(device, 0)), noErr);
    expectWritten("entity removed");
    ASSERT_EQ(MIDIObjectSetIntegerProperty(device, kMIDIPropertyOffline, 1), noErr);
    EXPECT_EQ(Contents(), before) << "being offline is not saved";
    ASSERT_EQ(MIDISetupRemoveDevice(device), noErr);
    expectWritten("device removed");
    EXPECT_EQ(FilesInFolder(), 1U) << "no temporary files are left";
}

TEST_F(SetupFileTest, DoesNotSaveVirtualEndpoints) {
    ASSERT_EQ(Open(), noErr);
    ASSERT_EQ(MIDISetupAddDevice(MakeDevice(nullptr, 0)), noErr);
    const std::string before = Contents();
    MakeSource(MakeClient(), "virtual one");
    EXPECT_EQ(MIDIServerHostSaveSetup(), noErr);
    EXPECT_EQ(Contents(), before);
}

TEST_F(SetupFileTest, GivesADriverItsDevicesOfTheLastRun) {
    ASSERT_EQ(Open(), noErr);
    SInt32 uniqueID = 0;
    {
        FakeDriver driver;
        ASSERT_EQ(MIDIServerHostAttachDriver(driver.Ref(), CFSTR("com.example.fake")), noErr);
        const MIDIDeviceListRef none = MIDIServerHostCopyDeviceList(driver.Ref());
        EXPECT_NE(none, 0U);
        EXPECT_EQ(MIDIDeviceListGetNumberOfDevices(none), 0U);
        const MIDIDeviceRef device = MakeDevice(driver.Ref(), 2);
        ASSERT_EQ(MIDISetupAddDevice(device), noErr);
        ASSERT_EQ(MIDISetupAddDevice(MakeDevice(nullptr, 1, "Other")), noErr);
        uniqueID = IntegerProperty(device, kMIDIPropertyUniqueID);
        ASSERT_EQ(MIDIServerHostDetachDriver(driver.Ref()), noErr);
    }
    ASSERT_EQ(Reopen(), noErr);
    ASSERT_EQ(MIDIGetNumberOfDevices(), 2U);
    EXPECT_EQ(IntegerProperty(MIDIGetDevice(0), kMIDIPropertyOffline), 1);
    EXPECT_EQ(MIDIGetNumberOfSources(), 1U) << "only that of the device without a driver";
    FakeDriver driver;
    ASSERT_EQ(MIDIServerHostAttachDriver(driver.Ref(), CFSTR("com.example.fake")), noErr);
    const MIDIDeviceListRef devices = MIDIServerHostCopyDeviceList(driver.Ref());
    ASSERT_EQ(MIDIDeviceListGetNumberOfDevices(devices), 1U);
    const MIDIDeviceRef device = MIDIDeviceListGetDevice(devices, 0);
    EXPECT_EQ(IntegerProperty(device, kMIDIPropertyUniqueID), uniqueID);
    EXPECT_EQ(IntegerProperty(device, kMIDIPropertyOffline), 0);
    const List list({{0, {0xF8}}});
    EXPECT_EQ(MIDISend(MakeOutput(MakeClient()), DestinationOf(device, 1), list.Get()), noErr);
    driver.WaitForCalls("Send", 1);
    EXPECT_EQ(MIDIServerHostDetachDriver(driver.Ref()), noErr);
}

TEST_F(SetupFileTest, MovesABrokenFileAsideAndBeginsAnew) {
    const char* const broken[] = {
        "",
        "this is not a property list",
        "<plist version=\"1.0\"><array/></plist>",
        "<plist version=\"1.0\"><dict><key>version</key><integer>1</integer></dict></plist>",
        "<plist version=\"1.0\"><dict><key>version</key><integer>2</integer>"
        "<key>devices</key><array/></dict></plist>",
        // No unique ID, one of a wrong type, one that is 0, the same one twice.
        "<plist version=\"1.0\"><dict><key>version</key><integer>1</integer><key>devices</key>"
        "<array><dict><key>properties</key><dict/><key>entities</key><array/></dict></array>"
        "</dict></plist>",
        "<plist version=\"1.0\"><dict><key>version</key><integer>1</integer><key>devices</key>"
        "<array><dict><key>properties</key><dict><key>uniqueID</key><string>5</string></dict>"
        "<key>entities</key><array/></dict></array></dict></plist>",
        "<plist version=\"1.0\"><dict><key>version</key><integer>1</integer><key>devices</key>"
        "<array><dict><key>properties</key><dict><key>uniqueID</key><integer>0</integer></dict>"
        "<key>entities</key><array/></dict></array></dict></plist>",
        "<plist version=\"1.0\"><dict><key>version</key><integer>1</integer><key>devices</key>"
        "<array><dict><key>properties</key><dict><key>uniqueID</key><integer>5</integer></dict>"
        "<key>entities</key><array/></dict><dict><key>properties</key><dict><key>uniqueID</key>"
        "<integer>5</integer></dict><key>entities</key><array/></dict></array></dict></plist>",
    };
    std::size_t files = 0;
    for (const char* contents : broken) {
        SCOPED_TRACE(contents);
        Write(contents);
        EXPECT_EQ(Open(), kMIDISetupFormatErr);
        EXPECT_EQ(MIDIGetNumberOfDevices(), 0U);
        EXPECT_FALSE(std::filesystem::exists(mPath));
        ++files;
        EXPECT_EQ(ContentsOf(mPath + ".broken" + (files == 1 ? "" : "-" + std::to_string(files))),
                  contents)
            << "kept, and under a name of its own";
    }
    ASSERT_EQ(MIDISetupAddDevice(MakeDevice(nullptr, 1)), noErr);
    EXPECT_EQ(Reopen(), noErr) << "the new setup is kept in the place of the broken one";
    EXPECT_EQ(MIDIGetNumberOfDevices(), 1U);
}

TEST_F(SetupFileTest, SurvivesAFileThatWasCutAnywhere) {
    ASSERT_EQ(Open(), noErr);
    ASSERT_EQ(MIDISetupAddDevice(MakeDevice(nullptr, 1)), noErr);
    const std::string whole = Contents();
    for (std::size_t length = 0; length < whole.size(); length += 97) {
        SCOPED_TRACE(length);
        Write(whole.substr(0, length));
        EXPECT_EQ(Open(), kMIDISetupFormatErr);
        EXPECT_EQ(MIDIGetNumberOfDevices(), 0U);
    }
}

TEST_F(SetupFileTest, LeavesAloneWhatItCannotRead) {
    std::filesystem::create_directory(mPath);
    EXPECT_EQ(Open(), kMIDINotPermitted);
    EXPECT_EQ(errno, EISDIR);
    EXPECT_EQ(MIDISetupAddDevice(MakeDevice(nullptr, 1)), noErr) << "in memory";
    EXPECT_EQ(MIDIServerHostSaveSetup(), kMIDINoCurrentSetup);
    EXPECT_TRUE(std::filesystem::is_directory(mPath));
}

TEST_F(SetupFileTest, MakesTheFolderAndReportsWhenItCannot) {
    mPath = (mFolder / "a" / "b" / "setup.plist").string();
    ASSERT_EQ(Open(), noErr);
    EXPECT_EQ(MIDIServerHostSaveSetup(), noErr);
    EXPECT_TRUE(std::filesystem::exists(mPath));
    std::filesystem::remove_all(mFolder / "a");
    std::ofstream(mFolder / "a") << "a file in the way";
    EXPECT_EQ(MIDIServerHostSaveSetup(), kMIDINotPermitted);
    EXPECT_EQ(MIDISetupAddDevice(MakeDevice(nullptr, 1)), noErr)
        << "the change itself is made all the same";
    std::filesystem::remove(mFolder / "a");
    EXPECT_EQ(MIDIServerHostSaveSetup(), noErr) << "and saved when that is possible again";
    ASSERT_EQ(Reopen(), noErr);
    EXPECT_EQ(MIDIGetNumberOfDevices(), 1U);
}

TEST_F(SetupFileTest, KeepsTheOwnerAndModeOfTheFile) {
    Write("<plist version=\"1.0\"><dict><key>version</key><integer>1</integer>"
          "<key>devices</key><array/></dict></plist>");
    ASSERT_EQ(chmod(mPath.c_str(), 0640), 0);
    const bool isRoot = geteuid() == 0; // who may give files away
    ASSERT_TRUE(!isRoot || chown(mPath.c_str(), 12345, 23456) == 0);
    ASSERT_EQ(Open(), noErr);
    ASSERT_EQ(MIDISetupAddDevice(MakeDevice(nullptr, 1)), noErr);
    EXPECT_NE(Contents().find("uniqueID"), std::string::npos);
    struct stat status {};
    ASSERT_EQ(stat(mPath.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0640U);
    EXPECT_EQ(status.st_uid, isRoot ? 12345U : geteuid());
    EXPECT_EQ(status.st_gid, isRoot ? 23456U : getegid());
}

TEST_F(SetupFileTest, KeepsASymbolicLinkToTheFile) {
    std::filesystem::create_directory(mFolder / "there");
    std::filesystem::create_symlink("there/setup", mPath);
    ASSERT_EQ(Open(), noErr);
    ASSERT_EQ(MIDISetupAddDevice(MakeDevice(nullptr, 1)), noErr);
    EXPECT_TRUE(std::filesystem::is_symlink(mPath));
    EXPECT_TRUE(std::filesystem::is_regular_file(mFolder / "there" / "setup"));
    ASSERT_EQ(Reopen(), noErr);
    EXPECT_EQ(MIDIGetNumberOfDevices(), 1U);
}

TEST_F(SetupFileTest, LeavesNothingBehindForGoodWhenItIsKilledWhileItWrites) {
    const std::uint64_t seed = TestSeed();
    SCOPED_TRACE(DescribeSeed(seed));
    std::mt19937 random(static_cast<std::mt19937::result_type>(seed));
    std::uniform_int_distribution<useconds_t> delay(0, 20000);
    for (int round = 0; round < 20; ++round) {
        const pid_t writer = fork();
        ASSERT_GE(writer, 0);
        if (writer == 0) {
            while (Open() == noErr && MIDIServerHostSaveSetup() == noErr) {
            }
            _exit(1);
        }
        usleep(delay(random));
        ASSERT_EQ(kill(writer, SIGKILL), 0);
        int status = 0;
        ASSERT_EQ(waitpid(writer, &status, 0), writer);
        ASSERT_TRUE(WIFSIGNALED(status)) << "it could not save";
        ASSERT_EQ(Open(), noErr);
        EXPECT_EQ(MIDIServerHostSaveSetup(), noErr);
        EXPECT_EQ(FilesInFolder(), 1U);
    }
}

TEST_F(SetupFileTest, SaysWhichFileCouldNotBeSavedAndWhy) {
    std::filesystem::create_directory(mFolder / "a");
    mPath = (mFolder / "a" / "setup.plist").string();
    ASSERT_EQ(Open(), noErr);
    std::filesystem::remove(mFolder / "a");
    std::ofstream(mFolder / "a") << "a file in the way";
    TestSupport::ClearSyslogLines();
    EXPECT_EQ(MIDISetupAddDevice(MakeDevice(nullptr, 1)), noErr);
    EXPECT_EQ(TestSupport::SyslogLines(),
              (std::vector<TestSupport::SyslogLine>{
                  {LOG_ERR, "CoreMIDI: the MIDI setup is not saved: " + mPath +
                                ": the folder cannot be made: Not a directory"}}));
    errno = 0;
    EXPECT_EQ(MIDIServerHostSaveSetup(), kMIDINotPermitted);
    EXPECT_EQ(errno, ENOTDIR);
}

TEST_F(SetupFileTest, GivesALoadedObjectItsUniqueIDThoughAVirtualOneHasIt) {
    ASSERT_EQ(Open(), noErr);
    const MIDIDeviceRef device = MakeDevice(nullptr, 1);
    ASSERT_EQ(MIDISetupAddDevice(device), noErr);
    const SInt32 uniqueID = IntegerProperty(device, kMIDIPropertyUniqueID);
    ASSERT_EQ(MIDIServerHostOpenSetup(nullptr), noErr);
    const MIDIEndpointRef source = MakeSource(MakeClient());
    ASSERT_EQ(MIDIObjectSetIntegerProperty(source, kMIDIPropertyUniqueID, uniqueID), noErr);
    ASSERT_EQ(Open(), noErr);
    EXPECT_EQ(IntegerProperty(MIDIGetDevice(0), kMIDIPropertyUniqueID), uniqueID);
    EXPECT_NE(IntegerProperty(source, kMIDIPropertyUniqueID), uniqueID);
    EXPECT_NE(IntegerProperty(source, kMIDIPropertyUniqueID), 0);
}
