#include "midiserver/errors/ErrorOutput.h"

#include <fmt/format.h>

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>
#include <mutex>

namespace MidiServer {

namespace {

struct Block {
    std::mutex mMutex;
    std::string mText;
    std::size_t mLines = 0;
};

Block& TheBlock() {
    static Block block;
    return block;
}

// Lines must not wrap: a line that wraps takes more lines of the terminal than EraseBlock erases.
std::size_t TerminalColumns() {
    struct winsize size {};
    return ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1 ? size.ws_col - 1U
                                                                             : 79U;
}

// Moves the cursor up to the block's first line and erases from there to the end of the screen.
std::string Erasure(const Block& block) {
    return block.mLines > 0 ? fmt::format("\x1b[{}F\x1b[J", block.mLines) : std::string();
}

void Put(const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), stderr);
    std::fflush(stderr);
}

} // namespace

void ErrorOutput::Write(std::string_view lines) {
    Block& block = TheBlock();
    const std::lock_guard lock(block.mMutex);
    Put(Erasure(block).append(lines) + block.mText);
}

void ErrorOutput::ShowBlock(const std::vector<std::string>& lines) {
    Block& block = TheBlock();
    const std::lock_guard lock(block.mMutex);
    const std::string erasure = Erasure(block);
    const std::size_t columns = TerminalColumns();
    block.mText.clear();
    for (const std::string& line : lines) {
        block.mText.append(line, 0, columns) += '\n';
    }
    block.mLines = lines.size();
    Put(erasure + block.mText);
}

void ErrorOutput::EraseBlock() {
    Block& block = TheBlock();
    const std::lock_guard lock(block.mMutex);
    Put(Erasure(block));
    block.mText.clear();
    block.mLines = 0;
}

bool ErrorOutput::HasFailed() {
    return std::ferror(stderr) != 0;
}

} // namespace MidiServer
