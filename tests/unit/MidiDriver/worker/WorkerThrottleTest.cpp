// The byte rate that the worker holds every port to, on a clock that moves only when told.

#include "tests/support/platform/ControllableClock.h"
#include "tests/support/platform/SyslogCapture.h"
#include "tests/unit/MidiDriver/worker/WorkerHarness.h"

#include <gtest/gtest.h>

#include <syslog.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <deque>
#include <numeric>
#include <ostream>
#include <random>

using namespace TestSupport;
using namespace std::chrono_literals;
using std::chrono::nanoseconds;

namespace {

using Deliveries = std::vector<Delivery>;
using Times = std::vector<nanoseconds>;

constexpr nanoseconds kStart = ControllableClock::kFirstUpTime;

TestWorker::Options WithRate(int rate, tPacketDataCBElemType elementType = kMIDISinglePacket) {
    TestWorker::Options options;
    options.mElementType = elementType;
    options.mThrottleRate = rate;
    return options;
}

// Writes the items and waits until all have been forwarded.
void Pass(TestWorker& worker, const Deliveries& items, std::size_t before = 0) {
    for (const Delivery& item : items) {
        worker.Write(item.mPort, item.mBytes);
    }
    ASSERT_TRUE(worker.Sink().WaitForCount(before + items.size()));
}

} // namespace

TEST(WorkerThrottle, SendsWhatFillsTheWindowExactlyAtOnce) {
    ControllableClock clock;
    TestWorker worker(WithRate(100));
    Pass(worker, {{0, Bytes(60, 1)}, {0, Bytes(39, 2)}, {0, Bytes(1, 3)}});
    EXPECT_EQ(clock.Sleeps(), 0u);
    EXPECT_EQ(worker.Sink().ReleaseTimes(), Times(3, kStart));
}

TEST(WorkerThrottle, HoldsOneByteMoreUntilTheOldestItemIsMoreThanASecondOld) {
    ControllableClock clock;
    TestWorker worker(WithRate(100));
    Pass(worker, {{0, Bytes(60, 1)}, {0, Bytes(40, 2)}, {0, Bytes(1, 3)}});
    // After 200 sleeps the oldest item lies on the window's start, and has not expired.
    EXPECT_EQ(clock.Sleeps(), 201u);
    EXPECT_EQ(worker.Sink().ReleaseTimes(), (Times{kStart, kStart, kStart + 1005ms}));
}

TEST(WorkerThrottle, CountsAnItemThatLiesOnTheWindowsStart) {
    ControllableClock clock;
    TestWorker worker(WithRate(100));
    Pass(worker, {{0, Bytes(100, 1)}});
    clock.Advance(1000ms);
    Pass(worker, {{0, {2}}}, 1);
    EXPECT_EQ(clock.Sleeps(), 1u);
}

TEST(WorkerThrottle, ForgetsAnItemThatLiesATickBeforeTheWindow) {
    ControllableClock clock;
    TestWorker worker(WithRate(100));
    Pass(worker, {{0, Bytes(100, 1)}});
    clock.Advance(1000ms + 1ns);
    Pass(worker, {{0, Bytes(100, 2)}}, 1);
    EXPECT_EQ(clock.Sleeps(), 0u);
}

TEST(WorkerThrottle, ReleasesAsSoonAsEnoughOfTheOldItemsHasExpired) {
    ControllableClock clock;
    TestWorker worker(WithRate(100));
    Pass(worker, {{0, Bytes(30, 1)}});
    clock.Advance(300ms);
    Pass(worker, {{0, Bytes(30, 2)}}, 1);
    clock.Advance(300ms);
    Pass(worker, {{0, Bytes(40, 3)}}, 2);
    Pass(worker, {{0, Bytes(60, 4)}}, 3);
    EXPECT_EQ(worker.Sink().ReleaseTimes().back(), kStart + 1305ms);
}

TEST(WorkerThrottle, SleepsInStepsOfFiveMilliseconds) {
    ControllableClock clock;
    TestWorker worker(WithRate(10));
    std::atomic<int> others{0};
    clock.OnSleep([&](std::chrono::microseconds length) {
        others += length == 5000us ? 0 : 1;
        clock.Advance(length);
    });
    Pass(worker, {{0, Bytes(10, 1)}, {0, Bytes(10, 2)}});
    EXPECT_EQ(others, 0);
    EXPECT_EQ(clock.Sleeps(), 201u);
}

TEST(WorkerThrottle, SendsASingleItemAboveTheLimitOnceTheWindowIsEmpty) {
    ControllableClock clock;
    TestWorker worker(WithRate(100));
    Pass(worker, {{0, Bytes(1000, 1)}});
    EXPECT_EQ(clock.Sleeps(), 0u);
    Pass(worker, {{0, Bytes(1, 2)}, {0, Bytes(500, 3)}, {0, Bytes(600, 4)}}, 1);
    EXPECT_EQ(worker.Sink().ReleaseTimes(),
              (Times{kStart, kStart + 1005ms, kStart + 2010ms, kStart + 3015ms}));
}

