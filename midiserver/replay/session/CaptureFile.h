#pragma once

#include "midiserver/replay/session/RecordedSession.h"

#include <string>
#include <string_view>

namespace MidiServer {

// Reads a capture, which is a text with one MIDI message on each line:
//
//     <microseconds since start> <hex byte> <hex byte> ...
//
// The time is decimal; every byte has two hexadecimal digits. The order of the lines is the order
// of the messages: if a time is before that of an earlier line, the earlier time is taken instead.
// Empty lines and everything from a '#' on are skipped. Lines may end in CR LF, and the text may
// start with the byte-order mark of UTF-8. Each line holds exactly one complete MIDI message that
// starts with its status byte, so a capture that was cut inside a message is recognised.
//
// Throws InputError "<name>:<line>: <why>" for the first line that does not comply, and "<name>:
// ..." for a capture without a message. `name` is what the user called the file. Allocates, the
// session included, never more than three times the content's size plus 128 KiB.
RecordedSession ReadCaptureFile(std::string_view content, const std::string& name);

} // namespace MidiServer
