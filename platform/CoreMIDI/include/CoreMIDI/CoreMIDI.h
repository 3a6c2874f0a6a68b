// All of CoreMIDI that clients use. Drivers include MIDIDriver.h, hosts MIDIServerHost.h too.
#pragma once

#include <CoreMIDI/MIDIServices.h>
#include <CoreMIDI/MIDISetup.h>
