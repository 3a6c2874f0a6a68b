#pragma once

#include "midiserver/routing/StreamTap.h"

#include <nlohmann/json_fwd.hpp>

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>

namespace MidiServer {

// Recordings holds what the service records for its clients, who start a recording, take its
// messages bit by bit and end it (see ControlProtocol.h). A recording that nobody takes from for
// kPatience is forgotten, because its client has ended.
//
//     const std::uint64_t number = recordings.Start(router.Tap(...), now);
//     reply = recordings.Take(number, now);
//     reply = recordings.End(number);
//
// Not synchronised.
class Recordings {
public:
    using Time = std::chrono::steady_clock::time_point;

    static constexpr std::chrono::minutes kPatience{1};
    // What a recording keeps for its client, and how much of it one reply takes, in bytes.
    static constexpr std::size_t kCapacity = 1 << 20;
    static constexpr std::size_t kReplyBytes = 16384;
    static constexpr std::size_t kMost = 64;

    // Returns the recording's number. Throws InputError if there are kMost.
    std::uint64_t Start(std::shared_ptr<StreamTap> tap, Time now);

    // Return the reply's members. Throw InputError if there is no such recording.
    nlohmann::ordered_json Take(std::uint64_t number, Time now);
    nlohmann::ordered_json End(std::uint64_t number);

private:
    struct Recording {
        std::shared_ptr<StreamTap> tap;
        Time started;
        Time lastTaken;
    };

    std::map<std::uint64_t, Recording>::iterator Find(std::uint64_t number);
    void ForgetOld(Time now);

    std::map<std::uint64_t, Recording> mRecordings;
    std::uint64_t mLastNumber = 0;
};

} // namespace MidiServer
