#include "platform/support/CFOwned.h"
#include "tests/support/Sanitized.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/platform/CFText.h"
#include "tests/support/platform/SyslogCapture.h"

#include <CoreFoundation/CFMessagePort.h>
#include <CoreFoundation/CFMessagePortHost.h>

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <random>
#include <string>
#include <thread>
#include <vector>

#if !defined(QUORVEL_SANITIZED)    // whose runtimes have an epoll_wait of their own
std::atomic<int> sEpollTimeout{0}; // of the latest wait, in milliseconds

// Stands in for the C library's.
extern "C" __attribute__((visibility("default"))) int epoll_wait(int epoll, epoll_event* events,
                                                                 int count, int timeout) {
    static const auto real =
        reinterpret_cast<decltype(&epoll_wait)>(dlsym(RTLD_NEXT, "epoll_wait"));
    if (timeout != 0) {
        sEpollTimeout = timeout;
    }
    return real(epoll, events, count, timeout);
}
#endif

namespace {

using Port = CFOwned<CFMessagePortRef>;
using Source = CFOwned<CFRunLoopSourceRef>;
using Data = CFOwned<CFDataRef>;
using Bytes = std::vector<std::uint8_t>;
using CallOut = std::function<Data(CFMessagePortRef, SInt32, const Bytes&)>;

constexpr CFTimeInterval kLong = 1000; // only the test's own time limit is shorter
constexpr std::size_t kHeaderSize = 20;

Data MakeData(const Bytes& bytes) {
    return Data(CFDataCreate(nullptr, bytes.data(), static_cast<CFIndex>(bytes.size())));
}

Bytes BytesOf(CFDataRef data) {
    const UInt8* const bytes = CFDataGetBytePtr(data);
    return {bytes, bytes + CFDataGetLength(data)};
}

Port MakeRemote(CFStringRef name) {
    return Port(CFMessagePortCreateRemote(nullptr, name));
}

// A local port whose source is in the loop of the thread that made it.
class LocalPort {
public:
    LocalPort(CFStringRef name, CallOut callOut) : mCallOut(std::move(callOut)) {
        CFMessagePortContext context{};
        context.info = this;
        mPort = Port(CFMessagePortCreateLocal(nullptr, name, Call, &context, nullptr));
        if (mPort) {
            mSource = Source(CFMessagePortCreateRunLoopSource(nullptr, mPort.Get(), 0));
            CFRunLoopAddSource(CFRunLoopGetCurrent(), mSource.Get(), kCFRunLoopDefaultMode);
        }
    }
    LocalPort(const LocalPort&) = delete;
    LocalPort& operator=(const LocalPort&) = delete;
    ~LocalPort() { CFMessagePortInvalidate(mPort.Get()); }

    CFMessagePortRef Get() const { return mPort.Get(); }

private:
    static CFDataRef Call(CFMessagePortRef port, SInt32 msgid, CFDataRef data, void* info) {
        Data reply = static_cast<LocalPort*>(info)->mCallOut(port, msgid, BytesOf(data));
        return reply ? static_cast<CFDataRef>(CFRetain(reply.Get())) : nullptr;
    }

    CallOut mCallOut;
    Port mPort;
    Source mSource;
};

Data Echo(CFMessagePortRef, SInt32 msgid, const Bytes& request) {
    Bytes reply = request;
    reply.push_back(static_cast<std::uint8_t>(msgid & 0xFF));
    return MakeData(reply);
}

// A local port served by a thread of its own.
class ServedPort {
public:
    explicit ServedPort(CFStringRef name, CallOut callOut = Echo) {
        std::promise<void> ready;
        mThread = std::thread([&, name, callOut = std::move(callOut)] {
            const LocalPort port(name, callOut);
            mPort = Port(static_cast<CFMessagePortRef>(const_cast<void*>(CFRetain(port.Get()))));
            ready.set_value();
            CFRunLoopRun();
        });
        ready.get_future().wait();
    }
    ServedPort(const ServedPort&) = delete;
    ServedPort& operator=(const ServedPort&) = delete;
    ~ServedPort() {
        Invalidate();
        mThread.join();
    }

