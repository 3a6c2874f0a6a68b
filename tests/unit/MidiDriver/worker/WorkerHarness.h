// What the tests of the output worker share: byte strings and packet lists, a sink for the
// callbacks, and a worker that ends with its scope.
#pragma once

#include "MidiDriver/worker/MidiCallbackWorker.h"
#include "tests/support/platform/PacketLists.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

using TestSupport::Bytes;
using TestSupport::MakePacketList;

struct Delivery {
    unsigned int mPort;
    Bytes mBytes;

    friend bool operator==(const Delivery&, const Delivery&) = default;
};

// Takes what a worker forwards. Any thread.
class ForwardSink {
public:
    static void Forward(unsigned int port, const unsigned char* data, unsigned int length,
                        void* refcon);

    // Makes the next delivery wait, inside the callback, until `Open`. It is counted before.
    void Close();
    void Open();

    bool WaitForCount(std::size_t count) const;
    std::vector<Delivery> Deliveries() const;
    // The clock's reading with which each delivery was released.
    std::vector<std::chrono::nanoseconds> ReleaseTimes() const;
    // The allocations of the worker's thread up to each delivery.
    std::vector<std::uint64_t> Allocations() const;

    // Deliveries are only counted, and nothing is kept or allocated, from here on.
    void OnlyCount(std::size_t capacity);

private:
    void Take(unsigned int port, const unsigned char* data, unsigned int length);

    mutable std::mutex mMutex;
    mutable std::condition_variable mChanged;
    bool mClosed = false;
    bool mOnlyCount = false;
    std::size_t mCount = 0;
    std::vector<Delivery> mDeliveries;
    std::vector<std::chrono::nanoseconds> mReleaseTimes;
    std::vector<std::uint64_t> mAllocations;
};

// The reply callback has no refcon, so its deliveries are the process's.
void KeepReply(unsigned int port, const unsigned char* data, unsigned int length);
std::vector<Delivery> Replies();

// A worker with the driver's element sizes, deleted with its scope.
class TestWorker {
public:
    struct Options {
        tPacketDataCBElemType mElementType = kMIDISinglePacket;
        int mDataElementSize = 1;
        int mInfoElementSize = 4;
        int mThrottleElementSize = 12;
        tForwardMIDIFn mForward = ForwardSink::Forward;
        tReplyMIDIFn mReply = KeepReply;
        const std::vector<tActiveSenseFn>* mActiveSense = nullptr;
        int mThrottleRate = 0;
        int mPortCount = 32;
    };

    explicit TestWorker(const Options& options);
    TestWorker() : TestWorker(Options{}) {}
    ~TestWorker() { Delete(); }
    TestWorker(const TestWorker&) = delete;
    TestWorker& operator=(const TestWorker&) = delete;

    void Write(unsigned int port, const Bytes& bytes, bool complete = true);
    void Delete();
    void* Get() const { return mWorker; }
    ForwardSink& Sink() { return mSink; }

private:
    ForwardSink mSink;
    void* mWorker;
};

// The lines in syslog so far: how many at a priority hold exactly the text, and a wait for one.
std::size_t CountLines(int priority, const std::string& text);
[[nodiscard]] testing::AssertionResult WaitForLine(int priority, const std::string& text);
std::size_t CountLinesAt(int priority);
