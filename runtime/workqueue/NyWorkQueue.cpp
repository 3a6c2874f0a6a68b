#include "runtime/workqueue/NyWorkQueue.h"

#include "runtime/thread/NyThread.h"
#include "runtime/workqueue/NyAutoWorkerCommand.h"
#include "runtime/workqueue/NyWorkQueueHelper.h"
#include "runtime/workqueue/WorkerThreadExtension.h"

#include <boost/make_shared.hpp>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace {

constexpr unsigned int kNoLimit = 0xFFFFFFFF;
constexpr int kMaximumPending = 0x7FFFFFFF;

// The terminating command: it stops the queue by having run.
class KillCommand : public NyWorkQueue::CCommand {
public:
    KillCommand() : CCommand(true) {}
    void Do() override {}
};

// Makes the check that a shared pointer's own dereference leaves out in release builds of the
// library.
void AbortIfEmpty(const boost::shared_ptr<NyWorkQueue::CCommand>& px) {
    if (px == nullptr) {
        std::fputs("NyWorkQueue: assertion failed: px != 0\n", stderr);
        std::abort();
    }
}

} // namespace

NyThreadLocal<NyWorkQueue::CCommand*> NyWorkQueue::mstlsCurCommand;

NyWorkQueue::CCommand::CCommand(bool stopsQueue) : mStopsQueue(stopsQueue ? 1 : 0) {}

NyWorkQueue::CCommand::~CCommand() = default;

void NyWorkQueue::CCommand::RegisterHelperFuncs(const boost::shared_ptr<NyWorkQueueHelper>& funcs) {
    if (funcs != nullptr) {
        mQueuedFunc = funcs->mQueuedFunc;
        mDoneFunc = funcs->mDoneFunc;
    }
}

void NyWorkQueue::CCommand::done() {
    mIsDone = true;
    if (mDoneEvent != nullptr) {
        mDoneEvent->Signal();
        mDoneEvent.reset();
    }
}

boost::shared_ptr<NyEvent> NyWorkQueue::CCommand::GetDoneEvent() {
    if (mDoneEvent == nullptr && !mIsDone) {
        mDoneEvent = boost::make_shared<NyEvent>(NyEvent::kManualReset, NyEvent::kNotSignaled,
                                                 "CCommand done event");
    }
    return mDoneEvent;
}

NyWorkQueue::NyWorkQueue(const char* name, const boost::function<void(NyWorkQueue*)>& callback,
                         tQueueMode mode)
    : mCommandSemaphore(0, kMaximumPending),
      mName(name),
      mQueueMode(mode),
      mCallback(callback),
      mResumeEvent(NyEvent::kManualReset, NyEvent::kSignaled, "Worker thread resume event") {}

NyWorkQueue::~NyWorkQueue() {
    NyWorkQueueDiscardTaskRun(mThreadExtension);
}

