// Compares reading and printing IPv4 addresses with the system's functions. The figures are for
// information only: our functions accept more forms, use string streams and work with strings.
#include "runtime/socket/NySocketAddress.h"

#include <benchmark/benchmark.h>

#include <arpa/inet.h>

namespace {

constexpr const char* kText = "192.168.101.17";

void ReadQuorvel(benchmark::State& state) {
    for (auto _ : state) {
        unsigned int address = 0;
        benchmark::DoNotOptimize(NySocketAddress::StringToIPv4Address(kText, address));
        benchmark::DoNotOptimize(address);
    }
}

void ReadSystem(benchmark::State& state) {
    for (auto _ : state) {
        in_addr address{};
        benchmark::DoNotOptimize(inet_pton(AF_INET, kText, &address));
        benchmark::DoNotOptimize(address);
    }
}

void PrintQuorvel(benchmark::State& state) {
    const NySocketAddress address(192, 168, 101, 17, 0);
    std::string text;
    for (auto _ : state) {
        address.ToString(text, false);
        benchmark::DoNotOptimize(text.data());
    }
}

void PrintSystem(benchmark::State& state) {
    in_addr address{};
    inet_pton(AF_INET, kText, &address);
    char text[INET_ADDRSTRLEN];
    for (auto _ : state) {
        benchmark::DoNotOptimize(inet_ntop(AF_INET, &address, text, sizeof text));
    }
}

BENCHMARK(ReadQuorvel);
BENCHMARK(ReadSystem);
BENCHMARK(PrintQuorvel);
BENCHMARK(PrintSystem);

} // namespace
