#include "request_stats.h"

#include <algorithm>
#include <cmath>

namespace Tavik {
namespace Syntavo {
namespace Sim {

size_t LatencyHistogram::BucketOf(uint64_t micros)
{
    if (micros < 4) {
        return static_cast<size_t>(micros);
    }
    // micros in [2^e, 2^(e+1)), e >= 2: four buckets of 2^(e-2) each.
    size_t exponent = 63 - static_cast<size_t>(__builtin_clzll(micros));
    size_t quarter = static_cast<size_t>((micros >> (exponent - 2)) & 3);
    return std::min(BUCKETS - 1, 4 + (exponent - 2) * 4 + quarter);
}

uint64_t LatencyHistogram::UpperBound(size_t bucket)
{
    if (bucket < 4) {
        return bucket;
    }
    size_t exponent = (bucket - 4) / 4 + 2;
    uint64_t quarter = (bucket - 4) % 4;
    // The last value of the bucket: the next bucket's first, less one.
    return ((4 + quarter + 1) << (exponent - 2)) - 1;
}

void LatencyHistogram::Add(uint64_t micros)
{
    ++buckets_[BucketOf(micros)];
    ++count_;
    max_ = std::max(max_, micros);
}

uint64_t LatencyHistogram::Percentile(double fraction) const
{
    if (count_ == 0) {
        return 0;
    }
    auto wanted = static_cast<uint64_t>(std::ceil(fraction * static_cast<double>(count_)));
    wanted = std::max<uint64_t>(1, std::min(wanted, count_));
    uint64_t seen = 0;
    for (size_t bucket = 0; bucket < BUCKETS; ++bucket) {
        seen += buckets_[bucket];
        if (seen >= wanted) {
            return std::min(UpperBound(bucket), max_);
        }
    }
    return max_;
}

void RequestStats::Record(uint32_t code, int32_t status, std::chrono::nanoseconds took)
{
    uint32_t index = code <= MAX_CODE ? code : 0;
    auto micros = static_cast<uint64_t>(std::max<int64_t>(0, took.count()) / 1000);
    std::lock_guard<std::mutex> lock(mutex_);
    Slot& slot = slots_[index];
    ++slot.calls;
    if (status != 0) {
        ++slot.failures[status];
    }
    slot.latency.Add(micros);
}

std::vector<RequestCodeStats> RequestStats::Snapshot() const
{
    std::vector<RequestCodeStats> result;
    std::lock_guard<std::mutex> lock(mutex_);
    for (uint32_t code = 0; code <= MAX_CODE; ++code) {
        const Slot& slot = slots_[code];
        if (slot.calls == 0) {
            continue;
        }
        RequestCodeStats stats;
        stats.code = code;
        stats.calls = slot.calls;
        stats.failures = slot.failures;
        stats.p50Micros = slot.latency.Percentile(0.50);
        stats.p99Micros = slot.latency.Percentile(0.99);
        stats.maxMicros = slot.latency.Max();
        result.push_back(std::move(stats));
    }
    return result;
}

}  // namespace Sim
}  // namespace Syntavo
}  // namespace Tavik
