#include "tests/support/platform/RememberedPreferences.h"

#include "MidiDriver/MacSonaretDefs.h"
#include "platform/support/CFOwned.h"

#include <dlfcn.h>

#include <optional>

namespace {

std::optional<CFOwned<CFPropertyListRef>> sRemembered;
bool sFailing = false;

template <typename Function>
Function* RealFunction(Function* /*same type*/, const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace

namespace TestSupport {

void RememberPreference(CFPropertyListRef value) {
    sRemembered = CFOwned<CFPropertyListRef>::Retained(value);
}

void FailPreferencesSynchronization(bool failing) {
    sFailing = failing;
}

} // namespace TestSupport

CFPropertyListRef CFPreferencesCopyValue(CFStringRef key, CFStringRef applicationID,
                                         CFStringRef userName, CFStringRef hostName) {
    if (sRemembered) {
        return sRemembered->Get() == nullptr ? nullptr : CFRetain(sRemembered->Get());
    }
    return RealFunction(CFPreferencesCopyValue, "CFPreferencesCopyValue")(key, applicationID,
                                                                          userName, hostName);
}

Boolean CFPreferencesSynchronize(CFStringRef applicationID, CFStringRef userName,
                                 CFStringRef hostName) {
    if (sFailing) {
        return false;
    }
    if (CFEqual(applicationID, MacSonaretDefs::kPrefsIdentifier) &&
        CFEqual(userName, kCFPreferencesAnyUser) && CFEqual(hostName, kCFPreferencesCurrentHost)) {
        sRemembered.reset();
    }
    return RealFunction(CFPreferencesSynchronize, "CFPreferencesSynchronize")(applicationID,
                                                                              userName, hostName);
}
