// LogRateLimiter: bursts per key and window, summaries of what was
// suppressed, and the bound on the keys it tracks.
#include <gtest/gtest.h>

#include <string>

#include "log_rate_limiter.h"

namespace Tavik {
namespace {

TEST(LogRateLimiterTest, BurstWindowSummaryAndBound)
{
    LogRateLimiter::Options options;
    options.window = std::chrono::milliseconds(1000);
    options.burst = 2;
    options.maxKeys = 2;
    LogRateLimiter limiter(options);
    struct Step {
        int ms;
        uint64_t key;
        bool allowed;
        // "key:suppressed:note ..." handed back by this call.
        std::string summaries;
    };
    const Step steps[] = {
        {0, 1, true, ""},
        {1, 1, true, ""},
        {2, 1, false, ""},
        {3, 1, false, ""},
        {4, 2, true, ""},
        // The table is full of live windows: the oldest leaves early, its
        // count comes back at once.
        {5, 3, true, "1:2:10"},
        {6, 2, true, ""},
        {7, 2, false, ""},
        // Key 2's window ended; the next line of anyone reports it.
        {1100, 9, true, "2:1:20"},
        {1101, 9, true, ""},
        {1102, 9, false, ""},
        // Key 9's own next window starts with its count.
        {2200, 9, true, "9:1:90"},
    };
    LogRateLimiter::Clock::time_point start = LogRateLimiter::Clock::now();
    for (const Step& step : steps) {
        std::vector<LogRateLimiter::Summary> due;
        bool allowed = limiter.AllowAt(step.key, static_cast<int64_t>(step.key * 10),
                                       start + std::chrono::milliseconds(step.ms), due);
        std::string text;
        for (const auto& summary : due) {
            text += (text.empty() ? "" : " ") + std::to_string(summary.key) + ":" + std::to_string(summary.suppressed) +
                    ":" + std::to_string(summary.note);
        }
        EXPECT_EQ(allowed, step.allowed) << "at " << step.ms << " ms, key " << step.key;
        EXPECT_EQ(text, step.summaries) << "at " << step.ms << " ms, key " << step.key;
        EXPECT_LE(limiter.TrackedKeys(), options.maxKeys);
    }
    EXPECT_EQ(limiter.TrackedKeys(), 1u);
}

}  // namespace
}  // namespace Tavik
