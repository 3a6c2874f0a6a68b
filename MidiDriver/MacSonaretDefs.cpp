#include "MidiDriver/MacSonaretDefs.h"

namespace MacSonaretDefs {

const CFStringRef kAutoLaunchKey = CFSTR("Auto Launch");
const CFStringRef kMonitorZentroKey = CFSTR("Monitor Zentro");
const CFStringRef kNetworkTimeoutKey = CFSTR("Network Verification Timeout");
const CFStringRef kNetworkInterfaceKey = CFSTR("Network Interface");
const CFStringRef kLaunchStatusKey = CFSTR("Network Launch Status");
const CFStringRef kTotalNumMIDIPortsKey = CFSTR("Total Number of Available Quorvel MIDI Ports");
const CFStringRef kLastLaunchConfigKey = CFSTR("Last Launch Configuration");
const CFStringRef kMIDIPortKey = CFSTR("MIDI Ports");
const CFStringRef kProtocolKey = CFSTR("Protocol");
const CFStringRef kAppPathKey = CFSTR("App Path");
const CFStringRef kAppIdentifierKey = CFSTR("App Identifier");
const CFStringRef kAppNameKey = CFSTR("App Name");
const CFStringRef kAppInfoArrayKey = CFSTR("Sonaret Applications");
const CFStringRef kPrefsIdentifier = CFSTR("com.quorvel.ControlSurface");

} // namespace MacSonaretDefs
