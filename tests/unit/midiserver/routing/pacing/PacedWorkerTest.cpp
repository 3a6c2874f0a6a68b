// The pacer before the driver's real worker, on a clock that moves only when told. The worker's
// sleeps move it too, so what a held-back port costs the others shows as virtual time.

#include "MidiDriver/worker/MidiCallbackWorker.h"
#include "midiserver/replay/LatencyDistribution.h"
#include "midiserver/routing/pacing/Pacer.h"
#include "tests/support/Sanitized.h"
#include "tests/support/platform/ControllableClock.h"
#include "tests/support/platform/SyslogCapture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <deque>
#include <mutex>
#include <tuple>
#include <vector>

namespace MidiServer {
namespace {

using namespace std::chrono_literals;
using std::chrono::nanoseconds;
using Bytes = std::vector<std::uint8_t>;
using TimePoint = Pacer::TimePoint;
using TestSupport::ControllableClock;

constexpr std::size_t kPorts = 32;
constexpr std::size_t kFloodMessage = 200;
const Bytes kPing = {0x90, 0x00, 0x00};

// A DAW's traffic on every port: pings, values, and a burst of text now and then. A flooded port
// sends four times its rate besides.
class Traffic {
public:
    struct Options {
        std::size_t flooded; // ports, from the first on
        bool hasBursts;
        bool isPaced;
        nanoseconds step;
    };

    explicit Traffic(const Options& options) : mOptions(options) {
        sTraffic = this;
        mPacer.Configure(std::vector<Pacer::PortSettings>(kPorts, {Protocol::kHui, false}));
        const std::vector<tActiveSenseFn> detectors(kPorts, IsHUIActiveSenseFn);
        mWorker = CreateMidiCallbackWorker(kMIDIPacketList, 1, 4, 12, Forwarded, Replied,
                                           &detectors, nullptr, kDriverBytesPerSecond, kPorts);
    }
    ~Traffic() {
        ShutDown(mWorker);
        DeleteMidiCallbackWorker(mWorker);
    }
    Traffic(const Traffic&) = delete;
    Traffic& operator=(const Traffic&) = delete;

    void Run(nanoseconds length) {
        const TimePoint start = Now();
        for (std::uint64_t step = 0; step * mOptions.step < length; ++step) {
            // DAWs do not wait while the driver sleeps: what they send meanwhile is late.
            const TimePoint due = start + step * mOptions.step;
            if (due > Now()) {
                mClock.Advance(due - Now());
            }
            for (std::size_t port = 0; port < kPorts; ++port) {
                Offer(port, step, due);
            }
            PacedList list;
            while (mOptions.isPaced && mPacer.Next(Now(), list)) {
                Send(list.port, list.list, list.arrived);
            }
            for (std::uint32_t forwarded = mForwarded.load(std::memory_order_acquire);
                 forwarded < mSent; forwarded = mForwarded.load(std::memory_order_acquire)) {
                mForwarded.wait(forwarded, std::memory_order_acquire);
            }
        }
    }

    // Of the ports that are not flooded, in virtual time.
    LatencyDistribution::Percentiles Replies() const { return mReplies.Summary(); }
    LatencyDistribution::Percentiles Forwarding() const {
        const std::lock_guard lock(mMutex);
        return mForwarding.Summary();
    }
    std::uint64_t Sent() const { return mSent; }
    std::uint64_t Sleeps() const { return mClock.Sleeps(); }

private:
    TimePoint Now() const { return TimePoint(mClock.UpTime()); }

    void Offer(std::size_t port, std::uint64_t step, TimePoint now) {
        const auto isTime = [&](nanoseconds interval) {
            const auto steps =
                std::max<std::uint64_t>(1, static_cast<std::uint64_t>(interval / mOptions.step));
            return (step + port * 7) % steps == 0;
        };
        if (port < mOptions.flooded) {
            const double bytes =
                4.0 * kDriverBytesPerSecond * std::chrono::duration<double>(mOptions.step) / 1s;
            for (double added = 0; added < bytes; added += kFloodMessage) {
                Add(port, Bytes(kFloodMessage, 0x11), now);
            }
        }
        if (isTime(500ms)) {
            mPinged[port].push_back(now);
            Add(port, kPing, now);
        }
        if (isTime(20ms)) {
            Add(port, Bytes{0xE0, 1, 2}, now);
        }
        if (mOptions.hasBursts && isTime(5s)) {
            for (int i = 0; i < 200; ++i) {
                Add(port, Bytes(90, 0x22), now);
            }
        }
    }

    void Add(std::size_t port, const Bytes& message, TimePoint now) {
        if (mOptions.isPaced) {
            mPacer.Add(port, message, now);
            return;
        }
        PacketListBuilder list;
        list.Add(message);
        Send(port, list, {now});
    }

