// Measures the output worker: the time of an item from the sender to the forward callback, compared
// with a bare hand-over between two threads; the share of its rate that a saturated port gets; and
// the cost of making a worker. Since it times whole threads, this program has a small harness of
// its own.
#include "MidiDriver/worker/MidiCallbackWorker.h"
#include "runtime/thread/NyThread.h"
#include "tests/support/platform/ControllableClock.h"

#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <mutex>
#include <thread>
#include <vector>

namespace {

using TestSupport::ControllableClock;
using Clock = std::chrono::steady_clock;
using std::chrono::nanoseconds;
using namespace std::chrono_literals;

constexpr int kDriverRate = 14336;

// --- One way from thread to thread ---------------------------------------------------------------

constexpr int kRounds = 25;
constexpr int kItemsPerRound = 200;
constexpr int kWarmUp = 50;
constexpr auto kPause = 300us; // long enough for the receiver to be asleep again

// The place where the receiving thread stores the moment at which an item reached it.
struct Arrival {
    std::atomic<Clock::rep> mTime{0};

    void Note() { mTime.store(Clock::now().time_since_epoch().count(), std::memory_order_release); }
    static void Forward(unsigned int, const unsigned char*, unsigned int, void* refcon) {
        static_cast<Arrival*>(refcon)->Note();
    }
};

// The floor. A NyThread too, so that both receivers are scheduled alike.
class HandOver : public NyThread {
public:
    HandOver() { Start(); }
    ~HandOver() override {
        {
            const std::lock_guard lock(mMutex);
            mEnd = true;
        }
        mChanged.notify_one();
        WaitForExit();
    }
    void Send() {
        {
            const std::lock_guard lock(mMutex);
            mFull = true;
        }
        mChanged.notify_one();
    }
    void Run() override {
        std::unique_lock lock(mMutex);
        for (;;) {
            mChanged.wait(lock, [this] { return mFull || mEnd; });
            if (mEnd) {
                return;
            }
            mFull = false;
            mArrival.Note();
        }
    }
    Arrival& GetArrival() { return mArrival; }

private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    bool mFull = false;
    bool mEnd = false;
    Arrival mArrival;
};

class WorkerPath {
public:
    explicit WorkerPath(int rate)
        : mWorker(CreateMidiCallbackWorker(kMIDIPacketList, 1, 4, 12, Arrival::Forward, nullptr,
                                           nullptr, &mArrival, rate, 32)) {
        const std::uint32_t count = 1;
        const std::uint16_t length = 3;
        const unsigned char note[] = {0x90, 0x40, 0x7F};
        std::memcpy(mList, &count, sizeof count);
        std::memcpy(mList + 12, &length, sizeof length);
        std::memcpy(mList + 14, note, sizeof note);
    }
    ~WorkerPath() { DeleteMidiCallbackWorker(mWorker); }
    WorkerPath(const WorkerPath&) = delete;
    WorkerPath& operator=(const WorkerPath&) = delete;
    void Send() { WriteCBBytes(mWorker, 3, mList, sizeof mList, true); }
    Arrival& GetArrival() { return mArrival; }

private:
    Arrival mArrival;
    unsigned char mList[17] = {};
    void* mWorker;
};

template <typename Path>
void Measure(Path& path, int items, std::vector<double>& microseconds) {
    for (int i = 0; i < items; ++i) {
        Arrival& arrival = path.GetArrival();
        arrival.mTime.store(0, std::memory_order_relaxed);
        const Clock::rep sent = Clock::now().time_since_epoch().count();
        path.Send();
        Clock::rep arrived = 0;
        do {
            std::this_thread::sleep_for(kPause);
            arrived = arrival.mTime.load(std::memory_order_acquire);
        } while (arrived == 0);
        microseconds.push_back(
            std::chrono::duration<double, std::micro>(Clock::duration(arrived - sent)).count());
    }
}

double Percentile(std::vector<double> values, double share) {
    std::sort(values.begin(), values.end());
    return values[static_cast<std::size_t>(share * static_cast<double>(values.size() - 1))];
}

void PrintLatency(const char* name, const std::vector<double>& times,
                  const std::vector<double>& floor) {
    std::printf("  %-28s", name);
    for (const double share : {0.5, 0.9, 0.99}) {
        const double value = Percentile(times, share);
        std::printf("  p%-2.0f %8.2f us (%4.2f)", share * 100, value,
                    value / Percentile(floor, share));
    }
    std::printf("\n");
}

// The cores that this process may run on.
std::vector<int> AvailableCores() {
    cpu_set_t set;
    std::vector<int> cores;
    if (sched_getaffinity(0, sizeof set, &set) == 0) {
        for (int core = 0; core < CPU_SETSIZE; ++core) {
            if (CPU_ISSET(core, &set)) {
                cores.push_back(core);
            }
        }
    }
    return cores;
}

// Keeps the calling thread, and the threads that it makes from here on, on some of the cores.
void StayOn(const std::vector<int>& cores) {
    cpu_set_t set;
    CPU_ZERO(&set);
    for (const int core : cores) {
        CPU_SET(core, &set);
    }
    sched_setaffinity(0, sizeof set, &set);
}

void BenchLatency(const char* placement, int sendingCore, int receivingCore) {
    std::printf("one way, %s, %d items each in %d alternating rounds (times the floor):\n",
                placement, kRounds * kItemsPerRound, kRounds);
    StayOn({receivingCore});
    HandOver floorPath;
    WorkerPath unlimitedPath(0);
    WorkerPath throttledPath(kDriverRate);
    StayOn({sendingCore});
    std::vector<double> ignored;
    Measure(floorPath, kWarmUp, ignored);
    Measure(unlimitedPath, kWarmUp, ignored);
    Measure(throttledPath, kWarmUp, ignored);
    std::vector<double> floor;
    std::vector<double> unlimited;
    std::vector<double> throttled;
    for (int round = 0; round < kRounds; ++round) {
        Measure(floorPath, kItemsPerRound, floor);
        Measure(unlimitedPath, kItemsPerRound, unlimited);
        Measure(throttledPath, kItemsPerRound, throttled);
    }
    PrintLatency("mutex and condition (floor)", floor, floor);
    PrintLatency("worker, rate 0", unlimited, floor);
    PrintLatency("worker, rate 14336", throttled, floor);
}

// A real-time thread is woken where it slept, so a hand-over is one within a core or one between
// two for as long as both threads live, and waking an idle core costs several times as much. Left
// to chance, the floor gets one and the worker the other.
void BenchLatencies() {
    const std::vector<int> cores = AvailableCores();
    if (cores.empty()) {
        std::printf("one way: not measured, the cores of this process are not known\n");
        return;
    }
    BenchLatency("within one core", cores.front(), cores.front());
    if (cores.size() > 1) {
        BenchLatency("between two cores", cores.front(), cores.back());
    }
    StayOn(cores);
}

// --- A saturated port ----------------------------------------------------------------------------

constexpr std::size_t kItemBytes = 64;

struct Releases {
    std::vector<nanoseconds> mTimes; // the worker's thread's until it has ended
    std::atomic<std::int64_t> mLatest{0};

