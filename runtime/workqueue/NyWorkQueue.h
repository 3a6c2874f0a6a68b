#pragma once

#include <pthread.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>

#include <boost/enable_shared_from_this.hpp>
#include <boost/function.hpp>
#include <boost/shared_ptr.hpp>

#include "runtime/sync/NyEvent.h"
#include "runtime/sync/NyLock.h"
#include "runtime/sync/NySemaphore.h"
#include "runtime/sync/NyThreadLocal.h"
#include "runtime/time/NyTime.h"

class NyWorkQueueHelper;

// A first-in, first-out queue of commands that one consumer thread executes in order.
//
// The owner supplies the consumer: in kThreadMode a thread that calls ProcessCommands until it
// returns kQueueStopped; in kCallbackMode whoever the callback tells to call it. The owner stops
// the queue and ends the consumer before it destroys the queue; pending commands are then released
// without being done (see Stop).
//
// Any thread may adopt, wait, cancel, pause, resume and stop. The queue's one recursive lock guards
// its fields and the commands' counters; it is released while a command runs and while a caller
// waits. What a thread did before it adopted a command is visible to the command; what the command
// did is visible to whoever waited for it.
//
//   | operation       | blocks                                    | allocates           |
//   |-----------------|-------------------------------------------|---------------------|
//   | AdoptCommand    | for the lock                              | a place in the queue|
//   | WaitOnCommand   | for the command, up to the time-out       | no                  |
//   | CancelCommand   | as WaitOnCommand                          | no                  |
//   | ProcessCommands | in kThreadMode, until there is something  | its record, once    |
//   | Pause           | for the lock                              | kPauseQueued: a command |
//   | Resume          | for a queued pause to take effect         | no                  |
//   | Stop            | if `wait`, for the pending commands       | a command           |
//
// The queue has no limit of its own: it holds what is adopted until it is executed.
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
        kPauseQueued = 0, // behind the commands that are queued already
        kPauseNow = 1,    // before the next batch
    };
    enum tStopAdverb : int {
        kStopAfterPending = 0,
        kStopNow = 1, // pending commands are dropped without being done
    };
    enum tResult : int {
        kQueueOK = 0, // also: waited, or nothing to wait for
        kPauseAlreadyQueued = 1,
        kNoSuchCommand = 2,
        kNullCommand = 3,
        kCommandAlreadyDone = 4,
        kQueueStopped = 6,
    };

    NyWorkQueue(const char* name, const boost::function<void(NyWorkQueue*)>& callback,
                tQueueMode mode);
    virtual ~NyWorkQueue();
    NyWorkQueue(const NyWorkQueue&) = delete;
    NyWorkQueue& operator=(const NyWorkQueue&) = delete;

    // Queues a command and gives its handle: 0, 1, 2, ... in the order of adoption. `last` closes
    // the queue behind it. A closed queue gives the handle -1 and empties `cmd`. Returns 0. An
    // empty `cmd` is a programming error and aborts.
    //
    // The callback and the command's queued function run within the call, under the queue's lock.
    int AdoptCommand(boost::shared_ptr<CCommand>& cmd, int& handle, bool last);
    int AdoptCommand(boost::shared_ptr<CCommand>& cmd, bool last);

    // Adopts a command again, typically from its own Do. The command must be owned by a
    // boost::shared_ptr; throws boost::bad_weak_ptr otherwise.
    int RequeueCommand(CCommand* cmd, int& handle, bool last);
    int RequeueCommand(CCommand* cmd, bool last);

    // Waits for the command with that handle, up to an interval or, with null, without limit.
    // Returns 0 for an unknown handle, for a wait that ended by signal or time-out, and where
    // `mode` says not to wait; kCommandAlreadyDone when there is nothing to wait for any more.
    int WaitOnCommand(int handle, NyTime* timeout, tWaitMode mode);

    // Cancels the command with that handle: its Do does not run if it has not begun, and whoever
    // waits for it is released at once if it is still queued. CanCancel is not consulted. Then
    // waits as WaitOnCommand does; for a command that was still queued there is nothing left to
    // wait for, which gives kCommandAlreadyDone unless `mode` keeps it from looking.
    // kNoSuchCommand for an unknown handle.
    int CancelCommand(int handle, NyTime* timeout, tWaitMode mode);

    // Runs pending commands on the calling thread. Returns 0, or kQueueStopped when the queue is or
    // has just become stopped. An exception from a command passes through; the command then counts
    // as done and the queue can go on.
    int ProcessCommands();

    // kPauseNow lets the batch that is running finish. kPauseAlreadyQueued when a queued pause
    // waits for its Resume.
    int Pause(tPauseAdverb adverb);

    // Waits for a queued pause to have taken effect, then lets the queue run. Not to be called by
    // the consumer while its own pause is queued. Returns the result of that wait, or 0.
    int Resume();

    // Closes the queue and has a terminating command stop it. Returns 0.
    //
    // With kStopAfterPending and without `wait` the pending commands are dropped, the terminating
    // one among them unless the consumer was quicker: intended. If it was not, nothing stops the
    // queue any more, as it takes no further command: ProcessCommands never returns kQueueStopped,
    // and a consumer in kThreadMode waits in it for ever and cannot be joined. So use this only
    // where the consumer needs no such end. A consumer that calls this with `wait` runs the pending
    // commands itself; in kThreadMode that waits for the semaphore first, so something must be
    // pending.
    //
    // A command that is dropped, here or by the destructor, is not done, and its adoption stays
    // counted: adopted by another queue and run there, it is not done either, and who waits for it
    // without a limit waits for ever.
    virtual int Stop(tStopAdverb adverb, bool wait);

    // The consumer thread; zero until it first called ProcessCommands.
    pthread_t GetWorkThreadID();

    // Takes the next handle. The counter wraps; while it is negative every handle is 0.
    int getNextCommandSerialNumber();

    // Clears the calling (main) thread's current command and has it cleared at the start of every
    // later NyThread. Each call adds to NyThread::mAtStartFunctions anew, as intended; threads then
    // clear it several times over, which makes no difference to them. Throws std::bad_alloc.
    static void Initialize();

    // Clears the calling thread's current command.
    static void InitTLS();

    // The command whose Do runs on the calling thread, null otherwise.
    static CCommand* GetCurrentCommand() { return mstlsCurCommand.Get(); }

