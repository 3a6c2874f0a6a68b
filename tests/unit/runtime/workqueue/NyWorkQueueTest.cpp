#include "runtime/workqueue/NyWorkQueue.h"

#include "runtime/workqueue/NyWorkQueueHelper.h"
#include "tests/support/WaitUntil.h"

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

using Command = NyWorkQueue::CCommand;
using CommandPointer = boost::shared_ptr<Command>;

// A command that does what it is told.
class TestCommand : public Command {
public:
    explicit TestCommand(std::function<void(TestCommand&)> work = {}, bool stopsQueue = false)
        : Command(stopsQueue), mWork(std::move(work)) {}
    void Do() override {
        ++mRuns;
        if (mWork) {
            mWork(*this);
        }
    }
    std::atomic<int> mRuns{0};

private:
    std::function<void(TestCommand&)> mWork;
};

boost::shared_ptr<TestCommand> MakeCommand(std::function<void(TestCommand&)> work = {}) {
    return boost::make_shared<TestCommand>(std::move(work));
}

int Adopt(NyWorkQueue& queue, CommandPointer command, bool last = false) {
    int handle = -2;
    EXPECT_EQ(queue.AdoptCommand(command, handle, last), 0);
    return handle;
}

// A gate that a test opens to let a command go on.
class Gate {
public:
    void Open() {
        const std::lock_guard lock(mMutex);
        mOpen = true;
        mChanged.notify_all();
    }
    void Wait() {
        std::unique_lock lock(mMutex);
        mChanged.wait(lock, [this] { return mOpen; });
    }

private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    bool mOpen = false;
};

// Lets a test set the counter of handles, and see the order of the virtual operations' bases.
class CountingQueue : public NyWorkQueue {
public:
    using NyWorkQueue::NyWorkQueue;
    void SetNextSerialNumber(std::int32_t number) { mNextSerialNumber = number; }
};

// A queue in thread mode with the consumer that an owner supplies.
class ThreadQueue {
public:
    ThreadQueue()
        : mQueue("test", {}, NyWorkQueue::kThreadMode), mConsumer([this] {
              while (mQueue.ProcessCommands() != NyWorkQueue::kQueueStopped) {
                  ++mBatches;
              }
          }) {}
    ~ThreadQueue() { Stop(); }
    void Stop() {
        if (mConsumer.joinable()) {
            mQueue.Resume();
            mQueue.Stop(NyWorkQueue::kStopAfterPending, true);
            mConsumer.join();
        }
    }
    NyWorkQueue& operator*() { return mQueue; }
    NyWorkQueue* operator->() { return &mQueue; }
    int Batches() const { return mBatches; }
    void Join() { mConsumer.join(); }

private:
    NyWorkQueue mQueue;
    std::atomic<int> mBatches{0};
    std::thread mConsumer;
};

TEST(NyWorkQueueTest, HandlesCountFromZeroInTheOrderOfAdoption) {
    NyWorkQueue queue("test", {}, NyWorkQueue::kCallbackMode);
    EXPECT_EQ(Adopt(queue, MakeCommand()), 0);
    EXPECT_EQ(Adopt(queue, MakeCommand()), 1);
    EXPECT_EQ(Adopt(queue, MakeCommand()), 2);
    EXPECT_EQ(queue.ProcessCommands(), 0);
}

TEST(NyWorkQueueTest, AfterTheHighestHandleEveryHandleIsZeroUntilTheCounterHasWrapped) {
    CountingQueue queue("test", {}, NyWorkQueue::kCallbackMode);
    queue.SetNextSerialNumber(0x7FFFFFFE);
    EXPECT_EQ(queue.getNextCommandSerialNumber(), 0x7FFFFFFE);
    EXPECT_EQ(queue.getNextCommandSerialNumber(), 0x7FFFFFFF);
    EXPECT_EQ(queue.getNextCommandSerialNumber(), 0);
    EXPECT_EQ(queue.getNextCommandSerialNumber(), 0);
    queue.SetNextSerialNumber(-2);
    EXPECT_EQ(queue.getNextCommandSerialNumber(), 0);
    EXPECT_EQ(queue.getNextCommandSerialNumber(), 0);
    EXPECT_EQ(queue.getNextCommandSerialNumber(), 0) << "the counter's own zero";
    EXPECT_EQ(queue.getNextCommandSerialNumber(), 1);
}

