#pragma once

#include "midiserver/replay/LatencyDistribution.h"

#include <array>
#include <cstdint>

namespace MidiServer {

// A LatencyHistogram tells how durations are distributed, as LatencyDistribution does, but in a
// fixed amount of memory, for programs that run for months. Count, maximum and total are exact. A
// percentile is at most 1/32 above the value that it stands for.
//
//     histogram.Add(now - arrived);
//     histogram.Summary().p99;
//
// Not synchronised.
class LatencyHistogram {
public:
    using Duration = LatencyDistribution::Duration;

    // Adds a duration; a negative one counts as 0. Does not allocate.
    void Add(Duration value);

    LatencyDistribution::Percentiles Summary() const;

private:
    // Values below kSteps have a bucket each; beyond, every doubling has kSteps buckets.
    static constexpr unsigned kStepBits = 5;
    static constexpr std::uint64_t kSteps = 1U << kStepBits;
    static constexpr std::size_t kBuckets = (64 - kStepBits) * kSteps;

    static std::size_t BucketOf(std::uint64_t value);
    static std::uint64_t LargestIn(std::size_t bucket);
    Duration AtPercent(std::uint64_t percent) const;

    std::array<std::uint64_t, kBuckets> mBuckets{};
    std::uint64_t mCount = 0;
    Duration mMax{};
    Duration mTotal{};
};

} // namespace MidiServer
