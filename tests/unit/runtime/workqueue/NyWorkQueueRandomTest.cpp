// Several producers, waiters, cancellers and a pauser at once, on both modes. Every command runs
// once or was cancelled, in the order of adoption, and every waiter is released; a deadlock ends
// in the test's time-out.
#include "runtime/sync/NyEvent.h"
#include "runtime/workqueue/NyWorkQueue.h"

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

namespace {

constexpr int kProducers = 3;
constexpr int kCommandsEach = 2000;

struct Ledger {
    std::mutex mMutex;
    std::vector<int> mRunOrder; // places in the order of adoption

    void Ran(int place) {
        const std::lock_guard lock(mMutex);
        mRunOrder.push_back(place);
    }
};

// What became of a command; outlives it.
struct Record {
    std::atomic<int> mPlace{-1};
    std::atomic<int> mRuns{0};
    std::atomic<bool> mCanceled{false};
    std::atomic<bool> mReleased{false};
};

class CountedCommand : public NyWorkQueue::CCommand {
public:
    CountedCommand(Ledger& ledger, Record& record)
        : CCommand(false), mLedger(ledger), mRecord(record) {}
    ~CountedCommand() override { mRecord.mReleased = true; }
    void Do() override {
        ++mRecord.mRuns;
        mLedger.Ran(mRecord.mPlace);
    }
    void cancel() override {
        mRecord.mCanceled = true;
        CCommand::cancel();
    }

private:
    Ledger& mLedger;
    Record& mRecord;
};

class NyWorkQueueRandomTest : public ::testing::TestWithParam<NyWorkQueue::tQueueMode> {};

INSTANTIATE_TEST_SUITE_P(Modes, NyWorkQueueRandomTest,
                         ::testing::Values(NyWorkQueue::kCallbackMode, NyWorkQueue::kThreadMode),
                         [](const auto& mode) {
                             return mode.param == NyWorkQueue::kThreadMode ? "Thread" : "Callback";
                         });

TEST_P(NyWorkQueueRandomTest, EveryCommandRunsOnceOrIsCancelledAndEveryWaiterIsReleased) {
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE(::testing::Message() << "seed " << seed);

    NyEvent called(NyEvent::kAutoReset, NyEvent::kNotSignaled);
    NyWorkQueue queue(
        "random", [&](NyWorkQueue*) { called.Signal(); }, GetParam());
    std::atomic<bool> stopped{false};
    std::thread consumer([&] {
        while (queue.ProcessCommands() != NyWorkQueue::kQueueStopped) {
            if (GetParam() == NyWorkQueue::kCallbackMode) {
                called.Wait(0xFFFFFFFFU);
            }
        }
        stopped = true;
    });

    Ledger ledger;
    std::mutex commandsMutex;
    std::vector<std::unique_ptr<Record>> records;
    // About every second command; the others belong to the queue alone, which then destroys them.
    std::vector<boost::shared_ptr<NyWorkQueue::CCommand>> kept;
    std::atomic<int> highestHandle{0};
    std::atomic<bool> producing{true};

    std::vector<std::thread> threads;
    threads.reserve(kProducers);
    for (int producer = 0; producer < kProducers; ++producer) {
        threads.emplace_back([&, producer] {
            std::mt19937 random(seed + static_cast<unsigned>(producer));
            for (int i = 0; i < kCommandsEach; ++i) {
                auto owned = std::make_unique<Record>();
                Record& record = *owned;
                boost::shared_ptr<NyWorkQueue::CCommand> command =
                    boost::make_shared<CountedCommand>(ledger, record);
                const bool keeps = random() % 2 == 0;
                // One step, so that places are in the order of adoption.
                int handle = -1;
                {
                    const std::lock_guard lock(commandsMutex);
                    record.mPlace = static_cast<int>(records.size());
                    queue.AdoptCommand(command, handle, false);
                    ASSERT_GE(handle, 0);
                    highestHandle = handle;
                    records.push_back(std::move(owned));
                    if (keeps) {
                        kept.push_back(command);
                    }
                }
                command.reset();
                switch (random() % 8) {
                case 0:
                    queue.WaitOnCommand(handle, nullptr, NyWorkQueue::kWait);
                    // A canceller releases the waiter just before it marks the command.
                    while (record.mRuns == 0 && !record.mCanceled) {
                        std::this_thread::yield();
                    }
                    break;
                case 1: {
                    const int result =
                        queue.CancelCommand(handle, nullptr, NyWorkQueue::kWaitUnlessCanceled);
                    EXPECT_TRUE(result == 0 || result == 2 || result == 4) << result;
                    break;
                }
                default:
                    break;
                }
            }
        });
    }
    std::thread canceller([&] {
        std::mt19937 random(seed + 100);
        while (producing) {
            // Now and then that of a queued pause.
            const auto handle =
                static_cast<int>(random() % (static_cast<unsigned>(highestHandle) + 2));
            queue.CancelCommand(handle, nullptr, NyWorkQueue::kNoWait);
            std::this_thread::yield();
        }
    });
    std::thread pauser([&] {
        std::mt19937 random(seed + 200);
        while (producing) {
            queue.Pause(random() % 2 == 0 ? NyWorkQueue::kPauseNow : NyWorkQueue::kPauseQueued);
            std::this_thread::yield();
            queue.Resume();
        }
    });

    for (std::thread& thread : threads) {
        thread.join();
    }
    producing = false;
    canceller.join();
    pauser.join();
    queue.Stop(NyWorkQueue::kStopAfterPending, true);
    consumer.join();
    EXPECT_TRUE(stopped);

    ASSERT_EQ(records.size(), static_cast<std::size_t>(kProducers * kCommandsEach));
    int previous = -1;
    for (const int place : ledger.mRunOrder) {
        EXPECT_GT(place, previous) << "out of order, or twice";
        previous = place;
    }
    kept.clear();
    for (const auto& record : records) {
        EXPECT_LE(record->mRuns, 1);
        EXPECT_TRUE(record->mRuns == 1 || record->mCanceled) << record->mPlace;
        EXPECT_TRUE(record->mReleased) << record->mPlace;
    }
}

} // namespace
