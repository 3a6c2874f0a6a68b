#include "runtime/workqueue/NyWorkQueue.h"

#include <cstdio>
#include <cstdlib>
#include <utility>

#include <sched.h>

#include <boost/make_shared.hpp>

#include "runtime/thread/NyThread.h"
#include "runtime/workqueue/NyAutoWorkerCommand.h"
#include "runtime/workqueue/NyWorkQueueHelper.h"
#include "runtime/workqueue/WorkerThreadExtension.h"

namespace {

constexpr unsigned int kNoLimit = 0xFFFFFFFF;
constexpr int kMaximumPending = 0x7FFFFFFF;

// How often the consumer looks for another command before it sleeps.
constexpr int kLooks = 1000;

// For how many looks it leaves the lock to busy adopters between two batches: less than a
// microsecond, in which enough comes together to be worth a turn at the lock.
constexpr int kLooksBetweenBatches = 1000;

// Stops the queue by having run.
class KillCommand : public NyWorkQueue::CCommand {
public:
    KillCommand() : CCommand(true) {}
    void Do() override {}
};

// The check of a shared pointer's own dereference, which release builds of the library leave out.
void AbortIfEmpty(const boost::shared_ptr<NyWorkQueue::CCommand>& px) {
    if (px == nullptr) {
        std::fputs("NyWorkQueue: assertion failed: px != 0\n", stderr);
        std::abort();
    }
}

} // namespace

NyThreadLocal<NyWorkQueue::CCommand*> NyWorkQueue::mstlsCurCommand;

NyWorkQueue::CCommand::CCommand(bool stopsQueue) : mStopsQueue(stopsQueue) {}

NyWorkQueue::CCommand::~CCommand() {
    delete mExtras.load(std::memory_order_relaxed);
}

void NyWorkQueue::CCommand::RegisterHelperFuncs(const boost::shared_ptr<NyWorkQueueHelper>& funcs) {
    if (funcs != nullptr) {
        Extras& extras = GetExtras();
        extras.mQueuedFunc = funcs->mQueuedFunc;
        extras.mDoneFunc = funcs->mDoneFunc;
    }
}

NyWorkQueue::CCommand::Extras& NyWorkQueue::CCommand::GetExtras() {
    Extras* extras = mExtras.load(std::memory_order_relaxed);
    if (extras == nullptr) {
        extras = new Extras;
        mExtras.store(extras, std::memory_order_release);
    }
    return *extras;
}

void NyWorkQueue::CCommand::done() {
    mIsDone.store(true, std::memory_order_relaxed);
    Extras* const extras = mExtras.load(std::memory_order_relaxed);
    if (extras != nullptr && extras->mDoneEvent != nullptr) {
        extras->mDoneEvent->Signal();
        extras->mDoneEvent.reset();
    }
}

boost::shared_ptr<NyEvent> NyWorkQueue::CCommand::GetDoneEvent() {
    if (mIsDone.load(std::memory_order_relaxed)) {
        return {};
    }
    Extras& extras = GetExtras();
    if (extras.mDoneEvent == nullptr) {
        extras.mDoneEvent = boost::make_shared<NyEvent>(
            NyEvent::kManualReset, NyEvent::kNotSignaled, "CCommand done event");
    }
    return extras.mDoneEvent;
}

NyWorkQueue::NyWorkQueue(const char* name, const boost::function<void(NyWorkQueue*)>& callback,
                         tQueueMode mode)
    : mCommandSemaphore(0, kMaximumPending),
      mName(name),
      mQueueMode(mode),
      mCallback(callback),
      mResumeEvent(NyEvent::kManualReset, NyEvent::kSignaled, "Worker thread resume event") {}

NyWorkQueue::~NyWorkQueue() {
    // Whoever adopted the last command may still be about to raise the semaphore for it.
    while (mRaising.load(std::memory_order_acquire) != 0) {
        sched_yield();
    }
    NyWorkQueueDiscardTaskRun(mThreadExtension);
}

