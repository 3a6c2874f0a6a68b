#pragma once

#include <memory>

// Boost.Log with an asynchronous sink that formats each record and keeps nothing of it, as long as
// the object lives. One object at a time.
class BoostLog {
public:
    BoostLog();
    // Waits until all that was logged went through the sink.
    ~BoostLog();
    BoostLog(const BoostLog&) = delete;
    BoostLog& operator=(const BoostLog&) = delete;

    // Any thread.
    void Log(int channel, long long at, double value) const;

private:
    struct Sink;
    std::unique_ptr<Sink> mSink;
};
