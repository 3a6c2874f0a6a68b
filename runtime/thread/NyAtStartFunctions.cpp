#include "runtime/thread/NyAtStartFunctions.h"

#include <mutex>

namespace {

// The platform's mutex itself, because it needs no destructor.
class Lockable {
public:
    explicit Lockable(pthread_mutex_t& mutex) : mMutex(mutex) {}
    void lock() { pthread_mutex_lock(&mMutex); }
    void unlock() { pthread_mutex_unlock(&mMutex); }

private:
    pthread_mutex_t& mMutex;
};

} // namespace

void NyAtStartFunctions::Append(Function function) {
    Lockable lockable(mAppending);
    const std::lock_guard guard(lockable);
    const std::size_t size = mSize.load(std::memory_order_relaxed);
    Segment* segment = &mFirst;
    std::size_t place = size;
    for (; place >= segment->mFunctions.size(); place -= segment->mFunctions.size()) {
        if (segment->mNext == nullptr) {
            segment->mNext = new Segment;
        }
        segment = segment->mNext;
    }
    segment->mFunctions[place] = function;
    mSize.store(size + 1, std::memory_order_release);
}

NyAtStartFunctions::Function NyAtStartFunctions::At(std::size_t index) const {
    const Segment* segment = &mFirst;
    for (; index >= segment->mFunctions.size(); index -= segment->mFunctions.size()) {
        segment = segment->mNext;
    }
    return segment->mFunctions[index];
}
