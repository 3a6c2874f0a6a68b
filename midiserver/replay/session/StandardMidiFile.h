#pragma once

#include "midiserver/replay/session/RecordedSession.h"

#include <string>
#include <string_view>

namespace MidiServer {

// Whether the content starts as a Standard MIDI File does.
bool IsStandardMidiFile(std::string_view content);

// Reads a Standard MIDI File of format 0 or 1 into the messages that a player would send, the
// tracks merged in order of time and, at the same time, of their place in the file.
//
// Times follow the tempo map (120 beats a minute until the first tempo) or the SMPTE division.
// Channel messages come with their status byte whether or not the file used running status; meta
// events are not sent. A System Exclusive message that the file splits into several events is
// joined and sent whole at the time of its last part, so that no other track's message can fall
// into it. An F7 event outside a split message is an escape: it has to hold whole MIDI messages,
// each with its status byte, which are sent one after the other. Chunks of other types, and tracks
// beyond the number that the header gives, are skipped.
//
// Throws InputError "<name>: byte <offset>: <why>" (offset 0-based) for content that is damaged,
// cut off, of format 2, or longer than 7 days, and "<name>: ..." when there is nothing to send.
// Whatever the content, what is allocated, the session included, is never more than three times its
// size and 128 KiB.
RecordedSession ReadStandardMidiFile(std::string_view content, const std::string& name);

} // namespace MidiServer
