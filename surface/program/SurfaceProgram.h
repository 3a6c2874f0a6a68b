#pragma once

#include "midiserver/commands/ProgramMain.h"

#include <memory>

namespace Surface {

// Makes the program quorvel-surface: its command line, and what it does.
std::unique_ptr<MidiServer::CommandLineProgram> MakeSurfaceProgram();

} // namespace Surface
