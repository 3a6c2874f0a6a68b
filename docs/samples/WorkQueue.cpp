#include "runtime/thread/NyThread.h"
#include "runtime/workqueue/NyWorkQueue.h"

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

// The consumer: the queue brings no thread of its own.
class Consumer : public NyThread {
public:
    explicit Consumer(NyWorkQueue& queue) : mQueue(queue) {}
    void Run() override {
        while (mQueue.ProcessCommands() != NyWorkQueue::kQueueStopped) {
        }
    }

private:
    NyWorkQueue& mQueue;
};

class LoadCommand : public NyWorkQueue::CCommand {
public:
    LoadCommand(std::string name, std::vector<std::string>& loaded)
        : CCommand(false), mName(std::move(name)), mLoaded(loaded) {}
    void Do() override { mLoaded.push_back(mName); }

private:
    std::string mName;
    std::vector<std::string>& mLoaded;
};

} // namespace

TEST(RuntimeSamples, WorkQueue) {
    NyWorkQueue queue("control", {}, NyWorkQueue::kThreadMode);
    Consumer consumer(queue);
    std::vector<std::string> loaded; // the consumer's until the queue has stopped

    // A paused queue keeps what it is given.
    queue.Pause(NyWorkQueue::kPauseNow);
    consumer.Start();
    int handles[3];
    const char* const names[3] = {"one", "two", "three"};
    for (int i = 0; i < 3; ++i) {
        boost::shared_ptr<NyWorkQueue::CCommand> command =
            boost::make_shared<LoadCommand>(names[i], loaded);
        queue.AdoptCommand(command, handles[i], false);
    }
    EXPECT_EQ(queue.CancelCommand(handles[1], nullptr, NyWorkQueue::kNoWait),
              NyWorkQueue::kQueueOK);
    queue.Resume();
    queue.WaitOnCommand(handles[2], nullptr, NyWorkQueue::kWait);

    // Runs what is pending, then ends the consumer's loop.
    queue.Stop(NyWorkQueue::kStopAfterPending, true);
    consumer.WaitForExit();
    EXPECT_EQ(loaded, (std::vector<std::string>{"one", "three"}));
}
