#include "midiserver/routing/ListsInDriver.h"

#include <algorithm>
#include <iterator>
#include <numeric>
#include <utility>

namespace MidiServer {

std::optional<ListsInDriver::List> ListsInDriver::TakeLast() {
    if (mLists.empty()) {
        return std::nullopt;
    }
    List last = std::move(mLists.back());
    mLists.pop_back();
    return last;
}

std::optional<ListsInDriver::Forwarded> ListsInDriver::TakeForwarded(std::size_t dataBytes) {
    const auto found = std::find_if(mLists.begin(), mLists.end(), [dataBytes](const List& list) {
        return list.dataBytes == dataBytes;
    });
    if (found == mLists.end()) {
        return std::nullopt;
    }
    Forwarded forwarded{std::move(*found),
                        {std::make_move_iterator(mLists.begin()), std::make_move_iterator(found)}};
    mLists.erase(mLists.begin(), std::next(found));
    return forwarded;
}

std::vector<ListsInDriver::List> ListsInDriver::TakeAll() {
    std::vector<List> all(std::make_move_iterator(mLists.begin()),
                          std::make_move_iterator(mLists.end()));
    mLists.clear();
    return all;
}

std::size_t ListsInDriver::Messages() const {
    return std::accumulate(
        mLists.begin(), mLists.end(), std::size_t{0},
        [](std::size_t sum, const List& list) { return sum + list.arrived.size(); });
}

} // namespace MidiServer
