// What logging costs: one call on the logging thread, the collection of what was logged, a silent
// process, and the memory of contexts; beside spdlog and the floors that no logger can go below.
//
// Calls are timed one by one, the reading of the timer included in every line, the empty one too. A
// thread logs in bursts that its ring holds and waits for the collection in between, so that
// nothing is dropped.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <sys/resource.h>
#include <unistd.h>

#include <libkern/OSAtomic.h>
#include <spdlog/async.h>
#include <spdlog/sinks/base_sink.h>
#include <spdlog/sinks/null_sink.h>
#include <spdlog/spdlog.h>

#include "hsl/FormatHolder.h"
#include "hsl/LogContext.h"
#include "hsl/LogManager.h"
#include "runtime/sync/NyLock.h"
#include "runtime/time/NyTime.h"

namespace {

using Clock = std::chrono::steady_clock;
using HSL::CLogContext;
using HSL::CLogManager;

constexpr int kBursts = 20;
constexpr int kCallsPerBurst = 4000; // some 180 KB of records
constexpr HSL::CCat kEnabled(HSL::kInfo);
constexpr HSL::CCat kDisabled(HSL::kVerbose);

HSL::CFormatHolder gFormat("channel %d at %lld: %g");
std::int32_t gCounter = 0;

double Nanoseconds(Clock::duration duration) {
    return std::chrono::duration<double, std::nano>(duration).count();
}

// Runs `call` on so many threads, with `drained` between the bursts, and prints the percentiles.
void Measure(const char* name, int threads, const std::function<void()>& drained,
             const std::function<std::function<void(int)>()>& makeCall) {
    std::vector<std::vector<double>> samples(static_cast<std::size_t>(threads));
    std::vector<std::thread> running;
    for (std::vector<double>& mine : samples) {
        running.emplace_back([&mine, &makeCall, &drained] {
            const std::function<void(int)> call = makeCall();
            mine.reserve(kBursts * kCallsPerBurst);
            for (int burst = 0; burst < kBursts; ++burst) {
                for (int i = 0; i < kCallsPerBurst; ++i) {
                    const Clock::time_point start = Clock::now();
                    call(i);
                    mine.push_back(Nanoseconds(Clock::now() - start));
                }
                drained();
            }
        });
    }
    std::vector<double> all;
    for (std::size_t i = 0; i < running.size(); ++i) {
        running[i].join();
        all.insert(all.end(), samples[i].begin(), samples[i].end());
    }
    std::sort(all.begin(), all.end());
    const auto percentile = [&all](double share) {
        return all[static_cast<std::size_t>(share * static_cast<double>(all.size() - 1))];
    };
    std::printf("%-34s %d  %8.0f %8.0f %8.0f\n", name, threads, percentile(0.5), percentile(0.99),
                percentile(0.999));
}

void DropLine(const char* /*line*/) {}

void DropMessage(const char* /*message*/, const std::string& /*context*/, unsigned char /*indent*/,
                 unsigned char /*count*/, const unsigned char* /*ids*/, unsigned int /*seconds*/,
                 unsigned int /*microseconds*/) {}

// Formats as any sink does and keeps nothing.
class FormattingSink : public spdlog::sinks::base_sink<spdlog::details::null_mutex> {
    void sink_it_(const spdlog::details::log_msg& message) override {
        spdlog::memory_buf_t formatted;
        formatter_->format(message, formatted);
        mBytes += formatted.size();
    }
    void flush_() override {}
    std::size_t mBytes = 0;
};

void CostOfOneCall() {
    std::printf("one call, nanoseconds             threads   p50      p99    p99.9\n");
    const auto nothing = [] {};
    // Longer than the collection's period.
    const auto collected = [] { std::this_thread::sleep_for(std::chrono::milliseconds(130)); };
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
                OSAtomicAdd32Barrier(1, &gCounter);
            };
        });
        Measure("HSL, disabled category", threads, nothing, [] {
            CLogContext* const context = CLogManager::GetTLSContext();
            return [context](int i) { context->Log(kDisabled, gFormat, i, 1LL << 40, 0.5); };
        });
        Measure("HSL, three arguments", threads, collected, [] {
            CLogContext* const context = CLogManager::GetTLSContext();
            return [context](int i) { context->Log(kEnabled, gFormat, i, 1LL << 40, 0.5); };
        });
        spdlog::init_thread_pool(65536, 1);
        const auto logger =
            spdlog::create_async<spdlog::sinks::null_sink_mt>("async" + std::to_string(threads));
        Measure("spdlog asynchronous", threads, collected, [logger] {
            return [logger](int i) { logger->info("channel {} at {}: {}", i, 1LL << 40, 0.5); };
        });
    }
}

void Collection() {
    constexpr int kContexts = 4;
    constexpr int kRecords = 400000;
    std::printf("\ncollection, million records a second\n");
    for (const bool structured : {false, true}) {
        double best = 0;
        for (int round = 0; round < 3; ++round) {
            // The lock keeps the collection thread off what is timed here.
            const NyLockGuard guard(CLogManager::AddRemoveContextLock(), true);
            CLogManager* const manager = CLogManager::Instance();
            if (structured) {
                manager->SetStructuredOutputCallback(DropMessage);
            } else {
                manager->SetOutputCallback(DropLine);
            }
            std::vector<std::unique_ptr<CLogContext>> contexts;
            for (int i = 0; i < kContexts; ++i) {
                contexts.push_back(std::make_unique<CLogContext>(
                    "bench", 32 << 20, CLogContext::MallocFunc, CLogContext::FreeFunc));
            }
            for (int i = 0; i < kRecords; ++i) {
                contexts[static_cast<std::size_t>(i % kContexts)]->Log(kEnabled, gFormat, i,
                                                                       1LL << 40, 0.5);
            }
            const Clock::time_point start = Clock::now();
            manager->Collect();
            best = std::max(best, kRecords * 1000.0 / Nanoseconds(Clock::now() - start));
        }
        std::printf("%-34s    %8.2f\n",
                    structured ? "HSL, structured callback" : "HSL, plain callback", best);
    }
    double best = 0;
    for (int round = 0; round < 3; ++round) {
        spdlog::logger logger("formatting", std::make_shared<FormattingSink>());
        const Clock::time_point start = Clock::now();
        for (int i = 0; i < kRecords; ++i) {
            logger.info("channel {} at {}: {}", i, 1LL << 40, 0.5);
        }
        best = std::max(best, kRecords * 1000.0 / Nanoseconds(Clock::now() - start));
    }
    std::printf("%-34s    %8.2f\n", "spdlog, formatting of a line", best);
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
        context->Log(kEnabled, gFormat, 1, 2LL, 0.5);
    }
    std::printf("1000 contexts of 256 KB: %.1f KB resident each as made, %.1f KB after a message\n",
                (unused - before) / kContexts, (ResidentKilobytes() - before) / kContexts);
}

} // namespace

int main() {
    CLogManager::Initialize();
    CLogManager::Instance()->SetOutputCallback(DropLine);
    CLogManager::Instance()->SetFilterValue(HSL::kInfo, true);
    gFormat.Register();
    MemoryOfContexts();
    IdleCost();
    std::printf("\n");
    CostOfOneCall();
    Collection();
    CLogManager::Cleanup();
}
