// What the host says about the preferences, and what the driver itself makes of them.
#include "midiserver/preferences/PreferencesEditor.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/TestSeed.h"
#include "tests/support/platform/DriversConfiguration.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

namespace MidiServer {
namespace {

class PreferencesAgreementTest : public testing::Test {
protected:
    PreferencesAgreementTest() { UsePreferencesFolder(mFolder.Path()); }
    ~PreferencesAgreementTest() override { ::unsetenv("QUORVEL_PREFERENCES_DIR"); }

    // Whether the host could use the file.
    bool Compare(const std::string& bytes) {
        std::ofstream(PreferencesEditor::File(), std::ios::binary) << bytes;
        PreferencesEditor host;
        host.Load();
        const PortConfiguration said = host.Configuration();
        const PortConfiguration done = DriversConfiguration();
        EXPECT_EQ(said.publishedPorts, done.publishedPorts) << bytes;
        EXPECT_EQ(said.portsFromPreferences, done.portsFromPreferences) << bytes;
        EXPECT_EQ(said.protocols, done.protocols) << bytes;
        return !host.Problem();
    }

    const TemporaryDirectory mFolder;
};

std::string Xml() {
    const auto application = [](const std::string& ports, const std::string& protocol) {
        return "<dict><key>App Name</key><string>A</string><key>MIDI Ports</key>" + ports +
               "<key>Protocol</key>" + protocol + "</dict>";
    };
    return "<plist><dict><key>Sonaret Applications</key><array>" +
           application("<string>1-4</string>", "<string>HUI</string>") +
           application("<string>5-12</string>", "<string>MackieControl</string>") +
           application("<string>29-32</string>", "<string>HUI</string>") +
           application("<string>9-12</string>", "<integer>3</integer>") +
           application("<true/>", "<string>HUI</string>") + "<string>x</string>" +
           "</array></dict></plist>";
}

std::string Binary() {
    const std::string xml = Xml();
    const CFOwned<CFDataRef> data(CFDataCreate(nullptr, reinterpret_cast<const UInt8*>(xml.data()),
                                               static_cast<CFIndex>(xml.size())));
    const CFOwned<CFPropertyListRef> values(
        CFPropertyListCreateWithData(nullptr, data.Get(), 0, nullptr, nullptr));
    const CFOwned<CFDataRef> bytes(CFPropertyListCreateData(
        nullptr, values.Get(), kCFPropertyListBinaryFormat_v1_0, 0, nullptr));
    return {reinterpret_cast<const char*>(CFDataGetBytePtr(bytes.Get())),
            static_cast<std::size_t>(CFDataGetLength(bytes.Get()))};
}

TEST_F(PreferencesAgreementTest, HoldsForEveryFileWhateverItsFaults) {
    const auto seed = TestSeed();
    SCOPED_TRACE(DescribeSeed(seed));
    std::mt19937_64 random(seed);
    unsigned usable = 0;
    for (const std::string& original : {Xml(), Binary()}) {
        EXPECT_TRUE(Compare(original));
        for (int round = 0; round < 1000; ++round) {
            std::string bytes = original;
            for (std::size_t changes = 1 + random() % 3; changes > 0 && !bytes.empty(); --changes) {
                const std::size_t place = random() % bytes.size();
                switch (random() % 6) {
                case 0:
                    bytes[place] = static_cast<char>(random());
                    break;
                case 1:
                    bytes[place] = "0123456789-+ \t<>/&"[random() % 18];
                    break;
                case 2:
                    bytes[place] = static_cast<char>(bytes[place] ^ (1 << (random() % 8)));
                    break;
                case 3:
                    bytes.erase(place, 1 + random() % 8);
                    break;
                case 4:
                    bytes.resize(place + (bytes.size() - place) * (random() % 16) / 15);
                    break;
                default:
                    bytes.insert(place, bytes.substr(random() % bytes.size(), random() % 60));
                }
            }
            usable += Compare(bytes) ? 1 : 0;
            ASSERT_FALSE(HasFailure());
        }
    }
    EXPECT_GT(usable, 50U);
    EXPECT_LT(usable, 1900U);
}

TEST_F(PreferencesAgreementTest, HoldsForEveryTextOfPorts) {
    const auto seed = TestSeed();
    SCOPED_TRACE(DescribeSeed(seed));
    std::mt19937_64 random(seed);
    const char* const parts[] = {"0",          "1", "2",        "4", "5",  "9",    "32", "33",
                                 "4294967297", "-", "-",        "+", " ",  "&#9;", "\n", "x",
                                 "&#xA0;",     "é", "&#xFF11;", ".", "\v", "\f"};
    for (int round = 0; round < 3000; ++round) {
        std::string ports;
        for (std::size_t i = random() % 6; i > 0; --i) {
            ports += parts[random() % std::size(parts)];
        }
        Compare("<plist><dict><key>Sonaret Applications</key><array><dict><key>MIDI Ports</key>"
                "<string>" +
                ports + "</string><key>Protocol</key><string>HUI</string></dict></array></dict>" +
                "</plist>");
        ASSERT_FALSE(HasFailure());
    }
}

} // namespace
} // namespace MidiServer
