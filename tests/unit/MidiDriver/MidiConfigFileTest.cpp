#include "MidiDriver/MidiConfigFile.h"

#include "tests/support/platform/CFText.h"
#include "tests/support/platform/RememberedPreferences.h"
#include "tests/support/platform/TestPreferences.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace {

using TestSupport::Application;

using TestSupport::MakeString;
using TestSupport::TestPreferences;
using TestSupport::TextOf;

using PortProtocols = std::map<std::size_t, std::string>; // by port index, those set only

struct Protocols {
    bool accepted;
    PortProtocols byPort;
};

Protocols ReadProtocols() {
    std::vector<CFStringRef> entries(32, nullptr);
    Protocols protocols{CopyEmulatedProtocols(&entries), {}};
    EXPECT_EQ(entries.size(), 32U);
    for (std::size_t i = 0; i < entries.size(); i++) {
        if (entries[i] != nullptr) {
            protocols.byPort[i] = TextOf(entries[i]);
            CFRelease(entries[i]);
        }
    }
    return protocols;
}

PortProtocols PortsFrom(std::size_t first, std::size_t last, const std::string& protocol) {
    PortProtocols ports;
    for (std::size_t i = first; i <= last; i++) {
        ports[i] = protocol;
    }
    return ports;
}

class MidiConfigFile : public testing::Test {
protected:
    void Expect(const std::vector<Application>& applications, unsigned int numPorts, bool accepted,
                const PortProtocols& byPort) {
        mPreferences.SetApplications(applications);
        EXPECT_EQ(GetMidiConfigNumPorts(), numPorts);
        const Protocols protocols = ReadProtocols();
        EXPECT_EQ(protocols.accepted, accepted);
        EXPECT_EQ(protocols.byPort, byPort);
    }

    // The two functions find nothing in what stands there, whatever it is.
    void ExpectNothingIn(CFPropertyListRef value) {
        mPreferences.SetValue(value);
        EXPECT_EQ(GetMidiConfigNumPorts(), 0U);
        const Protocols protocols = ReadProtocols();
        EXPECT_FALSE(protocols.accepted);
        EXPECT_THAT(protocols.byPort, testing::IsEmpty());
    }

    TestPreferences mPreferences;
};

CFOwned<CFMutableArrayRef> ArrayOf(std::initializer_list<CFTypeRef> values) {
    auto array = CFOwned(CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks));
    for (CFTypeRef value : values) {
        CFArrayAppendValue(array.Get(), value);
    }
    return array;
}

CFOwned<CFMutableDictionaryRef>
DictionaryOf(std::initializer_list<std::pair<CFStringRef, CFTypeRef>> pairs) {
    auto dictionary = CFOwned(CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks,
                                                        &kCFTypeDictionaryValueCallBacks));
    for (const auto& [key, value] : pairs) {
        CFDictionarySetValue(dictionary.Get(), key, value);
    }
    return dictionary;
}

CFOwned<CFNumberRef> Number(SInt32 value) {
    return CFOwned(CFNumberCreate(nullptr, kCFNumberSInt32Type, &value));
}

CFOwned<CFMutableDictionaryRef> ApplicationOf(const std::string& ports, CFTypeRef protocol) {
    return DictionaryOf({{MacSonaretDefs::kMIDIPortKey, MakeString(ports).Get()},
                         {MacSonaretDefs::kProtocolKey, protocol}});
}

TEST_F(MidiConfigFile, FindsNothingWithoutPreferences) {
    EXPECT_EQ(GetMidiConfigNumPorts(), 0U);
    const Protocols protocols = ReadProtocols();
    EXPECT_FALSE(protocols.accepted);
    EXPECT_THAT(protocols.byPort, testing::IsEmpty());
}

TEST_F(MidiConfigFile, FindsNothingInAnEmptyArray) {
    Expect({}, 0, false, {});
}

TEST_F(MidiConfigFile, CountsEachOfTheEightBlocksUpToItsLastPort) {
    for (unsigned int last = 4; last <= 32; last += 4) {
        const std::string block = std::to_string(last - 3) + "-" + std::to_string(last);
        Expect({{block, "HUI"}}, last, true, PortsFrom(last - 4, last - 1, "HUI"));
    }
}

TEST_F(MidiConfigFile, GivesTheSecondBlockItsProtocol) {
    Expect({{"5-8", "HUI"}}, 8, true, PortsFrom(4, 7, "HUI"));
}

TEST_F(MidiConfigFile, LetsTheLaterOfTwoApplicationsWin) {
    Expect({{"1-4", "MackieControl"}, {"1-4", "HUI"}}, 4, true, PortsFrom(0, 3, "HUI"));
}

