#include "runtime/workqueue/NyAutoWorkerCommand.h"

#include "runtime/workqueue/NyWorkQueueHelper.h"

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

namespace {

using CommandPointer = boost::shared_ptr<NyWorkQueue::CCommand>;

class NyAutoWorkerCommandTest : public ::testing::Test {
protected:
    ~NyAutoWorkerCommandTest() override {
        for (tNyWorkQueueID id = 0; id < 3; ++id) {
            NyAutoWorkerCommand::SetWorkQueue(id, nullptr);
        }
    }

    CommandPointer MakeCommand() {
        return boost::make_shared<NyAutoWorkerCommand>([this] { ++mRuns; });
    }

    NyWorkQueue mQueue{"test", {}, NyWorkQueue::kCallbackMode};
    NyWorkQueue mOther{"other", {}, NyWorkQueue::kCallbackMode};
    int mRuns = 0;
};

TEST_F(NyAutoWorkerCommandTest, TheRegistryIsEmptyAtFirst) {
    for (tNyWorkQueueID id = -1; id < 4; ++id) {
        EXPECT_EQ(NyAutoWorkerCommand::GetWorkQueue(id), nullptr) << id;
    }
}

TEST_F(NyAutoWorkerCommandTest, AGivenQueueIsUsedUnderNumberTwo) {
    CommandPointer command = MakeCommand();
    EXPECT_EQ(NyAutoWorkerCommand::Queue(command, 2, &mQueue), 0);
    EXPECT_NE(command, nullptr);
    mQueue.ProcessCommands();
    EXPECT_EQ(mRuns, 1);
}

TEST_F(NyAutoWorkerCommandTest, WithoutAGivenQueueNothingIsQueuedAndTheCallerKeepsTheCommand) {
    CommandPointer command = MakeCommand();
    NyAutoWorkerCommand::Queue(command, 2, nullptr);
    ASSERT_NE(command, nullptr);
    EXPECT_EQ(command.use_count(), 1);
}

TEST_F(NyAutoWorkerCommandTest, ARegisteredNumberIgnoresTheGivenQueue) {
    NyAutoWorkerCommand::SetWorkQueue(0, &mOther);
    EXPECT_EQ(NyAutoWorkerCommand::GetWorkQueue(0), &mOther);
    CommandPointer command = MakeCommand();
    NyAutoWorkerCommand::Queue(command, 0, &mQueue);
    mQueue.ProcessCommands();
    EXPECT_EQ(mRuns, 0);
    mOther.ProcessCommands();
    EXPECT_EQ(mRuns, 1);
}

TEST_F(NyAutoWorkerCommandTest, ANumberWithoutAQueueQueuesNothingAndLeavesTheHandle) {
    for (tNyWorkQueueID id : {-1, 0, 1, 3, 1000}) {
        CommandPointer command = MakeCommand();
        int handle = 42;
        NyAutoWorkerCommand::QueueGetHandle(command, handle, id, &mQueue);
        EXPECT_EQ(handle, 42) << id;
        EXPECT_EQ(command.use_count(), 1) << id;
    }
}

TEST_F(NyAutoWorkerCommandTest, SettingANumberOutsideTheRegistryDoesNothing) {
    NyAutoWorkerCommand::SetWorkQueue(-1, &mQueue);
    NyAutoWorkerCommand::SetWorkQueue(3, &mQueue);
    EXPECT_EQ(NyAutoWorkerCommand::GetWorkQueue(-1), nullptr);
    EXPECT_EQ(NyAutoWorkerCommand::GetWorkQueue(3), nullptr);
}

TEST_F(NyAutoWorkerCommandTest, AClosedQueueGivesMinusOneAndEmptiesTheCommand) {
    mQueue.Stop(NyWorkQueue::kStopNow, false);
    CommandPointer command = MakeCommand();
    int handle = 42;
    EXPECT_EQ(NyAutoWorkerCommand::QueueGetHandle(command, handle, 2, &mQueue), 0);
    EXPECT_EQ(handle, -1);
    EXPECT_EQ(command, nullptr);
    mQueue.ProcessCommands();
}

TEST_F(NyAutoWorkerCommandTest, HelperFunctionsAreRegisteredEvenWhenNothingIsQueued) {
    int queued = 0;
    int done = 0;
    const auto helper =
        boost::make_shared<NyWorkQueueHelper>([&](int) { ++queued; }, [&](int) { ++done; });
    CommandPointer command = MakeCommand();
    int handle = 42;
    NyAutoWorkerCommand::QueueWithHelperAndGetHandle(command, helper, handle, 5, &mQueue);
    EXPECT_EQ(handle, 42);
    EXPECT_EQ(queued, 0);
    NyAutoWorkerCommand::Queue(command, 2, &mQueue);
    mQueue.ProcessCommands();
    EXPECT_EQ(queued, 1);
    EXPECT_EQ(done, 1);
}

TEST_F(NyAutoWorkerCommandTest, WithAHelperTheHandleIsGivenToo) {
    int queuedHandle = -1;
    const auto helper = boost::make_shared<NyWorkQueueHelper>(
        [&](int given) { queuedHandle = given; }, boost::function<void(int)>());
    mQueue.getNextCommandSerialNumber();
    CommandPointer command = MakeCommand();
    int handle = 42;
    EXPECT_EQ(NyAutoWorkerCommand::QueueWithHelperAndGetHandle(command, helper, handle, 2, &mQueue),
              0);
    EXPECT_EQ(handle, 1);
    EXPECT_EQ(queuedHandle, 1);
    CommandPointer empty;
    NyAutoWorkerCommand::QueueWithHelper(empty, helper, 2, &mQueue);
    EXPECT_EQ(empty, nullptr);
    mQueue.ProcessCommands();
    EXPECT_EQ(mRuns, 1);
}

TEST_F(NyAutoWorkerCommandTest, AMemberFunctionIsBoundToItsObject) {
    struct Counter {
        void Count() { ++mCount; }
        int mCount = 0;
    } counter;
    int handle = -1;
    EXPECT_EQ(NyAutoWorkerCommand::QueueGetHandle(&Counter::Count, &counter, handle, 2, &mQueue),
              0);
    EXPECT_EQ(handle, 0);
    mQueue.ProcessCommands();
    EXPECT_EQ(counter.mCount, 1);
}

TEST_F(NyAutoWorkerCommandTest, AnEmptyFunctionThrowsWhenItRuns) {
    CommandPointer command = boost::make_shared<NyAutoWorkerCommand>(boost::function<void()>());
    EXPECT_THROW(command->Do(), boost::bad_function_call);
}

} // namespace