int NyWorkQueue::AdoptCommand(boost::shared_ptr<CCommand>& cmd, int& handle, bool last) {
    const NyLockGuard guard(mLock, true);
    if (mAccepting == 0) {
        handle = -1;
        cmd.reset();
        return kQueueOK;
    }
    AbortIfEmpty(cmd);
    ++cmd->mQueuedCount;
    mAccepting = last ? 0 : 1;
    handle = TakeSerialNumber();
    if (!cmd->mQueuedFunc.empty()) {
        cmd->mQueuedFunc(handle);
    }
    cmd->mHandle.store(handle, std::memory_order_relaxed);
    mCommands.push_back(cmd);
    // Raised under the lock, because the consumer takes the lock before it runs the command. This
    // call has then released it, so an owner may destroy the queue once the last command has run,
    // although the adopter is not back yet.
    if (mQueueMode == kThreadMode) {
        mCommandSemaphore.Raise();
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

boost::shared_ptr<NyWorkQueue::CCommand> NyWorkQueue::FindCommand(int handle, bool& pending) const {
    const auto hasHandle = [handle](const boost::shared_ptr<CCommand>& command) {
        return command->mHandle.load(std::memory_order_relaxed) == handle;
    };
    const auto found = std::find_if(mCommands.begin(), mCommands.end(), hasHandle);
    pending = found != mCommands.end();
    if (pending) {
        return *found;
    }
    return mCurrentCommand != nullptr && hasHandle(mCurrentCommand) ? mCurrentCommand : nullptr;
}

int NyWorkQueue::WaitOnCommand(int handle, NyTime* timeout, tWaitMode mode) {
    NyLockGuard guard(mLock, true);
    bool pending = false;
    const boost::shared_ptr<CCommand> command = FindCommand(handle, pending);
    return command == nullptr ? kQueueOK : waitOnCommand(guard, command, timeout, mode);
}

int NyWorkQueue::CancelCommand(int handle, NyTime* timeout, tWaitMode mode) {
    NyLockGuard guard(mLock, true);
    bool pending = false;
    const boost::shared_ptr<CCommand> command = FindCommand(handle, pending);
    if (command == nullptr) {
        return kNoSuchCommand;
    }
    // A command that has not begun keeps its place and is skipped when its turn comes. Its waiters
    // need not wait for that.
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
        if (cmd->wasCanceled() && cmd != mCurrentCommand) {
            return kQueueOK;
        }
    } else if (mode != kWait) {
        return kQueueOK;
    }
    // This keeps the event alive: the command releases it when it is done.
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
    if (mStopped != 0) {
        return kQueueStopped;
    }
    if (mThreadExtension == nullptr) {
        BeginConsuming();
    }
    NyLockGuard guard(mLock, false);
    if (mQueueMode == kThreadMode) {
        mCommandSemaphore.Wait(kNoLimit);
        mResumeEvent.Wait(kNoLimit);
        guard.Lock();
    } else {
        guard.Lock();
        if (mPaused != 0) {
            return kQueueOK;
        }
    }

    NyWorkQueuePreCommandBlock(mThreadExtension);
    boost::shared_ptr<CCommand> command;
    while (!mCommands.empty() && mStopped == 0) {
        mCurrentCommand = std::move(mCommands.front());
        mCommands.pop_front();
        --mCurrentCommand->mQueuedCount;
        guard.Unlock();
        // Releases the previous command, without the lock, as its destructor may take a while. The
        // current command alone would not keep this one alive: a command that calls ProcessCommands
        // itself clears it.
        command = mCurrentCommand;
        RunCommand(guard, *command);
    }
    guard.Unlock();
    command.reset();
    NyWorkQueuePostCommandBlock(mThreadExtension);
    if (mStopped == 0) {
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

void NyWorkQueue::RunCommand(NyLockGuard& guard, CCommand& command) {
    try {
        DoCommand(command);
    } catch (...) {
        // The command counts as done, so that its waiters do not wait for ever.
        mstlsCurCommand.Set(nullptr);
        FinishCommand(guard, command);
        throw;
    }
    FinishCommand(guard, command);
}

void NyWorkQueue::DoCommand(CCommand& command) {
    NyWorkQueuePreCommand(mThreadExtension);
    if (command.wasCanceled()) {
        return;
    }
    mstlsCurCommand.Set(&command);
    command.Do();
    mstlsCurCommand.Set(nullptr);
    if (!command.mDoneFunc.empty()) {
        command.mDoneFunc(command.mHandle.load(std::memory_order_relaxed));
    }
}

void NyWorkQueue::FinishCommand(NyLockGuard& guard, CCommand& command) {
    NyWorkQueuePostCommand(mThreadExtension);
    guard.Lock();
    if (command.mQueuedCount < 1) {
        command.done();
    }
    if (command.mStopsQueue != 0) {
        mStopped = 1;
    }
    mCurrentCommand.reset();
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
        mPaused = 1;
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
        mPaused = 0;
        if (!mCallback.empty()) {
            mCallback(this);
        }
    }
    return result;
}

int NyWorkQueue::Stop(tStopAdverb adverb, bool wait) {
    NyLockGuard guard(mLock, true);
    if (adverb == kStopNow) {
        mCommands.clear();
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
        mAccepting = 0;
        guard.Unlock();
        ProcessCommands();
    }
    if (adverb == kStopAfterPending) {
        guard.Lock();
        mCommands.clear();
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
    const std::int32_t number = mNextSerialNumber;
    // The counter wraps round, which signed arithmetic must not do.
    mNextSerialNumber = static_cast<std::int32_t>(static_cast<std::uint32_t>(number) + 1U);
    return number < 0 ? 0 : number;
}

void NyWorkQueue::Initialize() {
    InitTLS();
    NyThread::mAtStartFunctions.Append(&InitTLS);
}

void NyWorkQueue::InitTLS() {
    mstlsCurCommand.Set(nullptr);
}
