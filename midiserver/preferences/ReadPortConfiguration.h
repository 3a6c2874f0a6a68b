#pragma once

#include "midiserver/preferences/PortConfiguration.h"

namespace MidiServer {

// Reads the preferences that the driver is going to read, and returns what it makes of them. Tells
// the user which of them have no effect, because the driver itself does not say so. Throws
// InputError if there is no file although the user named its folder.
PortConfiguration ReadPortConfiguration(bool folderWasGiven);

} // namespace MidiServer
