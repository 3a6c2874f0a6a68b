// Records every packet list that the program hands to MIDIReceived, and then passes it on.
//
// Takes the place of MIDIReceived for the whole program. Any thread may call.
#pragma once

#include <CoreMIDI/MIDIServices.h>

#include <chrono>
#include <thread>
#include <vector>

namespace TestSupport {

struct ReceivedList {
    MIDIEndpointRef source;
    std::vector<unsigned char> list; // the packet list as it lay in memory
    std::thread::id thread;
};

// Returns the lists since the program's start or the last clear, oldest first.
std::vector<ReceivedList> ReceivedLists();
void ClearReceivedLists();

// Blocks until there are at least `count` lists. Returns false if they do not come before the
// deadline.
bool WaitForReceivedLists(std::size_t count,
                          std::chrono::seconds deadline = std::chrono::seconds(120));

// Makes all later calls return `status` without being passed on; with noErr they are passed on
// again.
void SetReceivedStatus(OSStatus status);

} // namespace TestSupport
