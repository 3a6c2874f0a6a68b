#pragma once

#include "platform/support/CFOwned.h"

#include <CoreFoundation/CoreFoundation.h>

#include <string>

namespace MidiServer {

// Makes a CFString of UTF-8 text. Never returns null: throws std::bad_alloc if the string cannot be
// made.
CFOwned<CFStringRef> MakeCFString(const std::string& text);

// Returns the text of a CFString in UTF-8, which is empty for null.
std::string TextOf(CFStringRef string);

} // namespace MidiServer