int NyWorkQueue::AdoptCommand(boost::shared_ptr<CCommand>& cmd, int& handle, bool last) {
    NyLockGuard guard(mLock, true);
    if (!mAccepting) {
        handle = -1;
        cmd.reset();
        return kQueueOK;
    }
    AbortIfEmpty(cmd);
    cmd->mQueuedCount.fetch_add(1, std::memory_order_relaxed);
    mAccepting = !last;
    handle = TakeSerialNumber();
    const CCommand::Extras* const extras = cmd->mExtras.load(std::memory_order_acquire);
    if (extras != nullptr && !extras->mQueuedFunc.empty()) {
        extras->mQueuedFunc(handle);
    }
    cmd->mHandle.store(handle, std::memory_order_relaxed);
    mCommands.push_back(cmd);
    // Looked at first: the consumer reads it again and again.
    if (!mHasCommands.load(std::memory_order_relaxed)) {
        mHasCommands.store(true, std::memory_order_relaxed);
    }
    if (mQueueMode == kThreadMode) {
        mUnitsGiven.store(mUnitsGiven.load(std::memory_order_relaxed) + 1,
                          std::memory_order_release);
        if (mConsumerSleeps) {
            mConsumerSleeps = false;
            // Without the lock, which the consumer that is woken needs first of all.
            mRaising.fetch_add(1, std::memory_order_relaxed);
            guard.Unlock();
            mCommandSemaphore.Raise();
            mRaising.fetch_sub(1, std::memory_order_release);
        }
    } else if (!mCallback.empty()) {
        mCallback(this);
    }
    return kQueueOK;
}

int NyWorkQueue::AdoptCommand(boost::shared_ptr<CCommand>& cmd, bool last) {
    int handle = -1;
    return AdoptCommand(cmd, handle, last);
}

int NyWorkQueue::RequeueCommand(CCommand* cmd, int& handle, bool last) {
    boost::shared_ptr<CCommand> owner = cmd->shared_from_this();
    return AdoptCommand(owner, handle, last);
}

int NyWorkQueue::RequeueCommand(CCommand* cmd, bool last) {
    int handle = -1;
    return RequeueCommand(cmd, handle, last);
}

void NyWorkQueue::Recall() {
    const std::size_t progress = mProgress.exchange(0, std::memory_order_acquire);
    if (progress == 0) {
        return;
    }
    const std::size_t next = progress / 2;
    const bool isRunning = progress % 2 == 0;
    for (std::size_t place = mBatch.size(); place-- > next;) {
        mCommands.push_front(std::move(mBatch[place]));
    }
    mHasCommands.store(!mCommands.empty(), std::memory_order_relaxed);
    mCurrentCommand = isRunning ? mBatch[next - 1].get() : nullptr;
}

void NyWorkQueue::DropPending() {
    Recall();
    mCommands.clear();
    mHasCommands.store(false, std::memory_order_relaxed);
}

boost::shared_ptr<NyWorkQueue::CCommand> NyWorkQueue::FindCommand(int handle, bool& pending) const {
    for (const boost::shared_ptr<CCommand>& command : mCommands) {
        if (command->mHandle == handle) {
            pending = true;
            return command;
        }
    }
    pending = false;
    return mCurrentCommand != nullptr && mCurrentCommand->mHandle == handle
               ? mCurrentCommand->shared_from_this()
               : boost::shared_ptr<CCommand>();
}

int NyWorkQueue::WaitOnCommand(int handle, NyTime* timeout, tWaitMode mode) {
    NyLockGuard guard(mLock, true);
    Recall();
    bool pending = false;
    const boost::shared_ptr<CCommand> command = FindCommand(handle, pending);
    return command == nullptr ? kQueueOK : waitOnCommand(guard, command, timeout, mode);
}

int NyWorkQueue::CancelCommand(int handle, NyTime* timeout, tWaitMode mode) {
    NyLockGuard guard(mLock, true);
    Recall();
    bool pending = false;
    const boost::shared_ptr<CCommand> command = FindCommand(handle, pending);
    if (command == nullptr) {
        return kNoSuchCommand;
    }
    // A command that has not begun keeps its place and is skipped there, but nobody waits for that.
    if (pending) {
        command->done();
    }
    command->cancel();
    return waitOnCommand(guard, command, timeout, mode);
}

