#include "midiserver/host/RealTimePriority.h"

#include "midiserver/log/LogCategories.h"
#include "midiserver/log/Logging.h"

#include <fmt/format.h>

#include <sched.h>
#include <sys/resource.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <system_error>

namespace MidiServer {

namespace {

constexpr const char* kService = "org.freedesktop.RealtimeKit1";
constexpr const char* kServicePath = "/org/freedesktop/RealtimeKit1";
constexpr std::chrono::microseconds kPatience = std::chrono::seconds(3);

// What went wrong, as a part of a line.
class Refusal : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

std::string TextOf(int error) {
    return std::generic_category().message(error);
}

// A program that is started by this one does not inherit the priority.
bool SetFifo(int level) {
    sched_param parameters{};
    parameters.sched_priority = level;
    return ::sched_setscheduler(0, SCHED_FIFO | SCHED_RESET_ON_FORK, &parameters) == 0;
}

// The highest level within the user's limit, up to kLevel; 0 if there is none.
int TakeWithinLimit() {
    rlimit limit{};
    if (::getrlimit(RLIMIT_RTPRIO, &limit) != 0) {
        return 0;
    }
    const auto level = static_cast<int>(std::min<rlim_t>(limit.rlim_cur, RealTimePriority::kLevel));
    // A group of processes may have no real-time share at all, whatever its users' limits.
    return level > 0 && SetFifo(level) ? level : 0;
}

// The system tells the thread that has come to the limit.
void GivePriorityBack(int) {
    const int error = errno;
    const sched_param parameters{};
    ::sched_setscheduler(0, SCHED_OTHER, &parameters);
    errno = error;
}

// Limits this process as the service demands.
void LimitTimeWithoutWait(rlim_t most) {
    struct sigaction action {};
    action.sa_handler = GivePriorityBack;
    action.sa_flags = SA_RESTART;
    rlimit limit{};
    if (::sigaction(SIGXCPU, &action, nullptr) != 0 || ::getrlimit(RLIMIT_RTTIME, &limit) != 0) {
        throw Refusal(TextOf(errno));
    }
    limit.rlim_max = std::min(limit.rlim_max, most);
    limit.rlim_cur = std::min(limit.rlim_cur, limit.rlim_max / 2);
    if (::setrlimit(RLIMIT_RTTIME, &limit) != 0) {
        throw Refusal("the time without a wait cannot be limited: " + TextOf(errno));
    }
}

struct BusClose {
    void operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }
};
using Bus = std::unique_ptr<sd_bus, BusClose>;

// An error that a call on the bus has returned.
class BusError {
public:
    BusError() = default;
    ~BusError() { sd_bus_error_free(&mError); }
    BusError(const BusError&) = delete;
    BusError& operator=(const BusError&) = delete;

    sd_bus_error* Get() { return &mError; }
    // Throws if `result`, which a call returned, is an error.
    void ThrowIf(int result) const {
        if (result < 0) {
            throw Refusal(mError.message != nullptr ? mError.message : TextOf(-result));
        }
    }

private:
    sd_bus_error mError{};
};

Bus OpenBus() {
    sd_bus* bus = nullptr;
    if (const int result = sd_bus_open_system(&bus); result < 0) {
        throw Refusal("no system bus: " + TextOf(-result));
    }
    Bus owner(bus);
    sd_bus_set_method_call_timeout(bus, static_cast<std::uint64_t>(kPatience.count()));
    return owner;
}

template <typename Value>
Value ServiceLimit(sd_bus* bus, const char* name, char type) {
    BusError error;
    Value value{};
    error.ThrowIf(sd_bus_get_property_trivial(bus, kService, kServicePath, kService, name,
                                              error.Get(), type, &value));
    if (value <= 0) {
        throw Refusal(fmt::format("{} is {}", name, value));
    }
    return value;
}

int TakeFromService() {
    const Bus bus = OpenBus();
    const auto most = ServiceLimit<std::int64_t>(bus.get(), "RTTimeUSecMax", 'x');
    const int level = std::min(ServiceLimit<std::int32_t>(bus.get(), "MaxRealtimePriority", 'i'),
                               RealTimePriority::kLevel);
    LimitTimeWithoutWait(static_cast<rlim_t>(most));
    BusError error;
    error.ThrowIf(sd_bus_call_method(
        bus.get(), kService, kServicePath, kService, "MakeThreadRealtime", error.Get(), nullptr,
        "tu", static_cast<std::uint64_t>(::gettid()), static_cast<std::uint32_t>(level)));
    return level;
}

std::string TakeHoweverPossible() {
    if (const int level = TakeWithinLimit(); level > 0) {
        return fmt::format("has real-time priority {}, within the user's limit", level);
    }
    try {
        return fmt::format("has real-time priority {}, from the desktop's real-time service",
                           TakeFromService());
    } catch (const Refusal& refusal) {
        return fmt::format("runs without real-time priority: the user's limit allows none "
                           "(ulimit -r), and the desktop's real-time service gives none ({})",
                           refusal.what());
    }
}

} // namespace

void RealTimePriority::Take() {
    std::string line = mThread + " " + TakeHoweverPossible();
    if (line != mSaid) {
        Log(kHostLog[HSL::kInfo], "%s", line);
        mSaid = std::move(line);
    }
}

} // namespace MidiServer
