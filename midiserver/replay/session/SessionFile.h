#pragma once

#include "midiserver/replay/session/RecordedSession.h"

#include <string>

namespace MidiServer {

// Reads a whole session before any of it is sent: the file at `path`, or standard input when
// `path` is "-". The content decides whether it is a capture (CaptureFile.h) or a Standard MIDI
// File (StandardMidiFile.h).
//
// Takes at most four times the input's size of memory, the session included, and 256 KiB.
//
// Blocks until the end of the input. Throws InputError, one line that names the file, when it
// cannot be read, is larger than 256 MiB, or is neither.
RecordedSession ReadSessionFile(const std::string& path);

} // namespace MidiServer
