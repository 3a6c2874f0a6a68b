#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace MidiServer {

// What concerns the process's JACK library as a whole: JACK's own, or PipeWire's in its place.

// The name of clients that are there for a moment only.
inline constexpr const char* kProbeName = "Quorvel MIDI probe";

// The alias under which an output of the service is found by its unique ID.
std::string JackAliasOf(std::int32_t uniqueId);

// Makes the library ready: what it says goes to the log and not to standard error, and PipeWire's
// leaves MIDI as it is, see WithMidiLeftAlone. To be called before the first client is opened; it
// sets an environment variable, so no other thread may read the environment meanwhile. A second
// call does nothing.
void PrepareJackLibrary();

// Returns the properties that a user gave PipeWire's clients (PIPEWIRE_PROPS), with the one added
// that keeps its JACK library from turning each note-on of velocity 0 into a note-off: such a
// note-on is HUI's ping. A value that the user gave for it stays.
std::string WithMidiLeftAlone(std::string_view properties);

// Whether the library is PipeWire's.
bool JackIsPipeWire();

// Whether a JACK server answers. Opens a client of its own for a moment, so PrepareJackLibrary has
// been called before; blocks for some round trips, and starts no server.
bool JackServerAnswers();

} // namespace MidiServer
