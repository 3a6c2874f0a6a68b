// Measures what logging costs: one call on the logging thread, the collection of the records, a
// silent process, and the memory of contexts. It compares that with spdlog, Boost.Log and the
// floors that no logger can go below.
//
// Calls are timed one by one, the reading of the timer included in every line, the empty one too.
// The timer may tick in steps of ten nanoseconds; "typical", the mean of all calls but the slowest
// hundredth, shows what lies between. Half of the bursts are timed in one, and so without the
// timer: "in a row" is the median of their means. A thread logs in bursts that its ring holds and
// waits for the collection in between, so that nothing is dropped.
//
// "After a pause" is the case of a program that logs now and then: short bursts, each after a pause
// in which the collection thread, on another processor, has read what was logged before. The floor
// is measured in the same bursts, in turns with the rest.
//
// Collection is compared with the formatting of the same line by spdlog, which has the same columns
// (a thread's number stands for the sequence, nanoseconds alone for the time since the last one)
// and the same conversions. The clock is not read for it, nor is it for collection. Both are
// measured in processor time; the aim is 1.5 times spdlog's rate.
#include "bench/BoostLog.h"
#include "hsl/FormatHolder.h"
#include "hsl/LogContext.h"
#include "hsl/LogManager.h"
#include "runtime/sync/NyLock.h"
#include "runtime/time/NyTime.h"

#include <libkern/OSAtomic.h>

#include <spdlog/async.h>
#include <spdlog/fmt/fmt.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/null_sink.h>
#include <spdlog/spdlog.h>

#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using HSL::CLogContext;
using HSL::CLogManager;

constexpr int kBursts = 20;
constexpr int kCallsPerBurst = 4000; // some 180 KB of records
// A pause that is longer than the collection's period.
constexpr std::chrono::milliseconds kCollected(130);
constexpr HSL::CCat kEnabled(HSL::kInfo);
constexpr HSL::CCat kDisabled(HSL::kVerbose);

HSL::CFormatHolder sFormat("channel %d at %lld: %g");
std::int32_t sCounter = 0;

double Nanoseconds(Clock::duration duration) {
    return std::chrono::duration<double, std::nano>(duration).count();
}

struct Samples {
    std::vector<double> mCalls;
    std::vector<double> mBurstMeans;
};

// Of sorted values.
double Percentile(const std::vector<double>& values, double share) {
    return values[static_cast<std::size_t>(share * static_cast<double>(values.size() - 1))];
}

double Typical(const std::vector<double>& sorted) {
    const auto count = static_cast<std::ptrdiff_t>(sorted.size() * 99 / 100);
    return std::accumulate(sorted.begin(), sorted.begin() + count, 0.0) /
           static_cast<double>(count);
}

// Runs `call` on the given number of threads, with `drained` between the bursts, and prints how
// long the calls took.
void Measure(const char* name, int threads, const std::function<void()>& drained,
             const std::function<std::function<void(int)>()>& makeCall) {
    std::vector<Samples> samples(static_cast<std::size_t>(threads));
    std::vector<std::thread> running;
    for (Samples& mine : samples) {
        running.emplace_back([&mine, &makeCall, &drained] {
            const std::function<void(int)> call = makeCall();
            mine.mCalls.reserve(kBursts * kCallsPerBurst);
            for (int burst = 0; burst < kBursts; ++burst) {
                for (int i = 0; i < kCallsPerBurst; ++i) {
                    const Clock::time_point start = Clock::now();
                    call(i);
                    mine.mCalls.push_back(Nanoseconds(Clock::now() - start));
                }
                drained();
                const Clock::time_point start = Clock::now();
                for (int i = 0; i < kCallsPerBurst; ++i) {
                    call(i);
                }
                mine.mBurstMeans.push_back(Nanoseconds(Clock::now() - start) / kCallsPerBurst);
                drained();
            }
        });
    }
    Samples all;
    for (std::size_t i = 0; i < running.size(); ++i) {
        running[i].join();
        const auto add = [](std::vector<double>& to, const std::vector<double>& from) {
            to.insert(to.end(), from.begin(), from.end());
        };
        add(all.mCalls, samples[i].mCalls);
        add(all.mBurstMeans, samples[i].mBurstMeans);
    }
    std::sort(all.mCalls.begin(), all.mCalls.end());
    std::sort(all.mBurstMeans.begin(), all.mBurstMeans.end());
    std::printf("%-30s %7d %8.0f %8.0f %8.0f %8.1f %9.1f\n", name, threads,
                Percentile(all.mCalls, 0.5), Percentile(all.mCalls, 0.99),
                Percentile(all.mCalls, 0.999), Typical(all.mCalls),
                Percentile(all.mBurstMeans, 0.5));
}

