#include "midiserver/errors/ErrorOutput.h"

#include "platform/support/Mutex.h"

#include <fmt/format.h>

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>

namespace MidiServer {

namespace {

struct Block {
    Mutex mMutex;
    std::string mText QUORVEL_GUARDED_BY(mMutex);
    std::size_t mLines QUORVEL_GUARDED_BY(mMutex) = 0;
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
std::string Erasure(const Block& block) QUORVEL_REQUIRES(block.mMutex) {
    return block.mLines > 0 ? fmt::format("\x1b[{}F\x1b[J", block.mLines) : std::string();
}

void Put(const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), stderr);
    std::fflush(stderr);
}

} // namespace

void ErrorOutput::Write(std::string_view lines) {
    Block& block = TheBlock();
    const MutexLock lock(block.mMutex);
    Put(Erasure(block).append(lines) + block.mText);
}

void ErrorOutput::ShowBlock(const std::vector<std::string>& lines) {
    Block& block = TheBlock();
    const MutexLock lock(block.mMutex);
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
    const MutexLock lock(block.mMutex);
    Put(Erasure(block));
    block.mText.clear();
    block.mLines = 0;
}

bool ErrorOutput::HasFailed() {
    return std::ferror(stderr) != 0;
}

} // namespace MidiServer
