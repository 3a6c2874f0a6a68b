// A platform that remembers a preference: reads are answered with it until the domain is
// synchronised, whatever has been written meanwhile.
//
// Takes the place of CFPreferencesCopyValue and CFPreferencesSynchronize for the whole program;
// unless told otherwise both pass their calls on. One thread.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

namespace TestSupport {

// From now on every read gives `value` (retained; null for a missing one), until the control
// surface's domain (any user, current host) has been synchronised successfully.
void RememberPreference(CFPropertyListRef value);

// The next synchronisations fail and renew nothing, or no longer do.
void FailPreferencesSynchronization(bool failing);

} // namespace TestSupport
