#include "midiserver/routing/LatencyHistogram.h"

#include <algorithm>
#include <bit>

namespace MidiServer {

void LatencyHistogram::Add(Duration value) {
    value = std::max(value, Duration::zero());
    ++mBuckets[BucketOf(static_cast<std::uint64_t>(value.count()))];
    ++mCount;
    mMax = std::max(mMax, value);
    mTotal += value;
}

std::size_t LatencyHistogram::BucketOf(std::uint64_t value) {
    if (value < kSteps) {
        return static_cast<std::size_t>(value);
    }
    // So many low bits make no difference.
    const auto ignored = static_cast<unsigned>(std::bit_width(value)) - kStepBits - 1;
    return static_cast<std::size_t>((ignored << kStepBits) + (value >> ignored));
}

std::uint64_t LatencyHistogram::LargestIn(std::size_t bucket) {
    if (bucket < 2 * kSteps) {
        return bucket;
    }
    const std::size_t ignored = bucket / kSteps - 1;
    return ((bucket % kSteps + kSteps + 1) << ignored) - 1;
}

LatencyDistribution::Percentiles LatencyHistogram::Summary() const {
    LatencyDistribution::Percentiles result;
    if (mCount > 0) {
        result.count = static_cast<std::size_t>(mCount);
        result.p50 = AtPercent(50);
        result.p90 = AtPercent(90);
        result.p99 = AtPercent(99);
        result.max = mMax;
        result.total = mTotal;
    }
    return result;
}

LatencyHistogram::Duration LatencyHistogram::AtPercent(std::uint64_t percent) const {
    const std::uint64_t rank = std::max<std::uint64_t>((mCount * percent + 99) / 100, 1);
    std::uint64_t seen = 0;
    std::size_t bucket = 0;
    while (seen + mBuckets[bucket] < rank) {
        seen += mBuckets[bucket++];
    }
    return std::min(Duration(LargestIn(bucket)), mMax);
}

} // namespace MidiServer
