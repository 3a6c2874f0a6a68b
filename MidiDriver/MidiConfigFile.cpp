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

// Returns the value as the type that it should have, or null when it is missing or of another type.
template <typename Reference>
Reference Checked(CFTypeRef value, CFTypeID type) {
    return value != nullptr && CFGetTypeID(value) == type ? static_cast<Reference>(value) : nullptr;
}

CFArrayRef CopyAppInfoArray() {
    // Without this the platform may answer with values from before an application's last change. If
    // it cannot synchronise, the values that it has are all there is to read.
    CFPreferencesSynchronize(MacSonaretDefs::kPrefsIdentifier, kCFPreferencesAnyUser,
                             kCFPreferencesCurrentHost);
    CFPropertyListRef value =
        CFPreferencesCopyValue(MacSonaretDefs::kAppInfoArrayKey, MacSonaretDefs::kPrefsIdentifier,
                               kCFPreferencesAnyUser, kCFPreferencesCurrentHost);
    CFArrayRef array = Checked<CFArrayRef>(value, CFArrayGetTypeID());
    if (value != nullptr && array == nullptr) {
        CFRelease(value);
    }
    return array;
}

CFDictionaryRef AppInfoAt(CFArrayRef appInfos, CFIndex index) {
    return Checked<CFDictionaryRef>(CFArrayGetValueAtIndex(appInfos, index),
                                    CFDictionaryGetTypeID());
}

CFStringRef PortsOf(CFDictionaryRef appInfo) {
    return Checked<CFStringRef>(CFDictionaryGetValue(appInfo, MacSonaretDefs::kMIDIPortKey),
                                CFStringGetTypeID());
}

unsigned int LastPortOfBlock(std::string_view name) {
    const auto* const block = std::find_if(kPortBlocks.begin(), kPortBlocks.end(),
                                           [name](const PortBlock& b) { return b.name == name; });
    return block == kPortBlocks.end() ? 0 : block->lastPort;
}

// Returns false when `bounds` is no range of ports.
bool CopyProtocolToRange(CFTypeRef protocol, CFArrayRef bounds,
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
    CFStringRef name = Checked<CFStringRef>(protocol, CFStringGetTypeID());
    for (SInt64 port = first; port <= last; port++) {
        protocols.at(static_cast<std::size_t>(port)) =
            name == nullptr ? nullptr : CFStringCreateCopy(nullptr, name);
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
        CFStringRef ports = appInfo == nullptr ? nullptr : PortsOf(appInfo);
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
        CFStringRef ports = PortsOf(appInfo);
        CFTypeRef protocol = CFDictionaryGetValue(appInfo, MacSonaretDefs::kProtocolKey);
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
