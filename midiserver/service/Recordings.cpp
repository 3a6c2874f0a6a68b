#include "midiserver/service/Recordings.h"

#include "midiserver/errors/Errors.h"
#include "midiserver/midi/HexText.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <utility>

namespace MidiServer {

using Json = nlohmann::ordered_json;

std::uint64_t Recordings::Start(std::shared_ptr<StreamTap> tap, Time now) {
    ForgetOld(now);
    if (mRecordings.size() >= kMost) {
        throw InputError(fmt::format("there are {} recordings already", kMost));
    }
    mRecordings.emplace(++mLastNumber, Recording{std::move(tap), now, now});
    return mLastNumber;
}

Json Recordings::Take(std::uint64_t number, Time now) {
    Recording& recording = Find(number)->second;
    recording.lastTaken = now;
    Json messages = Json::array();
    for (const TappedMessage& message : recording.tap->Take(kReplyBytes)) {
        const auto time = std::chrono::duration_cast<std::chrono::microseconds>(
            std::max(message.time, recording.started) - recording.started);
        messages.push_back({time.count(), HexText(message.bytes)});
    }
    return {{"messages", std::move(messages)}, {"lost", recording.tap->Lost()}};
}

Json Recordings::End(std::uint64_t number) {
    const auto recording = Find(number);
    Json reply = {{"lost", recording->second.tap->Lost()}};
    mRecordings.erase(recording);
    return reply;
}

std::map<std::uint64_t, Recordings::Recording>::iterator Recordings::Find(std::uint64_t number) {
    const auto recording = mRecordings.find(number);
    if (recording == mRecordings.end()) {
        throw InputError(fmt::format("there is no recording {} any more", number));
    }
    return recording;
}

void Recordings::ForgetOld(Time now) {
    std::erase_if(mRecordings, [now](const auto& recording) {
        return now - recording.second.lastTaken > kPatience;
    });
}

} // namespace MidiServer