TEST_F(MidiConfigFile, GivesAnOddRangeItsProtocolButCountsNoPorts) {
    Expect({{"1-2", "HUI"}}, 0, true, PortsFrom(0, 1, "HUI"));
    Expect({{"5-12", "HUI"}}, 0, true, PortsFrom(4, 11, "HUI"));
    Expect({{"7-7", "HUI"}}, 0, true, PortsFrom(6, 6, "HUI"));
    Expect({{"1-32", "HUI"}}, 0, true, PortsFrom(0, 31, "HUI"));
}

TEST_F(MidiConfigFile, PublishesAllPortsForTheHighestBlockAlone) {
    Expect({{"29-32", "HUI"}}, 32, true, PortsFrom(28, 31, "HUI"));
}

TEST_F(MidiConfigFile, NeverLowersTheCountForALaterApplication) {
    PortProtocols byPort = PortsFrom(8, 11, "HUI");
    byPort.merge(PortsFrom(0, 3, "MackieControl"));
    Expect({{"9-12", "HUI"}, {"1-4", "MackieControl"}}, 12, true, byPort);
}

TEST_F(MidiConfigFile, AcceptsABackwardRangeWithoutWritingAnything) {
    Expect({{"4-1", "HUI"}}, 0, true, {});
    Expect({{"4000000000-1", "HUI"}}, 0, true, {});
}

TEST_F(MidiConfigFile, RejectsRangesBeyondThePorts) {
    for (const char* range : {"1-33", "0-4", "30-40", "1-0", "0-0", "33-1000", "1-2147483647",
                              "1-99999999999999999999", "-5-8"}) {
        SCOPED_TRACE(range);
        Expect({{range, "HUI"}}, 0, false, {});
    }
}

TEST_F(MidiConfigFile, RejectsWhatIsNoRange) {
    for (const char* range : {"12", "1-2-3", "--", "-", "a-b", "1:4", " ", "1-4-", "-1-4"}) {
        SCOPED_TRACE(range);
        Expect({{range, "HUI"}}, 0, false, {});
    }
}

TEST_F(MidiConfigFile, CountsOnlyTheExactTextOfABlock) {
    for (const char* range : {" 1-4", "1-4 ", "1 - 4", "01-4", "1-04"}) {
        SCOPED_TRACE(range);
        mPreferences.SetApplications({{range, "HUI"}});
        EXPECT_EQ(GetMidiConfigNumPorts(), 0U);
    }
}

TEST_F(MidiConfigFile, IgnoresATextThatIsNotAsciiOrTooLong) {
    mPreferences.SetApplications({{"1\xE2\x80\x93"
                                   "4",
                                   "HUI"}});
    EXPECT_EQ(GetMidiConfigNumPorts(), 0U);
    mPreferences.SetApplications({{std::string(300, '1') + "-4", "HUI"}});
    EXPECT_EQ(GetMidiConfigNumPorts(), 0U);
}

TEST_F(MidiConfigFile, SkipsAnApplicationThatLacksOneOfTheTwo) {
    Expect({{"", "HUI"}}, 0, false, {});
    Expect({{"1-4", ""}}, 4, false, {});
    Expect({{"", ""}, {"", "HUI"}, {"5-8", "HUI"}}, 8, true, PortsFrom(4, 7, "HUI"));
}

TEST_F(MidiConfigFile, HandsOnAnyProtocolsName) {
    Expect({{"1-1", "hui"}, {"2-2", "Something else"}}, 0, true,
           {{0, "hui"}, {1, "Something else"}});
}

TEST_F(MidiConfigFile, IgnoresAPreferenceThatIsNoArray) {
    ExpectNothingIn(MakeString("1-4").Get());
    ExpectNothingIn(Number(4).Get());
    ExpectNothingIn(kCFBooleanTrue);
    const UInt8 bytes[] = {1, 2, 3};
    ExpectNothingIn(CFOwned(CFDataCreate(nullptr, bytes, sizeof bytes)).Get());
    const auto ports = MakeString("1-4");
    const auto protocol = MakeString("HUI");
    ExpectNothingIn(DictionaryOf({{MacSonaretDefs::kMIDIPortKey, ports.Get()},
                                  {MacSonaretDefs::kProtocolKey, protocol.Get()}})
                        .Get());
}

TEST_F(MidiConfigFile, IgnoresElementsThatAreNoDictionaries) {
    const auto text = MakeString("1-4");
    const auto number = Number(7);
    const auto inner = ArrayOf({text.Get()});
    ExpectNothingIn(ArrayOf({text.Get(), number.Get(), kCFBooleanFalse, inner.Get()}).Get());
}

TEST_F(MidiConfigFile, IgnoresPortsThatAreNoString) {
    const auto protocol = MakeString("HUI");
    const auto number = Number(4);
    const auto inner = ArrayOf({protocol.Get()});
    for (CFTypeRef ports :
         {static_cast<CFTypeRef>(number.Get()), static_cast<CFTypeRef>(inner.Get()),
          static_cast<CFTypeRef>(kCFBooleanTrue)}) {
        const auto entry = DictionaryOf({{MacSonaretDefs::kMIDIPortKey, ports},
                                         {MacSonaretDefs::kProtocolKey, protocol.Get()}});
        ExpectNothingIn(ArrayOf({entry.Get()}).Get());
    }
}