    static void Forward(unsigned int, const unsigned char*, unsigned int, void* refcon) {
        auto& releases = *static_cast<Releases*>(refcon);
        const nanoseconds time = ControllableClock::LastUpTimeOfThisThread();
        releases.mTimes.push_back(time);
        releases.mLatest.store(time.count(), std::memory_order_relaxed);
    }
};

// Keeps a port full until the worker's own clock has gone on by `length`.
void SaturatePort(const char* name, nanoseconds length) {
    Releases releases;
    releases.mTimes.reserve(100000);
    void* const worker = CreateMidiCallbackWorker(kMIDISinglePacket, 1, 4, 12, Releases::Forward,
                                                  nullptr, nullptr, &releases, kDriverRate, 32);
    std::vector<unsigned char> item(kItemBytes, 1);
    std::int64_t first = 0;
    std::int64_t latest = 0;
    std::size_t sent = 0;
    while (first == 0 || nanoseconds(latest - first) < length) {
        WriteCBBytes(worker, 0, item.data(), static_cast<unsigned int>(item.size()), true);
        // Far from filling the ring, whoever gets the lock.
        if (++sent % 1000 == 0) {
            std::this_thread::sleep_for(1ms);
        }
        latest = releases.mLatest.load(std::memory_order_relaxed);
        first = first == 0 ? latest : first;
    }
    ShutDown(worker);
    DeleteMidiCallbackWorker(worker);

    // The first full window goes out at once; the rate is that of what came after it.
    const std::vector<nanoseconds>& times = releases.mTimes;
    constexpr std::size_t kWindowItems = kDriverRate / kItemBytes;
    const std::size_t last = (times.size() - 1) / kWindowItems * kWindowItems;
    const double seconds = std::chrono::duration<double>(times[last] - times[0]).count();
    const double share = static_cast<double>(last * kItemBytes) / (seconds * kDriverRate);
    std::size_t worst = 0;
    std::size_t tail = 0;
    for (std::size_t i = 0; i < times.size(); ++i) {
        while (times[tail] < times[i] - 1s) {
            ++tail;
        }
        worst = std::max(worst, (i - tail + 1) * kItemBytes);
    }
    std::printf("  %-24s %6.2f s, share of the rate %.4f (%.4f when windows expire whole), worst "
                "second %zu "
                "of %d bytes%s\n",
                name, seconds, share, 1000.0 / 1005.0, worst, kDriverRate,
                worst > kDriverRate ? ": LIMIT EXCEEDED" : "");
}

void BenchThrottle() {
    std::printf("saturated port, %zu-byte items:\n", kItemBytes);
    {
        const ControllableClock clock;
        SaturatePort("controllable clock, 60 s", 60s);
    }
    SaturatePort("real clock, 10 s", 10s);
}

// --- Creation and release ------------------------------------------------------------------------

struct Memory {
    double mReserved; // megabytes, as below
    double mResident;
};

Memory CurrentMemory() {
    std::ifstream file("/proc/self/statm");
    double reserved = 0;
    double resident = 0;
    file >> reserved >> resident;
    const double megabytes = static_cast<double>(sysconf(_SC_PAGESIZE)) / 1e6;
    return {reserved * megabytes, resident * megabytes};
}

void IgnoreItem(unsigned int, const unsigned char*, unsigned int, void*) {}

void BenchCreation() {
    constexpr int kTimes = 20;
    std::vector<double> creations;
    std::vector<double> releases;
    Memory reserved{};
    const Memory before = CurrentMemory();
    for (int i = 0; i < kTimes; ++i) {
        const auto start = Clock::now();
        void* const worker = CreateMidiCallbackWorker(kMIDIPacketList, 1, 4, 12, IgnoreItem,
                                                      nullptr, nullptr, nullptr, kDriverRate, 32);
        const auto created = Clock::now();
        if (i == 0) {
            reserved = CurrentMemory();
        }
        const auto releasing = Clock::now();
        ShutDown(worker);
        DeleteMidiCallbackWorker(worker);
        const auto released = Clock::now();
        creations.push_back(std::chrono::duration<double, std::milli>(created - start).count());
        releases.push_back(std::chrono::duration<double, std::milli>(released - releasing).count());
    }
    const Memory after = CurrentMemory();
    std::printf("creation and release at the driver's sizes, %d times:\n", kTimes);
    std::printf("  first creation %.1f ms; creation p50 %.1f ms, p99 %.1f ms; release p50 %.1f ms, "
                "p99 %.1f ms\n",
                creations.front(), Percentile(creations, 0.5), Percentile(creations, 0.99),
                Percentile(releases, 0.5), Percentile(releases, 0.99));
    std::printf("  one worker reserves %.0f MB, %.1f MB of it resident; after the last release "
                "%.1f MB more resident than before\n",
                reserved.mReserved - before.mReserved, reserved.mResident - before.mResident,
                after.mResident - before.mResident);
}

} // namespace

int main() {
    // This comes first, while the heap is as a host finds it.
    BenchCreation();
    BenchLatencies();
    BenchThrottle();
    return 0;
}