TEST(WorkerThrottle, HoldsEachPortToItsOwnRate) {
    ControllableClock clock;
    TestWorker worker(WithRate(100));
    Pass(worker, {{0, Bytes(100, 1)}, {1, Bytes(100, 2)}, {99, Bytes(100, 3)}});
    EXPECT_EQ(clock.Sleeps(), 0u);
    Pass(worker, {{1, {4}}}, 3);
    EXPECT_EQ(clock.Sleeps(), 201u);
}

TEST(WorkerThrottle, CountsTheMIDIBytesOfAPacketListOnly) {
    ControllableClock clock;
    TestWorker worker(WithRate(20, kMIDIPacketList));
    Pass(worker,
         {{0, MakePacketList({Bytes(9, 1), {}, Bytes(8, 2)})}, {0, MakePacketList({Bytes(3, 3)})}});
    EXPECT_EQ(clock.Sleeps(), 0u);
    Pass(worker, {{0, MakePacketList({{4}})}}, 2);
    EXPECT_EQ(clock.Sleeps(), 201u);
}

TEST(WorkerThrottle, CountsTheWholeLengthOfASinglePacket) {
    ControllableClock clock;
    TestWorker worker(WithRate(20));
    Pass(worker, {{0, MakePacketList({{1, 2}})}, {0, Bytes(4, 1)}}); // 16 and 4 bytes
    EXPECT_EQ(clock.Sleeps(), 0u);
    Pass(worker, {{0, {1}}}, 2);
    EXPECT_EQ(clock.Sleeps(), 201u);
}

TEST(WorkerThrottle, LetsEmptyPacketsPassAFullWindowButNoOverfullOne) {
    ControllableClock clock;
    TestWorker worker(WithRate(100, kMIDIPacketList));
    const Bytes empty = MakePacketList({{}, {}});
    Pass(worker, {{0, MakePacketList({Bytes(100, 1)})}, {0, empty}, {0, empty}});
    EXPECT_EQ(clock.Sleeps(), 0u);
    Pass(worker, {{1, MakePacketList({Bytes(101, 1)})}, {1, empty}}, 3);
    EXPECT_EQ(clock.Sleeps(), 201u);
}

TEST(WorkerThrottle, CountsThePacketsThatAListHoldsWhenItStatesMore) {
    ControllableClock clock;
    TestWorker worker(WithRate(3 * 5 + 17, kMIDIPacketList));
    std::size_t sent = 0;
    for (const std::uint32_t count : {2u, 0x9999999Au, 0xFFFFFFFFu}) {
        Bytes list = MakePacketList({Bytes(5, 1)});
        std::memcpy(list.data(), &count, sizeof count);
        Pass(worker, {{0, list}}, sent++);
    }
    Pass(worker, {{0, {1, 2, 3}}, {0, {}}, {0, MakePacketList({Bytes(17, 2)})}}, sent);
    EXPECT_EQ(clock.Sleeps(), 0u);
    EXPECT_EQ(worker.Sink().Deliveries().size(), 6u);
    Pass(worker, {{0, MakePacketList({{3}})}}, sent + 3);
    EXPECT_EQ(clock.Sleeps(), 201u);
}

TEST(WorkerThrottle, WritesTenLinesOfExceededRatesPerProcess) {
    ControllableClock clock;
    {
        TestWorker worker(WithRate(100));
        Pass(worker, {{0, Bytes(100, 1)}});
        clock.Advance(975ms);
        // Held back for six sleeps, each with a line.
        Pass(worker, {{0, Bytes(2, 2)}}, 1);
        EXPECT_EQ(
            CountLines(LOG_CRIT, "Current rate 102.000000 exceeds throttle rate 100 Bytes/sec\n"),
            6u);
        Pass(worker, {{0, Bytes(99, 3)}}, 2);
        EXPECT_EQ(
            CountLines(LOG_CRIT, "Current rate 101.000000 exceeds throttle rate 100 Bytes/sec\n"),
            4u);
        EXPECT_EQ(CountLinesAt(LOG_CRIT), 10u);
    }
    clock.Advance(1h);
    TestWorker another(WithRate(50));
    Pass(another, {{0, Bytes(50, 1)}, {0, Bytes(50, 2)}});
    EXPECT_EQ(CountLinesAt(LOG_CRIT), 10u);
}

