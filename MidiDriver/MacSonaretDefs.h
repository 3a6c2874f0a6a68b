#pragma once

#include <CoreFoundation/CoreFoundation.h>

// The keys of the control-surface system's preferences, which all its programs share. The driver
// itself reads kAppInfoArrayKey and, in each dictionary of that array, kMIDIPortKey and
// kProtocolKey. The keys are constant strings and must never be released.
namespace MacSonaretDefs {

extern const CFStringRef kAutoLaunchKey;
extern const CFStringRef kMonitorZentroKey;
extern const CFStringRef kNetworkTimeoutKey;
extern const CFStringRef kNetworkInterfaceKey;
extern const CFStringRef kLaunchStatusKey;
extern const CFStringRef kTotalNumMIDIPortsKey;
extern const CFStringRef kLastLaunchConfigKey;
extern const CFStringRef kMIDIPortKey; // a string: first and last port, 1-based, "5-8"
extern const CFStringRef kProtocolKey; // a string: "HUI" or "MackieControl"
extern const CFStringRef kAppPathKey;
extern const CFStringRef kAppIdentifierKey;
extern const CFStringRef kAppNameKey;
extern const CFStringRef kAppInfoArrayKey; // an array of dictionaries, one per application

// The application identifier under which the preferences are kept.
extern const CFStringRef kPrefsIdentifier;

} // namespace MacSonaretDefs