    void Send(std::size_t port, PacketListBuilder& list, const std::vector<TimePoint>& arrived) {
        {
            const std::lock_guard lock(mMutex);
            mArrived[port].push_back(arrived);
        }
        ++mSent;
        WriteCBBytes(mWorker, static_cast<unsigned>(port), list.List(),
                     static_cast<unsigned>(list.ByteSize()), true);
    }

    static void Forwarded(unsigned port, const unsigned char*, unsigned, void*) {
        Traffic& traffic = *sTraffic;
        {
            const std::lock_guard lock(traffic.mMutex);
            const TimePoint now(ControllableClock::LastUpTimeOfThisThread());
            for (const TimePoint arrived : traffic.mArrived[port].front()) {
                if (port >= traffic.mOptions.flooded) {
                    traffic.mForwarding.Add(now - arrived);
                }
            }
            traffic.mArrived[port].pop_front();
        }
        traffic.mForwarded.fetch_add(1, std::memory_order_release);
        traffic.mForwarded.notify_one();
    }

    // On the sending thread, within WriteCBBytes.
    static void Replied(unsigned port, const unsigned char*, unsigned) {
        std::deque<TimePoint>& pinged = sTraffic->mPinged[port];
        if (port >= sTraffic->mOptions.flooded) {
            sTraffic->mReplies.Add(sTraffic->Now() - pinged.front());
        }
        pinged.pop_front();
    }

    static inline Traffic* sTraffic = nullptr;

    const Options mOptions;
    ControllableClock mClock;
    Pacer mPacer;
    void* mWorker = nullptr;
    std::uint32_t mSent = 0; // lists
    std::atomic<std::uint32_t> mForwarded{0};
    std::array<std::deque<TimePoint>, kPorts> mPinged; // the sending thread's
    LatencyDistribution mReplies;                      // too
    mutable std::mutex mMutex;                         // for the rest
    std::array<std::deque<std::vector<TimePoint>>, kPorts> mArrived;
    LatencyDistribution mForwarding;
};

struct Latencies {
    explicit Latencies(const Traffic& traffic)
        : replies(traffic.Replies()), forwarding(traffic.Forwarding()) {}

    LatencyDistribution::Percentiles replies;
    LatencyDistribution::Percentiles forwarding;
};

Latencies LatenciesWith(const Traffic::Options& options) {
    Traffic traffic(options);
    traffic.Run(12s);
    return Latencies(traffic);
}

// How many ports are flooded, and whether all send bursts besides.
class PacedWorkerTest : public testing::TestWithParam<std::tuple<std::size_t, bool>> {};

TEST_P(PacedWorkerTest, KeepsTheOtherPortsAsFastAsTheyAreAlone) {
    const auto [ports, hasBursts] = GetParam();
    const Latencies alone = LatenciesWith({0, hasBursts, true, 1ms});
    const Latencies flooded = LatenciesWith({ports, hasBursts, true, 1ms});

    ASSERT_GT(flooded.replies.count, 0U);
    ASSERT_GT(flooded.forwarding.count, 0U);
    EXPECT_LE(flooded.replies.p99, 2 * alone.replies.p99);
    EXPECT_LE(flooded.forwarding.p99, 2 * alone.forwarding.p99);
}

INSTANTIATE_TEST_SUITE_P(Flooded, PacedWorkerTest,
                         testing::Combine(testing::Values(1, 16), testing::Bool()));

// What the pacer is there for: by itself the driver holds every port back as soon as one floods.
TEST(UnpacedWorkerTest, HoldsTheOtherPortsBack) {
    const Latencies alone = LatenciesWith({0, false, false, 1ms});
    const Latencies flooded = LatenciesWith({1, false, false, 1ms});

    EXPECT_GT(flooded.replies.p99, 2 * alone.replies.p99);
    EXPECT_GT(flooded.forwarding.p99, 2 * alone.forwarding.p99);
}

#if defined(QUORVEL_SANITIZED)
constexpr auto kHour = 6min; // which takes as long there as the whole hour otherwise
#else
constexpr auto kHour = 1h;
#endif

// Nothing fails, all that was sent is forwarded, and the driver never has to hold anything back.
TEST(PacedWorkerHourTest, RunsForAnHourWithoutARingErrorAndWithoutSleep) {
    TestSupport::ClearSyslogLines();
    Traffic traffic({4, true, true, 100ms});
    traffic.Run(kHour);

    EXPECT_GT(traffic.Sent(), 4U * static_cast<std::uint64_t>(kHour / 1s));
    EXPECT_EQ(traffic.Sleeps(), 0U);
    EXPECT_TRUE(TestSupport::SyslogLines().empty());
}

} // namespace
} // namespace MidiServer
