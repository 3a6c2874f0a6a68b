#pragma once

#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>

// Returns the seed of a random test: QUORVEL_TEST_SEED if that is set, to repeat a failure, or else
// a new one.
inline std::uint64_t TestSeed() {
    if (const char* given = std::getenv("QUORVEL_TEST_SEED")) {
        return std::stoull(given);
    }
    return std::random_device{}();
}

// Returns the line that a failing random test prints (SCOPED_TRACE).
inline std::string DescribeSeed(std::uint64_t seed) {
    return "repeat with QUORVEL_TEST_SEED=" + std::to_string(seed);
}
