#pragma once

#include "runtime/sync/NyEvent.h"
#include "runtime/sync/NyLock.h"
#include "runtime/sync/NySemaphore.h"
#include "runtime/sync/NyThreadLocal.h"
#include "runtime/time/NyTime.h"

#include <boost/enable_shared_from_this.hpp>
#include <boost/function.hpp>
#include <boost/shared_ptr.hpp>

#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <deque>
#include <string>

class NyWorkQueueHelper;

// A work queue is a first-in, first-out queue of commands that one thread, the consumer, executes
// in order.
//
// The queue starts no thread: its owner supplies the consumer. In kThreadMode that is a thread that
// calls ProcessCommands until it returns kQueueStopped. In kCallbackMode it is whoever calls
// ProcessCommands after the queue's callback has said that there is something to do. The owner
// stops the queue and ends the consumer before it destroys the queue; commands that are still
// pending are then released without being done (see Stop).
//
//     NyWorkQueue queue("control", {}, NyWorkQueue::kThreadMode);
//     std::thread consumer([&queue] {
//         while (queue.ProcessCommands() != NyWorkQueue::kQueueStopped) {
//         }
//     });
//     boost::shared_ptr<NyWorkQueue::CCommand> command =
//         boost::make_shared<NyAutoWorkerCommand>([] { Save(); });
//     queue.AdoptCommand(command, false);
//     queue.Stop(NyWorkQueue::kStopAfterPending, true); // runs what is pending
//     consumer.join();
//
// Any thread may adopt, wait, cancel, pause, resume and stop. One recursive lock guards the queue's
// fields and the counters of its commands; the queue releases it while a command runs and while a
// caller waits. What a thread did before it adopted a command is visible to the command. What the
// command did is visible to every thread that waited for it.
//
//   | operation       | what it waits for                             | what it allocates       |
//   |-----------------|-----------------------------------------------|-------------------------|
//   | AdoptCommand    | the lock                                      | a place in the queue    |
//   | WaitOnCommand   | the command, up to the time-out               | an event, if it waits   |
//   | CancelCommand   | as WaitOnCommand                              | as WaitOnCommand        |
//   | ProcessCommands | in kThreadMode, a command to run              | its record, once        |
//   | Pause           | the lock                                      | a command (kPauseQueued)|
//   | Resume          | a queued pause to take effect                 | as WaitOnCommand        |
//   | Stop            | with `wait`, the commands that are pending    | a command               |
//
// The queue has no limit of its own: it holds whatever is adopted until it is executed.
class NyWorkQueue {
public:
    class CCommand;

    enum tQueueMode : int {
        kCallbackMode = 0, // adopting calls the callback; the owner calls ProcessCommands
        kThreadMode = 1,   // adopting raises a semaphore; a thread blocks in ProcessCommands
    };
    enum tWaitMode : int {
        kNoWait = 0,             // return at once
        kWaitUnlessCanceled = 1, // do not wait for a cancelled command that is not running
        kWait = 2,               // wait for the command to be done
    };
    enum tPauseAdverb : int {
        kPauseQueued = 0, // pause after the commands that are queued already
        kPauseNow = 1,    // pause before the next batch
    };
    enum tStopAdverb : int {
        kStopAfterPending = 0,
        kStopNow = 1, // drop the pending commands without their being done
    };
    enum tResult : int {
        kQueueOK = 0, // success; also: waited, or there was nothing to wait for
        kPauseAlreadyQueued = 1,
        kNoSuchCommand = 2,
        kNullCommand = 3,
        kCommandAlreadyDone = 4,
        kQueueStopped = 6,
    };

    // `callback` is called in kCallbackMode only and may be empty.
    NyWorkQueue(const char* name, const boost::function<void(NyWorkQueue*)>& callback,
                tQueueMode mode);
    virtual ~NyWorkQueue();
    NyWorkQueue(const NyWorkQueue&) = delete;
    NyWorkQueue& operator=(const NyWorkQueue&) = delete;

    // Queues a command and gives it a handle, which counts 0, 1, 2, ... in the order of adoption.
    // With `last` the queue takes no command after this one. A queue that takes no more commands
    // sets the handle to -1 and empties `cmd`. Returns 0 in every case. An empty `cmd` is a
    // programming error and aborts the process.
    //
    // The callback and the command's queued function run within the call, under the queue's lock.
    int AdoptCommand(boost::shared_ptr<CCommand>& cmd, int& handle, bool last);
    int AdoptCommand(boost::shared_ptr<CCommand>& cmd, bool last);

