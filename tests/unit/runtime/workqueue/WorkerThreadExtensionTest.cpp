#include "runtime/workqueue/WorkerThreadExtension.h"

#include "runtime/thread/NyThread.h"
#include "runtime/workqueue/AutoreleasePool.h"
#include "runtime/workqueue/NyAutoWorkerCommand.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace {

// What the hooks did with pools: 'n' a new one, 'r' a release of one, '-' a release of none.
std::vector<char> sPools;
int sPool = 0;

} // namespace

// This program's pools stand in for the host's.
void* NewAutoreleasePool() {
    sPools.push_back('n');
    return &sPool;
}

void ReleaseAutoreleasePool(void* pool) {
    sPools.push_back(pool == nullptr ? '-' : 'r');
}

namespace {

class WorkerThreadExtensionTest : public ::testing::Test {
protected:
    void SetUp() override {
        NyThread::Initialize();
        sPools.clear();
    }

    template <typename Body>
    void OnAnotherThread(Body body) {
        std::thread(body).join();
    }
};

TEST_F(WorkerThreadExtensionTest, AConsumerOffTheMainThreadGetsAPoolAndReleasesItAtTheEnd) {
    OnAnotherThread([] { NyWorkQueuePostTaskRun(NyWorkQueuePreTaskRun()); });
    EXPECT_EQ(sPools, (std::vector<char>{'n', 'r', '-'}));
}

TEST_F(WorkerThreadExtensionTest, TheMainThreadKeepsItsOwnPool) {
    void* extension = NyWorkQueuePreTaskRun();
    NyWorkQueuePreCommand(extension);
    EXPECT_EQ(static_cast<WorkerThreadExtension*>(extension)->GetCount(), 1);
    NyWorkQueuePostCommandBlock(extension);
    EXPECT_EQ(static_cast<WorkerThreadExtension*>(extension)->GetCount(), 0)
        << "the count restarts all the same";
    NyWorkQueuePostTaskRun(extension);
    EXPECT_TRUE(sPools.empty());
}

TEST_F(WorkerThreadExtensionTest, TheHundredthCommandSinceTheLastDrainDrainsThePool) {
    OnAnotherThread([] {
        void* extension = NyWorkQueuePreTaskRun();
        for (int round = 0; round < 2; ++round) {
            for (int i = 0; i < 99; ++i) {
                NyWorkQueuePreCommand(extension);
                NyWorkQueuePostCommand(extension);
            }
            const std::size_t before = sPools.size();
            NyWorkQueuePreCommand(extension);
            EXPECT_EQ(sPools.size(), before);
            NyWorkQueuePostCommand(extension);
            EXPECT_EQ(sPools.size(), before + 2);
        }
        NyWorkQueuePostTaskRun(extension);
    });
    EXPECT_EQ(sPools, (std::vector<char>{'n', 'r', 'n', 'r', 'n', 'r', '-'}));
}

TEST_F(WorkerThreadExtensionTest, TheQueueDrainsAfterEachBatchAndEveryHundredCommands) {
    NyWorkQueue queue("test", {}, NyWorkQueue::kCallbackMode);
    const auto adopt = [&](int count) {
        for (int i = 0; i < count; ++i) {
            boost::shared_ptr<NyWorkQueue::CCommand> command =
                boost::make_shared<NyAutoWorkerCommand>([] {});
            queue.AdoptCommand(command, false);
        }
    };
    OnAnotherThread([&] {
        adopt(3);
        queue.ProcessCommands();
        EXPECT_EQ(sPools, (std::vector<char>{'n', 'r', 'n'}));
        sPools.clear();
        adopt(250);
        queue.ProcessCommands();
        EXPECT_EQ(sPools, (std::vector<char>{'r', 'n', 'r', 'n', 'r', 'n'}));
        sPools.clear();
        queue.Stop(NyWorkQueue::kStopNow, false);
        EXPECT_EQ(queue.ProcessCommands(), NyWorkQueue::kQueueStopped);
        EXPECT_EQ(sPools, (std::vector<char>{'r', 'n', 'r', '-'}));
    });
}

TEST_F(WorkerThreadExtensionTest, HooksWithoutARecordDoNothing) {
    NyWorkQueuePreCommandBlock(nullptr);
    NyWorkQueuePreCommand(nullptr);
    NyWorkQueuePostCommand(nullptr);
    NyWorkQueuePostCommandBlock(nullptr);
    NyWorkQueuePostTaskRun(nullptr);
    NyWorkQueueDiscardTaskRun(nullptr);
    EXPECT_TRUE(sPools.empty());
}

TEST_F(WorkerThreadExtensionTest, AQueueThatWasNeverStoppedLeavesThePoolToItsThread) {
    OnAnotherThread([] {
        NyWorkQueue queue("test", {}, NyWorkQueue::kCallbackMode);
        queue.ProcessCommands();
        sPools.clear();
    });
    EXPECT_TRUE(sPools.empty());
}

} // namespace
