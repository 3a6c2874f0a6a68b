#include "midiserver/replay/ServiceReplay.h"

#include "midiserver/errors/Errors.h"
#include "midiserver/host/Interrupt.h"
#include "midiserver/json/Json.h"
#include "midiserver/midi/HexText.h"

#include <fmt/format.h>

#include <limits>
#include <thread>
#include <utility>

namespace MidiServer {

namespace {

// The bytes of a request's messages, of which each takes three characters. A single message may be
// longer, as far as a request can hold it at all.
constexpr std::size_t kRequestBytes = 16384;
constexpr std::size_t kLongestMessage = 300'000;
// How long to wait for room, and the longest time without a look at the interrupt count.
constexpr std::chrono::milliseconds kRetry(20);
constexpr std::chrono::milliseconds kLookout(50);

std::string SpeedText(const std::optional<double>& speed) {
    return speed ? fmt::format("at {:g} times the recorded speed", *speed)
                 : std::string("as fast as possible");
}

double Seconds(std::chrono::nanoseconds time) {
    return std::chrono::duration<double>(time).count();
}

} // namespace

ServiceReplay::ServiceReplay(const RecordedSession& recording, std::string port,
                             std::optional<double> speed)
    : mRecording(recording), mPort(std::move(port)) {
    mReport.speed = speed;
    mReport.messages = recording.MessageCount();
}

ServiceReplayReport ServiceReplay::Run() {
    const Clock::time_point start = Clock::now();
    RecordedSession::Iterator message = mRecording.begin();
    const std::uint64_t first = message->microseconds;
    while (message != mRecording.end() && Interrupt::Count() == 0) {
        if (!mReport.speed) {
            SendDue(message, std::numeric_limits<std::uint64_t>::max());
            continue;
        }
        const std::chrono::duration<double, std::micro> played = Clock::now() - start;
        const std::uint64_t due =
            first + static_cast<std::uint64_t>(played.count() * *mReport.speed);
        if (message->microseconds <= due) {
            SendDue(message, due);
        } else {
            const std::chrono::duration<double, std::micro> wait(
                static_cast<double>(message->microseconds - due) / *mReport.speed);
            std::this_thread::sleep_for(std::min(std::chrono::ceil<std::chrono::nanoseconds>(wait),
                                                 std::chrono::nanoseconds(kLookout)));
        }
    }
    mReport.interrupted = message != mRecording.end();
    mReport.elapsed = Clock::now() - start;
    return mReport;
}

// Sends the messages that are due, as far as they fit into one request, and moves on behind those
// that the service took.
void ServiceReplay::SendDue(RecordedSession::Iterator& message, std::uint64_t dueMicroseconds) {
    Json messages = Json::array();
    std::size_t bytes = 0;
    for (RecordedSession::Iterator next = message;
         next != mRecording.end() && next->microseconds <= dueMicroseconds; ++next) {
        if (next->bytes.size() > kLongestMessage) {
            throw InputError(fmt::format("a message has {} bytes; one for a running service has at "
                                         "most {}",
                                         next->bytes.size(), kLongestMessage));
        }
        bytes += next->bytes.size();
        if (!messages.empty() && bytes > kRequestBytes) {
            break;
        }
        messages.push_back(HexText(next->bytes));
    }
    const std::size_t count = messages.size();
    const Json reply =
        mService.Ask(ControlRequest::kInject, {{"port", mPort}, {"messages", std::move(messages)}});
    mReport.port = reply.at("port").get<std::string>();
    const auto taken = std::min(reply.at("taken").get<std::size_t>(), count);
    for (std::size_t i = 0; i < taken; ++i) {
        ++message;
    }
    mReport.sent += taken;
    if (taken < count) {
        ++mReport.heldBack;
        std::this_thread::sleep_for(kRetry);
    }
}

std::string SummaryText(const std::string& file, const ServiceReplayReport& report) {
    return fmt::format(
        "{} of {} messages of {} sent to {} of the running service, {}, in {:.1f} "
        "s{}\n{}",
        report.sent, report.messages, OneLine(file), OneLine(report.port), SpeedText(report.speed),
        Seconds(report.elapsed), report.interrupted ? ", INTERRUPTED" : "",
        report.heldBack == 0
            ? std::string("the port always had room\n")
            : fmt::format("waited {} times for room in the port's queue\n", report.heldBack));
}

std::string SummaryJson(const std::string& file, const ServiceReplayReport& report) {
    const Json document = {{"file", file},
                           {"port", report.port},
                           {"speed", OrNull(report.speed)},
                           {"messages", report.messages},
                           {"sent", report.sent},
                           {"heldBack", report.heldBack},
                           {"interrupted", report.interrupted},
                           {"seconds", Seconds(report.elapsed)}};
    return JsonText(document);
}

} // namespace MidiServer
