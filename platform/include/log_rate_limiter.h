// LogRateLimiter: how many lines one peer may cause.
//
// A line that a peer can trigger at will (a malformed frame, a wrong
// interface token, an unknown code) would otherwise let that peer write the
// log as fast as it can send. The limiter counts lines per key (a
// connection id, or a pid for peers refused before they have a connection)
// in fixed windows: the first `burst` lines of a key in a window pass, the
// rest are suppressed and counted. Once the key's window has ended, its
// count is handed back as a Summary, which the caller logs as one line
// ("suppressed N lines ..."), so nothing disappears without a trace.
//
// Summaries are collected on the next Allow() of any key after the window
// ended, so a flood that stops is still summed up by the next line of
// anyone; only a process that never logs such a line again keeps its last
// counts to itself.
//
// Memory: at most `maxKeys` keys are tracked (an entry is a few dozen bytes).
// Keys whose window has ended leave the table; when it is full of live
// windows, the one that started first leaves early and its count, if any,
// comes back as a summary at once.
//
// Thread-safe; one mutex, held only inside Allow().
#ifndef TAVIK_PLATFORM_LOG_RATE_LIMITER_H
#define TAVIK_PLATFORM_LOG_RATE_LIMITER_H

#include <chrono>
#include <cstdint>
#include <mutex>
#include <unordered_map>
#include <vector>

namespace Tavik {

class LogRateLimiter {
public:
    using Clock = std::chrono::steady_clock;

    struct Options {
        // 10 lines per 2 s per peer: enough to see what a misbehaving peer
        // does, at most 5 lines a second from it over time.
        std::chrono::milliseconds window{2000};
        uint32_t burst = 10;
        size_t maxKeys = 1024;
    };

    // Lines of `key` that were suppressed in a window that has ended; `note`
    // is what the caller passed with the key's first line of that window
    // (e.g. the peer's pid, for the summary line).
    struct Summary {
        uint64_t key;
        int64_t note;
        uint64_t suppressed;
    };

    LogRateLimiter() : LogRateLimiter(Options()) {}
    explicit LogRateLimiter(Options options) : options_(options) {}
    LogRateLimiter(const LogRateLimiter&) = delete;
    LogRateLimiter& operator=(const LogRateLimiter&) = delete;

    // True when a line of `key` may be logged now. Appends to `summaries`
    // the counts that are due (possibly this key's own, from its previous
    // window); log them before the line itself.
    bool Allow(uint64_t key, int64_t note, std::vector<Summary>& summaries)
    {
        return AllowAt(key, note, Clock::now(), summaries);
    }
    // The same at a given time, for tests.
    bool AllowAt(uint64_t key, int64_t note, Clock::time_point now, std::vector<Summary>& summaries);

    size_t TrackedKeys() const;
    const Options& GetOptions() const { return options_; }

private:
    struct Window {
        Clock::time_point start;
        int64_t note = 0;
        uint32_t passed = 0;
        uint64_t suppressed = 0;
    };

    // Under mutex_: drops every window that has ended, collecting counts.
    void SweepLocked(Clock::time_point now, std::vector<Summary>& summaries);

    const Options options_;
    mutable std::mutex mutex_;
    std::unordered_map<uint64_t, Window> windows_;
    // The earliest end of a window in windows_; nothing to sweep before it.
    Clock::time_point nextEnd_ = Clock::time_point::max();
};

}  // namespace Tavik

#endif  // TAVIK_PLATFORM_LOG_RATE_LIMITER_H