TEST(NyWorkQueueTest, CommandsRunInTheOrderOfAdoption) {
    NyWorkQueue queue("test", {}, NyWorkQueue::kCallbackMode);
    std::vector<int> order;
    for (int i = 0; i < 5; ++i) {
        Adopt(queue, MakeCommand([&order, i](TestCommand&) { order.push_back(i); }));
    }
    EXPECT_TRUE(order.empty());
    EXPECT_EQ(queue.ProcessCommands(), 0);
    EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3, 4}));
}

TEST(NyWorkQueueTest, AdoptingInCallbackModeCallsTheCallbackWithTheQueueAndMayProcessAtOnce) {
    std::vector<NyWorkQueue*> called;
    NyWorkQueue queue(
        "test",
        [&called](NyWorkQueue* theQueue) {
            called.push_back(theQueue);
            theQueue->ProcessCommands();
        },
        NyWorkQueue::kCallbackMode);
    const auto command = MakeCommand();
    Adopt(queue, command);
    EXPECT_EQ(called, std::vector<NyWorkQueue*>{&queue});
    EXPECT_EQ(command->mRuns, 1) << "the lock is recursive";
}

TEST(NyWorkQueueTest, ACommandAdoptedAsTheLastRunsAndALaterAdoptionIsRefused) {
    NyWorkQueue queue("test", {}, NyWorkQueue::kCallbackMode);
    const auto last = MakeCommand();
    EXPECT_EQ(Adopt(queue, last, true), 0);
    CommandPointer refused = MakeCommand();
    int handle = 77;
    EXPECT_EQ(queue.AdoptCommand(refused, handle, false), 0);
    EXPECT_EQ(handle, -1);
    EXPECT_EQ(refused, nullptr) << "the caller's reference is released";
    EXPECT_EQ(queue.ProcessCommands(), 0);
    EXPECT_EQ(last->mRuns, 1);
}

TEST(NyWorkQueueTest, ACommandCancelledWhileQueuedReleasesItsWaitersAndNeverRuns) {
    ThreadQueue queue;
    queue->Pause(NyWorkQueue::kPauseNow);
    const auto command = MakeCommand();
    const int handle = Adopt(*queue, command);
    std::thread waiter(
        [&] { EXPECT_EQ(queue->WaitOnCommand(handle, nullptr, NyWorkQueue::kWait), 0); });
    // The waiter is released although the queue is paused.
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(queue->CancelCommand(handle, nullptr, NyWorkQueue::kWait), 4);
    EXPECT_TRUE(command->wasCanceled());
    waiter.join();
    EXPECT_EQ(queue->WaitOnCommand(handle, nullptr, NyWorkQueue::kWait), 4);
    EXPECT_EQ(queue->WaitOnCommand(handle, nullptr, NyWorkQueue::kWaitUnlessCanceled), 0);
    queue.Stop();
    EXPECT_EQ(command->mRuns, 0);
}

TEST(NyWorkQueueTest, AnUnknownHandleIsNotWaitedForAndNotCancelled) {
    NyWorkQueue queue("test", {}, NyWorkQueue::kCallbackMode);
    EXPECT_EQ(queue.WaitOnCommand(3, nullptr, NyWorkQueue::kWait), 0);
    EXPECT_EQ(queue.CancelCommand(3, nullptr, NyWorkQueue::kWait), 2);
    Adopt(queue, MakeCommand());
    queue.ProcessCommands();
    EXPECT_EQ(queue.WaitOnCommand(0, nullptr, NyWorkQueue::kWait), 0) << "done and gone";
    EXPECT_EQ(queue.CancelCommand(0, nullptr, NyWorkQueue::kWait), 2);
}

TEST(NyWorkQueueTest, WaitingStopsAtTheTimeoutAndReturnsZeroAllTheSame) {
    NyWorkQueue queue("test", {}, NyWorkQueue::kCallbackMode);
    const int handle = Adopt(queue, MakeCommand());
    NyTime timeout;
    timeout.Set(NyTime::kMicroseconds, 20000);
    EXPECT_EQ(queue.WaitOnCommand(handle, &timeout, NyWorkQueue::kWait), 0);
    EXPECT_EQ(queue.WaitOnCommand(handle, nullptr, NyWorkQueue::kNoWait), 0);
    EXPECT_EQ(queue.WaitOnCommand(handle, nullptr, static_cast<NyWorkQueue::tWaitMode>(9)), 0);
    queue.ProcessCommands();
}