    CFMessagePortRef Get() const { return mPort.Get(); }
    // Ends the thread's run as well, since nothing is left in its loop.
    void Invalidate() { CFMessagePortInvalidate(mPort.Get()); }

private:
    Port mPort;
    std::thread mThread;
};

struct Answer {
    SInt32 result = 1;
    Data data;
};

Answer Ask(CFMessagePortRef remote, SInt32 msgid, const Bytes& request = {},
           CFTimeInterval receiveTimeout = kLong) {
    Answer answer;
    CFDataRef reply = nullptr;
    const Data data = MakeData(request);
    answer.result = CFMessagePortSendRequest(remote, msgid, data.Get(), kLong, receiveTimeout,
                                             kCFRunLoopDefaultMode, &reply);
    answer.data = Data(reply);
    return answer;
}

// A child process that runs `body` and exits with its result. Made before this process has used a
// run loop or a thread.
class Child {
public:
    explicit Child(const std::function<int()>& body) : mId(fork()) {
        if (mId == 0) {
            _exit(body());
        }
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    ~Child() {
        if (mId > 0) {
            kill(mId, SIGKILL);
            waitpid(mId, nullptr, 0);
        }
    }
    pid_t Id() const { return mId; }
    int Wait() {
        int status = 0;
        waitpid(std::exchange(mId, -1), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    void Kill() {
        kill(mId, SIGKILL);
        Wait();
    }

private:
    pid_t mId;
};

// Why this process does not serve a port; empty when nothing is known.
std::string FailureOf(CFStringRef name) {
    const CFOwned<CFStringRef> failure(CFMessagePortHostCopyLocalFailure(name));
    return failure ? TestSupport::TextOf(failure.Get()) : "";
}

class CFMessagePortTest : public testing::Test {
protected:
    CFMessagePortTest() { setenv("QUORVEL_RUNTIME_DIR", mDirectory.Path().c_str(), 1); }

    std::string SocketPath(const std::string& file) const {
        return mDirectory.Path() + "/" + file + ".port";
    }

    // A connection that speaks whatever the test wants.
    static int RawConnection(const std::string& path) {
        const int raw = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
        if (connect(raw, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
            close(raw);
            return -1;
        }
        return raw;
    }

    static void SendRaw(int raw, const Bytes& bytes) {
        std::size_t sent = 0;
        while (sent < bytes.size()) {
            const ssize_t count = send(raw, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
            if (count <= 0) {
                return; // the port has closed the connection, as some tests want it to
            }
            sent += static_cast<std::size_t>(count);
        }
    }

    // Everything until the port closes the connection, or until `wanted` bytes are there.
    static Bytes ReadRaw(int raw, std::size_t wanted = SIZE_MAX) {
        Bytes all;
        Bytes part(65536);
        while (all.size() < wanted) {
            const ssize_t count =
                recv(raw, part.data(), std::min(part.size(), wanted - all.size()), 0);
            if (count <= 0) {
                break;
            }
            all.insert(all.end(), part.begin(), part.begin() + count);
        }
        return all;
    }

    static Bytes Frame(std::uint16_t kind, std::uint32_t sequence, std::int32_t msgid,
                       std::uint32_t length, const Bytes& payload = {}) {
        Bytes bytes{'Q', 'M', 'P', 'F', 0, 1};
        const auto put = [&](std::uint32_t value, int count) {
            for (int shift = (count - 1) * 8; shift >= 0; shift -= 8) {
                bytes.push_back(static_cast<std::uint8_t>((value >> shift) & 0xFF));
            }
        };
        put(kind, 2);
        put(sequence, 4);
        put(static_cast<std::uint32_t>(msgid), 4);
        put(length, 4);
        bytes.insert(bytes.end(), payload.begin(), payload.end());
        return bytes;
    }

    const TemporaryDirectory mDirectory;
};

TEST_F(CFMessagePortTest, AnswersARequest) {
    const ServedPort local(CFSTR("a port"));
    const Port remote = MakeRemote(CFSTR("a port"));
    ASSERT_TRUE(remote);
    EXPECT_EQ(CFGetTypeID(remote.Get()), CFMessagePortGetTypeID());
    for (const SInt32 msgid : {1, 0, -2, INT32_MAX, INT32_MIN}) {
        const Answer answer = Ask(remote.Get(), msgid, {7, 8});
        ASSERT_EQ(answer.result, kCFMessagePortSuccess);
        ASSERT_TRUE(answer.data);
        EXPECT_EQ(BytesOf(answer.data.Get()),
                  (Bytes{7, 8, static_cast<std::uint8_t>(msgid & 0xFF)}));
    }
}

#if !defined(QUORVEL_SANITIZED)
// A process that only serves a port must not wake up while nobody asks.
TEST_F(CFMessagePortTest, LetsTheThreadThatServesItSleepWithoutALimit) {
    const ServedPort port(CFSTR("a port"));
    EXPECT_TRUE(TestSupport::WaitUntil("it sleeps", [] { return sEpollTimeout == -1; }));
}
#endif

TEST_F(CFMessagePortTest, AnswersRequestsOfAnotherProcess) {
    int go[2];
    ASSERT_EQ(pipe(go), 0);
    Child child([&] {
        char byte = 0;
        if (read(go[0], &byte, 1) != 1) {
            return 2;
        }
        const Port remote = MakeRemote(CFSTR("between processes"));
        for (int i = 0; i < 100; ++i) {
            const Answer answer = Ask(remote.Get(), i, {1, 2, 3});
            if (answer.result != kCFMessagePortSuccess ||
                BytesOf(answer.data.Get()) != Bytes{1, 2, 3, static_cast<std::uint8_t>(i)}) {
                return 1;
            }
        }
        return 0;
    });
    const ServedPort local(CFSTR("between processes"));
    ASSERT_EQ(write(go[1], "g", 1), 1);
    EXPECT_EQ(child.Wait(), 0);
    close(go[0]);
    close(go[1]);
}

// A process that serves a port until it is killed; returns when it serves.
std::function<int()> Server(CFStringRef name, int ready) {
    return [=] {
        const LocalPort port(name, Echo);
        if (port.Get() == nullptr || write(ready, "r", 1) != 1) {
            return 1;
        }
        CFRunLoopRun();
        return 0;
    };
}

// A child process that waits until it is told to run its body: all children have to be made before
// this process uses a thread.
class WaitingChild {
public:
    explicit WaitingChild(std::function<int()> body)
        : mStart(MakePipe()), mChild([this, body = std::move(body)] {
              char byte = 0;
              return read(mStart[0], &byte, 1) == 1 ? body() : 1;
          }) {}

    void Start() { ASSERT_EQ(write(mStart[1], "s", 1), 1); }
    void Kill() { mChild.Kill(); }
    void Wait() { mChild.Wait(); }

private:
    static std::array<int, 2> MakePipe() {
        std::array<int, 2> ends{};
        EXPECT_EQ(pipe(ends.data()), 0);
        return ends;
    }

    std::array<int, 2> mStart;
    Child mChild;
};

void AwaitByte(int descriptor) {
    char byte = 0;
    ASSERT_EQ(read(descriptor, &byte, 1), 1);
}

TEST_F(CFMessagePortTest, RemoteBecomesInvalidForGoodWhenItsProcessDies) {
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    Child first(Server(CFSTR("mortal"), ready[1]));
    WaitingChild second(Server(CFSTR("mortal"), ready[1]));
    AwaitByte(ready[0]);
    const Port remote = MakeRemote(CFSTR("mortal"));
    ASSERT_TRUE(remote);
    EXPECT_EQ(Ask(remote.Get(), 1).result, kCFMessagePortSuccess);
    EXPECT_TRUE(CFMessagePortIsValid(remote.Get()));
    first.Kill();
    // The dead process has left its socket behind: nobody can be reached through it, and the name
    // can be taken.
    EXPECT_EQ(MakeRemote(CFSTR("mortal")).Get(), nullptr);
    EXPECT_FALSE(CFMessagePortIsValid(remote.Get()));
    second.Start();
    AwaitByte(ready[0]);
    EXPECT_EQ(Ask(remote.Get(), 1).result, kCFMessagePortIsInvalid);
    EXPECT_FALSE(CFMessagePortIsValid(remote.Get()));
    const Port successor = MakeRemote(CFSTR("mortal"));
    ASSERT_TRUE(successor);
    EXPECT_EQ(Ask(successor.Get(), 2).result, kCFMessagePortSuccess);
}

TEST_F(CFMessagePortTest, SendReportsThatThePortIsGoneEvenIfTheNameIsServedAnew) {
    Port remote;
    {
        const ServedPort first(CFSTR("renewed"));
        remote = MakeRemote(CFSTR("renewed"));
        ASSERT_TRUE(remote);
    }
    const ServedPort second(CFSTR("renewed"));
    EXPECT_EQ(Ask(remote.Get(), 1).result, kCFMessagePortBecameInvalidError);
    EXPECT_EQ(Ask(remote.Get(), 1).result, kCFMessagePortIsInvalid);
}

TEST_F(CFMessagePortTest, LeavesANameToTheLiveProcessThatServesIt) {
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    Child child(Server(CFSTR("taken"), ready[1]));
    AwaitByte(ready[0]);
    Boolean shouldFree = false;
    const auto callOut = [](CFMessagePortRef, SInt32, CFDataRef, void*) -> CFDataRef {
        return nullptr;
    };
    EXPECT_EQ(CFMessagePortCreateLocal(nullptr, CFSTR("taken"), callOut, nullptr, &shouldFree),
              nullptr);
    EXPECT_TRUE(shouldFree);
    const Port remote = MakeRemote(CFSTR("taken"));
    EXPECT_EQ(Ask(remote.Get(), 1).result, kCFMessagePortSuccess);
    const std::string failure = FailureOf(CFSTR("taken"));
    // As the kernel calls it: under emulation by the emulator's name.
    std::string program;
    std::ifstream("/proc/" + std::to_string(child.Id()) + "/comm") >> program;
    ASSERT_NE(program, "");
    EXPECT_EQ(failure, SocketPath("taken") + ": another " + program + " (pid " +
                           std::to_string(child.Id()) +
                           ") already serves this port; end that one, or set QUORVEL_RUNTIME_DIR "
                           "to another folder");
    EXPECT_EQ(TestSupport::SyslogLines(),
              (std::vector<TestSupport::SyslogLine>{
                  {LOG_ERR, "CFMessagePort: cannot make the local port \"taken\": " + failure}}));
    EXPECT_EQ(FailureOf(CFSTR("another")), "");
    child.Kill();
    const Port mine(
        CFMessagePortCreateLocal(nullptr, CFSTR("taken"), callOut, nullptr, &shouldFree));
    EXPECT_TRUE(mine);
    EXPECT_FALSE(shouldFree);
    EXPECT_EQ(FailureOf(CFSTR("taken")), "");
}

TEST_F(CFMessagePortTest, GivesTheSamePortForANameThatThisProcessServes) {
    static std::atomic<int> retained{0};
    static std::atomic<int> released{0};
    CFMessagePortContext context{};
    context.retain = [](const void* info) {
        ++retained;
        return info;
    };
    context.release = [](const void*) { ++released; };
    const auto callOut = [](CFMessagePortRef, SInt32, CFDataRef, void*) -> CFDataRef {
        return nullptr;
    };
    Boolean shouldFree = true;
    Port first(CFMessagePortCreateLocal(nullptr, CFSTR("same"), callOut, &context, &shouldFree));
    ASSERT_TRUE(first);
    EXPECT_FALSE(shouldFree);
    const Port second(
        CFMessagePortCreateLocal(nullptr, CFSTR("same"), callOut, &context, &shouldFree));
    EXPECT_EQ(first.Get(), second.Get());
    EXPECT_TRUE(shouldFree);
    EXPECT_EQ(CFGetRetainCount(first.Get()), 2);
    EXPECT_EQ(retained, 1);
    CFMessagePortInvalidate(first.Get());
    EXPECT_EQ(released, 1);
    const Port third(
        CFMessagePortCreateLocal(nullptr, CFSTR("same"), callOut, nullptr, &shouldFree));
    EXPECT_NE(third.Get(), first.Get());
    EXPECT_FALSE(shouldFree);
    first.Reset();
    EXPECT_EQ(released, 1);
    EXPECT_TRUE(CFMessagePortIsValid(third.Get()));
}

TEST_F(CFMessagePortTest, AnswersARequestFromItsOwnThreadWhileThatWaits) {
    const LocalPort local(CFSTR("own thread"), Echo);
    const Port remote = MakeRemote(CFSTR("own thread"));
    const Answer answer = Ask(remote.Get(), 9, {1});
    ASSERT_EQ(answer.result, kCFMessagePortSuccess);
    EXPECT_EQ(BytesOf(answer.data.Get()), (Bytes{1, 9}));
}

TEST_F(CFMessagePortTest, ReceiveTimesOutWhenThePortIsNotInTheReplyMode) {
    const LocalPort local(CFSTR("busy elsewhere"), Echo);
    const Port remote = MakeRemote(CFSTR("busy elsewhere"));
    CFDataRef reply = nullptr;
    EXPECT_EQ(
        CFMessagePortSendRequest(remote.Get(), 1, nullptr, kLong, 0.05, CFSTR("private"), &reply),
        kCFMessagePortReceiveTimeout);
    EXPECT_EQ(reply, nullptr);
}

TEST_F(CFMessagePortTest, SkipsTheLateReplyToARequestThatWasGivenUp) {
    std::promise<void> release;
    auto released = release.get_future().share();
    const ServedPort local(CFSTR("late"),
                           [&](CFMessagePortRef port, SInt32 msgid, const Bytes& request) {
                               if (msgid == 1) {
                                   released.wait();
                               }
                               return Echo(port, msgid, request);
                           });
    const Port remote = MakeRemote(CFSTR("late"));
    EXPECT_EQ(Ask(remote.Get(), 1, {}, 0.05).result, kCFMessagePortReceiveTimeout);
    release.set_value();
    const Answer answer = Ask(remote.Get(), 2);
    ASSERT_EQ(answer.result, kCFMessagePortSuccess);
    EXPECT_EQ(BytesOf(answer.data.Get()), Bytes{2});
}

TEST_F(CFMessagePortTest, DeliversOneWayRequestsInOrderWithoutReplies) {
    std::vector<SInt32> seen;
    const LocalPort local(CFSTR("one way"),
                          [&](CFMessagePortRef port, SInt32 msgid, const Bytes& request) {
                              seen.push_back(msgid);
                              return Echo(port, msgid, request);
                          });
    std::vector<SInt32> expected;
    std::thread sender([&] {
        const Port remote = MakeRemote(CFSTR("one way"));
        for (SInt32 i = 0; i < 500; ++i) {
            EXPECT_EQ(
                CFMessagePortSendRequest(remote.Get(), i, nullptr, kLong, 0, nullptr, nullptr),
                kCFMessagePortSuccess);
        }
    });
    for (SInt32 i = 0; i < 500; ++i) {
        expected.push_back(i);
    }
    while (seen.size() < expected.size()) {
        ASSERT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, kLong, true),
                  kCFRunLoopRunHandledSource);
    }
    sender.join();
    EXPECT_EQ(seen, expected);
}

TEST_F(CFMessagePortTest, TellsAReplyWithoutDataFromAnEmptyOne) {
    const ServedPort local(CFSTR("empty"), [](CFMessagePortRef, SInt32 msgid, const Bytes&) {
        return msgid == 1 ? Data() : MakeData({});
    });
    const Port remote = MakeRemote(CFSTR("empty"));
    const Answer none = Ask(remote.Get(), 1);
    EXPECT_EQ(none.result, kCFMessagePortSuccess);
    EXPECT_FALSE(none.data);
    const Answer empty = Ask(remote.Get(), 2);
    EXPECT_EQ(empty.result, kCFMessagePortSuccess);
    ASSERT_TRUE(empty.data);
    EXPECT_EQ(CFDataGetLength(empty.data.Get()), 0);
    EXPECT_EQ(CFMessagePortSendRequest(remote.Get(), 2, nullptr, kLong, kLong,
                                       kCFRunLoopDefaultMode, nullptr),
              kCFMessagePortSuccess);
}

TEST_F(CFMessagePortTest, CarriesTheLongestRequestAndReplyAndRefusesOneByteMore) {
    std::atomic<int> calls{0};
    const ServedPort local(
        CFSTR("long"), [&](CFMessagePortRef, SInt32 msgid, const Bytes& request) {
            ++calls;
            return msgid == 0 ? MakeData(request)
                              : MakeData(Bytes(static_cast<std::size_t>(msgid), 0x5A));
        });
    const Port remote = MakeRemote(CFSTR("long"));
    Bytes longest(kCFMessagePortMaximumLength);
    for (std::size_t i = 0; i < longest.size(); ++i) {
        longest[i] = static_cast<std::uint8_t>(i * 31 + (i >> 9));
    }
    const Answer echoed = Ask(remote.Get(), 0, longest);
    ASSERT_EQ(echoed.result, kCFMessagePortSuccess);
    EXPECT_TRUE(BytesOf(echoed.data.Get()) == longest);
    Bytes tooLong = longest;
    tooLong.push_back(0);
    EXPECT_EQ(Ask(remote.Get(), 0, tooLong).result, kCFMessagePortTransportError);
    EXPECT_EQ(calls, 1);
    const Answer refused = Ask(remote.Get(), kCFMessagePortMaximumLength + 1);
    EXPECT_EQ(refused.result, kCFMessagePortTransportError);
    EXPECT_FALSE(refused.data);
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(Ask(remote.Get(), kCFMessagePortMaximumLength).result, kCFMessagePortSuccess);
    EXPECT_TRUE(CFMessagePortIsValid(remote.Get()));
}

TEST_F(CFMessagePortTest, SendTimesOutWhenThePeerTakesNothing) {
    const auto callOut = [](CFMessagePortRef, SInt32, CFDataRef, void*) -> CFDataRef {
        return nullptr;
    };
    const Port local(CFMessagePortCreateLocal(nullptr, CFSTR("idle"), callOut, nullptr, nullptr));
    const Port remote = MakeRemote(CFSTR("idle"));
    const Data data = MakeData(Bytes(kCFMessagePortMaximumLength));
    EXPECT_EQ(CFMessagePortSendRequest(remote.Get(), 1, data.Get(), 0.05, kLong,
                                       kCFRunLoopDefaultMode, nullptr),
              kCFMessagePortSendTimeout);
    EXPECT_TRUE(CFMessagePortIsValid(remote.Get()));
}

TEST_F(CFMessagePortTest, MakesItsDirectoryAndSocketForThisUserOnly) {
    const std::string directory = mDirectory.Path() + "/made";
    setenv("QUORVEL_RUNTIME_DIR", (directory + "//").c_str(), 1);
    const mode_t mask = umask(0);
    const LocalPort local(CFSTR("Quorvel / \xC3\xA9%"), Echo);
    umask(mask);
    ASSERT_NE(local.Get(), nullptr);
    struct stat status {};
    ASSERT_EQ(stat(directory.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0700U);
    ASSERT_EQ(stat((directory + "/Quorvel%20%2F%20%C3%A9%25.port").c_str(), &status), 0);
    EXPECT_TRUE(S_ISSOCK(status.st_mode));
    EXPECT_EQ(status.st_mode & 07777U, 0600U);
}

TEST_F(CFMessagePortTest, FallsBackToTheUsersRuntimeDirectory) {
    unsetenv("QUORVEL_RUNTIME_DIR");
    setenv("XDG_RUNTIME_DIR", mDirectory.Path().c_str(), 1);
    const LocalPort local(CFSTR("fallback"), Echo);
    EXPECT_TRUE(std::filesystem::exists(mDirectory.Path() + "/quorvel/fallback.port"));
}

TEST_F(CFMessagePortTest, TakesAnEmptyRuntimeDirectoryForNone) {
    setenv("QUORVEL_RUNTIME_DIR", "", 1);
    setenv("XDG_RUNTIME_DIR", mDirectory.Path().c_str(), 1);
    const LocalPort local(CFSTR("empty"), Echo);
    EXPECT_TRUE(std::filesystem::exists(mDirectory.Path() + "/quorvel/empty.port"));
}

TEST_F(CFMessagePortTest, RefusesADirectoryThatOthersMayChange) {
    ASSERT_EQ(chmod(mDirectory.Path().c_str(), 0770), 0);
    EXPECT_EQ(LocalPort(CFSTR("unsafe"), Echo).Get(), nullptr);
    EXPECT_EQ(FailureOf(CFSTR("unsafe")),
              mDirectory.Path() + ": other users may write to this folder; give it mode 0700");
    ASSERT_EQ(chmod(mDirectory.Path().c_str(), 0700), 0);
    const LocalPort local(CFSTR("safe"), Echo);
    EXPECT_NE(local.Get(), nullptr);
    ASSERT_EQ(chmod(mDirectory.Path().c_str(), 0702), 0);
    EXPECT_EQ(MakeRemote(CFSTR("safe")).Get(), nullptr);
    ASSERT_EQ(chmod(mDirectory.Path().c_str(), 0700), 0);
    EXPECT_TRUE(MakeRemote(CFSTR("safe")));
}

TEST_F(CFMessagePortTest, TellsTheHostWhereItsPortsLieOrWhyTheyCannot) {
    setenv("QUORVEL_RUNTIME_DIR", (mDirectory.Path() + "/made//").c_str(), 1);
    CFStringRef failure = CFSTR("old");
    const CFOwned<CFStringRef> folder(CFMessagePortHostCopyFolder(&failure));
    EXPECT_EQ(TestSupport::TextOf(folder.Get()), mDirectory.Path() + "/made");
    EXPECT_TRUE(std::filesystem::is_directory(mDirectory.Path() + "/made"));
    EXPECT_EQ(failure, nullptr);

    setenv("QUORVEL_RUNTIME_DIR", "relative", 1);
    EXPECT_EQ(CFMessagePortHostCopyFolder(nullptr), nullptr);
    EXPECT_EQ(CFMessagePortHostCopyFolder(&failure), nullptr);
    const CFOwned<CFStringRef> reason(failure);
    EXPECT_EQ(TestSupport::TextOf(reason.Get()),
              "QUORVEL_RUNTIME_DIR: expected an absolute path, found \"relative\"");
}

TEST_F(CFMessagePortTest, RefusesADirectoryThatIsALinkAFileOrRelative) {
    const std::string link = mDirectory.Path() + "/link";
    std::filesystem::create_directory(mDirectory.Path() + "/real");
    std::filesystem::create_directory_symlink(mDirectory.Path() + "/real", link);
    setenv("QUORVEL_RUNTIME_DIR", link.c_str(), 1);
    EXPECT_EQ(LocalPort(CFSTR("port"), Echo).Get(), nullptr);
    const int file = open((mDirectory.Path() + "/file").c_str(), O_CREAT | O_WRONLY, 0600);
    close(file);
    setenv("QUORVEL_RUNTIME_DIR", (mDirectory.Path() + "/file").c_str(), 1);
    EXPECT_EQ(LocalPort(CFSTR("port"), Echo).Get(), nullptr);
    EXPECT_EQ(FailureOf(CFSTR("port")), mDirectory.Path() +
                                            "/file: Not a directory; set QUORVEL_RUNTIME_DIR to a "
                                            "folder of this user's own, with mode 0700");
    setenv("QUORVEL_RUNTIME_DIR", "relative", 1);
    EXPECT_EQ(LocalPort(CFSTR("port"), Echo).Get(), nullptr);
    EXPECT_EQ(FailureOf(CFSTR("port")),
              "QUORVEL_RUNTIME_DIR: expected an absolute path, found \"relative\"");
    setenv("QUORVEL_RUNTIME_DIR", (mDirectory.Path() + "/none/folder").c_str(), 1);
    EXPECT_EQ(LocalPort(CFSTR("port"), Echo).Get(), nullptr);
    EXPECT_EQ(FailureOf(CFSTR("port")),
              mDirectory.Path() +
                  "/none/folder: cannot be made: No such file or directory; set "
                  "QUORVEL_RUNTIME_DIR to a folder of this user's own, with mode 0700");
    setenv("QUORVEL_RUNTIME_DIR", (mDirectory.Path() + "/real").c_str(), 1);
    EXPECT_NE(LocalPort(CFSTR("port"), Echo).Get(), nullptr);
}

TEST_F(CFMessagePortTest, RefusesADirectoryOfAnotherUser) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can give a directory away";
    }
    ASSERT_EQ(chown(mDirectory.Path().c_str(), 65534, 65534), 0);
    EXPECT_EQ(LocalPort(CFSTR("port"), Echo).Get(), nullptr);
    ASSERT_EQ(chown(mDirectory.Path().c_str(), 0, 0), 0);
    EXPECT_NE(LocalPort(CFSTR("port"), Echo).Get(), nullptr);
}

TEST_F(CFMessagePortTest, StoresALongNameByItsHashAndRefusesOneThatIsTooLong) {
    const auto name = [](std::size_t length) {
        return CFOwned<CFStringRef>(CFStringCreateWithCString(
            nullptr, std::string(length, ' ').c_str(), kCFStringEncodingUTF8));
    };
    const auto longest = name(128);
    const ServedPort local(longest.Get());
    ASSERT_NE(local.Get(), nullptr);
    const auto nearly = name(127);
    const ServedPort other(nearly.Get(),
                           [](CFMessagePortRef, SInt32, const Bytes&) { return MakeData({42}); });
    ASSERT_NE(other.Get(), nullptr);
    const Port remote = MakeRemote(longest.Get());
    const Port otherRemote = MakeRemote(nearly.Get());
    EXPECT_EQ(BytesOf(Ask(remote.Get(), 3).data.Get()), Bytes{3});
    EXPECT_EQ(BytesOf(Ask(otherRemote.Get(), 3).data.Get()), Bytes{42});
    EXPECT_EQ(LocalPort(name(129).Get(), Echo).Get(), nullptr);
    EXPECT_EQ(LocalPort(CFSTR(""), Echo).Get(), nullptr);
    const std::string deep = mDirectory.Path() + "/" + std::string(100, 'd');
    setenv("QUORVEL_RUNTIME_DIR", deep.c_str(), 1);
    EXPECT_EQ(LocalPort(CFSTR("x"), Echo).Get(), nullptr);
}

TEST_F(CFMessagePortTest, DoesNotReplaceWhatIsNotASocket) {
    std::filesystem::create_directory(SocketPath("folder"));
    EXPECT_EQ(LocalPort(CFSTR("folder"), Echo).Get(), nullptr);
    const int file = open(SocketPath("file").c_str(), O_CREAT | O_WRONLY, 0600);
    close(file);
    EXPECT_EQ(LocalPort(CFSTR("file"), Echo).Get(), nullptr);
    EXPECT_EQ(MakeRemote(CFSTR("file")).Get(), nullptr);
    EXPECT_TRUE(std::filesystem::is_regular_file(SocketPath("file")));
    EXPECT_EQ(FailureOf(CFSTR("file")),
              SocketPath("file") +
                  ": expected a socket or nothing, found another kind of file; remove it");
}

TEST_F(CFMessagePortTest, RemovesItsSocketWhenItEndsUnlessAnotherHasTheName) {
    {
        const LocalPort local(CFSTR("ends"), Echo);
        EXPECT_TRUE(std::filesystem::exists(SocketPath("ends")));
        CFMessagePortInvalidate(local.Get());
        EXPECT_FALSE(std::filesystem::exists(SocketPath("ends")));
    }
    {
        const LocalPort local(CFSTR("robbed"), Echo);
        ASSERT_EQ(unlink(SocketPath("robbed").c_str()), 0);
        const int thief = socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, SocketPath("robbed").c_str(), sizeof address.sun_path - 1);
        ASSERT_EQ(bind(thief, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        CFMessagePortInvalidate(local.Get());
        EXPECT_TRUE(std::filesystem::exists(SocketPath("robbed")));
        close(thief);
    }
    {
        const auto callOut = [](CFMessagePortRef, SInt32, CFDataRef, void*) -> CFDataRef {
            return nullptr;
        };
        const Port released(
            CFMessagePortCreateLocal(nullptr, CFSTR("released"), callOut, nullptr, nullptr));
        EXPECT_TRUE(std::filesystem::exists(SocketPath("released")));
    }
    EXPECT_FALSE(std::filesystem::exists(SocketPath("released")));
}

TEST_F(CFMessagePortTest, SpeaksABigEndianProtocol) {
    const ServedPort local(CFSTR("wire"));
    const int raw = RawConnection(SocketPath("wire"));
    ASSERT_GE(raw, 0);
    SendRaw(raw, Frame(1, 0x01020304, 0x0A0B0C0D, 2, {0xAA, 0xBB}));
    EXPECT_EQ(ReadRaw(raw, kHeaderSize + 3), Frame(3, 0x01020304, 0, 3, {0xAA, 0xBB, 0x0D}));
    close(raw);
}

TEST_F(CFMessagePortTest, PutsTogetherARequestThatArrivesByteByByte) {
    const ServedPort local(CFSTR("slow"));
    const int raw = RawConnection(SocketPath("slow"));
    for (const std::uint8_t byte : Frame(1, 1, 5, 3, {1, 2, 3})) {
        SendRaw(raw, {byte});
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_EQ(ReadRaw(raw, kHeaderSize + 4), Frame(3, 1, 0, 4, {1, 2, 3, 5}));
    close(raw);
}

TEST_F(CFMessagePortTest, ClosesConnectionsThatSendWhatIsNotARequest) {
    std::atomic<int> calls{0};
    const ServedPort local(CFSTR("strict"),
                           [&](CFMessagePortRef port, SInt32 msgid, const Bytes& request) {
                               ++calls;
                               return Echo(port, msgid, request);
                           });
    Bytes wrongMagic = Frame(1, 1, 1, 0);
    wrongMagic[0] = 'X';
    Bytes wrongVersion = Frame(1, 1, 1, 0);
    wrongVersion[5] = 2;
    const std::vector<Bytes> bad{wrongMagic,
                                 wrongVersion,
                                 Frame(0, 1, 1, 0),
                                 Frame(3, 1, 1, 0),
                                 Frame(5, 1, 1, 0),
                                 Frame(6, 1, 1, 0),
                                 Frame(0xFFFF, 1, 1, 0),
                                 Frame(1, 1, 1, kCFMessagePortMaximumLength + 1),
                                 Frame(1, 1, 1, 0xFFFFFFFF),
                                 Bytes(4096, 0xFF)};
    for (const Bytes& bytes : bad) {
        const int raw = RawConnection(SocketPath("strict"));
        ASSERT_GE(raw, 0);
        SendRaw(raw, bytes);
        EXPECT_TRUE(ReadRaw(raw).empty());
        close(raw);
    }
    EXPECT_EQ(calls, 0);
    const Port remote = MakeRemote(CFSTR("strict"));
    EXPECT_EQ(Ask(remote.Get(), 1).result, kCFMessagePortSuccess);
}

TEST_F(CFMessagePortTest, SurvivesRandomBytes) {
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::minstd_rand engine(seed);
    const auto random = [&] { return static_cast<std::uint32_t>(engine()); };
    const ServedPort local(CFSTR("random"));
    for (int i = 0; i < 100; ++i) {
        Bytes bytes = Frame(static_cast<std::uint16_t>(random() % 7), random(), 1, random() % 64);
        bytes.resize(bytes.size() + random() % 64, 0x11);
        bytes[random() % bytes.size()] = static_cast<std::uint8_t>(random());
        bytes.resize(random() % bytes.size() + 1);
        const int raw = RawConnection(SocketPath("random"));
        ASSERT_GE(raw, 0);
        SendRaw(raw, bytes);
        close(raw);
    }
    const Port remote = MakeRemote(CFSTR("random"));
    EXPECT_EQ(Ask(remote.Get(), 1).result, kCFMessagePortSuccess);
}

TEST_F(CFMessagePortTest, ServesOthersWhilePeersAreSlowAndClosesThemInTheEnd) {
    const ServedPort local(CFSTR("patient"),
                           [](CFMessagePortRef port, SInt32 msgid, const Bytes& request) {
                               return msgid == 1000 ? MakeData(Bytes(kCFMessagePortMaximumLength))
                                                    : Echo(port, msgid, request);
                           });
    const int halfHeader = RawConnection(SocketPath("patient"));
    SendRaw(halfHeader, {'Q', 'M', 'P'});
    const int halfPayload = RawConnection(SocketPath("patient"));
    SendRaw(halfPayload, Frame(1, 1, 1, 100, {1, 2, 3}));
    const int takesNothing = RawConnection(SocketPath("patient"));
    SendRaw(takesNothing, Frame(1, 1, 1000, 0));
    const Port remote = MakeRemote(CFSTR("patient"));
    for (int i = 0; i < 50; ++i) {
        EXPECT_EQ(Ask(remote.Get(), i).result, kCFMessagePortSuccess);
    }
    EXPECT_TRUE(ReadRaw(halfHeader).empty());
    EXPECT_TRUE(ReadRaw(halfPayload).empty());
    // The silence of the others took as long as this one had: it finds its reply cut off.
    pollfd gone{takesNothing, POLLHUP, 0};
    while ((gone.revents & POLLHUP) == 0) {
        poll(&gone, 1, 10);
    }
    EXPECT_LT(ReadRaw(takesNothing).size(), kHeaderSize + kCFMessagePortMaximumLength);
    EXPECT_EQ(Ask(remote.Get(), 1).result, kCFMessagePortSuccess);
    for (const int raw : {halfHeader, halfPayload, takesNothing}) {
        close(raw);
    }
}

TEST_F(CFMessagePortTest, LetsGoOfSilentConnectionsForNewOnesAndReconnectsAnEvictedRemote) {
    const ServedPort local(CFSTR("crowded"));
    const Port early = MakeRemote(CFSTR("crowded"));
    EXPECT_EQ(Ask(early.Get(), 1).result, kCFMessagePortSuccess);
    std::vector<int> silent;
    for (int i = 0; i < 200; ++i) {
        silent.push_back(RawConnection(SocketPath("crowded")));
        ASSERT_GE(silent.back(), 0);
    }
    const Port late = MakeRemote(CFSTR("crowded"));
    EXPECT_EQ(Ask(late.Get(), 2).result, kCFMessagePortSuccess);
    EXPECT_TRUE(ReadRaw(silent.front()).empty());
    EXPECT_TRUE(CFMessagePortIsValid(early.Get()));
    EXPECT_EQ(Ask(early.Get(), 3).result, kCFMessagePortSuccess);
    for (const int raw : silent) {
        close(raw);
    }
}

TEST_F(CFMessagePortTest, ServesAPeerAfterAllPlacesWereTakenByBusyOnes) {
    const ServedPort local(CFSTR("full"));
    std::vector<int> busy;
    for (int i = 0; i < 64; ++i) {
        busy.push_back(RawConnection(SocketPath("full")));
        SendRaw(busy.back(), {'Q'});
    }
    const Port remote = MakeRemote(CFSTR("full"));
    EXPECT_EQ(Ask(remote.Get(), 2).result, kCFMessagePortSuccess);
    for (const int raw : busy) {
        close(raw);
    }
}

TEST_F(CFMessagePortTest, LeavesTheLastPlaceToItsPeerWhileNobodyElseWaits) {
    const ServedPort local(CFSTR("nearly"));
    std::vector<int> busy;
    for (int i = 0; i < 63; ++i) {
        busy.push_back(RawConnection(SocketPath("nearly")));
        SendRaw(busy.back(), {'Q'});
    }
    // Its reply tells that all of them have their places by now.
    SendRaw(busy.back(), {'M', 'P', 'F', 0, 1, 0, 1, 0, 0, 0, 9, 0, 0, 0, 9, 0, 0, 0, 0});
    EXPECT_EQ(ReadRaw(busy.back(), kHeaderSize + 1), Frame(3, 9, 0, 1, {9}));
    SendRaw(busy.back(), {'Q'});
    const int last = RawConnection(SocketPath("nearly"));
    for (std::uint8_t i = 0; i < 3; ++i) {
        pollfd closed{last, POLLIN, 0};
        EXPECT_EQ(poll(&closed, 1, 50), 0);
        SendRaw(last, Frame(1, i, i, 0));
        EXPECT_EQ(ReadRaw(last, kHeaderSize + 1), Frame(3, i, 0, 1, {i}));
    }
    for (const int raw : busy) {
        close(raw);
    }
    close(last);
}

TEST_F(CFMessagePortTest, GivesAConnectionTimeToBeServedOnceBeforeItMakesRoom) {
    const ServedPort local(CFSTR("fresh"));
    const std::string path = SocketPath("fresh");
    const auto kGrace = std::chrono::milliseconds(1000);
    bool wasInTime = false;
    // A machine so busy that the time runs out before the request is sent gets another try.
    while (!wasInTime) {
        std::vector<int> busy;
        for (int i = 0; i < 63; ++i) {
            busy.push_back(RawConnection(path));
            SendRaw(busy.back(), {'Q'});
        }
        const auto start = std::chrono::steady_clock::now();
        const int fresh = RawConnection(path);
        const int waiting = RawConnection(path);
        SendRaw(waiting, Frame(1, 2, 2, 0));
        // Long enough for the port to see that somebody waits.
        pollfd answer{waiting, POLLIN, 0};
        poll(&answer, 1, 100);
        SendRaw(fresh, Frame(1, 1, 1, 0));
        wasInTime = std::chrono::steady_clock::now() - start < kGrace;
        const Bytes reply = ReadRaw(fresh, kHeaderSize + 1);
        if (wasInTime) {
            EXPECT_EQ(reply, Frame(3, 1, 0, 1, {1}));
        }
        // Now that one has been served it makes room.
        EXPECT_EQ(ReadRaw(waiting, kHeaderSize + 1), Frame(3, 2, 0, 1, {2}));
        EXPECT_TRUE(ReadRaw(fresh).empty());
        for (const int raw : busy) {
            close(raw);
        }
        close(fresh);
        close(waiting);
    }
}

TEST_F(CFMessagePortTest, ServesNobodyButItsOwnUser) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can become another user";
    }
    int go[2];
    ASSERT_EQ(pipe(go), 0);
    const std::string path = SocketPath("private");
    Child stranger([&] {
        char byte = 0;
        if (read(go[0], &byte, 1) != 1 || setgid(65534) != 0 || setuid(65534) != 0) {
            return 2;
        }
        const int raw = RawConnection(path);
        if (raw < 0) {
            return 3;
        }
        SendRaw(raw, Frame(1, 1, 1, 0));
        return ReadRaw(raw).empty() ? 0 : 1;
    });
    std::atomic<int> calls{0};
    const ServedPort local(CFSTR("private"),
                           [&](CFMessagePortRef port, SInt32 msgid, const Bytes& request) {
                               ++calls;
                               return Echo(port, msgid, request);
                           });
    // Even if the file permissions let it through.
    ASSERT_EQ(chmod(mDirectory.Path().c_str(), 0711), 0);
    ASSERT_EQ(chmod(path.c_str(), 0666), 0);
    ASSERT_EQ(write(go[1], "g", 1), 1);
    EXPECT_EQ(stranger.Wait(), 0);
    EXPECT_EQ(calls, 0);
    const Port remote = MakeRemote(CFSTR("private"));
    EXPECT_EQ(Ask(remote.Get(), 1).result, kCFMessagePortSuccess);
}

TEST_F(CFMessagePortTest, AsksNobodyButItsOwnUser) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can become another user";
    }
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    ASSERT_EQ(chmod(mDirectory.Path().c_str(), 0777), 0);
    const std::string path = SocketPath("impostor");
    Child stranger([&] {
        if (setgid(65534) != 0 || setuid(65534) != 0) {
            return 2;
        }
        const int raw = socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
        if (bind(raw, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
            listen(raw, 5) != 0 || write(ready[1], "r", 1) != 1) {
            return 3;
        }
        while (true) {
            pause();
        }
    });
    AwaitByte(ready[0]);
    ASSERT_EQ(chmod(mDirectory.Path().c_str(), 0700), 0);
    EXPECT_EQ(MakeRemote(CFSTR("impostor")).Get(), nullptr);
}

TEST_F(CFMessagePortTest, AnswersManyThreadsThroughSharedAndOwnRemotes) {
    const ServedPort local(CFSTR("popular"));
    const Port shared = MakeRemote(CFSTR("popular"));
    std::vector<std::thread> threads;
    for (int t = 0; t < 6; ++t) {
        threads.emplace_back([&, t] {
            const Port own = MakeRemote(CFSTR("popular"));
            const CFMessagePortRef port = t % 2 == 0 ? shared.Get() : own.Get();
            for (int i = 0; i < 100; ++i) {
                const Bytes request{static_cast<std::uint8_t>(t), static_cast<std::uint8_t>(i)};
                const Answer answer = Ask(port, i, request);
                Bytes expected = request;
                expected.push_back(static_cast<std::uint8_t>(i));
                ASSERT_EQ(answer.result, kCFMessagePortSuccess);
                ASSERT_EQ(BytesOf(answer.data.Get()), expected);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST_F(CFMessagePortTest, EndsWaitingRequestsWhenEitherSideIsInvalidated) {
    for (const bool endLocal : {true, false}) {
        std::promise<void> entered;
        std::promise<void> release;
        auto released = release.get_future().share();
        ServedPort local(CFSTR("ending"), [&](CFMessagePortRef, SInt32, const Bytes&) {
            entered.set_value();
            released.wait();
            return Data();
        });
        const Port remote = MakeRemote(CFSTR("ending"));
        const Port bystander = MakeRemote(CFSTR("ending"));
        std::thread asker([&] {
            if (endLocal) {
                // Not yet taken from the queue, as the loop is busy with the other request.
                entered.get_future().wait();
                EXPECT_EQ(Ask(bystander.Get(), 2).result, kCFMessagePortBecameInvalidError);
            } else {
                EXPECT_EQ(Ask(remote.Get(), 1).result, kCFMessagePortBecameInvalidError);
            }
        });
        if (endLocal) {
            std::thread first([&] { Ask(remote.Get(), 1); });
            // Until the second request has certainly been sent.
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            local.Invalidate();
            asker.join();
            release.set_value();
            first.join();
        } else {
            entered.get_future().wait();
            CFMessagePortInvalidate(remote.Get());
            asker.join();
            EXPECT_EQ(Ask(remote.Get(), 1).result, kCFMessagePortIsInvalid);
            release.set_value();
        }
    }
}

TEST_F(CFMessagePortTest, SendsTheReplyOfACalloutThatEndsThePort) {
    const ServedPort local(CFSTR("farewell"),
                           [](CFMessagePortRef port, SInt32 msgid, const Bytes& request) {
                               CFMessagePortInvalidate(port);
                               return Echo(port, msgid, request);
                           });
    const Port remote = MakeRemote(CFSTR("farewell"));
    const Answer answer = Ask(remote.Get(), 8);
    ASSERT_EQ(answer.result, kCFMessagePortSuccess);
    EXPECT_EQ(BytesOf(answer.data.Get()), Bytes{8});
    // The connection is closed after the reply, which may be here first.
    ASSERT_TRUE(TestSupport::WaitUntil("the port is invalid",
                                       [&] { return !CFMessagePortIsValid(remote.Get()); }));
    EXPECT_EQ(Ask(remote.Get(), 8).result, kCFMessagePortIsInvalid);
}

TEST_F(CFMessagePortTest, NeverHangsWhenPortsEndWhileRequestsGoOn) {
    for (int round = 0; round < 30; ++round) {
        ServedPort local(CFSTR("race"));
        std::atomic<bool> stop{false};
        std::atomic<int> answered{0};
        std::vector<std::thread> threads;
        const Port shared = MakeRemote(CFSTR("race"));
        for (int t = 0; t < 3; ++t) {
            threads.emplace_back([&] {
                while (!stop) {
                    const SInt32 result = Ask(shared.Get(), 1).result;
                    if (result == kCFMessagePortSuccess) {
                        ++answered;
                        continue;
                    }
                    EXPECT_TRUE(result == kCFMessagePortIsInvalid ||
                                result == kCFMessagePortBecameInvalidError)
                        << result;
                    break;
                }
            });
        }
        EXPECT_TRUE(
            TestSupport::WaitUntil("three requests are answered", [&] { return answered >= 3; }));
        if (round % 2 == 0) {
            local.Invalidate();
        } else {
            CFMessagePortInvalidate(shared.Get());
        }
        stop = true;
        for (std::thread& thread : threads) {
            thread.join();
        }
    }
}

// The other side of a remote port, played by the test.
class PlayedPort {
public:
    explicit PlayedPort(std::string path, int backlog = 8)
        : mPath(std::move(path)), mSocket(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, mPath.c_str(), sizeof address.sun_path - 1);
        if (bind(mSocket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
            listen(mSocket, backlog) != 0) {
            ADD_FAILURE() << mPath << ": " << std::strerror(errno);
        }
    }
    PlayedPort(const PlayedPort&) = delete;
    PlayedPort& operator=(const PlayedPort&) = delete;
    ~PlayedPort() { End(); }

    int Accept() const { return accept4(mSocket, nullptr, nullptr, SOCK_CLOEXEC); }
    bool SomebodyWaits() const {
        pollfd waiting{mSocket, POLLIN, 0};
        return poll(&waiting, 1, 0) == 1;
    }
    // As a port ends: its file goes first, its connections last.
    void End() {
        if (mSocket >= 0) {
            unlink(mPath.c_str());
            close(std::exchange(mSocket, -1));
        }
    }

private:
    const std::string mPath;
    int mSocket;
};

void AwaitInput(int raw) {
    pollfd wait{raw, POLLIN, 0};
    EXPECT_EQ(poll(&wait, 1, -1), 1);
}

TEST_F(CFMessagePortTest, SendsARequestAnewThatTheOtherSideHasNotRead) {
    PlayedPort played(SocketPath("anew"));
    const Port remote = MakeRemote(CFSTR("anew"));
    ASSERT_TRUE(remote);
    std::thread asker([&] {
        const Answer answer = Ask(remote.Get(), 6, {7});
        EXPECT_EQ(answer.result, kCFMessagePortSuccess);
        ASSERT_TRUE(answer.data);
        EXPECT_EQ(BytesOf(answer.data.Get()), Bytes{8});
    });
    const int unread = played.Accept();
    AwaitInput(unread);
    close(unread);
    const int partlyRead = played.Accept();
    EXPECT_EQ(ReadRaw(partlyRead, kHeaderSize).size(), kHeaderSize);
    AwaitInput(partlyRead);
    close(partlyRead);
    const int read = played.Accept();
    EXPECT_EQ(ReadRaw(read, kHeaderSize + 1), Frame(1, 1, 6, 1, {7}));
    SendRaw(read, Frame(3, 1, 0, 1, {8}));
    asker.join();
    close(read);
}

TEST_F(CFMessagePortTest, GivesUpARequestThatTheOtherSideNeverReads) {
    PlayedPort played(SocketPath("deaf"));
    const Port remote = MakeRemote(CFSTR("deaf"));
    std::atomic<bool> isOver{false};
    std::thread asker([&] {
        EXPECT_EQ(Ask(remote.Get(), 1).result, kCFMessagePortTransportError);
        EXPECT_TRUE(CFMessagePortIsValid(remote.Get()));
        isOver = true;
    });
    while (!isOver) {
        if (played.SomebodyWaits()) {
            const int raw = played.Accept();
            pollfd request{raw, POLLIN, 0};
            while (!isOver && poll(&request, 1, 1) == 0) {
            }
            close(raw);
        }
    }
    asker.join();
}

TEST_F(CFMessagePortTest, BecomesInvalidThoughAnotherOfItsConnectionsIsStillOpen) {
    PlayedPort played(SocketPath("ends"));
    const Port remote = MakeRemote(CFSTR("ends"));
    const int first = played.Accept();
    std::thread loser(
        [&] { EXPECT_EQ(Ask(remote.Get(), 1).result, kCFMessagePortBecameInvalidError); });
    EXPECT_EQ(ReadRaw(first, kHeaderSize), Frame(1, 1, 1, 0));
    std::thread winner([&] { EXPECT_EQ(Ask(remote.Get(), 2).result, kCFMessagePortSuccess); });
    const int second = played.Accept();
    EXPECT_EQ(ReadRaw(second, kHeaderSize), Frame(1, 1, 2, 0));
    SendRaw(second, Frame(4, 1, 0, 0));
    winner.join();
    played.End();
    close(first);
    loser.join();
    EXPECT_FALSE(CFMessagePortIsValid(remote.Get()));
    close(second);
}

TEST_F(CFMessagePortTest, BecomesInvalidThoughALateReplyIsStillToBeRead) {
    PlayedPort played(SocketPath("late"));
    const Port remote = MakeRemote(CFSTR("late"));
    const int raw = played.Accept();
    EXPECT_EQ(Ask(remote.Get(), 1, {}, 0).result, kCFMessagePortReceiveTimeout);
    EXPECT_EQ(ReadRaw(raw, kHeaderSize), Frame(1, 1, 1, 0));
    SendRaw(raw, Frame(4, 1, 0, 0));
    EXPECT_TRUE(CFMessagePortIsValid(remote.Get()));
    played.End();
    close(raw);
    EXPECT_FALSE(CFMessagePortIsValid(remote.Get()));
}

TEST_F(CFMessagePortTest, TellsAReplyThatBreaksOffFromThePortsEnd) {
    PlayedPort played(SocketPath("breaks"));
    const Port remote = MakeRemote(CFSTR("breaks"));
    for (const bool ends : {false, true}) {
        std::thread asker([&] {
            EXPECT_EQ(Ask(remote.Get(), 1).result,
                      ends ? kCFMessagePortBecameInvalidError : kCFMessagePortTransportError);
            EXPECT_EQ(CFMessagePortIsValid(remote.Get()), !ends);
        });
        const int raw = played.Accept();
        EXPECT_EQ(ReadRaw(raw, kHeaderSize), Frame(1, 1, 1, 0));
        SendRaw(raw, {'Q', 'M'});
        if (ends) {
            played.End();
        }
        close(raw);
        asker.join();
    }
}

TEST_F(CFMessagePortTest, EndsASendThatWaitsForAConnection) {
    PlayedPort played(SocketPath("overrun"), 0);
    const int takesTheOnlyPlace = RawConnection(SocketPath("overrun"));
    const Port remote = MakeRemote(CFSTR("overrun"));
    ASSERT_TRUE(remote);
    EXPECT_EQ(
        CFMessagePortSendRequest(remote.Get(), 1, nullptr, 0.05, 0, kCFRunLoopDefaultMode, nullptr),
        kCFMessagePortSendTimeout);
    std::promise<void> started;
    std::thread asker([&] {
        started.set_value();
        const SInt32 result = Ask(remote.Get(), 1).result;
        EXPECT_TRUE(result == kCFMessagePortIsInvalid || result == kCFMessagePortBecameInvalidError)
            << result;
    });
    started.get_future().wait();
    std::this_thread::sleep_for(std::chrono::milliseconds(20)); // as a rule it waits by then
    CFMessagePortInvalidate(remote.Get());
    asker.join();
    close(takesTheOnlyPlace);
}

TEST_F(CFMessagePortTest, FindsThePortInvalidWhenItsProcessIsKilledWhileRequestsGoOn) {
    constexpr std::size_t kRounds = 20;
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    std::vector<std::unique_ptr<WaitingChild>> children;
    for (std::size_t round = 0; round < kRounds; ++round) {
        children.push_back(std::make_unique<WaitingChild>(Server(CFSTR("killed"), ready[1])));
    }
    for (const std::unique_ptr<WaitingChild>& child : children) {
        child->Start();
        AwaitByte(ready[0]);
        const Port shared = MakeRemote(CFSTR("killed"));
        ASSERT_TRUE(shared);
        std::atomic<int> answered{0};
        std::vector<std::thread> threads;
        for (int t = 0; t < 3; ++t) {
            threads.emplace_back([&] {
                SInt32 result = kCFMessagePortSuccess;
                while ((result = Ask(shared.Get(), 1).result) == kCFMessagePortSuccess) {
                    ++answered;
                }
                EXPECT_TRUE(result == kCFMessagePortIsInvalid ||
                            result == kCFMessagePortBecameInvalidError)
                    << result;
            });
        }
        EXPECT_TRUE(
            TestSupport::WaitUntil("three requests are answered", [&] { return answered >= 3; }));
        child->Kill();
        for (std::thread& thread : threads) {
            thread.join();
        }
    }
}

TEST_F(CFMessagePortTest, FindsThePortInvalidWhenItsProcessIsKilledInTheMiddleOfAReply) {
    constexpr std::size_t kRounds = 20;
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    std::vector<std::unique_ptr<WaitingChild>> children;
    for (std::size_t round = 0; round < kRounds; ++round) {
        children.push_back(std::make_unique<WaitingChild>([this, &ready] {
            const PlayedPort played(SocketPath("half"));
            if (write(ready[1], "r", 1) != 1) {
                return 1;
            }
            const int raw = played.Accept();
            ReadRaw(raw, kHeaderSize);
            SendRaw(raw, {'Q', 'M'});
            return raise(SIGKILL);
        }));
    }
    for (const std::unique_ptr<WaitingChild>& child : children) {
        child->Start();
        AwaitByte(ready[0]);
        const Port remote = MakeRemote(CFSTR("half"));
        ASSERT_TRUE(remote);
        EXPECT_EQ(Ask(remote.Get(), 1).result, kCFMessagePortBecameInvalidError);
        EXPECT_FALSE(CFMessagePortIsValid(remote.Get()));
        child->Wait();
        unlink(SocketPath("half").c_str()); // which the next process makes anew
    }
}

TEST_F(CFMessagePortTest, GivesTheSameSourceWhileItLivesAndNoneOnceInvalid) {
    const auto callOut = [](CFMessagePortRef, SInt32, CFDataRef, void*) -> CFDataRef {
        return nullptr;
    };
    const Port local(
        CFMessagePortCreateLocal(nullptr, CFSTR("sources"), callOut, nullptr, nullptr));
    Source first(CFMessagePortCreateRunLoopSource(nullptr, local.Get(), 3));
    const CFRunLoopSourceRef known = first.Get();
    const Source second(CFMessagePortCreateRunLoopSource(nullptr, local.Get(), 3));
    EXPECT_EQ(second.Get(), known);
    EXPECT_EQ(CFGetRetainCount(local.Get()), 2);
    const Port remote = MakeRemote(CFSTR("sources"));
    EXPECT_EQ(CFMessagePortCreateRunLoopSource(nullptr, remote.Get(), 0), nullptr);
    CFMessagePortInvalidate(local.Get());
    EXPECT_FALSE(CFRunLoopSourceIsValid(known));
    EXPECT_EQ(CFMessagePortCreateRunLoopSource(nullptr, local.Get(), 0), nullptr);
}

TEST_F(CFMessagePortTest, GoesOnServingWhenItsSourceMovesToAnotherLoop) {
    const auto callOut = [](CFMessagePortRef, SInt32, CFDataRef, void*) -> CFDataRef {
        const UInt8 byte = 77;
        return CFDataCreate(nullptr, &byte, 1);
    };
    const Port local(CFMessagePortCreateLocal(nullptr, CFSTR("moves"), callOut, nullptr, nullptr));
    const Source source(CFMessagePortCreateRunLoopSource(nullptr, local.Get(), 0));
    const Port remote = MakeRemote(CFSTR("moves"));
    CFRunLoopAddSource(CFRunLoopGetCurrent(), source.Get(), kCFRunLoopDefaultMode);
    EXPECT_EQ(Ask(remote.Get(), 1).result, kCFMessagePortSuccess);
    // Half a request arrives here, the rest there.
    const Bytes frame = Frame(1, 4, 1, 0);
    const int raw = RawConnection(SocketPath("moves"));
    SendRaw(raw, {frame.begin(), frame.begin() + 10});
    CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.05, false);
    CFRunLoopRemoveSource(CFRunLoopGetCurrent(), source.Get(), kCFRunLoopDefaultMode);
    std::thread other([&] {
        CFRunLoopAddSource(CFRunLoopGetCurrent(), source.Get(), kCFRunLoopDefaultMode);
        CFRunLoopRun();
    });
    SendRaw(raw, {frame.begin() + 10, frame.end()});
    EXPECT_EQ(ReadRaw(raw, kHeaderSize + 1), Frame(3, 4, 0, 1, {77}));
    EXPECT_EQ(Ask(remote.Get(), 1).result, kCFMessagePortSuccess);
    CFMessagePortInvalidate(local.Get());
    other.join();
    close(raw);
}

TEST_F(CFMessagePortTest, HandsAStopThatComesWhileItWaitsToTheEnclosingRun) {
    const ServedPort local(CFSTR("stopped"));
    const Port remote = MakeRemote(CFSTR("stopped"));
    struct State {
        CFMessagePortRef remote;
        SInt32 result;
    } state{remote.Get(), 1};
    CFRunLoopSourceContext context{};
    context.info = &state;
    context.perform = [](void* info) {
        auto* const own = static_cast<State*>(info);
        const CFRunLoopRef loop = CFRunLoopGetCurrent();
        std::atomic<bool> stopped{false};
        std::thread stopper([&] {
            CFOwned<CFStringRef> mode;
            const auto isWaiting = [&] {
                mode = CFOwned<CFStringRef>(CFRunLoopCopyCurrentMode(loop));
                return CFEqual(mode.Get(), CFSTR("private")) != 0;
            };
            EXPECT_TRUE(TestSupport::WaitUntil("the loop waits for the reply", isWaiting));
            CFRunLoopStop(loop);
            stopped = true;
        });
        own->result =
            CFMessagePortSendRequest(own->remote, 1, nullptr, 0, 0.2, CFSTR("private"), nullptr);
        while (!stopped) {
            own->result = CFMessagePortSendRequest(own->remote, 1, nullptr, 0, 0.2,
                                                   CFSTR("private"), nullptr);
        }
        stopper.join();
    };
    const Source source(CFRunLoopSourceCreate(nullptr, 0, &context));
    CFRunLoopAddSource(CFRunLoopGetCurrent(), source.Get(), kCFRunLoopDefaultMode);
    CFRunLoopSourceSignal(source.Get());
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, kLong, false), kCFRunLoopRunStopped);
    EXPECT_EQ(state.result, kCFMessagePortSuccess);
    CFRunLoopSourceInvalidate(source.Get());
}

TEST_F(CFMessagePortTest, LeavesNoSocketToAnExecutedProgram) {
    const LocalPort local(CFSTR("exec"), Echo);
    const Port remote = MakeRemote(CFSTR("exec"));
    EXPECT_EQ(Ask(remote.Get(), 1).result, kCFMessagePortSuccess);
    int sockets = 0;
    for (int descriptor = 3; descriptor < 256; ++descriptor) {
        struct stat status {};
        if (fstat(descriptor, &status) == 0 && S_ISSOCK(status.st_mode)) {
            ++sockets;
            EXPECT_TRUE((fcntl(descriptor, F_GETFD) & FD_CLOEXEC) != 0) << descriptor;
        }
    }
    EXPECT_GE(sockets, 3);
}

TEST_F(CFMessagePortTest, AnswersWrongTypesAndNull) {
    const auto callOut = [](CFMessagePortRef, SInt32, CFDataRef, void*) -> CFDataRef {
        return nullptr;
    };
    const auto wrong = static_cast<CFMessagePortRef>(
        const_cast<void*>(static_cast<const void*>(CFSTR("no port"))));
    for (const CFMessagePortRef port : {wrong, CFMessagePortRef{}}) {
        EXPECT_FALSE(CFMessagePortIsValid(port));
        EXPECT_EQ(CFMessagePortCreateRunLoopSource(nullptr, port, 0), nullptr);
        CFMessagePortInvalidate(port);
        EXPECT_EQ(Ask(port, 1).result, kCFMessagePortIsInvalid);
    }
    const auto noString = static_cast<CFStringRef>(static_cast<const void*>(CFRunLoopGetMain()));
    for (const CFStringRef name : {noString, CFStringRef{}}) {
        EXPECT_EQ(CFMessagePortCreateLocal(nullptr, name, callOut, nullptr, nullptr), nullptr);
        EXPECT_EQ(MakeRemote(name).Get(), nullptr);
    }
    EXPECT_EQ(CFMessagePortCreateLocal(nullptr, CFSTR("x"), nullptr, nullptr, nullptr), nullptr);
    EXPECT_EQ(MakeRemote(CFSTR("nobody serves this")).Get(), nullptr);
    const ServedPort local(CFSTR("typed"));
    const Port remote = MakeRemote(CFSTR("typed"));
    const auto noData = static_cast<CFDataRef>(static_cast<const void*>(CFSTR("no data")));
    EXPECT_EQ(CFMessagePortSendRequest(remote.Get(), 1, noData, kLong, kLong, kCFRunLoopDefaultMode,
                                       nullptr),
              kCFMessagePortTransportError);
    for (const CFStringRef mode : {kCFRunLoopCommonModes, noString}) {
        EXPECT_EQ(CFMessagePortSendRequest(remote.Get(), 1, nullptr, kLong, kLong, mode, nullptr),
                  kCFMessagePortTransportError);
    }
    EXPECT_EQ(CFMessagePortSendRequest(local.Get(), 1, nullptr, kLong, kLong, kCFRunLoopDefaultMode,
                                       nullptr),
              kCFMessagePortIsInvalid);
}

} // namespace
