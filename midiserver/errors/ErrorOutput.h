#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace MidiServer {

// Standard error as the threads of this program share it: lines, and on a terminal one block below
// them that is refreshed in place.
//
// Any thread; each call writes whole. A call waits for the calls of other threads and for whoever
// reads standard error. What cannot be written is lost, and HasFailed() says so from then on.
class ErrorOutput {
public:
    // Writes lines, each ended by a newline, above the block if there is one.
    static void Write(std::string_view lines);

    // Shows these lines, cut to the terminal's width, in place of the block. Terminals only.
    static void ShowBlock(const std::vector<std::string>& lines);
    static void EraseBlock();

    // Whether something could not be written. Does not block.
    static bool HasFailed();
};

} // namespace MidiServer