int NyWorkQueue::waitOnCommand(NyLockGuard& guard, const boost::shared_ptr<CCommand>& cmd,
                               NyTime* timeout, tWaitMode mode) {
    if (cmd == nullptr) {
        return kNullCommand;
    }
    if (mode == kWaitUnlessCanceled) {
        if (cmd->wasCanceled() && cmd.get() != mCurrentCommand) {
            return kQueueOK;
        }
    } else if (mode != kWait) {
        return kQueueOK;
    }
    // A reference of our own: the command drops its own when it is done.
    const boost::shared_ptr<NyEvent> doneEvent = cmd->GetDoneEvent();
    if (doneEvent == nullptr) {
        return kCommandAlreadyDone;
    }
    guard.Unlock();
    if (timeout != nullptr) {
        doneEvent->Wait(*timeout);
    } else {
        doneEvent->Wait(kNoLimit);
    }
    return kQueueOK;
}

int NyWorkQueue::ProcessCommands() {
    if (mStopped.load(std::memory_order_acquire)) {
        return kQueueStopped;
    }
    if (mThreadExtension == nullptr) {
        BeginConsuming();
    }
    if (mQueueMode == kThreadMode) {
        TakeUnit();
        mResumeEvent.Wait(kNoLimit);
    } else if (const NyLockGuard guard(mLock, true); mPaused) {
        return kQueueOK;
    }

    NyWorkQueuePreCommandBlock(mThreadExtension);
    // A command that processes commands itself also runs those behind it in its batch.
    if (mQueueMode == kCallbackMode || mRunsBatch) {
        RunOneByOne();
    } else {
        RunBatches();
    }
    NyWorkQueuePostCommandBlock(mThreadExtension);
    if (!mStopped.load(std::memory_order_acquire)) {
        return kQueueOK;
    }
    NyWorkQueuePostTaskRun(mThreadExtension);
    mThreadExtension = nullptr;
    return kQueueStopped;
}

void NyWorkQueue::BeginConsuming() {
    {
        const NyLockGuard guard(mLock, true);
        if (pthread_equal(mWorkThreadID, pthread_t{}) != 0) {
            mWorkThreadID = NyThread::GetCurrentId();
        }
    }
    mThreadExtension = NyWorkQueuePreTaskRun();
}

bool NyWorkQueue::TryTakeUnit() {
    if (mUnitsTaken == mUnitsSeen) {
        mUnitsSeen = mUnitsGiven.load(std::memory_order_acquire);
        if (mUnitsTaken == mUnitsSeen) {
            return false;
        }
    }
    ++mUnitsTaken;
    return true;
}

void NyWorkQueue::TakeUnit() {
    for (int look = 0; look < kLooks; ++look) {
        if (TryTakeUnit()) {
            return;
        }
        mIsBusy = false;
    }
    {
        const NyLockGuard guard(mLock, true);
        if (TryTakeUnit()) {
            return;
        }
        mConsumerSleeps = true;
    }
    if (mCommandSemaphore.Wait(kNoLimit)) {
        TryTakeUnit();
    }
}

void NyWorkQueue::RunBatches() {
    mRunsBatch = true;
    try {
        while (!mStopped.load(std::memory_order_relaxed) && TakeBatch()) {
            RunBatch();
        }
    } catch (...) {
        mRunsBatch = false;
        throw;
    }
    mRunsBatch = false;
}

