#include "midiserver/midi/EventSplitter.h"

#include "midiserver/midi/MidiMessage.h"

#include <algorithm>

namespace MidiServer {

void EventSplitter::Split(std::span<const std::uint8_t> bytes, const Visit& visit) {
    while (!bytes.empty()) {
        const std::uint8_t first = bytes.front();
        if (IsRealTime(first)) {
            visit(bytes.first(1));
            bytes = bytes.subspan(1);
            continue;
        }
        if (first == kStartOfExclusive || (mInSystemExclusive && ContinuesExclusive(bytes))) {
            // One piece for all that lies together.
            mInSystemExclusive = first != kEndOfExclusive;
            mRunningStatus = 0;
            mFilled = 0;
            auto end = bytes.begin() + 1;
            if (mInSystemExclusive) {
                end = std::find_if_not(end, bytes.end(), IsDataByte);
                if (end != bytes.end() && *end == kEndOfExclusive) {
                    mInSystemExclusive = false;
                    ++end;
                }
            }
            const auto size = static_cast<std::size_t>(end - bytes.begin());
            visit(bytes.first(size));
            bytes = bytes.subspan(size);
            continue;
        }
        if (IsDataByte(first)) {
            TakeData(first, visit);
        } else {
            TakeStatus(first, visit);
        }
        bytes = bytes.subspan(1);
    }
}

void EventSplitter::TakeStatus(std::uint8_t status, const Visit& visit) {
    mInSystemExclusive = false; // one that was not ended
    mFilled = 0;
    mRunningStatus = 0;
    if (status == kEndOfExclusive) {
        return; // ends nothing
    }
    mMessage[0] = status;
    mLength = MidiMessageLength(status).value_or(1);
    if (status < kStartOfExclusive) {
        mRunningStatus = status;
    }
    if (mLength == 1) {
        visit(std::span(mMessage).first(1));
    } else {
        mFilled = 1;
    }
}

void EventSplitter::TakeData(std::uint8_t data, const Visit& visit) {
    if (mFilled == 0) {
        if (mRunningStatus == 0) {
            return;
        }
        mMessage[0] = mRunningStatus;
        mLength = MidiMessageLength(mRunningStatus).value_or(1);
        mFilled = 1;
    }
    mMessage[mFilled++] = data;
    if (mFilled == mLength) {
        mFilled = 0;
        visit(std::span(mMessage).first(mLength));
    }
}

} // namespace MidiServer
