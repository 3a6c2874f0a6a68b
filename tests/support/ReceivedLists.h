// Notes every packet list that the program hands to MIDIReceived, then passes it on.
//
// Takes the place of MIDIReceived for the whole program. Any thread.
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

// Since the program's start or the last clear, oldest first.
std::vector<ReceivedList> ReceivedLists();
void ClearReceivedLists();

// Blocks until there are at least `count` of them; false when they do not come for a long time.
bool WaitForReceivedLists(std::size_t count,
                          std::chrono::seconds deadline = std::chrono::seconds(120));

// What all later calls return without being passed on; noErr passes them on.
void SetReceivedStatus(OSStatus status);

} // namespace TestSupport
