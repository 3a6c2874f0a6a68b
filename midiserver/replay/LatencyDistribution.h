#pragma once

#include <chrono>
#include <cstddef>
#include <vector>

namespace MidiServer {

// A LatencyDistribution collects durations and tells how they are distributed. It keeps every value
// (8 bytes each), so its percentiles are exact. Not synchronised.
//
//     LatencyDistribution latencies;
//     latencies.Add(arrived - sent);
//     latencies.Summary().p99;
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

    // Adds a duration; a negative one counts as 0.
    void Add(Duration value);

    std::size_t Count() const { return mValues.size(); }

    // Returns the percentiles, each of which is the smallest value that at least that share of all
    // values does not exceed. All are 0 if nothing was added. Sorts a copy of the values.
    Percentiles Summary() const;

private:
    std::vector<Duration> mValues;
};

} // namespace MidiServer