TEST(NyWorkQueueTest, ARunningCommandThatIsCancelledIsWaitedFor) {
    ThreadQueue queue;
    Gate started;
    Gate goOn;
    const auto command = MakeCommand([&](TestCommand&) {
        started.Open();
        goOn.Wait();
    });
    const int handle = Adopt(*queue, command);
    started.Wait();
    std::atomic<bool> cancelled{false};
    std::thread canceller([&] {
        EXPECT_EQ(queue->CancelCommand(handle, nullptr, NyWorkQueue::kWaitUnlessCanceled), 0);
        cancelled = true;
    });
    EXPECT_TRUE(
        TestSupport::WaitUntil("the command is cancelled", [&] { return command->wasCanceled(); }));
    EXPECT_FALSE(cancelled);
    goOn.Open();
    canceller.join();
    EXPECT_EQ(command->mRuns, 1);
}

TEST(NyWorkQueueTest, ACommandMayQueueItselfAgainAndIsDoneOnlyAfterItsLastRun) {
    ThreadQueue queue;
    Gate secondRun;
    std::atomic<int> secondHandle{-1};
    const auto command = MakeCommand([&](TestCommand& self) {
        if (self.mRuns == 1) {
            int handle = -1;
            EXPECT_EQ(queue->RequeueCommand(&self, handle, false), 0);
            secondHandle = handle;
        } else {
            secondRun.Wait();
        }
    });
    Adopt(*queue, command);
    EXPECT_TRUE(
        TestSupport::WaitUntil("the command has run twice", [&] { return command->mRuns == 2; }));
    EXPECT_EQ(secondHandle, 1);
    std::atomic<bool> waited{false};
    std::thread waiter([&] {
        EXPECT_EQ(queue->WaitOnCommand(1, nullptr, NyWorkQueue::kWait), 0);
        waited = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(waited) << "the first run did not make it done";
    secondRun.Open();
    waiter.join();
}

TEST(NyWorkQueueTest, ACommandThatNoSharedPointerOwnsCannotBeQueuedAgain) {
    NyWorkQueue queue("test", {}, NyWorkQueue::kCallbackMode);
    TestCommand onTheStack;
    EXPECT_THROW(queue.RequeueCommand(&onTheStack, false), boost::bad_weak_ptr);
}

TEST(NyWorkQueueTest, HelperFunctionsAreCalledWithTheHandleWhenQueuedAndWhenDone) {
    NyWorkQueue queue("test", {}, NyWorkQueue::kCallbackMode);
    std::vector<std::string> calls;
    const auto helper = boost::make_shared<NyWorkQueueHelper>(
        [&](int handle) { calls.push_back("queued " + std::to_string(handle)); },
        [&](int handle) { calls.push_back("done " + std::to_string(handle)); });
    const auto command = MakeCommand([&](TestCommand&) { calls.emplace_back("run"); });
    command->RegisterHelperFuncs(helper);
    command->RegisterHelperFuncs(boost::shared_ptr<NyWorkQueueHelper>());
    Adopt(queue, command);
    queue.ProcessCommands();
    EXPECT_EQ(calls, (std::vector<std::string>{"queued 0", "run", "done 0"}));
}

TEST(NyWorkQueueTest, ACancelledCommandsDoneFunctionIsNotCalled) {
    NyWorkQueue queue("test", {}, NyWorkQueue::kCallbackMode);
    int done = 0;
    const auto command = MakeCommand();
    command->RegisterHelperFuncs(
        boost::make_shared<NyWorkQueueHelper>(boost::function<void(int)>(), [&](int) { ++done; }));
    const int handle = Adopt(queue, command);
    EXPECT_EQ(queue.CancelCommand(handle, nullptr, NyWorkQueue::kNoWait), 0);
    queue.ProcessCommands();
    EXPECT_EQ(done, 0);
}

TEST(NyWorkQueueTest, TheBaseCommandSaysThatItCannotBeCancelledAndIsCancelledAllTheSame) {
    TestCommand command;
    EXPECT_FALSE(command.CanCancel());
    EXPECT_FALSE(command.wasCanceled());
    command.cancel();
    EXPECT_TRUE(command.wasCanceled());
}

TEST(NyWorkQueueTest, TheCurrentCommandIsTheRunningOneOnItsThreadOnly) {
    NyWorkQueue::InitTLS();
    NyWorkQueue queue("test", {}, NyWorkQueue::kCallbackMode);
    Command* inside = nullptr;
    Command* elsewhere = nullptr;
    const auto command = MakeCommand([&](TestCommand&) {
        inside = NyWorkQueue::GetCurrentCommand();
        std::thread([&] { elsewhere = NyWorkQueue::GetCurrentCommand(); }).join();
    });
    Adopt(queue, command);
    queue.ProcessCommands();
    EXPECT_EQ(inside, command.get());
    EXPECT_EQ(elsewhere, nullptr);
    EXPECT_EQ(NyWorkQueue::GetCurrentCommand(), nullptr);
}

TEST(NyWorkQueueTest, PauseNowLetsTheBatchInProgressFinishAndBlocksTheNext) {
    ThreadQueue queue;
    Gate started;
    Gate goOn;
    Adopt(*queue, MakeCommand([&](TestCommand&) {
        started.Open();
        goOn.Wait();
    }));
    started.Wait();
    const auto sameBatch = MakeCommand();
    const int sameHandle = Adopt(*queue, sameBatch);
    EXPECT_EQ(queue->Pause(NyWorkQueue::kPauseNow), 0);
    goOn.Open();
    queue->WaitOnCommand(sameHandle, nullptr, NyWorkQueue::kWait);
    EXPECT_EQ(sameBatch->mRuns, 1);
    // Every semaphore unit of the batch has to be used up before the consumer blocks in the pause.
    EXPECT_TRUE(TestSupport::WaitUntil("a batch is used up", [&] { return queue.Batches() >= 1; }));

    const auto nextBatch = MakeCommand();
    const int nextHandle = Adopt(*queue, nextBatch);
    NyTime timeout;
    timeout.Set(NyTime::kMicroseconds, 30000);
    queue->WaitOnCommand(nextHandle, &timeout, NyWorkQueue::kWait);
    EXPECT_EQ(nextBatch->mRuns, 0);
    EXPECT_EQ(queue->Resume(), 0);
    queue->WaitOnCommand(nextHandle, nullptr, NyWorkQueue::kWait);
    EXPECT_EQ(nextBatch->mRuns, 1);
}

TEST(NyWorkQueueTest, APausedCallbackQueueProcessesNothingUntilResumedAndIsCalledBackThen) {
    int called = 0;
    NyWorkQueue queue(
        "test", [&](NyWorkQueue*) { ++called; }, NyWorkQueue::kCallbackMode);
    EXPECT_EQ(queue.Pause(NyWorkQueue::kPauseNow), 0);
    const auto command = MakeCommand();
    Adopt(queue, command);
    EXPECT_EQ(called, 1);
    EXPECT_EQ(queue.ProcessCommands(), 0);
    EXPECT_EQ(command->mRuns, 0);
    EXPECT_EQ(queue.Resume(), 0);
    EXPECT_EQ(called, 2);
    EXPECT_EQ(queue.ProcessCommands(), 0);
    EXPECT_EQ(command->mRuns, 1);
}

TEST(NyWorkQueueTest, AQueuedPauseTakesItsTurnAndASecondOneIsRefusedUntilResume) {
    ThreadQueue queue;
    Gate goOn;
    Adopt(*queue, MakeCommand([&](TestCommand&) { goOn.Wait(); }));
    const auto before = MakeCommand();
    Adopt(*queue, before);
    EXPECT_EQ(queue->Pause(NyWorkQueue::kPauseQueued), 0);
    EXPECT_EQ(queue->Pause(NyWorkQueue::kPauseQueued), 1);
    EXPECT_EQ(queue->Pause(NyWorkQueue::kPauseNow), 1);
    goOn.Open();
    EXPECT_TRUE(TestSupport::WaitUntil("the command has run", [&] { return before->mRuns == 1; }));
    EXPECT_EQ(queue->Resume(), 0);
    EXPECT_EQ(queue->Pause(NyWorkQueue::kPauseQueued), 0) << "allowed again";
    EXPECT_EQ(queue->Resume(), 0);
}

TEST(NyWorkQueueTest, StoppingAndWaitingRunsWhatIsPendingAndThenStopsForGood) {
    ThreadQueue queue;
    std::vector<boost::shared_ptr<TestCommand>> commands;
    for (int i = 0; i < 10; ++i) {
        commands.push_back(MakeCommand());
        Adopt(*queue, commands.back());
    }
    EXPECT_EQ(queue->Stop(NyWorkQueue::kStopAfterPending, true), 0);
    for (const auto& command : commands) {
        EXPECT_EQ(command->mRuns, 1);
    }
    EXPECT_EQ(Adopt(*queue, MakeCommand()), -1);
    queue.Join();
    EXPECT_EQ(queue->ProcessCommands(), 6);
    EXPECT_EQ(queue->ProcessCommands(), 6);
}

TEST(NyWorkQueueTest, StoppingNowDropsWhatIsPendingWithoutItsBeingDone) {
    ThreadQueue queue;
    Gate started;
    Gate goOn;
    Adopt(*queue, MakeCommand([&](TestCommand&) {
        started.Open();
        goOn.Wait();
    }));
    started.Wait();
    const auto pending = MakeCommand();
    const int handle = Adopt(*queue, pending);
    NyTime timeout;
    timeout.Set(NyTime::kMicroseconds, 1000);
    std::thread stopper([&] { EXPECT_EQ(queue->Stop(NyWorkQueue::kStopNow, true), 0); });
    EXPECT_TRUE(TestSupport::WaitUntil("the queue stops", [&] {
        return queue->CancelCommand(handle, &timeout, NyWorkQueue::kNoWait) == 2;
    }));
    goOn.Open();
    stopper.join();
    queue.Join();
    EXPECT_EQ(pending->mRuns, 0);
}

TEST(NyWorkQueueTest, StoppingWithoutWaitingDropsTheTerminatingCommandToo) {
    NyWorkQueue queue("test", {}, NyWorkQueue::kCallbackMode);
    const auto pending = MakeCommand();
    Adopt(queue, pending);
    EXPECT_EQ(queue.Stop(NyWorkQueue::kStopAfterPending, false), 0);
    EXPECT_EQ(queue.ProcessCommands(), 0) << "nothing is left to stop it";
    EXPECT_EQ(pending->mRuns, 0);
    EXPECT_EQ(Adopt(queue, MakeCommand()), -1) << "closed all the same";
}

TEST(NyWorkQueueTest, StoppingWithoutWaitingLeavesAConsumerThatWasNotQuickerNothingToEndBy) {
    NyWorkQueue queue("test", {}, NyWorkQueue::kThreadMode);
    EXPECT_EQ(queue.Stop(NyWorkQueue::kStopAfterPending, false), 0);
    // The unit of the dropped terminating command; there will be no other.
    EXPECT_EQ(queue.ProcessCommands(), 0);
    EXPECT_EQ(queue.Stop(NyWorkQueue::kStopAfterPending, false), 0);
    EXPECT_EQ(Adopt(queue, MakeCommand()), -1);
}

// What waiting for a command says that ran in a queue before and is pending there again.
int ResultOfWaitingAfterARun(const CommandPointer& command) {
    NyWorkQueue queue("other", {}, NyWorkQueue::kCallbackMode);
    Adopt(queue, command);
    EXPECT_EQ(queue.ProcessCommands(), 0);
    NyTime timeout;
    timeout.Set(NyTime::kMicroseconds, 1000);
    return queue.WaitOnCommand(Adopt(queue, command), &timeout, NyWorkQueue::kWait);
}

TEST(NyWorkQueueTest, ADroppedCommandKeepsItsAdoptionAndIsNotDoneByRunningElsewhere) {
    EXPECT_EQ(ResultOfWaitingAfterARun(MakeCommand()), NyWorkQueue::kCommandAlreadyDone);
    for (const auto adverb : {NyWorkQueue::kStopNow, NyWorkQueue::kStopAfterPending}) {
        NyWorkQueue queue("test", {}, NyWorkQueue::kCallbackMode);
        const auto command = MakeCommand();
        Adopt(queue, command);
        EXPECT_EQ(queue.Stop(adverb, false), 0);
        EXPECT_EQ(ResultOfWaitingAfterARun(command), 0);
        EXPECT_EQ(command->mRuns, 1);
    }
    const auto command = MakeCommand();
    {
        NyWorkQueue queue("test", {}, NyWorkQueue::kCallbackMode);
        Adopt(queue, command);
    }
    EXPECT_EQ(ResultOfWaitingAfterARun(command), 0);
}

TEST(NyWorkQueueTest, StoppingNowWithoutWaitingLeavesTheTerminatingCommandToTheConsumer) {
    NyWorkQueue queue("test", {}, NyWorkQueue::kCallbackMode);
    Adopt(queue, MakeCommand());
    EXPECT_EQ(queue.Stop(NyWorkQueue::kStopNow, false), 0);
    EXPECT_EQ(queue.ProcessCommands(), 6);
}

TEST(NyWorkQueueTest, TheConsumerThatStopsItsQueueAndWaitsRunsWhatIsPendingItself) {
    NyWorkQueue queue("test", {}, NyWorkQueue::kCallbackMode);
    const auto behind = MakeCommand();
    const auto stopper = MakeCommand([&](TestCommand&) {
        Adopt(queue, behind);
        EXPECT_EQ(queue.Stop(NyWorkQueue::kStopAfterPending, true), 0);
        EXPECT_EQ(behind->mRuns, 1);
    });
    const int handle = Adopt(queue, stopper);
    EXPECT_EQ(queue.ProcessCommands(), 0);
    EXPECT_EQ(stopper->mRuns, 1);
    EXPECT_EQ(Adopt(queue, MakeCommand()), -1);
    EXPECT_EQ(queue.CancelCommand(handle, nullptr, NyWorkQueue::kNoWait), 2)
        << "the command that stopped the queue is done";
}

TEST(NyWorkQueueTest, CommandsBehindTheTerminatingOneStayUndone) {
    NyWorkQueue queue("test", {}, NyWorkQueue::kCallbackMode);
    Adopt(queue, boost::make_shared<TestCommand>(std::function<void(TestCommand&)>(), true));
    const auto behind = MakeCommand();
    Adopt(queue, behind);
    EXPECT_EQ(queue.ProcessCommands(), 6);
    EXPECT_EQ(behind->mRuns, 0);
}

TEST(NyWorkQueueTest, AnExceptionPassesThroughAndTheCommandCountsAsDone) {
    NyWorkQueue queue("test", {}, NyWorkQueue::kCallbackMode);
    Adopt(queue, MakeCommand([](TestCommand&) { throw std::string("failed"); }));
    const auto next = MakeCommand();
    Adopt(queue, next);
    EXPECT_THROW(queue.ProcessCommands(), std::string);
    EXPECT_EQ(NyWorkQueue::GetCurrentCommand(), nullptr);
    EXPECT_EQ(queue.WaitOnCommand(0, nullptr, NyWorkQueue::kWait), 0);
    EXPECT_EQ(queue.ProcessCommands(), 0);
    EXPECT_EQ(next->mRuns, 1);
}

TEST(NyWorkQueueTest, TheQueueMayGoOnceItsConsumerHasEndedThoughTheAdopterIsNotBackYet) {
    for (int round = 0; round < 500; ++round) {
        auto queue = std::make_unique<NyWorkQueue>("queue", boost::function<void(NyWorkQueue*)>(),
                                                   NyWorkQueue::kThreadMode);
        std::thread adopter([target = queue.get()] {
            CommandPointer first = MakeCommand();
            target->AdoptCommand(first, false);
            CommandPointer last = boost::make_shared<TestCommand>(nullptr, true);
            target->AdoptCommand(last, true);
        });
        while (queue->ProcessCommands() != NyWorkQueue::kQueueStopped) {
        }
        queue.reset();
        adopter.join();
    }
}

TEST(NyWorkQueueTest, ACommandThatNobodyWaitedForIsDoneAllTheSame) {
    NyWorkQueue queue("queue", {}, NyWorkQueue::kCallbackMode);
    CommandPointer command = MakeCommand();
    const int first = Adopt(queue, command);
    queue.ProcessCommands();
    // Adopted again, it is found, but there is nothing to wait for any more.
    const int second = Adopt(queue, command);
    EXPECT_EQ(queue.WaitOnCommand(second, nullptr, NyWorkQueue::kWait),
              NyWorkQueue::kCommandAlreadyDone);
    EXPECT_EQ(queue.WaitOnCommand(first, nullptr, NyWorkQueue::kWait), NyWorkQueue::kQueueOK);
    queue.ProcessCommands();
}

// A batch of three commands that the consumer is running; the first waits until it may go on.
class RunningBatch {
public:
    RunningBatch() {
        mQueue->Pause(NyWorkQueue::kPauseNow);
        Adopt(*mQueue, MakeCommand([this](TestCommand&) {
            mStarted.Open();
            mGoOn.Wait();
        }));
        for (int i = 0; i < 2; ++i) {
            mBehind.push_back(MakeCommand());
            mHandles.push_back(Adopt(*mQueue, mBehind.back()));
        }
        mQueue->Resume();
        mStarted.Wait();
    }
    ~RunningBatch() { mGoOn.Open(); }

    Gate mStarted;
    Gate mGoOn;
    std::vector<boost::shared_ptr<TestCommand>> mBehind;
    std::vector<int> mHandles;
    ThreadQueue mQueue; // the last, as its thread uses the others
};

TEST(NyWorkQueueTest, ACommandBehindTheRunningOneOfABatchCanStillBeCancelled) {
    RunningBatch batch;
    EXPECT_EQ(batch.mQueue->CancelCommand(batch.mHandles[0], nullptr, NyWorkQueue::kWait), 4);
    batch.mGoOn.Open();
    batch.mQueue->WaitOnCommand(batch.mHandles[1], nullptr, NyWorkQueue::kWait);
    EXPECT_EQ(batch.mBehind[0]->mRuns, 0);
    EXPECT_EQ(batch.mBehind[1]->mRuns, 1);
}

TEST(NyWorkQueueTest, StoppingNowReleasesWhatIsBehindTheRunningCommandAtOnce) {
    RunningBatch batch;
    EXPECT_EQ(batch.mBehind[0].use_count(), 2);
    EXPECT_EQ(batch.mQueue->Stop(NyWorkQueue::kStopNow, false), 0);
    EXPECT_EQ(batch.mBehind[0].use_count(), 1);
    EXPECT_EQ(batch.mBehind[1].use_count(), 1);
    batch.mGoOn.Open();
    batch.mQueue.Join();
    EXPECT_EQ(batch.mBehind[0]->mRuns + batch.mBehind[1]->mRuns, 0);
}

TEST(NyWorkQueueTest, TheRunningCommandOfABatchIsFoundAndWaitedForThoughOnlyTheQueueHasIt) {
    RunningBatch batch;
    std::atomic<bool> waited{false};
    std::thread waiter([&] {
        EXPECT_EQ(batch.mQueue->WaitOnCommand(0, nullptr, NyWorkQueue::kWait), 0);
        waited = true;
    });
    EXPECT_EQ(batch.mQueue->CancelCommand(0, nullptr, NyWorkQueue::kNoWait), 0) << "found";
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(waited);
    batch.mGoOn.Open();
    waiter.join();
}

TEST(NyWorkQueueTest, EveryCommandGivesOneCallOfTheConsumerThatDoesNotBlock) {
    NyWorkQueue queue("test", {}, NyWorkQueue::kThreadMode);
    const auto late = MakeCommand();
    for (int i = 0; i < 3; ++i) {
        Adopt(queue, MakeCommand());
    }
    EXPECT_EQ(queue.ProcessCommands(), 0);
    EXPECT_EQ(queue.ProcessCommands(), 0) << "nothing is left, and it does not wait";
    Adopt(queue, late);
    EXPECT_EQ(queue.ProcessCommands(), 0);
    EXPECT_EQ(late->mRuns, 1) << "run by an earlier command's call";
    EXPECT_EQ(queue.ProcessCommands(), 0);
}

TEST(NyWorkQueueTest, ACommandIsReleasedBeforeTheNextOneRuns) {
    NyWorkQueue queue("test", {}, NyWorkQueue::kThreadMode);
    std::vector<std::string> order;
    for (const char* name : {"a", "b"}) {
        const std::shared_ptr<const char> token(name, [&order](const char* released) {
            order.push_back(std::string(released) + " released");
        });
        Adopt(queue,
              MakeCommand([&order, token](TestCommand&) { order.emplace_back(token.get()); }));
    }
    queue.ProcessCommands();
    EXPECT_EQ(order, (std::vector<std::string>{"a", "a released", "b", "b released"}));
}

TEST(NyWorkQueueTest, ACommandOfABatchThatProcessesCommandsRunsThoseBehindIt) {
    NyWorkQueue queue("test", {}, NyWorkQueue::kThreadMode);
    std::vector<int> order;
    Adopt(queue, MakeCommand([&](TestCommand&) {
              order.push_back(1);
              EXPECT_EQ(queue.ProcessCommands(), 0);
              order.push_back(4);
          }));
    for (const int number : {2, 3}) {
        Adopt(queue, MakeCommand([&order, number](TestCommand&) { order.push_back(number); }));
    }
    EXPECT_EQ(queue.ProcessCommands(), 0);
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3, 4}));
}

