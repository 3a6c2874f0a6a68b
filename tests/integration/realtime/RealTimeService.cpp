#include "tests/integration/realtime/RealTimeService.h"

#include <cerrno>
#include <stdexcept>

namespace QuorvelTest {

namespace {

constexpr const char* kName = "org.freedesktop.RealtimeKit1";
constexpr const char* kPath = "/org/freedesktop/RealtimeKit1";

void Require(int result, const char* what) {
    if (result < 0) {
        throw std::runtime_error(what);
    }
}

} // namespace

RealTimeService::RealTimeService(const std::string& busAddress, bool refuses) : mRefuses(refuses) {
    static const sd_bus_vtable kMembers[] = {
        SD_BUS_VTABLE_START(0),
        SD_BUS_METHOD("MakeThreadRealtime", "tu", "", TakeRequest, SD_BUS_VTABLE_UNPRIVILEGED),
        SD_BUS_PROPERTY("RTTimeUSecMax", "x", AnswerMostTime, 0, 0),
        SD_BUS_PROPERTY("MaxRealtimePriority", "i", AnswerMostLevel, 0, 0),
        SD_BUS_VTABLE_END,
    };
    Require(sd_bus_new(&mBus), "no bus");
    Require(sd_bus_set_address(mBus, busAddress.c_str()), "no address");
    Require(sd_bus_set_bus_client(mBus, 1), "no client");
    Require(sd_bus_start(mBus), "the bus is not there");
    Require(sd_bus_add_object_vtable(mBus, nullptr, kPath, kName, kMembers, this), "no object");
    Require(sd_bus_request_name(mBus, kName, 0), "no name");
    mThread = std::thread([this] { Serve(); });
}

RealTimeService::~RealTimeService() {
    mEnding = true;
    mThread.join();
    sd_bus_flush_close_unref(mBus);
}

void RealTimeService::Serve() {
    while (!mEnding) {
        while (sd_bus_process(mBus, nullptr) > 0) {
        }
        sd_bus_wait(mBus, 10000);
    }
}

int RealTimeService::TakeRequest(sd_bus_message* message, void* self, sd_bus_error* error) {
    auto& service = *static_cast<RealTimeService*>(self);
    Request request{};
    if (const int result = sd_bus_message_read(message, "tu", &request.thread, &request.level);
        result < 0) {
        return result;
    }
    {
        const std::lock_guard lock(service.mMutex);
        service.mRequests.push_back(request);
    }
    return service.mRefuses ? sd_bus_error_set_errno(error, EPERM)
                            : sd_bus_reply_method_return(message, "");
}

int RealTimeService::AnswerMostTime(sd_bus*, const char*, const char*, const char*,
                                    sd_bus_message* reply, void*, sd_bus_error*) {
    return sd_bus_message_append(reply, "x", kMostMicroseconds);
}

int RealTimeService::AnswerMostLevel(sd_bus*, const char*, const char*, const char*,
                                     sd_bus_message* reply, void*, sd_bus_error*) {
    return sd_bus_message_append(reply, "i", kMostLevel);
}

std::vector<RealTimeService::Request> RealTimeService::Requests() const {
    const std::lock_guard lock(mMutex);
    return mRequests;
}

} // namespace QuorvelTest