std::string sLastLine;

void KeepLine(const char* line) {
    sLastLine = line;
}

// An output callback that takes a line and keeps nothing of it.
void DropLine(const char* line) {
    asm volatile("" : : "r"(line) : "memory");
}

void DropMessage(const char* /*message*/, const std::string& /*context*/, unsigned char /*indent*/,
                 unsigned char /*count*/, const unsigned char* /*ids*/, unsigned int /*seconds*/,
                 unsigned int /*microseconds*/) {}

void CostOfOneCall() {
    std::printf("%-30s %7s %8s %8s %8s %8s %9s\n", "one call, nanoseconds", "threads", "p50", "p99",
                "p99.9", "typical", "in a row");
    const auto nothing = [] {};
    const auto collected = [] { std::this_thread::sleep_for(kCollected); };
    for (const int threads : {1, 2, 4}) {
        Measure("nothing (the timer)", threads, nothing, [] {
            return [](int) { asm volatile("" ::: "memory"); };
        });
        Measure("clock read", threads, nothing, [] {
            return [](int) {
                NyTime now;
                now.SetToCurrentTime();
                asm volatile("" : : "r"(&now) : "memory");
            };
        });
        Measure("clock read and shared counter", threads, nothing, [] {
            return [](int) {
                NyTime now;
                now.SetToCurrentTime();
                asm volatile("" : : "r"(&now) : "memory");
                OSAtomicAdd32Barrier(1, &sCounter);
            };
        });
        Measure("HSL, disabled category", threads, nothing, [] {
            CLogContext* const context = CLogManager::GetTLSContext();
            return [context](int i) { context->Log(kDisabled, sFormat, i, 1LL << 40, 0.5); };
        });
        Measure("HSL, three arguments", threads, collected, [] {
            CLogContext* const context = CLogManager::GetTLSContext();
            return [context](int i) { context->Log(kEnabled, sFormat, i, 1LL << 40, 0.5); };
        });
        Measure("HSL, two texts and a number", threads, collected, [] {
            CLogContext* const context = CLogManager::GetTLSContext();
            return [context](int i) { context->Log(kEnabled, "port %s has %d", "Quorvel 1", i); };
        });
        spdlog::init_thread_pool(65536, 1);
        const auto logger =
            spdlog::create_async<spdlog::sinks::null_sink_mt>("async" + std::to_string(threads));
        Measure("spdlog asynchronous", threads, collected, [logger] {
            return [logger](int i) { logger->info("channel {} at {}: {}", i, 1LL << 40, 0.5); };
        });
        const BoostLog boost;
        Measure("Boost.Log asynchronous", threads, collected,
                [&boost] { return [&boost](int i) { boost.Log(i, 1LL << 40, 0.5); }; });
    }
}

// Keeps the thread that calls it on one processor of those that the process may use, the first or
// the last.
void KeepThreadOn(bool last) {
    cpu_set_t allowed;
    sched_getaffinity(getpid(), sizeof allowed, &allowed);
    int chosen = -1;
    for (int i = 0; i < CPU_SETSIZE; ++i) {
        if (CPU_ISSET(i, &allowed) && (last || chosen < 0)) {
            chosen = i;
        }
    }
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(chosen, &one);
    sched_setaffinity(0, sizeof one, &one); // 0: the calling thread
}

void KeepCollectionThreadApart(const char* /*line*/) {
    KeepThreadOn(true);
}