bool NyWorkQueue::TakeBatch() {
    // There is a unit for every command and a batch takes all commands, so many a call finds
    // nothing; that needs no lock. Whoever gave the unit stored the flag before. But a batch that
    // was recalled has no units left, and who recalled it may be about to store the flag only now.
    if (!mWasRecalled && !mHasCommands.load(std::memory_order_relaxed)) {
        return false;
    }
    if (mIsBusy) {
        LeaveLockToAdopters();
    }
    const NyLockGuard guard(mLock, true);
    mWasRecalled = false;
    mBatch.clear();
    if (mCommands.empty()) {
        return false;
    }
    mBatch.swap(mCommands);
    mUnitsSeen = mUnitsGiven.load(std::memory_order_relaxed);
    mHasCommands.store(false, std::memory_order_relaxed);
    mProgress.store(1, std::memory_order_relaxed);
    mIsBusy = true;
    return true;
}

void NyWorkQueue::LeaveLockToAdopters() const {
    // At what they do not write, and so do not wait for.
    for (int look = 0; look < kLooksBetweenBatches; ++look) {
        if (mStopped.load(std::memory_order_relaxed)) {
            return;
        }
    }
}

void NyWorkQueue::RunBatch() {
    const std::size_t size = mBatch.size();
    for (std::size_t place = 0; place < size; ++place) {
        std::size_t expected = 2 * place + 1;
        if (!mProgress.compare_exchange_strong(expected, expected + 1, std::memory_order_relaxed)) {
            mWasRecalled = true;
            return;
        }
        CCommand& command = *mBatch[place];
        command.mQueuedCount.fetch_sub(1, std::memory_order_relaxed);
        NyWorkQueuePreCommand(mThreadExtension);
        try {
            RunUnlocked(command);
        } catch (...) {
            // Nobody waits for ever for a command that failed.
            mstlsCurCommand.Set(nullptr);
            NyWorkQueuePostCommand(mThreadExtension);
            Retire(place, false);
            throw;
        }
        NyWorkQueuePostCommand(mThreadExtension);
        if (!TryRetire(place)) {
            Retire(place, !command.mStopsQueue);
        }
    }
    // All places are retired, so nobody else looks at them. Without the lock, as it takes a while.
    mBatch.clear();
}

bool NyWorkQueue::TryRetire(std::size_t place) {
    CCommand& command = *mBatch[place];
    if (command.mStopsQueue || command.mExtras.load(std::memory_order_relaxed) != nullptr) {
        return false;
    }
    std::size_t expected = 2 * place + 2;
    const std::size_t next = place + 1 == mBatch.size() ? 0 : expected + 1;
    if (!mProgress.compare_exchange_strong(expected, next, std::memory_order_release,
                                           std::memory_order_relaxed)) {
        return false;
    }
    // From here on the queue does not know the command any more. Somebody who does may adopt it
    // again at this moment, and wait; then its next run releases them.
    if (command.mQueuedCount.load(std::memory_order_relaxed) < 1) {
        command.mIsDone.store(true, std::memory_order_relaxed);
    }
    mBatch[place].reset();
    return true;
}

void NyWorkQueue::Retire(std::size_t place, bool goOn) {
    const NyLockGuard guard(mLock, true);
    const boost::shared_ptr<CCommand> command = std::move(mBatch[place]);
    FinishCommand(*command);
    if (!goOn) {
        Recall();
        mCurrentCommand = nullptr;
    } else if (mProgress.load(std::memory_order_relaxed) != 0) {
        mProgress.store(place + 1 == mBatch.size() ? 0 : 2 * place + 3, std::memory_order_relaxed);
    }
}

void NyWorkQueue::RunOneByOne() {
    NyLockGuard guard(mLock, true);
    Recall();
    while (!mCommands.empty() && !mStopped.load(std::memory_order_relaxed)) {
        // Kept here, and not only as the current command: a command may process commands itself.
        const boost::shared_ptr<CCommand> command = std::move(mCommands.front());
        mCommands.pop_front();
        mHasCommands.store(!mCommands.empty(), std::memory_order_relaxed);
        mCurrentCommand = command.get();
        command->mQueuedCount.fetch_sub(1, std::memory_order_relaxed);
        guard.Unlock();
        NyWorkQueuePreCommand(mThreadExtension);
        try {
            RunUnlocked(*command);
        } catch (...) {
            // Nobody waits for ever for a command that failed.
            mstlsCurCommand.Set(nullptr);
            NyWorkQueuePostCommand(mThreadExtension);
            guard.Lock();
            FinishCommand(*command);
            throw;
        }
        NyWorkQueuePostCommand(mThreadExtension);
        guard.Lock();
        FinishCommand(*command);
    }
}

