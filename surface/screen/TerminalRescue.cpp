#include "surface/screen/TerminalRescue.h"

#include <unistd.h>

#include <algorithm>
#include <cstddef>

namespace Surface {

namespace {

// What the handler needs, which may neither allocate nor call ncurses. Written only while the
// handler is not installed.
std::array<char, 512> sFarewell{};
std::size_t sFarewellLength = 0;
termios sSettings{};
// Far beyond what the handler takes.
std::array<std::byte, 65536> sStack{};

void RestoreAndEnd(int number) {
    [[maybe_unused]] const ssize_t written =
        ::write(STDOUT_FILENO, sFarewell.data(), sFarewellLength);
    ::tcsetattr(STDIN_FILENO, TCSANOW, &sSettings);
    // The default handler is back already, and the signal is not blocked.
    std::raise(number);
}

} // namespace

TerminalRescue::TerminalRescue(const std::string& farewell, const termios& settings) {
    sFarewellLength = std::min(farewell.size(), sFarewell.size());
    std::copy_n(farewell.begin(), sFarewellLength, sFarewell.begin());
    sSettings = settings;
    stack_t stack{};
    stack.ss_sp = sStack.data();
    stack.ss_size = sStack.size();
    ::sigaltstack(&stack, &mStackBefore);
    struct sigaction action {};
    action.sa_handler = RestoreAndEnd;
    action.sa_flags = static_cast<int>(SA_RESETHAND | SA_NODEFER | SA_ONSTACK);
    sigemptyset(&action.sa_mask);
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
        ::sigaction(kSignals[i], &action, &mBefore[i]);
    }
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    sigemptyset(&ignore.sa_mask);
    ::sigaction(SIGTSTP, &ignore, &mStopBefore);
}

TerminalRescue::~TerminalRescue() {
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
        ::sigaction(kSignals[i], &mBefore[i], nullptr);
    }
    ::sigaction(SIGTSTP, &mStopBefore, nullptr);
    ::sigaltstack(&mStackBefore, nullptr);
}

} // namespace Surface