    // Adopts a command again; a command calls this from its own Do to run once more. Throws
    // boost::bad_weak_ptr if no boost::shared_ptr owns the command.
    int RequeueCommand(CCommand* cmd, int& handle, bool last);
    int RequeueCommand(CCommand* cmd, bool last);

    // Waits until the command with that handle is done. `timeout` is an interval; null means that
    // the wait has no limit. Returns 0 for an unknown handle, for a wait that ended by signal or by
    // time-out, and where `mode` says not to wait. Returns kCommandAlreadyDone for a command that
    // was done before and is queued again.
    int WaitOnCommand(int handle, NyTime* timeout, tWaitMode mode);

    // Cancels the command with that handle: its Do does not run if it has not begun. If the command
    // is still queued, it is done at once, and all its waiters are released. CanCancel is not
    // asked. Then waits as WaitOnCommand does and returns its result. As a queued command is done
    // by then, that result is kCommandAlreadyDone for it, unless `mode` says not to wait. Returns
    // kNoSuchCommand for an unknown handle.
    int CancelCommand(int handle, NyTime* timeout, tWaitMode mode);

    // Runs the pending commands, one batch, on the calling thread. Returns 0, or kQueueStopped when
    // the queue is stopped or has just become so. In kThreadMode every adopted command accounts for
    // one call that does not block, and a call runs all commands that it finds; so some calls find
    // nothing to do.
    //
    // An exception that a command throws passes through. The command then counts as done, the
    // commands behind it stay pending, and the next call runs them.
    int ProcessCommands();

    // kPauseNow lets the batch that is running finish. Returns kPauseAlreadyQueued, and does
    // nothing, if an earlier queued pause has not been ended by Resume.
    int Pause(tPauseAdverb adverb);

    // Waits until a queued pause has taken effect, then lets the queue run. Returns the result of
    // that wait, or 0. The consumer must not call this while its own pause is queued.
    int Resume();

    // Closes the queue and has a terminating command stop it. Returns 0.
    //
    // With kStopAfterPending and without `wait`, the pending commands are dropped, and the
    // terminating command among them unless the consumer was quicker. That is intended, for owners
    // that only want the queue closed: if the terminating command was dropped, nothing stops the
    // queue any more. ProcessCommands then never returns kQueueStopped, and a consumer in
    // kThreadMode waits in it for ever and cannot be joined.
    //
    // A consumer that calls this with `wait` runs the pending commands itself. In kThreadMode that
    // waits for the semaphore first, so something must be pending.
    //
    // A command that is dropped, here or by the destructor, is not done, and its adoption stays
    // counted. If another queue adopts it and runs it, it is not done there either, and a thread
    // that waits for it without a limit waits for ever.
    virtual int Stop(tStopAdverb adverb, bool wait);

    // The consumer thread: the one that called ProcessCommands first; zero until then.
    pthread_t GetWorkThreadID();

    // Takes the next handle. The counter wraps; while it is negative every handle is 0.
    int getNextCommandSerialNumber();

    // Clears the current command of the calling thread, which is the main thread, and has it
    // cleared at the start of every later NyThread. Each call adds to NyThread::mAtStartFunctions
    // again, because NyInit may be called more than once; threads then clear it several times,
    // which makes no difference to them. Throws std::bad_alloc.
    static void Initialize();

    // Clears the calling thread's current command.
    static void InitTLS();

    // The command whose Do runs on the calling thread; null if there is none.
    static CCommand* GetCurrentCommand() { return mstlsCurCommand.Get(); }

private:
    // Needs the lock. Takes the next handle.
    int TakeSerialNumber();
    // Needs the lock. Finds a command by its handle, first among the pending ones; `pending` says
    // whether it was there. Null when neither a pending nor the running command has the handle.
    boost::shared_ptr<CCommand> FindCommand(int handle, bool& pending) const;
    // Needs the lock, held by `guard`, and releases it before it blocks.
    int waitOnCommand(NyLockGuard& guard, const boost::shared_ptr<CCommand>& cmd, NyTime* timeout,
                      tWaitMode mode);
    // Does what Pause(kPauseNow) does. It is the body of a queued pause.
    void pause();