void NyWorkQueue::RunUnlocked(CCommand& command) {
    if (command.wasCanceled()) {
        return;
    }
    mstlsCurCommand.Set(&command);
    command.Do();
    mstlsCurCommand.Set(nullptr);
    const CCommand::Extras* const extras = command.mExtras.load(std::memory_order_acquire);
    if (extras != nullptr && !extras->mDoneFunc.empty()) {
        extras->mDoneFunc(command.mHandle.load(std::memory_order_relaxed));
    }
}

void NyWorkQueue::FinishCommand(CCommand& command) {
    if (command.mQueuedCount.load(std::memory_order_relaxed) < 1) {
        command.done();
    }
    if (command.mStopsQueue) {
        mStopped.store(true, std::memory_order_release);
    }
    mCurrentCommand = nullptr;
}

int NyWorkQueue::Pause(tPauseAdverb adverb) {
    const NyLockGuard guard(mLock, true);
    if (mPauseHandle != -1) {
        return kPauseAlreadyQueued;
    }
    if (adverb == kPauseQueued) {
        NyAutoWorkerCommand::QueueGetHandle(&NyWorkQueue::pause, this, mPauseHandle,
                                            kGivenWorkQueue, this);
    } else {
        pause();
    }
    return kQueueOK;
}

void NyWorkQueue::pause() {
    const NyLockGuard guard(mLock, true);
    if (mQueueMode == kThreadMode) {
        mResumeEvent.Reset();
    } else {
        mPaused = true;
    }
}

int NyWorkQueue::Resume() {
    NyLockGuard guard(mLock, true);
    int result = kQueueOK;
    if (mPauseHandle != -1) {
        const int handle = mPauseHandle;
        guard.Unlock();
        result = WaitOnCommand(handle, nullptr, kWait);
        guard.Lock();
        mPauseHandle = -1;
    }
    if (mQueueMode == kThreadMode) {
        mResumeEvent.Signal();
    } else {
        mPaused = false;
        if (!mCallback.empty()) {
            mCallback(this);
        }
    }
    return result;
}

int NyWorkQueue::Stop(tStopAdverb adverb, bool wait) {
    NyLockGuard guard(mLock, true);
    if (adverb == kStopNow) {
        DropPending();
    }
    if (!wait || pthread_equal(NyThread::GetCurrentId(), mWorkThreadID) == 0) {
        boost::shared_ptr<CCommand> terminating = boost::make_shared<KillCommand>();
        int handle = -1;
        AdoptCommand(terminating, handle, true);
        guard.Unlock();
        if (wait) {
            WaitOnCommand(handle, nullptr, kWait);
        }
    } else {
        mAccepting = false;
        guard.Unlock();
        ProcessCommands();
    }
    if (adverb == kStopAfterPending) {
        guard.Lock();
        DropPending();
        guard.Unlock();
    }
    return kQueueOK;
}

pthread_t NyWorkQueue::GetWorkThreadID() {
    const NyLockGuard guard(mLock, true);
    return mWorkThreadID;
}

int NyWorkQueue::getNextCommandSerialNumber() {
    const NyLockGuard guard(mLock, true);
    return TakeSerialNumber();
}

int NyWorkQueue::TakeSerialNumber() {
    const int32_t number = mNextSerialNumber;
    // Wraps, which signed arithmetic must not.
    mNextSerialNumber = static_cast<int32_t>(static_cast<uint32_t>(number) + 1U);
    return number < 0 ? 0 : number;
}

void NyWorkQueue::Initialize() {
    InitTLS();
    NyThread::mAtStartFunctions.Append(&InitTLS);
}

void NyWorkQueue::InitTLS() {
    mstlsCurCommand.Set(nullptr);
}
