#pragma once

#include <array>
#include <csignal>

namespace Surface {

// While an EndSignals exists, SIGHUP, SIGINT and SIGTERM ask the program to end in order and do not
// end it; the first of them also ends a wait that goes on. A second one goes to the handler that
// was there before, and so ends a program that does not come to its end. A process has one
// EndSignals at a time.
class EndSignals {
public:
    EndSignals();
    ~EndSignals();
    EndSignals(const EndSignals&) = delete;
    EndSignals& operator=(const EndSignals&) = delete;

    // Whether one of them came. Any thread may ask; does not block.
    static bool Came();

private:
    static constexpr std::array<int, 3> kSignals = {SIGHUP, SIGINT, SIGTERM};

    std::array<struct sigaction, kSignals.size()> mBefore{};
};

} // namespace Surface
