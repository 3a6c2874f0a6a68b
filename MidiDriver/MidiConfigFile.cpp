#include "MidiDriver/MidiConfigFile.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace {

constexpr SInt64 kMaxPorts = 32;

struct PortBlock {
    std::string_view name;
    unsigned int lastPort;
};

constexpr std::array<PortBlock, 8> kPortBlocks{{
    {"1-4", 4},
    {"5-8", 8},
    {"9-12", 12},
    {"13-16", 16},
    {"17-20", 20},
    {"21-24", 24},
    {"25-28", 28},
    {"29-32", 32},
}};

CFArrayRef CopyAppInfoArray() {
    return static_cast<CFArrayRef>(
        CFPreferencesCopyValue(MacSonaretDefs::kAppInfoArrayKey, MacSonaretDefs::kPrefsIdentifier,
                               kCFPreferencesAnyUser, kCFPreferencesCurrentHost));
}

CFStringRef StringOf(CFDictionaryRef appInfo, CFStringRef key) {
    return static_cast<CFStringRef>(CFDictionaryGetValue(appInfo, key));
}

CFDictionaryRef AppInfoAt(CFArrayRef appInfos, CFIndex index) {
    return static_cast<CFDictionaryRef>(CFArrayGetValueAtIndex(appInfos, index));
}

unsigned int LastPortOfBlock(std::string_view name) {
    const auto* const block = std::find_if(kPortBlocks.begin(), kPortBlocks.end(),
                                           [name](const PortBlock& b) { return b.name == name; });
    return block == kPortBlocks.end() ? 0 : block->lastPort;
}

/// False when `bounds` is no range of ports.
bool CopyProtocolToRange(CFStringRef protocol, CFArrayRef bounds,
                         std::vector<CFStringRef>& protocols) {
    if (CFArrayGetCount(bounds) != 2) {
        return false;
    }
    const auto indexAt = [bounds](CFIndex part) {
        const auto text = static_cast<CFStringRef>(CFArrayGetValueAtIndex(bounds, part));
        return SInt64{CFStringGetIntValue(text)} - 1;
    };
    const SInt64 first = indexAt(0);
    const SInt64 last = indexAt(1);
    if (first < 0 || last < 0 || last >= kMaxPorts) {
        return false;
    }
    for (SInt64 port = first; port <= last; port++) {
        protocols.at(static_cast<std::size_t>(port)) = CFStringCreateCopy(nullptr, protocol);
    }
    return true;
}

} // namespace

unsigned int GetMidiConfigNumPorts() {
    CFArrayRef appInfos = CopyAppInfoArray();
    if (appInfos == nullptr) {
        return 0;
    }
    unsigned int numPorts = 0;
    const CFIndex count = CFArrayGetCount(appInfos);
    for (CFIndex i = 0; i < count; i++) {
        CFDictionaryRef appInfo = AppInfoAt(appInfos, i);
        CFStringRef ports =
            appInfo == nullptr ? nullptr : StringOf(appInfo, MacSonaretDefs::kMIDIPortKey);
        char text[256];
        if (ports != nullptr &&
            CFStringGetCString(ports, text, sizeof text, kCFStringEncodingASCII)) {
            numPorts = std::max(numPorts, LastPortOfBlock(text));
        }
    }
    CFRelease(appInfos);
    return numPorts;
}

bool CopyEmulatedProtocols(std::vector<CFStringRef>* protocols) {
    CFArrayRef appInfos = CopyAppInfoArray();
    if (appInfos == nullptr) {
        return false;
    }
    bool accepted = false;
    const CFIndex count = CFArrayGetCount(appInfos);
    for (CFIndex i = 0; i < count; i++) {
        CFDictionaryRef appInfo = AppInfoAt(appInfos, i);
        if (appInfo == nullptr) {
            continue;
        }
        CFStringRef ports = StringOf(appInfo, MacSonaretDefs::kMIDIPortKey);
        CFStringRef protocol = StringOf(appInfo, MacSonaretDefs::kProtocolKey);
        if (ports == nullptr || protocol == nullptr) {
            continue;
        }
        CFArrayRef bounds = CFStringCreateArrayBySeparatingStrings(nullptr, ports, CFSTR("-"));
        if (bounds == nullptr) {
            continue;
        }
        accepted = CopyProtocolToRange(protocol, bounds, *protocols) || accepted;
        CFRelease(bounds);
    }
    CFRelease(appInfos);
    return accepted;
}
