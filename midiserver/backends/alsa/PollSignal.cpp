#include "midiserver/backends/alsa/PollSignal.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <iterator>
#include <system_error>

namespace MidiServer {

PollSignal::PollSignal() : mEvent(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!mEvent) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
}

void PollSignal::Raise() const noexcept {
    const std::uint64_t one = 1;
    // It fails only if the thread is awake anyway, with this number at its end.
    [[maybe_unused]] const ssize_t written = write(mEvent.Get(), &one, sizeof one);
}

void PollSignal::WaitUntil(std::chrono::steady_clock::time_point time,
                           const std::array<int, 2>& descriptors) const noexcept {
    using Clock = std::chrono::steady_clock;
    pollfd awaited[] = {
        {mEvent.Get(), POLLIN, 0}, {descriptors[0], POLLIN, 0}, {descriptors[1], POLLIN, 0}};
    const bool isForever = time == Clock::time_point::max();
    timespec left{};
    if (!isForever) {
        const std::chrono::nanoseconds until =
            std::max<std::chrono::nanoseconds>(time - Clock::now(), std::chrono::nanoseconds(0));
        const auto seconds = std::chrono::floor<std::chrono::seconds>(until);
        left.tv_sec = static_cast<time_t>(seconds.count());
        left.tv_nsec = static_cast<long>((until - seconds).count());
    }
    ppoll(awaited, std::size(awaited), isForever ? nullptr : &left, nullptr);
    std::uint64_t signals = 0;
    [[maybe_unused]] const ssize_t taken = read(mEvent.Get(), &signals, sizeof signals);
}

} // namespace MidiServer
