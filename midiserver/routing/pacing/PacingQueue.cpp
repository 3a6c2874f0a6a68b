#include "midiserver/routing/pacing/PacingQueue.h"

#include <algorithm>

namespace MidiServer {

void PacingQueue::Configure(Protocol protocol, bool coalescing) {
    mProtocol = protocol;
    mCoalescing = coalescing;
    while (!mPlaces.empty()) {
        Forget(mPlaces.begin()->first);
    }
}

bool PacingQueue::Add(std::span<const std::uint8_t> message, TimePoint arrived) {
    // A replacement takes no room: it is as long as what it replaces.
    if (mCoalescing && Coalesce(message)) {
        return true;
    }
    const bool isPing = IsShortPing(message);
    const bool isWelcome = mMessages.empty() || (isPing && mPings.size() < kMostOvertaking);
    if (!isWelcome && message.size() > Room()) {
        return false;
    }
    mMessages.push_back({{message.begin(), message.end()}, arrived, std::nullopt});
    mBytes += message.size();
    if (isPing) {
        mPings.push_back(EndNumber() - 1);
    }
    if (mCoalescing) {
        NotePlaceOfLast();
    }
    return true;
}

bool PacingQueue::IsShortPing(std::span<const std::uint8_t> message) const {
    return message.size() <= kLongestPing && IsPing(mProtocol, message);
}

// Returns false if the message has to be queued. So has one that is not as long as the one before:
// digits come alone and several in one message.
bool PacingQueue::Coalesce(std::span<const std::uint8_t> message) {
    if (LowHalfPlace(mProtocol, message)) {
        return CoalesceHalves(message);
    }
    const std::optional<ValuePlace> place = PlaceOf(mProtocol, message);
    const auto earlier = place ? mPlaces.find(*place) : mPlaces.end();
    if (earlier == mPlaces.end() || HasLaterOverlap(*place, earlier->second) ||
        At(earlier->second).bytes.size() != message.size()) {
        return false;
    }
    At(earlier->second).bytes.assign(message.begin(), message.end());
    ++mCoalesced;
    return true;
}

// The high half of the fader's position, if it was the last message, makes a pair with this one. A
// pair that waits already takes both over.
bool PacingQueue::CoalesceHalves(std::span<const std::uint8_t> low) {
    const std::optional<ValuePlace> place = LowHalfPlace(mProtocol, low);
    const std::uint64_t high = EndNumber() - 1;
    if (mMessages.empty() || HighHalfPlace(mProtocol, At(high).bytes) != place) {
        return false;
    }
    const auto earlier = mPlaces.find(*place);
    if (earlier == mPlaces.end()) {
        return false;
    }
    At(earlier->second).bytes = At(high).bytes;
    At(earlier->second + 1).bytes.assign(low.begin(), low.end());
    mBytes -= mMessages.back().bytes.size();
    mMessages.pop_back();
    mWaiting = std::min(mWaiting, mMessages.size());
    mCoalesced += 2;
    return true;
}

bool PacingQueue::HasLaterOverlap(const ValuePlace& place, std::uint64_t number) const {
    for (auto other = mPlaces.lower_bound({place.group, 0, 0});
         other != mPlaces.end() && other->first.group == place.group; ++other) {
        if (other->second > number && other->first.Overlaps(place)) {
            return true;
        }
    }
    return false;
}

void PacingQueue::NotePlaceOfLast() {
    const std::span<const std::uint8_t> last = mMessages.back().bytes;
    std::optional<ValuePlace> highBefore;
    if (mMessages.size() > 1) {
        highBefore = HighHalfPlace(mProtocol, mMessages[mMessages.size() - 2].bytes);
    }
    const std::optional<ValuePlace> low = LowHalfPlace(mProtocol, last);
    if (low && low == highBefore) {
        Remember(*low, EndNumber() - 2);
        return;
    }
    // Half a position stands alone. It is later than the pair before it, which must stay behind it
    // in time and so takes over no other pair.
    for (const std::optional<ValuePlace>& alone : {low, highBefore}) {
        if (alone) {
            Forget(*alone);
        }
    }
    if (const std::optional<ValuePlace> place = PlaceOf(mProtocol, last)) {
        Remember(*place, EndNumber() - 1);
    }
}

void PacingQueue::Remember(const ValuePlace& place, std::uint64_t number) {
    Forget(place);
    mPlaces[place] = number;
    At(number).place = place;
}

void PacingQueue::Forget(const ValuePlace& place) {
    const auto entry = mPlaces.find(place);
    if (entry != mPlaces.end()) {
        At(entry->second).place.reset();
        mPlaces.erase(entry);
    }
}

PacingQueue::Front PacingQueue::Next() const {
    const Message& message = mMessages.front();
    const bool isPing = !mPings.empty() && mPings.front() == mFirstNumber;
    return {std::span(message.bytes).subspan(mOffset), message.arrived, isPing};
}

bool PacingQueue::Advance(std::size_t bytes) {
    mBytes -= bytes;
    mOffset += bytes;
    if (mOffset < mMessages.front().bytes.size()) {
        return false;
    }
    mOffset = 0;
    if (!mPings.empty() && mPings.front() == mFirstNumber) {
        mPings.pop_front();
    }
    if (mWaiting > 0) {
        ++mDelayed;
    }
    PopMessage();
    return true;
}

PacingQueue::Front PacingQueue::NextPing() const {
    const Message& ping = At(mPings.front());
    return {ping.bytes, ping.arrived, true};
}

void PacingQueue::TakePing() {
    Message& ping = At(mPings.front());
    mBytes -= ping.bytes.size();
    ping.bytes.clear();
    if (mPings.front() == mFirstNumber) {
        PopMessage();
    } else {
        ++mOvertaken;
    }
    mPings.pop_front();
}

// The places behind it whose pings have overtaken go with it.
void PacingQueue::PopMessage() {
    bool isNextEmpty = false;
    do {
        if (mMessages.front().place) {
            mPlaces.erase(*mMessages.front().place);
        }
        mMessages.pop_front();
        ++mFirstNumber;
        mWaiting -= mWaiting > 0 ? 1 : 0;
        mOvertaken -= isNextEmpty ? 1 : 0;
        isNextEmpty = mOvertaken > 0 && !mMessages.empty() && mMessages.front().bytes.empty();
    } while (isNextEmpty);
}

void PacingQueue::Clear() {
    mFirstNumber += mMessages.size();
    mMessages.clear();
    mPings.clear();
    mPlaces.clear();
    mOvertaken = 0;
    mOffset = 0;
    mBytes = 0;
    mWaiting = 0;
}

} // namespace MidiServer
