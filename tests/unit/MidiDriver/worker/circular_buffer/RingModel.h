#pragma once

#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

// What a ring does, told in slots and single elements instead of bytes and runs: the reference for
// the random test. It is written from the rules alone and as plainly as they are.
class RingModel {
public:
    using Element = std::vector<unsigned char>;

    struct Outcome {
        unsigned int result = 0;
        int count = 0;
        std::vector<Element> elements = {};
    };

    RingModel(int elemSize, int capacity, unsigned char unwritten)
        : mElemSize(elemSize),
          mLast(capacity),
          mSlots(static_cast<std::size_t>(capacity) + 1,
                 Element(static_cast<std::size_t>(elemSize), unwritten)) {}

    // The slots ahead of the first one, the last of them next to it.
    void SetAhead(std::vector<Element> ahead) { mAhead = std::move(ahead); }

    int ReadSlot() const { return mRead; }
    int WriteSlot() const { return mWrite; }
    unsigned int FirstError() const { return mFirstError; }
    unsigned int LastError() const { return mLastError; }
    const std::vector<Element>& Slots() const { return mSlots; }

    void SetHasCopyFunc(bool has) { mHasCopyFunc = has; }
    void SetRecordsOverflow(bool records) { mRecordsOverflow = records; }

    bool IsFull() const { return mWrite == mRead - 1 || (mWrite == mLast && mRead == 0); }

    int Used() const {
        int used = 0;
        for (int slot = mRead; slot != mWrite; slot = Next(slot)) {
            ++used;
        }
        return used;
    }

    unsigned int ClearErrors() {
        const unsigned int first = mFirstError;
        mFirstError = mLastError = 0;
        return first;
    }

    Outcome Write(const std::vector<Element>& offered) {
        if (IsFull()) {
            Overflow();
            return {mLastError, 0};
        }
        const bool inBlocks =
            mHasCopyFunc && offered.size() * static_cast<std::size_t>(mElemSize) > 32;
        // In blocks an overflow is noticed only behind the wrap. With the oldest element in slot 0
        // there is no wrap: the write ends in front of the last slot. With one ahead of slot 0
        // there is none either: it ends behind the last slot.
        const bool noticed = !inBlocks || mRead != 0;
        int stored = 0;
        for (const Element& element : offered) {
            if (IsFull()) {
                if (noticed) {
                    Overflow();
                }
                break;
            }
            mSlots[static_cast<std::size_t>(mWrite)] = element;
            mWrite = Next(mWrite);
            ++stored;
            if (inBlocks && mRead < 0 && mWrite == 0) {
                break;
            }
        }
        return {mLastError, stored};
    }

    Outcome ReadAt(unsigned int index, int count, bool consume) {
        if (mRead == mWrite) {
            return {mLastError, 0};
        }
        int slot = mRead;
        if (index > 0) {
            if (static_cast<unsigned int>(Used()) < index) {
                Record(3);
                return {3, count};
            }
            slot += static_cast<int>(index);
            if (slot > mLast) {
                slot = 0 - (slot - mLast);
            }
        }
        Outcome outcome;
        while (outcome.count < count && slot != mWrite) {
            outcome.elements.push_back(slot < 0
                                           ? mAhead[mAhead.size() - static_cast<std::size_t>(-slot)]
                                           : mSlots[static_cast<std::size_t>(slot)]);
            ++outcome.count;
            slot = Next(slot);
        }
        if (consume) {
            mRead = slot;
        }
        outcome.result = mLastError;
        return outcome;
    }

    Outcome Remove(int count) {
        if (mRead == mWrite) {
            return {mLastError, 0};
        }
        std::int64_t slot = std::int64_t{mRead} + count;
        if (slot > mLast) {
            slot -= mLast;
        }
        if (slot > mWrite) {
            slot = mWrite;
        }
        // A negative count gets no further ahead than the position is.
        mRead = static_cast<int>(std::max<std::int64_t>(slot, std::min(mRead, 0)));
        return {mLastError, count};
    }

private:
    int Next(int slot) const { return slot == mLast ? 0 : slot + 1; }

    void Record(unsigned int error) {
        mLastError = error;
        if (mFirstError == 0) {
            mFirstError = error;
        }
    }

    void Overflow() {
        if (mRecordsOverflow) {
            Record(2);
        }
    }

    int mElemSize;
    int mLast;
    std::vector<Element> mSlots;
    std::vector<Element> mAhead;
    int mRead = 0;
    int mWrite = 0;
    bool mHasCopyFunc = false;
    bool mRecordsOverflow = true;
    unsigned int mFirstError = 0;
    unsigned int mLastError = 0;
};
