// The ready-made command, which runs any callable without arguments, and the registry of well-known
// queues that such commands can be queued on without holding a queue.
#pragma once

#include <boost/bind/bind.hpp>
#include <boost/function.hpp>
#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>

#include "runtime/workqueue/NyWorkQueue.h"

// 0 and 1 stand for the queue registered under that number, 2 for the queue given as the last
// argument. Nothing is queued on any other.
using tNyWorkQueueID = int;
constexpr tNyWorkQueueID kGivenWorkQueue = 2;

// Queueing functions: any thread; they block and allocate as NyWorkQueue::AdoptCommand does and
// return its result. Where nothing is queued, because the number stands for no queue, the command
// stays with the caller, the handle is left as it is and the result has no meaning.
class NyAutoWorkerCommand : public NyWorkQueue::CCommand {
public:
    explicit NyAutoWorkerCommand(const boost::function<void()>& f);

    // Calls the function; an empty one throws boost::bad_function_call.
    void Do() override;

    // The registry never owns a queue. Entries are set by their owners before others use them; a
    // number that is not 0 to 2 has no entry: null, and setting it does nothing.
    static void SetWorkQueue(tNyWorkQueueID id, NyWorkQueue* queue);
    static NyWorkQueue* GetWorkQueue(tNyWorkQueueID id);

    static int Queue(boost::shared_ptr<NyWorkQueue::CCommand>& cmd, tNyWorkQueueID id,
                     NyWorkQueue* queue);
    static int QueueGetHandle(boost::shared_ptr<NyWorkQueue::CCommand>& cmd, int& handle,
                              tNyWorkQueueID id, NyWorkQueue* queue);
    // The functions are registered on the command even when nothing is queued. An empty `cmd` is
    // left alone.
    static int QueueWithHelper(boost::shared_ptr<NyWorkQueue::CCommand>& cmd,
                               const boost::shared_ptr<NyWorkQueueHelper>& funcs, tNyWorkQueueID id,
                               NyWorkQueue* queue);
    static int QueueWithHelperAndGetHandle(boost::shared_ptr<NyWorkQueue::CCommand>& cmd,
                                           const boost::shared_ptr<NyWorkQueueHelper>& funcs,
                                           int& handle, tNyWorkQueueID id, NyWorkQueue* queue);

    // Queues a call of `method` on `object`, which must live until it has run.
    template <typename T>
    static int QueueGetHandle(void (T::*method)(), T* object, int& handle, tNyWorkQueueID id,
                              NyWorkQueue* queue) {
        const boost::function<void()> call = boost::bind(method, object);
        boost::shared_ptr<NyWorkQueue::CCommand> command =
            boost::make_shared<NyAutoWorkerCommand>(call);
        return QueueGetHandle(command, handle, id, queue);
    }

private:
    boost::function<void()> mFunction;
};
