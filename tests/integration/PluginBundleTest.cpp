// The bundle as a whole, as the server, a DAW and the control-surface application meet it.

#include "tests/integration/PluginHost.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/platform/TestPreferences.h"

#include <gmock/gmock.h>

#include <sys/wait.h>

#include <array>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

using Integration::PluginHost;
using TestSupport::Bytes;

using testing::ElementsAre;
using TestSupport::MakePacketList;

// A program's output, and its status as the shell gives it.
struct Output {
    std::string text;
    int status;
};

Output RunCommand(const std::string& command) {
    FILE* const pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) {
        return {"", -1};
    }
    std::string text;
    std::array<char, 512> part;
    while (const std::size_t size = std::fread(part.data(), 1, part.size(), pipe)) {
        text.append(part.data(), size);
    }
    const int status = pclose(pipe);
    return {text, WIFEXITED(status) ? WEXITSTATUS(status) : -1};
}

const std::string kModule = QUORVEL_PLUGIN_BUNDLE "/Contents/Linux/QuorvelMIDI";

class PluginBundle : public testing::Test {
protected:
    PluginBundle() {
        setenv("QUORVEL_RUNTIME_DIR", mRuntime.Path().c_str(), 1);
        EXPECT_EQ(MIDIServerHostOpenSetup(nullptr), noErr);
    }

    TemporaryDirectory mRuntime;
    TestSupport::TestPreferences mPreferences;
};

// Reads one source and notes every packet's bytes.
class Reader {
public:
    explicit Reader(MIDIEndpointRef source) {
        EXPECT_EQ(MIDIClientCreate(CFSTR("Reader"), nullptr, nullptr, &mClient), noErr);
        EXPECT_EQ(MIDIInputPortCreate(mClient, CFSTR("In"), Read, this, &mPort), noErr);
        EXPECT_EQ(MIDIPortConnectSource(mPort, source, nullptr), noErr);
    }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;
    ~Reader() { EXPECT_EQ(MIDIClientDispose(mClient), noErr); }

    std::vector<Bytes> WaitFor(std::size_t count) {
        std::unique_lock lock(mMutex);
        EXPECT_TRUE(mAdded.wait_for(lock, std::chrono::seconds(120),
                                    [this, count] { return mPackets.size() >= count; }));
        return mPackets;
    }

private:
    static void Read(const MIDIPacketList* list, void* readProcRefCon, void* /*connRefCon*/) {
        auto& self = *static_cast<Reader*>(readProcRefCon);
        const std::lock_guard lock(self.mMutex);
        ForEachPacket(list, kUnknownListSize, [&self](const MIDIPacket* packet) {
            self.mPackets.emplace_back(PacketData(packet),
                                       PacketData(packet) + PacketLength(packet));
        });
        self.mAdded.notify_all();
    }

    std::mutex mMutex;
    std::condition_variable mAdded;
    std::vector<Bytes> mPackets;
    MIDIClientRef mClient = 0;
    MIDIPortRef mPort = 0;
};

TEST_F(PluginBundle, ExportsTheFactoryAlone) {
    const Output output = RunCommand("nm -D --defined-only '" + kModule + "'");
    ASSERT_EQ(output.status, 0);
    std::istringstream lines(output.text);
    std::vector<std::string> names;
    for (std::string line; std::getline(lines, line);) {
        names.push_back(line.substr(line.rfind(' ') + 1));
    }
    EXPECT_THAT(names, ElementsAre("MIDIPluginFactory"));
}

TEST_F(PluginBundle, NamesTheFactoryThatTheCodeRegisters) {
    const std::string path = QUORVEL_PLUGIN_BUNDLE;
    const auto url = CFOwned(CFURLCreateFromFileSystemRepresentation(
        nullptr, reinterpret_cast<const UInt8*>(path.data()), static_cast<CFIndex>(path.size()),
        true));
    const auto plugIn = CFOwned(CFPlugInCreate(nullptr, url.Get()));
    ASSERT_TRUE(plugIn);
    const auto factories =
        CFOwned(CFPlugInFindFactoriesForPlugInTypeInPlugIn(kMIDIDriverTypeID, plugIn.Get()));
    ASSERT_EQ(CFArrayGetCount(factories.Get()), 1);
    const auto expected = CFOwned(CFUUIDCreateFromString(nullptr, CFSTR(QUORVEL_FACTORY_UUID)));
    EXPECT_TRUE(CFEqual(CFArrayGetValueAtIndex(factories.Get(), 0), expected.Get()));
}

