#include "midiserver/routing/pacing/PacingWindow.h"

namespace MidiServer {

std::size_t PacingWindow::Room(TimePoint now) {
    while (!mSent.empty() && mSent.front().when + kLength <= now) {
        mSentBytes -= mSent.front().bytes;
        mSent.pop_front();
    }
    return kBytes - mSentBytes;
}

void PacingWindow::Add(TimePoint now, std::size_t bytes) {
    if (!mSent.empty() && mSent.back().when == now) {
        mSent.back().bytes += bytes;
    } else {
        mSent.push_back({now, bytes});
    }
    mSentBytes += bytes;
}

PacingWindow::TimePoint PacingWindow::TimeOfRoom(std::size_t bytes) const {
    TimePoint time{};
    std::size_t sent = mSentBytes;
    for (const Sent& entry : mSent) {
        if (sent + bytes <= kBytes) {
            break;
        }
        sent -= entry.bytes;
        time = entry.when + kLength;
    }
    return time;
}

} // namespace MidiServer
