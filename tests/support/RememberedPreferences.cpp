#include "tests/support/RememberedPreferences.h"

#include "MidiDriver/MacSonaretDefs.h"
#include "tests/support/CFHandle.h"

#include <dlfcn.h>

#include <optional>

namespace {

std::optional<CFHandle<CFPropertyListRef>> gRemembered;
bool gFailing = false;

template <typename Function>
Function* RealFunction(Function* /*same type*/, const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace

namespace TestSupport {

void RememberPreference(CFPropertyListRef value) {
    gRemembered.emplace(value == nullptr ? nullptr : CFRetain(value));
}

void FailPreferencesSynchronization(bool failing) {
    gFailing = failing;
}

} // namespace TestSupport

CFPropertyListRef CFPreferencesCopyValue(CFStringRef key, CFStringRef applicationID,
                                         CFStringRef userName, CFStringRef hostName) {
    if (gRemembered) {
        return gRemembered->Get() == nullptr ? nullptr : CFRetain(gRemembered->Get());
    }
    return RealFunction(CFPreferencesCopyValue, "CFPreferencesCopyValue")(key, applicationID,
                                                                          userName, hostName);
}

Boolean CFPreferencesSynchronize(CFStringRef applicationID, CFStringRef userName,
                                 CFStringRef hostName) {
    if (gFailing) {
        return false;
    }
    if (CFEqual(applicationID, MacSonaretDefs::kPrefsIdentifier) &&
        CFEqual(userName, kCFPreferencesAnyUser) && CFEqual(hostName, kCFPreferencesCurrentHost)) {
        gRemembered.reset();
    }
    return RealFunction(CFPreferencesSynchronize, "CFPreferencesSynchronize")(applicationID,
                                                                              userName, hostName);
}
