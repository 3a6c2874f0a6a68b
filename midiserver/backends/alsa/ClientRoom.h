#pragma once

namespace MidiServer {

// The memory in which the sequencer keeps what a client has not read yet, in cells (see
// EventCells).
struct ClientRoom {
    unsigned allCells;
    unsigned freeCells;
};

// Asks for a client's memory through a descriptor of the sequencer; one system call. A client of
// the kernel, which takes what comes at once, has none, nor has one that does not exist.
ClientRoom RoomOfClient(int sequencer, int client);

} // namespace MidiServer
