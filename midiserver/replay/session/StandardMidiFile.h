#pragma once

#include "midiserver/replay/session/RecordedSession.h"

#include <string>
#include <string_view>

namespace MidiServer {

// Whether the content begins like a Standard MIDI File.
bool IsStandardMidiFile(std::string_view content);

// Reads a Standard MIDI File of format 0 or 1 and returns the messages that a player would send.
// The tracks are merged in order of time; messages of the same time come in the order of their
// tracks.
//
// Times follow the tempo map (120 beats a minute until the first tempo) or the SMPTE division.
// Channel messages have their status byte whether or not the file used running status. Meta events
// are not sent. A System Exclusive message that the file splits into several events is joined and
// sent whole at the time of its last part, so that no other track's message can fall into it. An F7
// event outside a split message is an escape: it has to hold whole MIDI messages, each with its
// status byte, which are sent one after the other. Chunks of other types are skipped, and so are
// tracks beyond the number that the header gives.
//
// Throws InputError "<name>: byte <offset>: <why>" (offset 0-based) if the content is damaged, cut
// off, of format 2, or longer than 7 days, and "<name>: ..." if there is nothing to send. Whatever
// the content, allocates, the session included, never more than three times its size plus 128 KiB.
RecordedSession ReadStandardMidiFile(std::string_view content, const std::string& name);

} // namespace MidiServer
