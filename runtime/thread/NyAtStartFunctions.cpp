#include "runtime/thread/NyAtStartFunctions.h"

#include <bit>
#include <mutex>

namespace {

// The platform's mutex itself: it needs no destructor.
class Lockable {
public:
    explicit Lockable(pthread_mutex_t& mutex) : mMutex(mutex) {}
    void lock() { pthread_mutex_lock(&mMutex); }
    void unlock() { pthread_mutex_unlock(&mMutex); }

private:
    pthread_mutex_t& mMutex;
};

} // namespace

NyAtStartFunctions::Place::Place(std::size_t index)
    : mSegment(std::bit_width(index / kInPlace) - 1U),
      mSegmentSize(kInPlace << mSegment),
      mIndex(index - mSegmentSize) {}

void NyAtStartFunctions::Append(Function function) {
    Lockable lockable(mAppending);
    const std::lock_guard guard(lockable);
    const std::size_t size = mSize.load(std::memory_order_relaxed);
    if (size < kInPlace) {
        mFirst[size] = function;
    } else {
        const Place place(size);
        Function*& segment = mSegments[place.mSegment];
        if (segment == nullptr) {
            segment = new Function[place.mSegmentSize];
        }
        segment[place.mIndex] = function;
    }
    mSize.store(size + 1, std::memory_order_release);
}

NyAtStartFunctions::Function NyAtStartFunctions::At(std::size_t index) const {
    if (index < kInPlace) {
        return mFirst[index];
    }
    const Place place(index);
    return mSegments[place.mSegment][place.mIndex];
}
