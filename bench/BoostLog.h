#pragma once

#include <memory>

// While a BoostLog exists, Boost.Log has an asynchronous sink that formats each record and keeps
// nothing of it. A program has one at a time.
class BoostLog {
public:
    BoostLog();
    // Waits until the sink has taken all records that were logged.
    ~BoostLog();
    BoostLog(const BoostLog&) = delete;
    BoostLog& operator=(const BoostLog&) = delete;

    // Any thread.
    void Log(int channel, long long at, double value) const;

private:
    struct Sink;
    std::unique_ptr<Sink> mSink;
};
