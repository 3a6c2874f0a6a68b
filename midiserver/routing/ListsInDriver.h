#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

namespace MidiServer {

// The packet lists of one port that the driver was sent and has not forwarded yet. It forwards them
// in order and as they are, so a list that comes out is known by its size, and those that it passes
// over are lost. Not synchronised.
class ListsInDriver {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    struct List {
        std::size_t listBytes;          // with the headers
        std::size_t dataBytes;          // of MIDI data alone
        std::vector<TimePoint> arrived; // of the messages that end in it
    };

    struct Forwarded {
        List list;
        std::vector<List> lost; // passed over
    };

    void Sent(List list) { mLists.push_back(std::move(list)); }
    // Takes the list that was sent last back, if it has not been forwarded.
    std::optional<List> TakeLast();
    // Takes a list of so many bytes of MIDI data, with those before it, if there is one.
    std::optional<Forwarded> TakeForwarded(std::size_t dataBytes);
    // Takes all of them.
    std::vector<List> TakeAll();

    // The messages that end in these lists.
    std::size_t Messages() const;

private:
    std::deque<List> mLists;
};

} // namespace MidiServer
