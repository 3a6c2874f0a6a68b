#include "surface/program/EndSignals.h"

#include <atomic>

namespace Surface {

namespace {

// A signal handler may touch nothing but a lock-free atomic.
std::atomic<bool> sCame = false;
static_assert(std::atomic<bool>::is_always_lock_free);

// The handlers that were there before, by signal. They are written only while Handle is not
// installed.
std::array<struct sigaction, NSIG> sBefore{};

void Handle(int number) {
    if (sCame.exchange(true, std::memory_order_relaxed)) {
        ::sigaction(number, &sBefore[static_cast<std::size_t>(number)], nullptr);
        std::raise(number);
    }
}

} // namespace

EndSignals::EndSignals() {
    sCame.store(false, std::memory_order_relaxed);
    struct sigaction action {};
    action.sa_handler = Handle; // no SA_RESTART: it ends a wait
    sigemptyset(&action.sa_mask);
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
        ::sigaction(kSignals[i], nullptr, &mBefore[i]);
        sBefore[static_cast<std::size_t>(kSignals[i])] = mBefore[i];
    }
    for (const int number : kSignals) {
        ::sigaction(number, &action, nullptr);
    }
}

EndSignals::~EndSignals() {
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
        ::sigaction(kSignals[i], &mBefore[i], nullptr);
    }
}

bool EndSignals::Came() {
    return sCame.load(std::memory_order_relaxed);
}

} // namespace Surface
