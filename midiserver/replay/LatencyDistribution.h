#pragma once

#include <chrono>
#include <cstddef>
#include <vector>

namespace MidiServer {

// Collects durations and tells how they are distributed. Every value is kept (8 bytes each), so
// the percentiles are exact. Not synchronised.
class LatencyDistribution {
public:
    using Duration = std::chrono::nanoseconds;

    struct Percentiles {
        std::size_t count = 0;
        Duration p50{};
        Duration p90{};
        Duration p99{};
        Duration max{};
        Duration total{};
    };

    // Negative durations count as 0.
    void Add(Duration value);

    std::size_t Count() const { return mValues.size(); }

    // A percentile is the smallest value that at least that share of all values does not exceed;
    // all are 0 when nothing was added. Sorts a copy.
    Percentiles Summary() const;

private:
    std::vector<Duration> mValues;
};

} // namespace MidiServer