TEST_F(PluginBundle, CarriesADawsMessagesToTheApplicationAndAnswersItsPings) {
    mPreferences.SetApplications({{"5-8", "HUI"}});
    PluginHost host;
    ASSERT_NE(host.Driver(), nullptr);
    ASSERT_EQ(host.Start(), noErr);

    // The application asks for the IDs of its block and finds the sources by them.
    const auto remote =
        CFOwned(CFMessagePortCreateRemote(nullptr, CFSTR("Quorvel Virtual Source IDs Port")));
    ASSERT_TRUE(remote);
    CFDataRef reply = nullptr;
    ASSERT_EQ(
        CFMessagePortSendRequest(remote.Get(), 5, nullptr, 60, 60, kCFRunLoopDefaultMode, &reply),
        kCFMessagePortSuccess);
    const auto data = CFOwned(reply);
    ASSERT_EQ(CFDataGetLength(data.Get()), 16);
    std::array<SInt32, 4> ids;
    std::memcpy(ids.data(), CFDataGetBytePtr(data.Get()), sizeof ids);
    MIDIObjectRef virtualSource = 0;
    MIDIObjectType type = kMIDIObjectType_Other;
    ASSERT_EQ(MIDIObjectFindByUniqueID(ids[1], &virtualSource, &type), noErr);
    Reader application(virtualSource);

    // The DAW sends to the sixth port and reads that port's source.
    const MIDIEntityRef entity = MIDIDeviceGetEntity(MIDIGetDevice(0), 5);
    Reader daw(MIDIEntityGetSource(entity, 0));
    MIDIClientRef client = 0;
    MIDIPortRef port = 0;
    ASSERT_EQ(MIDIClientCreate(CFSTR("DAW"), nullptr, nullptr, &client), noErr);
    ASSERT_EQ(MIDIOutputPortCreate(client, CFSTR("Out"), &port), noErr);
    Bytes note = MakePacketList({{0x90, 0x3C, 0x7F}, {0xB0, 0x07, 0x40}});
    Bytes ping = MakePacketList({{0x90, 0x00, 0x00}});
    const MIDIEndpointRef destination = MIDIEntityGetDestination(entity, 0);
    ASSERT_EQ(MIDISend(port, destination, TestSupport::AsPacketList(note)), noErr);
    ASSERT_EQ(MIDISend(port, destination, TestSupport::AsPacketList(ping)), noErr);

    EXPECT_THAT(
        application.WaitFor(3),
        ElementsAre(Bytes{0x90, 0x3C, 0x7F}, Bytes{0xB0, 0x07, 0x40}, Bytes{0x90, 0x00, 0x00}));
    EXPECT_THAT(daw.WaitFor(1), ElementsAre(Bytes{0x90, 0x00, 0x7F}));
    EXPECT_EQ(MIDIClientDispose(client), noErr);
}

TEST_F(PluginBundle, AnswersTheMessagePortToAnotherProcess) {
    mPreferences.SetApplications({{"5-8", "None"}});
    PluginHost host;
    ASSERT_NE(host.Driver(), nullptr);
    ASSERT_EQ(host.Start(), noErr);

    CFRunLoopRef const loop = CFRunLoopGetCurrent();
    Output output{"", -1};
    std::thread asker([&output, loop] {
        output = RunCommand("'" QUORVEL_ID_ASKER "' 5 1 8 -1");
        CFRunLoopStop(loop);
    });
    // Ends when the asker has; the limit is for one that hangs.
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 120, false), kCFRunLoopRunStopped);
    asker.join();
    EXPECT_EQ(output.status, 0);

    // What the asker got must be the sources' own IDs, in port order.
    std::istringstream answers(output.text);
    std::array<std::array<SInt32, 4>, 4> blocks{};
    for (auto& block : blocks) {
        for (SInt32& id : block) {
            ASSERT_TRUE(answers >> id) << output.text;
        }
    }
    const auto nameOf = [](SInt32 id) {
        MIDIObjectRef object = 0;
        MIDIObjectType type = kMIDIObjectType_Other;
        CFStringRef name = nullptr;
        if (MIDIObjectFindByUniqueID(id, &object, &type) != noErr ||
            MIDIObjectGetStringProperty(object, kMIDIPropertyName, &name) != noErr) {
            return std::string();
        }
        return TestSupport::TextOf(CFOwned(name).Get());
    };
    for (unsigned int i = 0; i < 4; i++) {
        EXPECT_EQ(nameOf(blocks[0][i]), "Quorvel Virtual Source " + std::to_string(i + 5));
        EXPECT_EQ(nameOf(blocks[1][i]), "Quorvel Virtual Source " + std::to_string(i + 1));
    }
    EXPECT_THAT(blocks[2], ElementsAre(blocks[0][3], 0, 0, 0));
    EXPECT_THAT(blocks[3], ElementsAre(0, 0, blocks[1][0], blocks[1][1]));
}

