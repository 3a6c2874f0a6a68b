#pragma once

#include "tests/integration/jack/ChildProcess.h"
#include "tests/support/TemporaryDirectory.h"

#include <memory>
#include <string>

namespace JackTest {

// A server of the test's own, without sound hardware and without real-time priority: jackd or,
// if the program's JACK library is PipeWire's, PipeWire with its session manager. While the object
// exists, the environment leads this program and those that it starts to that server.
class TestServer {
public:
    // Does not start the server. `frames` is the period.
    explicit TestServer(int frames = 1024);
    ~TestServer();
    TestServer(const TestServer&) = delete;
    TestServer& operator=(const TestServer&) = delete;

    // What is missing on this machine for a server, or an empty text.
    static std::string Missing();

    void Start(int sampleRate = 48000); // which JACK alone follows
    // Change what the running server is set to, with the tools that come with it; its clients
    // follow later. PipeWire alone can change its rate.
    void SetPeriod(int frames) const;
    void SetRate(int sampleRate) const;
    void Stop(); // by SIGTERM
    void Kill();
    // What the server wrote.
    std::string Log() const;

private:
    std::string LogFile() const { return mFolder.Path() + "/server.log"; }
    void SetPipeWire(const std::string& setting, int value) const;

    TemporaryDirectory mFolder;
    int mFrames;
    bool mIsPipeWire;
    int mNameLock;
    std::unique_ptr<ChildProcess> mServer;
};

} // namespace JackTest
