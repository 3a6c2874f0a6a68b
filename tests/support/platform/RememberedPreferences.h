// Stands for a platform that remembers a preference: until the domain is synchronised, it answers
// reads with the remembered value, whatever has been written meanwhile.
//
// Takes the place of CFPreferencesCopyValue and CFPreferencesSynchronize for the whole program.
// Unless told otherwise, both pass their calls on. One thread uses it.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

namespace TestSupport {

// Makes every read return `value` (which it retains; null stands for a missing one) until the
// control surface's domain (any user, current host) has been synchronised successfully.
void RememberPreference(CFPropertyListRef value);

// If `failing` is set, makes all later synchronisations fail and renew nothing.
void FailPreferencesSynchronization(bool failing);

} // namespace TestSupport
