#pragma once

#include "midiserver/replay/session/RecordedSession.h"

#include <string>

namespace MidiServer {

// Reads a whole session from the file at `path`, or from standard input if `path` is "-". The
// content decides whether it is a capture (CaptureFile.h) or a Standard MIDI File
// (StandardMidiFile.h).
//
// Blocks until the end of the input. Takes at most four times the input's size of memory, the
// session included, plus 256 KiB. Throws InputError, with one line that names the file, if the file
// cannot be read, is larger than 256 MiB, or is neither of the two.
RecordedSession ReadSessionFile(const std::string& path);

} // namespace MidiServer
