#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

namespace MidiServer {

// A ListsInDriver holds the packet lists of one port that were sent to the driver and that it has
// not forwarded yet. The driver forwards lists in order and as they are. So the size of a list that
// comes out tells which one it is, and the lists before it that did not come out are lost.
//
//     inDriver.Sent({list.ByteSize(), dataBytes, arrived});
//     if (const auto forwarded = inDriver.TakeForwarded(dataBytes)) { ... }
//
// Not synchronised.
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
