#pragma once

#include <sys/types.h>
#include <systemd/sd-bus.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace QuorvelTest {

// Plays the desktop's real-time service on a bus of the test's own. It gives no thread anything and
// notes what it was asked for.
class RealTimeService {
public:
    struct Request {
        std::uint64_t thread;
        std::uint32_t level;
    };

    // Returns when the service is on the bus. With `refuses` it answers each request with the error
    // "Operation not permitted".
    RealTimeService(const std::string& busAddress, bool refuses);
    ~RealTimeService();
    RealTimeService(const RealTimeService&) = delete;
    RealTimeService& operator=(const RealTimeService&) = delete;

    std::vector<Request> Requests() const;

    static constexpr std::int64_t kMostMicroseconds = 200000;
    static constexpr std::int32_t kMostLevel = 20;

private:
    static int TakeRequest(sd_bus_message* message, void* self, sd_bus_error* error);
    static int AnswerMostTime(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply,
                              void*, sd_bus_error*);
    static int AnswerMostLevel(sd_bus*, const char*, const char*, const char*,
                               sd_bus_message* reply, void*, sd_bus_error*);
    void Serve();

    const bool mRefuses;
    sd_bus* mBus = nullptr;
    mutable std::mutex mMutex;
    std::vector<Request> mRequests;
    std::atomic<bool> mEnding{false};
    std::thread mThread;
};

} // namespace QuorvelTest
