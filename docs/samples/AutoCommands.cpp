#include "runtime/workqueue/NyAutoWorkerCommand.h"

#include <gtest/gtest.h>

namespace {

class Session {
public:
    void Save() { ++mSaves; }
    int GetSaves() const { return mSaves; }

private:
    int mSaves = 0;
};

} // namespace

TEST(RuntimeSamples, AutoCommands) {
    // In callback mode the owner is told of each command and processes when it likes: here, on a
    // thread that has a loop of its own.
    bool isDue = false;
    NyWorkQueue queue(
        "session", [&isDue](NyWorkQueue*) { isDue = true; }, NyWorkQueue::kCallbackMode);
    NyAutoWorkerCommand::SetWorkQueue(0, &queue); // known to all as number 0

    Session session;
    int handle = -1;
    NyAutoWorkerCommand::QueueGetHandle(&Session::Save, &session, handle, 0, nullptr);
    EXPECT_EQ(handle, 0);

    // Any callable without arguments will do.
    boost::shared_ptr<NyWorkQueue::CCommand> command =
        boost::make_shared<NyAutoWorkerCommand>([&session] { session.Save(); });
    NyAutoWorkerCommand::Queue(command, kGivenWorkQueue, &queue);

    EXPECT_TRUE(isDue);
    EXPECT_EQ(session.GetSaves(), 0);
    queue.ProcessCommands();
    EXPECT_EQ(session.GetSaves(), 2);
    NyAutoWorkerCommand::SetWorkQueue(0, nullptr);
}
