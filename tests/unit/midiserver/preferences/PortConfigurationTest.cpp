#include "midiserver/preferences/PortConfiguration.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace MidiServer {
namespace {

using testing::HasSubstr;

PreferenceEntry Entry(const char* ports, const char* protocol, const char* name = nullptr) {
    PreferenceEntry entry;
    if (ports != nullptr) {
        entry.ports = ports;
    }
    if (protocol != nullptr) {
        entry.protocol = protocol;
    }
    if (name != nullptr) {
        entry.name = name;
    }
    return entry;
}

std::string NoticesOf(const std::vector<PreferenceEntry>& entries) {
    std::string text;
    for (const PreferenceNotice& notice : DerivePortConfiguration(entries).notices) {
        text += notice.text + "\n";
    }
    return text;
}

TEST(PortConfigurationTest, IsTheDriversDefaultWithoutEntries) {
    const PortConfiguration configuration = DerivePortConfiguration({});

    EXPECT_EQ(configuration.publishedPorts, 4U);
    EXPECT_FALSE(configuration.portsFromPreferences);
    EXPECT_THAT(configuration.protocols, testing::Each(Protocol::kNone));
    EXPECT_TRUE(configuration.notices.empty());
}

TEST(PortConfigurationTest, PublishesUpToTheEndOfTheHighestBlock) {
    EXPECT_EQ(DerivePortConfiguration({Entry("5-8", "HUI")}).publishedPorts, 8U);
    EXPECT_EQ(DerivePortConfiguration({Entry("29-32", "HUI"), Entry("1-4", "HUI")}).publishedPorts,
              32U);
    for (unsigned last = 4; last <= 32; last += 4) {
        const std::string block = std::to_string(last - 3) + "-" + std::to_string(last);
        EXPECT_TRUE(IsPortBlock(block)) << block;
        EXPECT_EQ(DerivePortConfiguration({Entry(block.c_str(), "HUI")}).publishedPorts, last);
    }
}

TEST(PortConfigurationTest, GivesEveryPortOfARangeItsProtocol) {
    const PortConfiguration configuration = DerivePortConfiguration({Entry("5-8", "HUI")});

    for (std::size_t i = 0; i < 32; ++i) {
        EXPECT_EQ(configuration.protocols[i], i >= 4 && i < 8 ? Protocol::kHui : Protocol::kNone);
    }
    EXPECT_TRUE(configuration.notices.empty());
}

TEST(PortConfigurationTest, LetsTheLaterEntryWinAndSaysSo) {
    const std::vector<PreferenceEntry> entries = {Entry("1-4", "MackieControl"),
                                                  Entry("1-4", "HUI", "Mixer")};

    EXPECT_EQ(DerivePortConfiguration(entries).protocols[3], Protocol::kHui);
    EXPECT_EQ(NoticesOf(entries),
              "entry 2 (\"Mixer\"): takes ports over from an entry before it: the later entry "
              "wins\n");
}

TEST(PortConfigurationTest, TakesAProtocolAndNoPortsFromAnyOtherRange) {
    const PortConfiguration configuration = DerivePortConfiguration({Entry("1-2", "HUI")});

    EXPECT_EQ(configuration.publishedPorts, 4U);
    EXPECT_FALSE(configuration.portsFromPreferences);
    EXPECT_EQ(configuration.protocols[1], Protocol::kHui);
    EXPECT_EQ(configuration.protocols[2], Protocol::kNone);
    EXPECT_THAT(NoticesOf({Entry("1-2", "HUI")}),
                HasSubstr("entry 1: its \"MIDI Ports\" \"1-2\" does not count for the number"));
}

TEST(PortConfigurationTest, IgnoresRangesThatMakeNoSenseAndSaysWhy) {
    for (const char* ports : {"12", "0-4", "30-40", "1-33", "", "-", "a-b", "1-2-3", "-1-4"}) {
        const PortConfiguration configuration = DerivePortConfiguration({Entry(ports, "HUI")});
        EXPECT_EQ(configuration.publishedPorts, 4U) << ports;
        EXPECT_THAT(configuration.protocols, testing::Each(Protocol::kNone)) << ports;
        EXPECT_THAT(NoticesOf({Entry(ports, "HUI")}),
                    HasSubstr("entry 1: ignored: its \"MIDI Ports\" \"" + std::string(ports) +
                              "\" is no range"));
    }
    EXPECT_THAT(NoticesOf({Entry("4-1", "HUI")}), HasSubstr("ends before it begins"));
}

TEST(PortConfigurationTest, ReadsNumbersAsLenientlyAsTheDriver) {
    ASSERT_TRUE(ParsePortRange(" 1 - 4x"));
    EXPECT_EQ(ParsePortRange(" 1 - 4x")->first, 1);
    EXPECT_EQ(ParsePortRange(" 1 - 4x")->last, 4);
    EXPECT_FALSE(ParsePortRange("1-99999999999999999999"));
    EXPECT_FALSE(IsPortBlock(" 1-4"));
    EXPECT_FALSE(IsPortBlock("1-8"));
}

TEST(PortConfigurationTest, SaysThatAProtocolIsUnknownOrMissing) {
    EXPECT_THAT(NoticesOf({Entry("1-4", "hui")}),
                HasSubstr("\"hui\" is neither \"HUI\" nor \"MackieControl\""));
    EXPECT_EQ(DerivePortConfiguration({Entry("1-4", "hui")}).protocols[0], Protocol::kNone);
    EXPECT_EQ(NoticesOf({Entry("5-8", nullptr)}),
              "entry 1: its ports get no protocol: it has no \"Protocol\"\n");
    EXPECT_EQ(DerivePortConfiguration({Entry("5-8", nullptr)}).publishedPorts, 8U);
}

TEST(PortConfigurationTest, SaysThatAnEntryHasTheWrongShape) {
    PreferenceEntry text;
    text.isDictionary = false;
    EXPECT_EQ(NoticesOf({text}), "entry 1: ignored: it is no dictionary\n");

    EXPECT_EQ(NoticesOf({Entry(nullptr, "HUI")}), "entry 1: ignored: it has no \"MIDI Ports\"\n");

    PreferenceEntry number = Entry(nullptr, "HUI");
    number.wrongTyped = {"MIDI Ports"};
    EXPECT_EQ(NoticesOf({number}),
              "entry 1: its \"MIDI Ports\" is ignored: the value is no text\n");
}

TEST(PortConfigurationTest, TakesAProtocolThatIsNoTextForNone) {
    PreferenceEntry number = Entry("1-4", nullptr);
    number.wrongTyped = {"Protocol"};
    const std::vector<PreferenceEntry> entries = {Entry("1-4", "HUI"), number};

    EXPECT_EQ(DerivePortConfiguration(entries).protocols[0], Protocol::kNone);
    EXPECT_THAT(NoticesOf(entries), HasSubstr("entry 2: its \"Protocol\" is ignored"));
}

TEST(PortConfigurationTest, SaysThatARangeReachesBeyondThePublishedPorts) {
    EXPECT_THAT(NoticesOf({Entry("3-6", "HUI", "A")}),
                HasSubstr("entry 1 (\"A\"): reaches beyond the 4 ports that are published"));
}

} // namespace
} // namespace MidiServer