void CostAfterAPause() {
    constexpr int kRounds = 41;
    constexpr int kCalls = 2000;
    struct Kind {
        const char* mName;
        std::function<void(int)> mCall;
        std::vector<double> mMeans;
    };
    CLogContext* context = nullptr;
    spdlog::init_thread_pool(65536, 1);
    const auto logger = spdlog::create_async<spdlog::sinks::null_sink_mt>("paused");
    Kind kinds[] = {
        {"clock read and shared counter",
         [](int) {
             NyTime now;
             now.SetToCurrentTime();
             asm volatile("" : : "r"(&now) : "memory");
             OSAtomicAdd32Barrier(1, &sCounter);
         },
         {}},
        {"HSL, three arguments",
         [&context](int i) { context->Log(kEnabled, sFormat, i, 1LL << 40, 0.5); },
         {}},
        {"HSL, two texts and a number",
         [&context](int i) { context->Log(kEnabled, "port %s has %d", "Quorvel 1", i); },
         {}},
        {"spdlog asynchronous",
         [&logger](int i) { logger->info("channel {} at {}: {}", i, 1LL << 40, 0.5); },
         {}},
    };
    CLogManager::Instance()->SetOutputCallback(KeepCollectionThreadApart);
    std::thread([&context, &kinds] {
        KeepThreadOn(false);
        context = CLogManager::GetTLSContext();
        context->Log(kEnabled, sFormat, 0, 1LL << 40, 0.5);
        std::this_thread::sleep_for(kCollected);
        CLogManager::Instance()->SetOutputCallback(DropLine);
        for (int round = 0; round < kRounds; ++round) {
            for (Kind& kind : kinds) {
                std::this_thread::sleep_for(kCollected);
                const Clock::time_point start = Clock::now();
                for (int i = 0; i < kCalls; ++i) {
                    kind.mCall(i);
                }
                kind.mMeans.push_back(Nanoseconds(Clock::now() - start) / kCalls);
            }
        }
    }).join();
    std::printf("\n%-30s %8s %8s %8s %11s\n", "2000 calls after a pause, ns", "p25", "median",
                "p75", "over floor");
    double floor = 0;
    for (Kind& kind : kinds) {
        std::sort(kind.mMeans.begin(), kind.mMeans.end());
        const double median = Percentile(kind.mMeans, 0.5);
        floor = floor == 0 ? median : floor;
        std::printf("%-30s %8.1f %8.1f %8.1f %11.1f\n", kind.mName, Percentile(kind.mMeans, 0.25),
                    median, Percentile(kind.mMeans, 0.75), median - floor);
    }
    if (std::thread::hardware_concurrency() < 2) {
        std::printf("one processor: collected on the same\n");
    }
}

// The arguments of a record: an int, a long long and a double with many digits.
constexpr int kRecords = 400000;
constexpr long long kWide = 1LL << 40;
double Real(int i) {
    return i * 0.37;
}

// The processor time of the calling thread, which does all of the work here: what else runs on the
// machine takes turns with it, and is not counted.
Clock::duration ProcessorTime() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

double RateSince(Clock::duration start) {
    return kRecords * 1000.0 / Nanoseconds(ProcessorTime() - start);
}

double CollectedRate(bool structured) {
    constexpr int kContexts = 4;
    // The lock keeps the collection thread away from the pass that is timed here.
    const NyLockGuard guard(CLogManager::AddRemoveContextLock(), true);
    CLogManager* const manager = CLogManager::Instance();
    if (structured) {
        manager->SetStructuredOutputCallback(DropMessage);
    } else {
        manager->SetOutputCallback(DropLine);
    }
    std::vector<std::unique_ptr<CLogContext>> contexts;
    for (int i = 0; i < kContexts; ++i) {
        contexts.push_back(std::make_unique<CLogContext>("bench", 32 << 20, CLogContext::MallocFunc,
                                                         CLogContext::FreeFunc));
    }
    for (int i = 0; i < kRecords; ++i) {
        contexts[static_cast<std::size_t>(i % kContexts)]->Log(kEnabled, sFormat, i, kWide,
                                                               Real(i));
    }
    const Clock::duration start = ProcessorTime();
    manager->Collect();
    return RateSince(start);
}

void FormatMessage(spdlog::memory_buf_t& message, int i) {
    message.clear();
    fmt::format_to(std::back_inserter(message), "channel {} at {}: {:g}", i, kWide, Real(i));
}

double FormattedMessageRate() {
    spdlog::memory_buf_t message;
    const Clock::duration start = ProcessorTime();
    for (int i = 0; i < kRecords; ++i) {
        FormatMessage(message, i);
        message.push_back('\0');
        DropLine(message.data());
    }
    return RateSince(start);
}

