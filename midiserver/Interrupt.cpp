#include "midiserver/Interrupt.h"

#include <atomic>
#include <csignal>

namespace MidiServer {

namespace {

constexpr unsigned kPatience = 2;

// A signal handler may touch nothing but a lock-free atomic.
std::atomic<unsigned> msCount = 0;
static_assert(std::atomic<unsigned>::is_always_lock_free);

void Handle(int number) {
    if (msCount.fetch_add(1, std::memory_order_relaxed) + 1 > kPatience) {
        std::signal(number, SIG_DFL);
        std::raise(number);
    }
}

void Install(void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

} // namespace

Interrupt::Interrupt() {
    msCount.store(0, std::memory_order_relaxed);
    Install(Handle);
}

Interrupt::~Interrupt() {
    Install(SIG_DFL);
}

unsigned Interrupt::Count() {
    return msCount.load(std::memory_order_relaxed);
}

} // namespace MidiServer
