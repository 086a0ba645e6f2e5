#include "log_rate_limiter.h"

#include <algorithm>

namespace Tavik {

bool LogRateLimiter::AllowAt(uint64_t key, int64_t note, Clock::time_point now, std::vector<Summary>& summaries)
{
    std::lock_guard<std::mutex> lock(mutex_);
    if (now >= nextEnd_) {
        SweepLocked(now, summaries);
    }
    auto it = windows_.find(key);
    if (it == windows_.end()) {
        if (windows_.size() >= options_.maxKeys && !windows_.empty()) {
            auto oldest = std::min_element(windows_.begin(), windows_.end(), [](const auto& a, const auto& b) {
                return a.second.start < b.second.start;
            });
            if (oldest->second.suppressed > 0) {
                summaries.push_back({oldest->first, oldest->second.note, oldest->second.suppressed});
            }
            windows_.erase(oldest);
        }
        Window window;
        window.start = now;
        window.note = note;
        it = windows_.emplace(key, window).first;
        nextEnd_ = std::min(nextEnd_, now + options_.window);
    }
    Window& window = it->second;
    if (window.passed < options_.burst) {
        ++window.passed;
        return true;
    }
    ++window.suppressed;
    return false;
}

void LogRateLimiter::SweepLocked(Clock::time_point now, std::vector<Summary>& summaries)
{
    nextEnd_ = Clock::time_point::max();
    for (auto it = windows_.begin(); it != windows_.end();) {
        Clock::time_point end = it->second.start + options_.window;
        if (now < end) {
            nextEnd_ = std::min(nextEnd_, end);
            ++it;
            continue;
        }
        if (it->second.suppressed > 0) {
            summaries.push_back({it->first, it->second.note, it->second.suppressed});
        }
        it = windows_.erase(it);
    }
}

size_t LogRateLimiter::TrackedKeys() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return windows_.size();
}

}  // namespace Tavik
