#include "midiserver/backends/alsa/SenderTurns.h"

#include "midiserver/midi/MidiMessage.h"

namespace MidiServer {

bool SenderTurns::Take(PortAddress sender, Time now, std::span<const std::uint8_t> bytes,
                       const Deliver& deliver) {
    if (bytes.empty()) {
        return true;
    }
    if (IsRealTime(bytes[0]) || !mOpen || *mOpen == sender) {
        Pass(sender, now, bytes, deliver);
        PassWaiting(deliver);
        return true;
    }
    if (bytes.size() > kMostWaiting - mWaitingBytes) {
        return false;
    }
    mWaiting.push_back({sender, now, {bytes.begin(), bytes.end()}});
    mWaitingBytes += bytes.size();
    return true;
}

void SenderTurns::Pass(PortAddress sender, Time time, std::span<const std::uint8_t> bytes,
                       const Deliver& deliver) {
    if (!IsRealTime(bytes[0])) {
        const bool isPiece =
            bytes[0] == kStartOfExclusive || (IsDataByte(bytes[0]) && mOpen == sender);
        if (isPiece && bytes.back() != kEndOfExclusive) {
            mOpen = sender;
            mLastPiece = time;
        } else {
            mOpen.reset();
        }
    }
    deliver(time, bytes);
}

void SenderTurns::PassWaiting(const Deliver& deliver) {
    // What one of them opens lets its own events pass and holds back the others' again.
    for (auto next = mWaiting.begin(); next != mWaiting.end();) {
        if (mOpen && *mOpen != next->sender) {
            ++next;
            continue;
        }
        const bool wasOpen = mOpen.has_value();
        Pass(next->sender, next->time, next->bytes, deliver);
        mWaitingBytes -= next->bytes.size();
        next = mWaiting.erase(next);
        if (wasOpen && !mOpen) {
            next = mWaiting.begin(); // those that it held back are older
        }
    }
}

void SenderTurns::Leave(int client, const Deliver& deliver) {
    if (mOpen && mOpen->client == client) {
        EndAll(deliver);
    }
}

void SenderTurns::EndOverdue(Time now, const Deliver& deliver) {
    if (const std::optional<Time> due = Due(); due && now >= *due) {
        EndAll(deliver);
    }
}

void SenderTurns::EndAll(const Deliver& deliver) {
    mOpen.reset();
    PassWaiting(deliver);
}

std::optional<SenderTurns::Time> SenderTurns::Due() const {
    if (!mOpen || mWaiting.empty()) {
        return std::nullopt;
    }
    return mLastPiece + kLongestPause;
}

} // namespace MidiServer
