#pragma once

#include <boost/function.hpp>

// A pair of functions that a command calls with its handle. The first is called when the command is
// queued, by the adopting thread and under the queue's lock. The second is called after the command
// has run, by the consumer and without the lock. Either may be empty. The pair is a plain value; it
// must not change while a command copies it.
//
//     command->RegisterHelperFuncs(boost::make_shared<NyWorkQueueHelper>(
//         boost::function<void(int)>(), [](int handle) { ShowAsDone(handle); }));
class NyWorkQueueHelper {
public:
    NyWorkQueueHelper() = default;
    NyWorkQueueHelper(const boost::function<void(int)>& queued,
                      const boost::function<void(int)>& done)
        : mQueuedFunc(queued), mDoneFunc(done) {}

    boost::function<void(int)> mQueuedFunc;
    boost::function<void(int)> mDoneFunc;
};