double FormattedLineRate(std::string& line) {
    spdlog::pattern_formatter formatter("%6t  %H:%M:%S.%f  (%u) :  [%-18n]\t%v");
    spdlog::log_clock::time_point time = spdlog::log_clock::now();
    spdlog::memory_buf_t message;
    spdlog::memory_buf_t formatted;
    const Clock::duration start = ProcessorTime();
    for (int i = 0; i < kRecords; ++i) {
        FormatMessage(message, i);
        const spdlog::details::log_msg record(
            time, {}, "bench", spdlog::level::info,
            spdlog::string_view_t(message.data(), message.size()));
        formatted.clear();
        formatter.format(record, formatted);
        formatted.push_back('\0');
        DropLine(formatted.data());
        time += std::chrono::nanoseconds(100);
    }
    const double rate = RateSince(start);
    line = formatted.data();
    return rate;
}

void Collection() {
    constexpr int kRounds = 7;
    double plain = 0;
    double structured = 0;
    double message = 0;
    double line = 0;
    std::string spdlogLine;
    // They take turns, so that a busy machine disturbs the caches of all alike.
    for (int round = 0; round < kRounds; ++round) {
        plain = std::max(plain, CollectedRate(false));
        line = std::max(line, FormattedLineRate(spdlogLine));
        structured = std::max(structured, CollectedRate(true));
        message = std::max(message, FormattedMessageRate());
    }
    {
        const NyLockGuard guard(CLogManager::AddRemoveContextLock(), true);
        CLogContext context("bench", 0, CLogContext::MallocFunc, CLogContext::FreeFunc);
        CLogManager::Instance()->SetOutputCallback(KeepLine);
        context.Log(kEnabled, sFormat, kRecords - 1, kWide, Real(kRecords - 1));
        CLogManager::Instance()->Collect();
        CLogManager::Instance()->SetOutputCallback(DropLine);
    }
    std::printf("\ncollection, million records a second of processor time\n");
    std::printf("%-34s    %8.2f   %.2f times spdlog\n", "HSL, plain callback", plain, plain / line);
    std::printf("%-34s    %8.2f\n", "spdlog, formatting of the line", line);
    std::printf("%-34s    %8.2f   %.2f times fmt\n", "HSL, structured callback", structured,
                structured / message);
    std::printf("%-34s    %8.2f\n", "fmt, formatting of the message", message);
    std::printf("the last line of HSL:    %sthe last line of spdlog: %s", sLastLine.c_str(),
                spdlogLine.c_str());
}

double ProcessorSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

double ResidentKilobytes() {
    std::ifstream statistics("/proc/self/statm");
    double size = 0;
    double resident = 0;
    statistics >> size >> resident;
    return resident * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1024;
}

void IdleCost() {
    const double before = ProcessorSeconds();
    std::this_thread::sleep_for(std::chrono::seconds(10));
    std::printf("\nsilent for 10 s: %.2f ms of processor time\n",
                (ProcessorSeconds() - before) * 1000);
}

void MemoryOfContexts() {
    constexpr int kContexts = 1000;
    const double before = ResidentKilobytes();
    std::vector<std::unique_ptr<CLogContext>> contexts;
    for (int i = 0; i < kContexts; ++i) {
        contexts.push_back(std::make_unique<CLogContext>("memory", 0, CLogContext::MallocFunc,
                                                         CLogContext::FreeFunc));
    }
    const double unused = ResidentKilobytes();
    for (const auto& context : contexts) {
        context->Log(kEnabled, sFormat, 1, 2LL, 0.5);
    }
    std::printf("1000 contexts of 256 KB: %.1f KB resident each as made, %.1f KB after a message\n",
                (unused - before) / kContexts, (ResidentKilobytes() - before) / kContexts);
}

} // namespace

int main() {
    CLogManager::Initialize();
    CLogManager::Instance()->SetOutputCallback(DropLine);
    CLogManager::Instance()->SetFilterValue(HSL::kInfo, true);
    sFormat.Register();
    MemoryOfContexts();
    IdleCost();
    std::printf("\n");
    CostOfOneCall();
    CostAfterAPause();
    Collection();
    CLogManager::Cleanup();
}
