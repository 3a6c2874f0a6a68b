#include "midiserver/preferences/PortConfiguration.h"

#include "midiserver/host/CFText.h"

#include <fmt/format.h>

#include <algorithm>

namespace MidiServer {

namespace {

constexpr unsigned kPortsPerBlock = 4;

// Returns the last port of a block's text, or 0 for any other text.
unsigned BlockEnd(std::string_view text) {
    for (unsigned last = kPortsPerBlock; last <= kMaximumPorts; last += kPortsPerBlock) {
        if (text == fmt::format("{}-{}", last - kPortsPerBlock + 1, last)) {
            return last;
        }
    }
    return 0;
}

int LeadingNumber(const std::string& text) {
    return CFStringGetIntValue(MakeCFString(text).Get());
}

class Derivation {
public:
    PortConfiguration Derive(const std::vector<PreferenceEntry>& entries) {
        for (std::size_t i = 0; i < entries.size(); ++i) {
            mIndex = i;
            mEntry = &entries[i];
            mLabel = entries[i].Label(i);
            ReadEntry();
        }
        if (mBlockEnd != 0) {
            mResult.publishedPorts = mBlockEnd;
            mResult.portsFromPreferences = true;
        }
        NoteUnpublishedPorts(entries);
        return std::move(mResult);
    }

private:
    void ReadEntry() {
        if (!mEntry->isDictionary) {
            Note("ignored: it is no dictionary");
            return;
        }
        for (const std::string& key : mEntry->wrongTyped) {
            Note(fmt::format("its \"{}\" is ignored: the value is no text", key));
        }
        if (!mEntry->ports) {
            if (!IsWrongTyped("MIDI Ports")) {
                Note("ignored: it has no \"MIDI Ports\"");
            }
            return;
        }
        const unsigned blockEnd = BlockEnd(*mEntry->ports);
        mBlockEnd = std::max(mBlockEnd, blockEnd);
        const std::optional<PortRange> range = ParsePortRange(*mEntry->ports);
        if (!range) {
            Note(fmt::format("ignored: its \"MIDI Ports\" \"{}\" is no range of ports from 1-1 to "
                             "32-32",
                             *mEntry->ports));
            return;
        }
        if (range->first > range->last) {
            Note(fmt::format("ignored: its \"MIDI Ports\" \"{}\" ends before it begins",
                             *mEntry->ports));
            return;
        }
        if (blockEnd == 0) {
            Note(fmt::format("its \"MIDI Ports\" \"{}\" does not count for the number of ports: "
                             "only the blocks 1-4, 5-8, ... 29-32 do",
                             *mEntry->ports));
        }
        ApplyProtocol(*range);
    }

    void ApplyProtocol(const PortRange& range) {
        if (!mEntry->protocol && !IsWrongTyped("Protocol")) {
            Note("its ports get no protocol: it has no \"Protocol\"");
            return;
        }
        const Protocol protocol =
            mEntry->protocol ? ProtocolFromName(*mEntry->protocol) : Protocol::kNone;
        if (mEntry->protocol && protocol == Protocol::kNone) {
            Note(fmt::format("its \"Protocol\" \"{}\" is neither \"HUI\" nor \"MackieControl\": no "
                             "ping is answered on its ports",
                             *mEntry->protocol));
        }
        bool overrides = false;
        for (int port = range.first - 1; port < range.last; ++port) {
            const auto i = static_cast<std::size_t>(port);
            overrides = overrides || mOwners[i];
            mOwners[i] = mIndex;
            mResult.protocols[i] = protocol;
        }
        if (overrides) {
            Note("takes ports over from an entry before it: the later entry wins");
        }
    }

    void NoteUnpublishedPorts(const std::vector<PreferenceEntry>& entries) {
        std::optional<std::size_t> noted;
        for (std::size_t i = mResult.publishedPorts; i < kMaximumPorts; ++i) {
            if (mOwners[i] && noted != mOwners[i]) {
                noted = mOwners[i];
                mIndex = *noted;
                mLabel = entries[mIndex].Label(mIndex);
                Note(fmt::format("reaches beyond the {} ports that are published",
                                 mResult.publishedPorts));
            }
        }
    }

    bool IsWrongTyped(std::string_view key) const {
        return std::find(mEntry->wrongTyped.begin(), mEntry->wrongTyped.end(), key) !=
               mEntry->wrongTyped.end();
    }

    void Note(const std::string& text) {
        mResult.notices.push_back({mIndex, fmt::format("{}: {}", mLabel, text)});
    }

    PortConfiguration mResult;
    unsigned mBlockEnd = 0;
    std::array<std::optional<std::size_t>, kMaximumPorts> mOwners; // the entry of each port
    std::size_t mIndex = 0;
    const PreferenceEntry* mEntry = nullptr;
    std::string mLabel;
};

} // namespace

std::string PreferenceEntry::Label(std::size_t index) const {
    return name ? fmt::format("entry {} (\"{}\")", index + 1, *name)
                : fmt::format("entry {}", index + 1);
}

std::optional<PortRange> ParsePortRange(const std::string& text) {
    const std::size_t dash = text.find('-');
    if (dash == std::string::npos || text.find('-', dash + 1) != std::string::npos) {
        return std::nullopt;
    }
    const PortRange range{LeadingNumber(text.substr(0, dash)),
                          LeadingNumber(text.substr(dash + 1))};
    if (range.first < 1 || range.last < 1 || range.last > static_cast<int>(kMaximumPorts)) {
        return std::nullopt;
    }
    return range;
}

bool IsPortBlock(std::string_view text) {
    return BlockEnd(text) != 0;
}

PortConfiguration DerivePortConfiguration(const std::vector<PreferenceEntry>& entries) {
    return Derivation().Derive(entries);
}

} // namespace MidiServer
