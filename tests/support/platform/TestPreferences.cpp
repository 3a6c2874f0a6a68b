#include "tests/support/platform/TestPreferences.h"

#include "MidiDriver/MacSonaretDefs.h"
#include "tests/support/platform/CFText.h"

#include <cstdlib>
#include <stdexcept>

namespace TestSupport {

TestPreferences::TestPreferences() {
    setenv("QUORVEL_PREFERENCES_DIR", mDirectory.Path().c_str(), 1);
}

TestPreferences::~TestPreferences() {
    unsetenv("QUORVEL_PREFERENCES_DIR");
}

void TestPreferences::SetApplications(const std::vector<Application>& applications) {
    const auto array = CFOwned(CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks));
    for (const Application& application : applications) {
        const auto entry = CFOwned(CFDictionaryCreateMutable(
            nullptr, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
        if (!application.ports.empty()) {
            CFDictionarySetValue(entry.Get(), MacSonaretDefs::kMIDIPortKey,
                                 MakeString(application.ports).Get());
        }
        if (!application.protocol.empty()) {
            CFDictionarySetValue(entry.Get(), MacSonaretDefs::kProtocolKey,
                                 MakeString(application.protocol).Get());
        }
        CFArrayAppendValue(array.Get(), entry.Get());
    }
    SetValue(array.Get());
}

void TestPreferences::SetValue(CFPropertyListRef value) {
    CFPreferencesSetValue(MacSonaretDefs::kAppInfoArrayKey, value, MacSonaretDefs::kPrefsIdentifier,
                          kCFPreferencesAnyUser, kCFPreferencesCurrentHost);
    if (!CFPreferencesSynchronize(MacSonaretDefs::kPrefsIdentifier, kCFPreferencesAnyUser,
                                  kCFPreferencesCurrentHost)) {
        throw std::runtime_error("the preferences cannot be written to " + Path());
    }
}

} // namespace TestSupport
