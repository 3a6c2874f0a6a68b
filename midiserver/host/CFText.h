#pragma once

#include "midiserver/host/CFOwned.h"

#include <string>

namespace MidiServer {

// A CFString of UTF-8 text. Never empty-handed: throws std::bad_alloc when it cannot be made.
CFOwned<CFStringRef> MakeCFString(const std::string& text);

// The text of a CFString in UTF-8; empty for null.
std::string TextOf(CFStringRef string);

} // namespace MidiServer
