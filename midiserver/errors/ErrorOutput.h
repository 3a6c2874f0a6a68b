#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace MidiServer {

// The threads of this program share standard error through this class. They write lines; on a
// terminal, one block of status lines below them is refreshed in place.
//
//     ErrorOutput::ShowBlock({"sending", "1024 messages"});
//     ErrorOutput::Write("midiserver: a warning\n"); // appears above the block
//     ErrorOutput::EraseBlock();
//
// Any thread may call. Each call writes its text in one piece; it waits for the calls of other
// threads and for whoever reads standard error. Text that cannot be written is lost, and
// HasFailed() returns true from then on.
class ErrorOutput {
public:
    // Writes lines, each ended by a newline, above the block if there is one.
    static void Write(std::string_view lines);

    // Shows these lines, cut to the terminal's width, in place of the block. Call it only if
    // standard error is a terminal.
    static void ShowBlock(const std::vector<std::string>& lines);
    static void EraseBlock();

    // Whether any text could not be written so far. Does not block.
    static bool HasFailed();
};

} // namespace MidiServer
