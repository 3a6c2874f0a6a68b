#pragma once

#include "tests/integration/jack/Peer.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <span>
#include <string>
#include <vector>

namespace JackTest {

// A recorded session: its messages, and when each of them came.
struct Session {
    std::vector<Bytes> messages;
    std::vector<std::chrono::microseconds> times;

    // How many messages came until then.
    std::size_t CountUntil(std::chrono::microseconds time) const;
};

// Reads a capture as `midiserver record` writes it.
Session ReadCapture(const std::string& file);

// Plays messages into the outputs of a DAW, all at the same time, and each as fast as they arrive
// at the other end: no more waits on its way than the queues there take.
//
//     Playback playback(daw, 24000);
//     playback.Add(1, session.messages, [&] { return surface.BytesReceived(1); });
//     EXPECT_TRUE(playback.Play());
class Playback {
public:
    // Returns how many bytes of those that this playback sent have arrived so far.
    using Arrived = std::function<std::size_t()>;

    // So many bytes may be on their way from each output.
    Playback(Peer& daw, std::size_t mostOnItsWay) : mDaw(daw), mMostOnItsWay(mostOnItsWay) {}

    // With `times`, one for each message, none is sent sooner after the first than they say. Both
    // must outlive the object.
    void Add(std::size_t output, std::span<const Bytes> messages, Arrived arrived,
             std::span<const std::chrono::microseconds> times = {});

    // Returns when all of it has arrived, and false when nothing comes any more for two minutes.
    testing::AssertionResult Play();

private:
    struct Track {
        std::size_t output;
        std::span<const Bytes> messages;
        Arrived arrived;
        std::span<const std::chrono::microseconds> times;
        std::size_t sent = 0;
        std::size_t bytesSent = 0;
    };

    std::size_t Step(Track& track, std::chrono::steady_clock::duration played);

    Peer& mDaw;
    const std::size_t mMostOnItsWay;
    std::vector<Track> mTracks;
};

} // namespace JackTest
