#include "midiserver/service/ServiceLock.h"

#include "midiserver/errors/Errors.h"
#include "tests/support/TemporaryDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <optional>
#include <string>

namespace MidiServer {
namespace {

class ServiceLockTest : public testing::Test {
protected:
    ServiceLockTest() { setenv("QUORVEL_RUNTIME_DIR", mDirectory.Path().c_str(), 1); }

    const TemporaryDirectory mDirectory;
};

// Another process that holds the lock until it is killed.
class OtherService {
public:
    OtherService() {
        int pipe[2];
        if (::pipe(pipe) != 0) {
            return;
        }
        mProcess = ::fork();
        if (mProcess == 0) {
            const ServiceLock lock;
            if (::write(pipe[1], "x", 1) == 1) {
                ::pause();
            }
            ::_exit(1);
        }
        ::close(pipe[1]);
        char byte = 0;
        mHasLock = ::read(pipe[0], &byte, 1) == 1;
        ::close(pipe[0]);
    }
    ~OtherService() { Kill(); }
    OtherService(const OtherService&) = delete;
    OtherService& operator=(const OtherService&) = delete;

    void Kill() {
        if (mProcess > 0) {
            ::kill(mProcess, SIGKILL);
            ::waitpid(mProcess, nullptr, 0);
            mProcess = -1;
        }
    }
    pid_t Process() const { return mProcess; }
    bool HasLock() const { return mHasLock; }

private:
    pid_t mProcess = -1;
    bool mHasLock = false;
};

TEST_F(ServiceLockTest, NamesTheProcessThatHasIt) {
    const OtherService other;
    ASSERT_TRUE(other.HasLock());
    try {
        const ServiceLock lock;
        FAIL() << "two processes have the lock";
    } catch (const ServiceStateError& error) {
        EXPECT_EQ(error.what(), "another service (process " + std::to_string(other.Process()) +
                                    ") runs already in " + mDirectory.Path() +
                                    "; end that one, or set QUORVEL_RUNTIME_DIR to another folder");
    }
}

TEST_F(ServiceLockTest, EndsWithAProcessThatIsKilled) {
    OtherService other;
    ASSERT_TRUE(other.HasLock());
    other.Kill();

    EXPECT_NO_THROW(ServiceLock());
}

TEST_F(ServiceLockTest, EndsWithItsObject) {
    { const ServiceLock lock; }
    const OtherService other;

    EXPECT_TRUE(other.HasLock());
}

TEST_F(ServiceLockTest, IsAnotherOneInAnotherFolder) {
    const OtherService other;
    ASSERT_TRUE(other.HasLock());
    const TemporaryDirectory second;
    setenv("QUORVEL_RUNTIME_DIR", second.Path().c_str(), 1);

    EXPECT_NO_THROW(ServiceLock());
}

TEST_F(ServiceLockTest, SaysWhatIsWrongWithTheFolder) {
    ASSERT_EQ(chmod(mDirectory.Path().c_str(), 0777), 0);
    try {
        const ServiceLock lock;
        FAIL() << "a folder that others may write to was used";
    } catch (const HostError& error) {
        EXPECT_EQ(error.what(), "the runtime folder cannot be used: " + mDirectory.Path() +
                                    ": other users may write to this folder; give it mode 0700");
    }
}

TEST_F(ServiceLockTest, SaysWhatIsWrongWithItsFile) {
    const std::string path = mDirectory.Path() + "/service.lock";
    ASSERT_EQ(mkdir(path.c_str(), 0700), 0);
    try {
        const ServiceLock lock;
        FAIL() << "a folder was locked as a file";
    } catch (const HostError& error) {
        EXPECT_EQ(error.what(), path + ": Is a directory");
    }
}

} // namespace
} // namespace MidiServer
