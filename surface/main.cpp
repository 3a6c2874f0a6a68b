#include "surface/program/SurfaceProgram.h"

int main(int argumentCount, char** arguments) {
    return MidiServer::ProgramMain("quorvel-surface", Surface::MakeSurfaceProgram, argumentCount,
                                   arguments);
}
