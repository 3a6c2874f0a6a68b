// Measures how long it takes to make and to release a driver instance, and how much memory is
// resident and reserved while it exists.

#include "MidiDriver/MidiDriverPlugin.h"

#include <CoreMIDI/MIDIServerHost.h>

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kRounds = 30;

struct Memory {
    double reserved; // MiB
    double resident; // MiB
};

Memory MemoryNow() {
    std::ifstream file("/proc/self/statm");
    double reserved = 0;
    double resident = 0;
    file >> reserved >> resident;
    const double pages = static_cast<double>(sysconf(_SC_PAGESIZE)) / (1024.0 * 1024.0);
    return {reserved * pages, resident * pages};
}

double Milliseconds(Clock::duration duration) {
    return std::chrono::duration<double, std::milli>(duration).count();
}

void PrintRow(const char* name, std::vector<double>& values) {
    std::sort(values.begin(), values.end());
    std::printf("%-28s %10.1f %10.1f %10.1f\n", name, values.front(), values[values.size() / 2],
                values.back());
}

} // namespace

int main() {
    MIDIServerHostOpenSetup(nullptr);
    std::vector<double> making;
    std::vector<double> releasing;
    std::vector<double> reserved;
    std::vector<double> resident;
    std::vector<double> left;
    for (int round = 0; round < kRounds; round++) {
        const Memory before = MemoryNow();
        const Clock::time_point start = Clock::now();
        const auto driver =
            static_cast<MIDIDriverRef>(MIDIPluginFactory(nullptr, kMIDIDriverTypeID));
        const Clock::time_point made = Clock::now();
        if (driver == nullptr) {
            std::fprintf(stderr, "FactoryBench: the factory made nothing\n");
            return 1;
        }
        const Memory during = MemoryNow();
        const Clock::time_point releaseStart = Clock::now();
        (*driver)->Release(driver);
        const Clock::time_point released = Clock::now();
        making.push_back(Milliseconds(made - start));
        releasing.push_back(Milliseconds(released - releaseStart));
        reserved.push_back(during.reserved - before.reserved);
        resident.push_back(during.resident - before.resident);
        left.push_back(MemoryNow().resident - before.resident);
    }
    std::printf("%-28s %10s %10s %10s   (%d rounds)\n", "", "min", "median", "max", kRounds);
    PrintRow("factory call, ms", making);
    PrintRow("last release, ms", releasing);
    PrintRow("memory reserved, MiB", reserved);
    PrintRow("memory resident, MiB", resident);
    PrintRow("resident after release, MiB", left);
    return 0;
}