// A preferences file as someone may leave it, and the ports that the driver publishes for it.
struct PreferencesFile {
    const char* name;
    std::string content;
    unsigned int numPorts;
};

void PrintTo(const PreferencesFile& file, std::ostream* out) {
    *out << file.name;
}

std::string Plist(const std::string& body) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">" + body +
           "</plist>\n";
}

std::string Applications(const std::string& value) {
    return Plist("<dict><key>Sonaret Applications</key>" + value + "</dict>");
}

std::string Application(const std::string& ports, const std::string& protocol) {
    return "<dict><key>MIDI Ports</key>" + ports + "<key>Protocol</key>" + protocol + "</dict>";
}

std::string Repeated(const std::string& text, std::size_t times) {
    std::string all;
    for (std::size_t i = 0; i < times; i++) {
        all += text;
    }
    return all;
}

std::vector<PreferencesFile> PreferencesFiles() {
    const std::string good = Applications(
        "<array>" + Application("<string>5-8</string>", "<string>HUI</string>") + "</array>");
    return {
        {"Good", good, 8},
        {"Empty", "", 4},
        {"Garbage", std::string("\x00\xff\xfe\x13garbage", 11), 4},
        {"CutInTheMiddle", good.substr(0, good.size() / 2), 4},
        {"CutBinary", std::string("bplist00\xd1\x01\x02", 11), 4},
        {"BinaryWithWildOffsets", "bplist00" + std::string(8, '\x5f') + std::string(32, '\xff'), 4},
        {"NotADictionary", Plist("<array><string>5-8</string></array>"), 4},
        {"ArrayIsAString", Applications("<string>5-8</string>"), 4},
        {"ArrayIsADictionary",
         Applications(Application("<string>5-8</string>", "<string>HUI</string>")), 4},
        {"ArrayIsANumber", Applications("<integer>8</integer>"), 4},
        {"ElementsOfAllTypes",
         Applications("<array><string>5-8</string><integer>8</integer><true/><real>5.8</real>"
                      "<data>AAAA</data><date>2020-01-01T00:00:00Z</date><array/><dict/></array>"),
         4},
        {"PortsOfAllTypes",
         Applications("<array>" + Application("<integer>8</integer>", "<string>HUI</string>") +
                      Application("<array><string>5-8</string></array>", "<string>HUI</string>") +
                      Application("<dict/>", "<string>HUI</string>") +
                      Application("<data>NS04</data>", "<string>HUI</string>") +
                      Application("<true/>", "<string>HUI</string>") + "</array>"),
         4},
        {"ProtocolsOfAllTypes",
         Applications("<array>" + Application("<string>5-8</string>", "<integer>8</integer>") +
                      Application("<string>5-8</string>", "<array/>") +
                      Application("<string>5-8</string>", "<dict/>") +
                      Application("<string>5-8</string>", "<data>SFVJ</data>") + "</array>"),
         8},
        {"WildRanges",
         Applications(
             "<array>" +
             Application("<string>99999999999999999999-1</string>", "<string>HUI</string>") +
             Application("<string>1-99999999999999999999</string>", "<string>HUI</string>") +
             Application("<string>-1--1</string>", "<string>HUI</string>") + "</array>"),
         4},
        {"AVeryLongRange",
         Applications("<array>" +
                      Application("<string>" + std::string(1U << 20U, '1') + "</string>",
                                  "<string>HUI</string>") +
                      "</array>"),
         4},
        {"ManyApplications",
         Applications(
             "<array>" +
             Repeated(Application("<string>9-12</string>", "<string>None</string>"), 5000) +
             "</array>"),
         12},
        {"DeeplyNested", Applications(Repeated("<array>", 50000) + Repeated("</array>", 50000)), 4},
    };
}

class PluginWithPreferencesFile : public PluginBundle,
                                  public testing::WithParamInterface<PreferencesFile> {};

TEST_P(PluginWithPreferencesFile, StartsWithWhatIsUsableOrTheDefault) {
    std::ofstream file(mPreferences.Path() + "/com.quorvel.ControlSurface.plist", std::ios::binary);
    file << GetParam().content;
    file.close();
    ASSERT_TRUE(file);
    PluginHost host;
    ASSERT_NE(host.Driver(), nullptr);
    ASSERT_EQ(host.Start(), noErr);
    EXPECT_EQ(MIDIDeviceGetNumberOfEntities(MIDIGetDevice(0)), GetParam().numPorts);
}

INSTANTIATE_TEST_SUITE_P(Files, PluginWithPreferencesFile, testing::ValuesIn(PreferencesFiles()),
                         [](const auto& file) { return std::string(file.param.name); });

} // namespace
