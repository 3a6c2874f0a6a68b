#include "tests/unit/MidiDriver/worker/WorkerHarness.h"

#include "tests/support/WaitUntil.h"
#include "tests/support/memory/AllocationCounter.h"
#include "tests/support/platform/ControllableClock.h"
#include "tests/support/platform/SyslogCapture.h"

#include <algorithm>

using namespace TestSupport;

namespace {

constexpr auto kDeadline = std::chrono::minutes(1);

struct ReplyLog {
    std::mutex mMutex;
    std::vector<Delivery> mReplies;
};

ReplyLog& TheReplyLog() {
    static auto* const log = new ReplyLog;
    return *log;
}

} // namespace

void ForwardSink::Forward(unsigned int port, const unsigned char* data, unsigned int length,
                          void* refcon) {
    static_cast<ForwardSink*>(refcon)->Take(port, data, length);
}

void ForwardSink::Take(unsigned int port, const unsigned char* data, unsigned int length) {
    const std::uint64_t allocations = AllocationsOfThisThread();
    std::unique_lock lock(mMutex);
    ++mCount;
    if (mOnlyCount) {
        if (mAllocations.size() < mAllocations.capacity()) {
            mAllocations.push_back(allocations);
        }
    } else {
        mDeliveries.push_back({port, Bytes(data, data + length)});
        mReleaseTimes.push_back(ControllableClock::LastUpTimeOfThisThread());
    }
    mChanged.notify_all();
    mChanged.wait(lock, [this] { return !mClosed; });
}

void ForwardSink::Close() {
    const std::lock_guard lock(mMutex);
    mClosed = true;
}

void ForwardSink::Open() {
    const std::lock_guard lock(mMutex);
    mClosed = false;
    mChanged.notify_all();
}

bool ForwardSink::WaitForCount(std::size_t count) const {
    std::unique_lock lock(mMutex);
    return mChanged.wait_for(lock, kDeadline, [this, count] { return mCount >= count; });
}

std::vector<Delivery> ForwardSink::Deliveries() const {
    const std::lock_guard lock(mMutex);
    return mDeliveries;
}

std::vector<std::chrono::nanoseconds> ForwardSink::ReleaseTimes() const {
    const std::lock_guard lock(mMutex);
    return mReleaseTimes;
}

std::vector<std::uint64_t> ForwardSink::Allocations() const {
    const std::lock_guard lock(mMutex);
    return mAllocations;
}

void ForwardSink::OnlyCount(std::size_t capacity) {
    const std::lock_guard lock(mMutex);
    mAllocations.reserve(capacity);
    mOnlyCount = true;
}

void KeepReply(unsigned int port, const unsigned char* data, unsigned int length) {
    ReplyLog& log = TheReplyLog();
    const std::lock_guard lock(log.mMutex);
    log.mReplies.push_back({port, Bytes(data, data + length)});
}

std::vector<Delivery> Replies() {
    ReplyLog& log = TheReplyLog();
    const std::lock_guard lock(log.mMutex);
    return log.mReplies;
}

TestWorker::TestWorker(const Options& options)
    : mWorker(CreateMidiCallbackWorker(options.mElementType, options.mDataElementSize,
                                       options.mInfoElementSize, options.mThrottleElementSize,
                                       options.mForward, options.mReply, options.mActiveSense,
                                       &mSink, options.mThrottleRate, options.mPortCount)) {}

void TestWorker::Write(unsigned int port, const Bytes& bytes, bool complete) {
    // A block of exactly this size, so that the sanitizers see any byte read beyond it.
    Bytes copy(bytes);
    WriteCBBytes(mWorker, port, copy.data(), static_cast<unsigned int>(copy.size()), complete);
}

void TestWorker::Delete() {
    mSink.Open();
    DeleteMidiCallbackWorker(mWorker);
    mWorker = nullptr;
}

std::size_t CountLines(int priority, const std::string& text) {
    const std::vector<SyslogLine> lines = SyslogLines();
    return static_cast<std::size_t>(
        std::count(lines.begin(), lines.end(), SyslogLine{priority, text}));
}

testing::AssertionResult WaitForLine(int priority, const std::string& text) {
    return WaitUntil("syslog gets \"" + text + '"',
                     [&] { return CountLines(priority, text) != 0; });
}

std::size_t CountLinesAt(int priority) {
    const std::vector<SyslogLine> lines = SyslogLines();
    return static_cast<std::size_t>(
        std::count_if(lines.begin(), lines.end(),
                      [priority](const SyslogLine& line) { return line.mPriority == priority; }));
}
