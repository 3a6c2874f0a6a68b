#pragma once

#include <boost/function.hpp>

// A pair of functions that a command calls with its handle: when it is queued (by the adopting
// thread, under the queue's lock) and after it has run (by the consumer, without the lock). Either
// may be empty. A plain value; not to be changed while a command copies it.
class NyWorkQueueHelper {
public:
    NyWorkQueueHelper() = default;
    NyWorkQueueHelper(const boost::function<void(int)>& queued,
                      const boost::function<void(int)>& done)
        : mQueuedFunc(queued), mDoneFunc(done) {}

    boost::function<void(int)> mQueuedFunc;
    boost::function<void(int)> mDoneFunc;
};
