// The ready-made command, which runs any callable without arguments, and a registry of well-known
// queues, by which code can queue such commands without holding a queue.
#pragma once

#include "runtime/workqueue/NyWorkQueue.h"

#include <boost/bind/bind.hpp>
#include <boost/function.hpp>
#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>

// The number of a queue in the functions below. 0 and 1 stand for the queue that is registered
// under that number, and 2 stands for the queue that is passed as the last argument. Any other
// number stands for no queue.
using tNyWorkQueueID = int;
constexpr tNyWorkQueueID kGivenWorkQueue = 2;

// A command that calls a function.
//
//     boost::shared_ptr<NyWorkQueue::CCommand> command =
//         boost::make_shared<NyAutoWorkerCommand>([&session] { session.Save(); });
//     NyAutoWorkerCommand::Queue(command, kGivenWorkQueue, &queue);
//
// Any thread may call the queueing functions. They block and allocate as NyWorkQueue::AdoptCommand
// does and return its result. When the number stands for no queue, nothing is queued: the command
// stays with the caller, the handle is left as it is, and the result has no meaning.
class NyAutoWorkerCommand : public NyWorkQueue::CCommand {
public:
    explicit NyAutoWorkerCommand(const boost::function<void()>& f);

    // Calls the function; an empty one throws boost::bad_function_call.
    void Do() override;

    // The registry has the entries 0, 1 and 2 and owns none of the queues. The owner of a queue
    // sets its entry before others use it. Any other number has no entry: getting it gives null,
    // and setting it does nothing. Any thread may call both.
    static void SetWorkQueue(tNyWorkQueueID id, NyWorkQueue* queue);
    static NyWorkQueue* GetWorkQueue(tNyWorkQueueID id);

    static int Queue(boost::shared_ptr<NyWorkQueue::CCommand>& cmd, tNyWorkQueueID id,
                     NyWorkQueue* queue);
    static int QueueGetHandle(boost::shared_ptr<NyWorkQueue::CCommand>& cmd, int& handle,
                              tNyWorkQueueID id, NyWorkQueue* queue);
    // These two register `funcs` on the command first, even when nothing is queued then. They do
    // nothing for an empty `cmd`.
    static int QueueWithHelper(boost::shared_ptr<NyWorkQueue::CCommand>& cmd,
                               const boost::shared_ptr<NyWorkQueueHelper>& funcs, tNyWorkQueueID id,
                               NyWorkQueue* queue);
    static int QueueWithHelperAndGetHandle(boost::shared_ptr<NyWorkQueue::CCommand>& cmd,
                                           const boost::shared_ptr<NyWorkQueueHelper>& funcs,
                                           int& handle, tNyWorkQueueID id, NyWorkQueue* queue);

    // Queues a call of `method` on `object`, which must live until the call has been made.
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