TEST(NyWorkQueueTest, WhatIsBehindACommandOfABatchThatFailsStaysPending) {
    NyWorkQueue queue("test", {}, NyWorkQueue::kThreadMode);
    Adopt(queue, MakeCommand([](TestCommand&) { throw std::string("failed"); }));
    const auto next = MakeCommand();
    const int handle = Adopt(queue, next);
    EXPECT_THROW(queue.ProcessCommands(), std::string);
    EXPECT_EQ(queue.CancelCommand(0, nullptr, NyWorkQueue::kNoWait), 2) << "done and gone";
    EXPECT_EQ(queue.WaitOnCommand(handle, nullptr, NyWorkQueue::kNoWait), 0);
    EXPECT_EQ(next->mRuns, 0);
    EXPECT_EQ(queue.ProcessCommands(), 0);
    EXPECT_EQ(next->mRuns, 1);
}

TEST(NyWorkQueueTest, NoCommandIsForgottenWhileOthersLookForCommandsAllTheTime) {
    ThreadQueue queue;
    std::atomic<bool> stop{false};
    std::vector<std::thread> lookers;
    for (int i = 0; i < 3; ++i) {
        lookers.emplace_back([&queue, &stop] {
            while (!stop) {
                queue->WaitOnCommand(-5, nullptr, NyWorkQueue::kNoWait);
                std::this_thread::yield(); // or the consumer rarely gets the lock
            }
        });
    }
    constexpr int kRounds = 3000;
    constexpr int kPerRound = 5;
    std::atomic<int> runs{0};
    for (int round = 1; round <= kRounds; ++round) {
        for (int i = 0; i < kPerRound; ++i) {
            Adopt(*queue, MakeCommand([&runs](TestCommand&) { ++runs; }));
        }
        // Nothing more is adopted until all have run, so nothing else can wake the consumer.
        while (runs != round * kPerRound) {
            std::this_thread::yield();
        }
    }
    stop = true;
    for (std::thread& looker : lookers) {
        looker.join();
    }
}

TEST(NyWorkQueueTest, TheConsumerIsKnownFromItsFirstProcessing) {
    NyWorkQueue queue("test", {}, NyWorkQueue::kCallbackMode);
    EXPECT_TRUE(pthread_equal(queue.GetWorkThreadID(), pthread_t{}));
    queue.ProcessCommands();
    EXPECT_TRUE(pthread_equal(queue.GetWorkThreadID(), pthread_self()));
    std::thread([&] { queue.ProcessCommands(); }).join();
    EXPECT_TRUE(pthread_equal(queue.GetWorkThreadID(), pthread_self()));
    queue.Stop(NyWorkQueue::kStopNow, false);
    queue.ProcessCommands();
}

TEST(NyWorkQueueDeathTest, AnEmptyCommandAborts) {
    NyWorkQueue queue("test", {}, NyWorkQueue::kCallbackMode);
    CommandPointer empty;
    EXPECT_DEATH(queue.AdoptCommand(empty, false), "px != 0");
}

} // namespace
