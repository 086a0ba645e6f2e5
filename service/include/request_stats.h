// RequestStats: what the service's requests cost, per request code, for
// `devicedetect dump`: calls, failures by status, and the latency's
// distribution.
//
// Record() is on every request's path: one short lock, no allocation except
// the first time a code fails with a given status. Latencies go into a
// fixed histogram of buckets that grow by a quarter of a power of two (1, 2,
// 3, 4, 5, 6, 7, 8, 10, 12, 14, 16, 20 ... µs), so a percentile is reported
// as its bucket's upper bound: at most 25 % above the true value; the
// maximum is exact. Any thread.
#ifndef SYNTAVO_SIM_REQUEST_STATS_H
#define SYNTAVO_SIM_REQUEST_STATS_H

#include <array>
#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <vector>

namespace Tavik {
namespace Syntavo {
namespace Sim {

// The latencies of one request code, in microseconds.
class LatencyHistogram {
public:
    void Add(uint64_t micros);
    uint64_t Count() const { return count_; }
    uint64_t Max() const { return max_; }
    // The smallest bucket bound that at least `fraction` of the values do
    // not exceed; 0 when empty.
    uint64_t Percentile(double fraction) const;

    // Buckets: 0..3 µs one each, then four per power of two up to 2^40 µs.
    static constexpr size_t BUCKETS = 4 + 4 * 39;
    static size_t BucketOf(uint64_t micros);
    static uint64_t UpperBound(size_t bucket);

private:
    std::array<uint64_t, BUCKETS> buckets_{};
    uint64_t count_ = 0;
    uint64_t max_ = 0;
};

struct RequestCodeStats {
    uint32_t code = 0;
    uint64_t calls = 0;
    // By status value, for every status other than 0.
    std::map<int32_t, uint64_t> failures;
    uint64_t p50Micros = 0;
    uint64_t p99Micros = 0;
    uint64_t maxMicros = 0;
};

class RequestStats {
public:
    // Codes above this are counted together as code 0.
    static constexpr uint32_t MAX_CODE = 63;

    void Record(uint32_t code, int32_t status, std::chrono::nanoseconds took);
    // The codes called at least once, in code order.
    std::vector<RequestCodeStats> Snapshot() const;

private:
    struct Slot {
        uint64_t calls = 0;
        std::map<int32_t, uint64_t> failures;
        LatencyHistogram latency;
    };
    mutable std::mutex mutex_;
    std::array<Slot, MAX_CODE + 1> slots_{};
};

}  // namespace Sim
}  // namespace Syntavo
}  // namespace Tavik

#endif  // SYNTAVO_SIM_REQUEST_STATS_H
