#pragma once

#include "surface/feed/FedPorts.h"
#include "surface/screen/Picture.h"

#include <chrono>
#include <optional>
#include <string>

namespace Surface {

// The three things that the program can do with its ports. Each runs until it is done or a signal
// asks for the end, on the main thread, and throws MidiServer's errors.

// Shows them on the terminal and plays what the user does there.
void RunScreen(Feed& feed, FedPorts& ports);

// Prints a line for each message on standard output, until the feed ends, and on standard error
// what there is to say about the feed:
//
//     3.250671 1 fader 3 at 10944
//
// The time is in seconds since the beginning, the number the port's.
void RunLog(Feed& feed, FedPorts& ports);

struct SnapshotOptions {
    std::string file; // replaced if it is there; "-" is standard output
    int rows = kLeastRows;
    int columns = kPortColumns;
    // For a feed without an end: how long it is listened to once it is there.
    std::optional<std::chrono::microseconds> listening;
};

// Writes the picture at the feed's end as an SVG document. Throws ServiceStateError if the feed is
// not there within ten seconds.
void RunSnapshot(Feed& feed, FedPorts& ports, const SnapshotOptions& options);

} // namespace Surface
