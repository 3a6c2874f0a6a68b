#include "surface/connection/RecordingListener.h"

#include "midiserver/errors/Errors.h"
#include "midiserver/midi/HexText.h"

#include <nlohmann/json.hpp>

#include <string>

namespace Surface {

namespace {

using Json = nlohmann::ordered_json;
using MidiServer::ControlRequest;

std::uint64_t NanosecondsNow() {
    return static_cast<std::uint64_t>(
        std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count());
}

} // namespace

void RecordingListener::Attend(const MidiServer::ControlClient& service,
                               const std::vector<PrivateSource>& sources) {
    try {
        while (mRecordings.size() < sources.size()) {
            const std::string port = std::to_string(sources[mRecordings.size()].port);
            const Json start = service.Ask(ControlRequest::kStartRecording,
                                           {{"port", port}, {"stream", "toSurface"}});
            mRecordings.push_back({start.at("recording").get<std::uint64_t>(), 0});
        }
        for (std::size_t index = 0; index < mRecordings.size(); ++index) {
            Take(service, index);
        }
    } catch (...) {
        // A service that has been started anew, or that was not asked for long, knows them no more.
        mRecordings.clear();
        throw;
    }
    mInput.Wake();
}

void RecordingListener::Take(const MidiServer::ControlClient& service, std::size_t index) {
    Recording& recording = mRecordings[index];
    for (;;) {
        const Json reply =
            service.Ask(ControlRequest::kTakeRecorded, {{"recording", recording.number}});
        const auto lost = reply.at("lost").get<std::uint64_t>();
        mInput.CountLost(index, static_cast<std::uint32_t>(lost - recording.lost));
        recording.lost = lost;
        if (reply.at("messages").empty()) {
            return;
        }
        for (const Json& message : reply.at("messages")) {
            mInput.Write(index, NanosecondsNow(),
                         MidiServer::BytesOfHexText(message.at(1).get<std::string>()));
        }
    }
}

} // namespace Surface