TEST_F(MidiConfigFile, AcceptsARangeWhoseProtocolIsNoStringAndNamesNoneForItsPorts) {
    const auto number = Number(4);
    const auto inner = ArrayOf({number.Get()});
    const auto dictionary = DictionaryOf({});
    for (CFTypeRef protocol :
         {static_cast<CFTypeRef>(number.Get()), static_cast<CFTypeRef>(inner.Get()),
          static_cast<CFTypeRef>(dictionary.Get()), static_cast<CFTypeRef>(kCFBooleanTrue)}) {
        const auto entry = ApplicationOf("1-4", protocol);
        mPreferences.SetValue(ArrayOf({entry.Get()}).Get());
        EXPECT_EQ(GetMidiConfigNumPorts(), 4U);
        const Protocols protocols = ReadProtocols();
        EXPECT_TRUE(protocols.accepted);
        EXPECT_THAT(protocols.byPort, testing::IsEmpty());
    }
}

TEST_F(MidiConfigFile, LetsALaterProtocolThatIsNoStringWinAsWell) {
    const auto protocol = MakeString("HUI");
    const auto number = Number(4);
    const auto first = ApplicationOf("1-4", protocol.Get());
    const auto second = ApplicationOf("3-4", number.Get());
    mPreferences.SetValue(ArrayOf({first.Get(), second.Get()}).Get());
    EXPECT_EQ(ReadProtocols().byPort, PortsFrom(0, 1, "HUI"));
}

TEST_F(MidiConfigFile, ReadsThePreferencesAfreshEachTime) {
    Expect({{"1-4", "HUI"}}, 4, true, PortsFrom(0, 3, "HUI"));
    Expect({{"5-8", "MackieControl"}}, 8, true, PortsFrom(4, 7, "MackieControl"));
    ExpectNothingIn(nullptr);
}

TEST_F(MidiConfigFile, ReadsPastWhatThePlatformRemembers) {
    const auto stale = ArrayOf({ApplicationOf("1-4", CFSTR("HUI")).Get()});
    mPreferences.SetApplications({{"5-8", "MackieControl"}});
    TestSupport::RememberPreference(stale.Get());
    EXPECT_EQ(GetMidiConfigNumPorts(), 8U);
    TestSupport::RememberPreference(nullptr);
    EXPECT_EQ(ReadProtocols().byPort, PortsFrom(4, 7, "MackieControl"));
}

TEST_F(MidiConfigFile, ReadsWhatThereIsWhenThePlatformCannotSynchronise) {
    const auto stale = ArrayOf({ApplicationOf("1-4", CFSTR("HUI")).Get()});
    mPreferences.SetApplications({{"5-8", "MackieControl"}});
    TestSupport::RememberPreference(stale.Get());
    TestSupport::FailPreferencesSynchronization(true);
    EXPECT_EQ(GetMidiConfigNumPorts(), 4U);
    EXPECT_EQ(ReadProtocols().byPort, PortsFrom(0, 3, "HUI"));
    TestSupport::FailPreferencesSynchronization(false);
    EXPECT_EQ(GetMidiConfigNumPorts(), 8U);
}

TEST(MacSonaretDefs, NamesThePreferencesAsTheSystemsProgramsDo) {
    using namespace MacSonaretDefs;
    EXPECT_EQ(TextOf(kAutoLaunchKey), "Auto Launch");
    EXPECT_EQ(TextOf(kMonitorZentroKey), "Monitor Zentro");
    EXPECT_EQ(TextOf(kNetworkTimeoutKey), "Network Verification Timeout");
    EXPECT_EQ(TextOf(kNetworkInterfaceKey), "Network Interface");
    EXPECT_EQ(TextOf(kLaunchStatusKey), "Network Launch Status");
    EXPECT_EQ(TextOf(kTotalNumMIDIPortsKey), "Total Number of Available Quorvel MIDI Ports");
    EXPECT_EQ(TextOf(kLastLaunchConfigKey), "Last Launch Configuration");
    EXPECT_EQ(TextOf(kMIDIPortKey), "MIDI Ports");
    EXPECT_EQ(TextOf(kProtocolKey), "Protocol");
    EXPECT_EQ(TextOf(kAppPathKey), "App Path");
    EXPECT_EQ(TextOf(kAppIdentifierKey), "App Identifier");
    EXPECT_EQ(TextOf(kAppNameKey), "App Name");
    EXPECT_EQ(TextOf(kAppInfoArrayKey), "Sonaret Applications");
    EXPECT_EQ(TextOf(kPrefsIdentifier), "com.quorvel.ControlSurface");
}

} // namespace
