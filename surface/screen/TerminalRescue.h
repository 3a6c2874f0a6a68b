#pragma once

#include <termios.h>

#include <array>
#include <csignal>
#include <string>

namespace Surface {

// While a TerminalRescue exists, every signal that would end the process, but for SIGKILL, first
// makes the terminal as it was: also one that a fault of the program raises, on any thread and with
// a stack that has overflown. The process then ends by that signal, as it would have. Stops from
// the keyboard (SIGTSTP) are ignored. A process has one at a time.
class TerminalRescue {
public:
    // `farewell` is what makes the terminal what it was, in its own language; `settings` are those
    // that it had.
    TerminalRescue(const std::string& farewell, const termios& settings);
    ~TerminalRescue();
    TerminalRescue(const TerminalRescue&) = delete;
    TerminalRescue& operator=(const TerminalRescue&) = delete;

private:
    // All whose default is the end of the process.
    static constexpr std::array<int, 22> kSignals = {
        SIGHUP,  SIGINT,  SIGQUIT, SIGILL,  SIGTRAP,   SIGABRT,  SIGBUS,  SIGFPE,
        SIGUSR1, SIGSEGV, SIGUSR2, SIGPIPE, SIGALRM,   SIGTERM,  SIGPOLL, SIGXCPU,
        SIGXFSZ, SIGPROF, SIGSYS,  SIGPWR,  SIGSTKFLT, SIGVTALRM};

    std::array<struct sigaction, kSignals.size()> mBefore{};
    struct sigaction mStopBefore {};
    stack_t mStackBefore{};
};

} // namespace Surface