private:
    // Under the lock: has the consumer give back what it has not begun of its batch, so that all
    // pending commands are in `mCommands`, and go by the lock for the command it runs, which is
    // `mCurrentCommand`.
    void Recall();
    // Under the lock: releases all pending commands.
    void DropPending();
    // Finds a command by its handle, pending or running; empty when there is none. Under the lock,
    // after Recall.
    boost::shared_ptr<CCommand> FindCommand(int handle, bool& pending) const;
    int waitOnCommand(NyLockGuard& guard, const boost::shared_ptr<CCommand>& cmd, NyTime* timeout,
                      tWaitMode mode);
    // Does what Pause(kPauseNow) does; the body of a queued pause.
    void pause();
    // Runs pending commands until there are none, in batches that it takes over.
    void RunBatches();
    // Takes all pending commands over. False when there are none.
    bool TakeBatch();
    void LeaveLockToAdopters() const;
    void RunBatch();
    // Takes the command at `place` of the batch, which has run, out of it without the lock. False,
    // with nothing done, when that takes the lock: somebody waits for it, or the batch was
    // recalled.
    bool TryRetire(std::size_t place);
    // Does so under the lock. `goOn`: whether the commands behind it may still run.
    void Retire(std::size_t place, bool goOn);
    // The same as RunBatches, command by command under the lock, which it releases meanwhile.
    void RunOneByOne();
    void RunUnlocked(CCommand& command);
    // Under the lock.
    void FinishCommand(CCommand& command);
    // Records the consumer and makes its record, on the consumer's first call.
    void BeginConsuming();
    // In kThreadMode: takes the unit of one adopted command; blocks until there is one.
    void TakeUnit();
    bool TryTakeUnit();
    // Under the lock.
    int TakeSerialNumber();

    // The fields lie apart by who writes them how often, so that adopters and the consumer do not
    // pull at one cache line while neither waits for the other.
    static constexpr std::size_t kApart = 64;

    // Seldom written.
    NySemaphore mCommandSemaphore;
    // Set under the lock; released there, as the consumer also reads it without.
    std::atomic<bool> mStopped{false};
    // Whether there are pending commands: written under the lock, where it changes, and a hint
    // without it. Relaxed: the unit orders it for the consumer, and the commands are read under the
    // lock.
    std::atomic<bool> mHasCommands{false};
    bool mPaused = false;
    std::string mName;
    tQueueMode mQueueMode;
    boost::function<void(NyWorkQueue*)> mCallback;
    int mPauseHandle = -1;
    NyEvent mResumeEvent;
    pthread_t mWorkThreadID{};
    // The consumer sleeps, or is about to, until the semaphore is raised; under the lock.
    bool mConsumerSleeps = false;
    // Adopters that are about to raise the semaphore. Released by each when it has done so, which
    // the destructor acquires.
    std::atomic<int32_t> mRaising{0};

    // Written by each adoption.
    alignas(kApart) NyLock mLock;
    bool mAccepting = true;

