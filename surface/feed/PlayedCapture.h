#pragma once

#include "midiserver/replay/session/RecordedSession.h"
#include "surface/feed/Feed.h"

#include <chrono>
#include <optional>
#include <string>

namespace Surface {

// How a capture is played.
struct PlayOptions {
    std::optional<double> speed = 1.0;      // nothing: all at once
    std::optional<SurfaceModel::Time> at{}; // plays up to this time of the capture and stops there
    MidiServer::Protocol protocol = MidiServer::Protocol::kMackieControl;
};

// A feed of one port that plays a capture, without any service. What is sent goes nowhere.
//
//     PlayedCapture feed(MidiServer::ReadSessionFile(path), path, {.speed = 2.0});
class PlayedCapture : public Feed {
public:
    // `name` is what the user called the file. Playing begins with the first Take.
    PlayedCapture(MidiServer::RecordedSession session, std::string name,
                  const PlayOptions& options);

    FeedState State() const override;
    // The time in the capture. Played at once it stops with the last message, otherwise it goes on.
    SurfaceModel::Time Now() const override;
    void Take(const Receive& receive) override;
    void Send(std::size_t, std::span<const std::uint8_t>) override {}
    void Wait(std::chrono::milliseconds longest) override;

private:
    using Clock = std::chrono::steady_clock;

    // Whether the next message, which there is, belongs to what is played.
    bool IsAtEnd() const;

    const MidiServer::RecordedSession mSession;
    const std::string mName;
    const PlayOptions mOptions;
    SurfaceModel::Time mLength{0}; // of what is played
    std::optional<Clock::time_point> mStart;
    MidiServer::RecordedSession::Iterator mNext;
};

} // namespace Surface
