#include "midiserver/service/watch/Watch.h"

#include "tests/support/TemporaryDirectory.h"
#include "tests/support/WaitUntil.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <fstream>
#include <string>

namespace MidiServer {
namespace {

using TestSupport::WaitUntil;

class WatchTest : public testing::Test {
protected:
    Watch::Callbacks Counting() {
        return {[this] { ++mEnds; }, [this] { ++mReloads; }, [this] { ++mChanges; },
                [this] { ++mTicks; }};
    }

    const TemporaryDirectory mDirectory;
    const std::string mFile = mDirectory.Path() + "/file";
    std::atomic<int> mEnds{0};
    std::atomic<int> mReloads{0};
    std::atomic<int> mChanges{0};
    std::atomic<int> mTicks{0};
};

TEST_F(WatchTest, TellsEachSignal) {
    const Watch watch({mFile, {}}, Counting());
    kill(getpid(), SIGHUP);
    ASSERT_TRUE(WaitUntil("it reloads", [this] { return mReloads == 1; }));
    kill(getpid(), SIGHUP);
    ASSERT_TRUE(WaitUntil("it reloads again", [this] { return mReloads == 2; }));
    kill(getpid(), SIGTERM);
    ASSERT_TRUE(WaitUntil("it ends", [this] { return mEnds == 1; }));
    EXPECT_EQ(mReloads, 2);
    EXPECT_EQ(mChanges, 0);
}

TEST_F(WatchTest, TakesAnInterruptForTheEndToo) {
    const Watch watch({mFile, {}}, Counting());
    kill(getpid(), SIGINT);

    ASSERT_TRUE(WaitUntil("it ends", [this] { return mEnds == 1; }));
}

TEST_F(WatchTest, LetsTheSecondSignalEndTheProcess) {
    EXPECT_EXIT(
        {
            const Watch watch({mFile, {}}, {[] { kill(getpid(), SIGTERM); }, [] {}, [] {}, [] {}});
            kill(getpid(), SIGTERM);
            for (;;) {
                pause();
            }
        },
        testing::KilledBySignal(SIGTERM), "");
}

TEST_F(WatchTest, GivesTheSignalsBack) {
    { const Watch watch({mFile, {}}, Counting()); }
    struct sigaction action {};
    sigaction(SIGHUP, nullptr, &action);

    EXPECT_EQ(action.sa_handler, SIG_DFL);
}

TEST_F(WatchTest, TellsThatTheFileChanged) {
    const Watch watch({mFile, {}}, Counting());
    std::ofstream(mFile) << "text";
    ASSERT_TRUE(WaitUntil("the file has changed", [this] { return mChanges > 0; }));
    const int before = mChanges;
    std::ofstream(mFile) << "other text";
    ASSERT_TRUE(WaitUntil("the file has changed again", [&] { return mChanges > before; }));
}

TEST_F(WatchTest, TicksIfAsked) {
    const Watch watch({mFile, std::chrono::milliseconds(1)}, Counting());

    ASSERT_TRUE(WaitUntil("there are three ticks", [this] { return mTicks >= 3; }));
}

TEST_F(WatchTest, DoesNotTickOtherwise) {
    const Watch watch({mFile, {}}, Counting());
    kill(getpid(), SIGHUP);
    ASSERT_TRUE(WaitUntil("it reloads", [this] { return mReloads == 1; }));

    EXPECT_EQ(mTicks, 0);
}

} // namespace
} // namespace MidiServer