// The 200 sleeps until the window is free and the one past its start: 1000 of every 1005 ms count.
TEST(WorkerThrottle, GivesASaturatedPortAThousandOf1005PartsOfItsRateOverAMinute) {
    constexpr int kRate = 14336;
    constexpr std::size_t kItemBytes = 128; // the rate is a multiple of it
    constexpr std::size_t kRounds = 60;
    constexpr std::size_t kItemsPerRound = kRate / kItemBytes;
    ControllableClock clock;
    TestWorker worker(WithRate(kRate, kMIDIPacketList));
    const Bytes list = MakePacketList({Bytes(kItemBytes, 1)});
    std::size_t sent = 0;
    for (std::size_t round = 0; round < kRounds; ++round) {
        Pass(worker, Deliveries(kItemsPerRound, Delivery{7, list}), sent);
        sent += kItemsPerRound;
    }
    const Times times = worker.Sink().ReleaseTimes();
    ASSERT_EQ(times.size(), sent);
    for (std::size_t i = 0; i < sent; ++i) {
        ASSERT_EQ(times[i], kStart + 1005ms * static_cast<int>(i / kItemsPerRound)) << i;
    }
    // From the first byte of a full window to the first of the next, share by share.
    const double seconds = std::chrono::duration<double>(times.back() - times.front()).count();
    const double share = static_cast<double>((kRounds - 1) * kRate) / (seconds * kRate);
    EXPECT_NEAR(share, 1000.0 / 1005.0, 1e-9);
}

namespace {

struct Model {
    int mRate;
    tPacketDataCBElemType mElementType;
    unsigned int mPorts;

    friend void PrintTo(const Model& model, std::ostream* stream) {
        *stream << model.mPorts << " ports at " << model.mRate << " bytes per second";
    }
};

class RandomTraffic : public testing::TestWithParam<Model> {};

std::size_t CountedBytes(const Delivery& item, tPacketDataCBElemType elementType) {
    if (elementType == kMIDISinglePacket) {
        return item.mBytes.size();
    }
    std::size_t bytes = 0;
    ForEachPacket(item.mBytes.data(), item.mBytes.size(),
                  [&bytes](const MIDIPacket* packet) { bytes += PacketLength(packet); });
    return bytes;
}

} // namespace

TEST_P(RandomTraffic, NeverExceedsTheLimitInAnySecondAndLosesAndReordersNothing) {
    const Model& model = GetParam();
    const unsigned int seed = std::random_device{}();
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    const auto rate = static_cast<unsigned int>(model.mRate);

    ControllableClock clock;
    TestWorker worker(WithRate(model.mRate, model.mElementType));
    Deliveries sent;
    unsigned char mark = 0;
    const auto makePacket = [&](std::size_t size) { return Bytes(size, ++mark); };
    for (int i = 0; i < 2500; ++i) {
        // Mostly small items, some of about the limit, some above it; some of none.
        const auto kind = static_cast<unsigned int>(random() % 100);
        const std::size_t size = kind < 80   ? random() % (rate / 4 + 1)
                                 : kind < 95 ? random() % (rate + 3)
                                             : rate + random() % rate;
        Delivery item{static_cast<unsigned int>(random() % model.mPorts), {}};
        if (model.mElementType == kMIDISinglePacket) {
            // Zero-length items are not limited and could overflow the port's ring.
            item.mBytes = makePacket(std::max<std::size_t>(size, 1));
        } else {
            item.mBytes = MakePacketList({makePacket(size / 2 + 1), {}, makePacket(size / 2)});
        }
        worker.Write(item.mPort, item.mBytes);
        sent.push_back(std::move(item));
        if (random() % 4 == 0) {
            clock.Advance(std::chrono::microseconds(random() % 300000));
        }
        if (random() % 50 == 0) {
            ASSERT_TRUE(worker.Sink().WaitForCount(sent.size()));
        }
    }
    ASSERT_TRUE(worker.Sink().WaitForCount(sent.size()));
    // One loop serves all ports, so that the order is kept even among them.
    ASSERT_EQ(worker.Sink().Deliveries(), sent);

    const Times times = worker.Sink().ReleaseTimes();
    std::vector<std::deque<std::size_t>> windows(model.mPorts);
    std::size_t singles = 0;
    for (std::size_t i = 0; i < sent.size(); ++i) {
        std::deque<std::size_t>& window = windows[sent[i].mPort];
        while (!window.empty() && times[window.front()] < times[i] - 1s) {
            window.pop_front();
        }
        window.push_back(i);
        const std::size_t bytes = std::accumulate(
            window.begin(), window.end(), std::size_t{0}, [&](std::size_t sum, std::size_t item) {
                return sum + CountedBytes(sent[item], model.mElementType);
            });
        if (window.size() == 1 && bytes > rate) {
            ++singles;
            continue;
        }
        ASSERT_LE(bytes, rate) << "item " << i << " on port " << sent[i].mPort;
    }
    EXPECT_GT(singles, 0u);
    EXPECT_GT(clock.Sleeps(), 0u);
    EXPECT_EQ(CountLinesAt(LOG_ERR) + CountLinesAt(LOG_INFO), 0u);
}

INSTANTIATE_TEST_SUITE_P(
    WorkerThrottle, RandomTraffic,
    testing::Values(Model{40, kMIDISinglePacket, 1}, Model{100, kMIDISinglePacket, 8},
                    Model{100, kMIDIPacketList, 8}, Model{500, kMIDIPacketList, 32}),
    [](const auto& test) {
        return std::to_string(test.param.mPorts) + "PortsAt" + std::to_string(test.param.mRate) +
               (test.param.mElementType == kMIDIPacketList ? "Lists" : "Packets");
    });
