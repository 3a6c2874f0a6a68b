#include "midiserver/replay/LatencyDistribution.h"

#include <algorithm>
#include <numeric>

namespace MidiServer {

void LatencyDistribution::Add(Duration value) {
    mValues.push_back(std::max(value, Duration::zero()));
}

LatencyDistribution::Percentiles LatencyDistribution::Summary() const {
    Percentiles result;
    if (mValues.empty()) {
        return result;
    }
    std::vector<Duration> sorted = mValues;
    std::sort(sorted.begin(), sorted.end());
    const auto at = [&sorted](std::size_t percent) {
        const std::size_t rank = (sorted.size() * percent + 99) / 100;
        return sorted[std::max<std::size_t>(rank, 1) - 1];
    };
    result.count = sorted.size();
    result.p50 = at(50);
    result.p90 = at(90);
    result.p99 = at(99);
    result.max = sorted.back();
    result.total = std::accumulate(sorted.begin(), sorted.end(), Duration::zero());
    return result;
}

} // namespace MidiServer