    // The following run on the consumer. BeginConsuming records it and makes its record.
    void BeginConsuming();
    // Runs a command and finishes it, whether it returns or throws. Called without the lock;
    // afterwards `guard` holds it.
    void RunCommand(NyLockGuard& guard, CCommand& command);
    void DoCommand(CCommand& command);
    void FinishCommand(NyLockGuard& guard, CCommand& command);

    // `mLock` guards the fields, with these exceptions: the semaphore and the event are safe by
    // themselves, `mName`, `mQueueMode` and `mCallback` never change, and `mStopped` and
    // `mThreadExtension` are touched by the consumer alone.
    NySemaphore mCommandSemaphore; // in kThreadMode raised once for each adopted command
    std::int32_t mAccepting = 1;
    std::int32_t mStopped = 0; // a terminating command has run
    std::int32_t mPaused =
        0; // in kCallbackMode; in kThreadMode `mResumeEvent` holds the consumer back
    std::string mName;
    tQueueMode mQueueMode;
    boost::function<void(NyWorkQueue*)> mCallback;

protected:
    std::int32_t mNextSerialNumber = 0;

private:
    std::int32_t mPauseHandle =
        -1; // the handle of a queued pause until Resume; -1 when there is none
    boost::shared_ptr<CCommand> mCurrentCommand; // the command that runs; null between commands
    NyEvent mResumeEvent;
    std::deque<boost::shared_ptr<CCommand>> mCommands; // the pending commands, the next one first
    pthread_t mWorkThreadID{};
    NyLock mLock;
    void* mThreadExtension = nullptr; // the consumer's record, see WorkerThreadExtension.h

    static NyThreadLocal<CCommand*> mstlsCurCommand;
};

// A command is one piece of work for a queue. A boost::shared_ptr must own it before it is queued.
//
// A command may be queued again before it has run, in the same queue; it is then done when the last
// pending adoption has run. An adoption that a queue dropped at its end stays pending in this
// sense: such a command is never done.
//
//     class SaveCommand : public NyWorkQueue::CCommand {
//     public:
//         SaveCommand() : CCommand(false) {}
//         void Do() override { Save(); }
//     };
class NyWorkQueue::CCommand : public boost::enable_shared_from_this<CCommand> {
public:
    // A command with `stopsQueue` stops the queue once it has run.
    explicit CCommand(bool stopsQueue);
    virtual ~CCommand();
    CCommand(const CCommand&) = delete;
    CCommand& operator=(const CCommand&) = delete;

    // The work. Called on the consumer thread, without the queue's lock.
    virtual void Do() = 0;
    // Whether the command can be cancelled, for those who ask; the queue does not.
    virtual bool CanCancel() { return false; }
    // Any thread may call both of these. Neither blocks.
    virtual bool wasCanceled() { return mCanceled.load(std::memory_order_relaxed) != 0; }
    virtual void cancel() { mCanceled.store(1, std::memory_order_relaxed); }

    // Copies the functions of a helper; an empty pointer changes nothing. To be called before the
    // command is queued.
    void RegisterHelperFuncs(const boost::shared_ptr<NyWorkQueueHelper>& funcs);

private:
    friend class NyWorkQueue;

    // Both need the queue's lock. done() releases all waiters, now and for ever.
    void done();
    // The event that done() signals; null when the command is done.
    boost::shared_ptr<NyEvent> GetDoneEvent();

    // Relaxed: the flag orders nothing. It is open anyway whether a command that is just starting
    // still sees it.
    std::atomic<std::int32_t> mCanceled{0};
    const std::int32_t mStopsQueue;
    // The handle of the last adoption. It is written under the queue's lock, and the consumer reads
    // it without the lock for the done function. Relaxed: the handle orders nothing.
    std::atomic<std::int32_t> mHandle{-1};
    // Made when the first waiter asks for it, as few commands are waited for and making an event
    // costs several times as much as all the rest of a command's way through the queue. Released
    // when the command is done. Under the queue's lock, like the next field.
    boost::shared_ptr<NyEvent> mDoneEvent;
    // The adoptions that have not run yet, including those that were dropped.
    std::int32_t mQueuedCount = 0;
    // Both functions are set before the command is queued.
    boost::function<void(int)> mQueuedFunc;
    boost::function<void(int)> mDoneFunc;
    // Whether done() was called. Under the queue's lock.
    bool mIsDone = false;
};
