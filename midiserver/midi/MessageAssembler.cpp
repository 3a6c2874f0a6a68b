#include "midiserver/midi/MessageAssembler.h"

#include "midiserver/midi/MidiMessage.h"

namespace MidiServer {

namespace {

// Room that is kept from one message to the next.
constexpr std::size_t kKeptCapacity = 4096;

} // namespace

void MessageAssembler::Add(std::span<const std::uint8_t> bytes, const Take& take) {
    for (const std::uint8_t& byte : bytes) {
        if (IsRealTime(byte)) {
            take({&byte, 1});
        } else if (IsDataByte(byte)) {
            AddData(byte, take);
        } else {
            AddStatus(byte, take);
        }
    }
}

void MessageAssembler::AddStatus(std::uint8_t status, const Take& take) {
    if (status != kEndOfExclusive) {
        DropPending();
        Begin(status);
        if (mLength == 1U) {
            Finish(take);
        }
        return;
    }
    mRunningStatus = 0;
    if (!mMessage.empty() && !mLength) {
        mMessage.push_back(status);
        Finish(take);
        return;
    }
    DropPending();
    if (!mPassingOver) {
        ++mDropped.malformed;
    }
    mPassingOver = false;
}

void MessageAssembler::AddData(std::uint8_t data, const Take& take) {
    if (mMessage.empty()) {
        if (mRunningStatus == 0) {
            if (!mPassingOver) {
                ++mDropped.malformed;
                mPassingOver = true;
            }
            return;
        }
        Begin(mRunningStatus);
    }
    mMessage.push_back(data);
    if (mMessage.size() == mLength) {
        Finish(take);
    } else if (mMessage.size() == kLongestMessage) {
        // Its end byte would make it longer.
        ++mDropped.tooLong;
        mMessage = {};
        mPassingOver = true;
    }
}

void MessageAssembler::NoteLoss() {
    mPassingOver = true;
    DropPending();
    mRunningStatus = 0;
}

void MessageAssembler::Begin(std::uint8_t status) {
    mPassingOver = false;
    mRunningStatus = status < kStartOfExclusive ? status : 0;
    mLength = MidiMessageLength(status);
    mMessage.assign(1, status);
}

void MessageAssembler::DropPending() {
    if (!mMessage.empty()) {
        ++mDropped.incomplete;
        mMessage.clear();
    }
}

void MessageAssembler::Finish(const Take& take) {
    take(mMessage);
    mMessage.clear();
    if (mMessage.capacity() > kKeptCapacity) {
        mMessage = {};
    }
}

} // namespace MidiServer