protected:
    int32_t mNextSerialNumber = 0;

private:
    std::deque<boost::shared_ptr<CCommand>> mCommands;
    // The units that adopters gave, one per command; wraps. Given under the lock and released
    // there, which the consumer acquires.
    std::atomic<uint32_t> mUnitsGiven{0};
    // Kept alive by the consumer, which runs it. Known only after Recall, if it is in a batch.
    CCommand* mCurrentCommand = nullptr;

    // The consumer's.
    //
    // The commands that the consumer took over and how far it is: 2n + 1 when the n-th is the next
    // one, 2n + 2 while it runs, 0 when there is nothing in the batch for anybody else to look at.
    //
    // The consumer begins and ends each command by one atomic step from the value it expects, and
    // Recall exchanges the value for 0. So of each command it is decided at one moment whether the
    // consumer took it or Recall took it back; the commands themselves are only touched by whoever
    // has them, and after a recall by the consumer under the lock only. A command's end releases
    // and Recall acquires: what the command did is visible to whoever does not find it any more.
    alignas(kApart) std::deque<boost::shared_ptr<CCommand>> mBatch;
    std::atomic<std::size_t> mProgress{0};
    // What follows is touched by the consumer alone.
    bool mRunsBatch = false;
    bool mWasRecalled = false; // what was in the batch may be pending again
    bool mIsBusy = false;      // it has not run out of units since its last batch
    // The units that it took, and those that it knows were given; both wrap.
    uint32_t mUnitsTaken = 0;
    uint32_t mUnitsSeen = 0;
    // Its record, see WorkerThreadExtension.h.
    void* mThreadExtension = nullptr;

    static NyThreadLocal<CCommand*> mstlsCurCommand;
};

// One piece of work. Owned by a boost::shared_ptr before it is queued; may be queued again, which
// puts off its being done until the last pending adoption has run. An adoption that was dropped by
// a queue's end stays pending in this sense: such a command is never done.
class NyWorkQueue::CCommand : public boost::enable_shared_from_this<CCommand> {
public:
    // A command with `stopsQueue` stops the queue once it has run.
    explicit CCommand(bool stopsQueue);
    virtual ~CCommand();
    CCommand(const CCommand&) = delete;
    CCommand& operator=(const CCommand&) = delete;

    // The work, on the consumer thread and without the queue's lock.
    virtual void Do() = 0;
    virtual bool CanCancel() { return false; }
    // Both: any thread, never block.
    virtual bool wasCanceled() { return mCanceled.load(std::memory_order_relaxed); }
    virtual void cancel() { mCanceled.store(true, std::memory_order_relaxed); }

    // Copies the functions of a helper; an empty pointer changes nothing. Before the command is
    // queued.
    void RegisterHelperFuncs(const boost::shared_ptr<NyWorkQueueHelper>& funcs);

private:
    friend class NyWorkQueue;

    // What few commands need, made when one first does; so most stay small, and small is fast, as a
    // command and its memory travel between the adopter's processor and the consumer's.
    struct Extras {
        // The event that done() signals. Empty until the first waiter asks for it and once the
        // command is done. Under the queue's lock.
        boost::shared_ptr<NyEvent> mDoneEvent;
        // Both set before the command is queued.
        boost::function<void(int)> mQueuedFunc;
        boost::function<void(int)> mDoneFunc;
    };

    // Before the command is queued or under the queue's lock.
    Extras& GetExtras();
    // Both under the queue's lock. Releases whoever waits, for good.
    void done();
    // The event that done() signals; empty once the command is done.
    boost::shared_ptr<NyEvent> GetDoneEvent();

    // Relaxed: the flag orders nothing. Whether a command that is just starting still sees it is
    // open anyway.
    std::atomic<bool> mCanceled{false};
    const bool mStopsQueue;
    // Relaxed: read under the queue's lock, and written without it only by the consumer, for a
    // command that the queue does not know any more.
    std::atomic<bool> mIsDone{false};
    // Of the last adoption. Relaxed: written under the lock; the consumer reads it without, for the
    // done function, and any adoption's handle will do there.
    std::atomic<int> mHandle{-1};
    // Adoptions that are still pending, and those that were dropped. Relaxed: looked at under the
    // lock, where all adoptions are counted; the consumer counts them off without.
    std::atomic<int32_t> mQueuedCount{0};
    // Owned. Released when made and acquired by the consumer, which looks without the lock.
    std::atomic<Extras*> mExtras{nullptr};
};
