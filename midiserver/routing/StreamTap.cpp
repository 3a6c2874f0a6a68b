#include "midiserver/routing/StreamTap.h"

#include <utility>

namespace MidiServer {

void StreamTap::Add(std::chrono::steady_clock::time_point time,
                    std::span<const std::uint8_t> bytes) {
    const MutexLock lock(mMutex);
    if (bytes.size() > mCapacity - mKeptBytes) {
        ++mLost;
        return;
    }
    mKept.push_back({time, {bytes.begin(), bytes.end()}});
    mKeptBytes += bytes.size();
}

std::vector<TappedMessage> StreamTap::Take(std::size_t bytes) {
    std::vector<TappedMessage> taken;
    const MutexLock lock(mMutex);
    for (std::size_t size = 0; !mKept.empty(); mKept.pop_front()) {
        size += mKept.front().bytes.size();
        if (size > bytes && !taken.empty()) {
            break;
        }
        mKeptBytes -= mKept.front().bytes.size();
        taken.push_back(std::move(mKept.front()));
    }
    return taken;
}

std::uint64_t StreamTap::Lost() const {
    const MutexLock lock(mMutex);
    return mLost;
}

} // namespace MidiServer
