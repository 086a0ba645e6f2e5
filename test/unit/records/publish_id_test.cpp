#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <thread>
#include <vector>

#include "service_publish_info.h"

namespace {

using Tavik::Syntavo::ServicePublishInfo;

// The counter is process-wide, so the fresh-process case runs in a re-executed
// child, where nothing has drawn an id yet.
TEST(PublishIdTest, FreshProcessStartsAtZero)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            uint32_t first = ServicePublishInfo::GenerateNewPublishId();
            uint32_t second = ServicePublishInfo::GenerateNewPublishId();
            std::exit(first == 0 && second == 1 ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}

// Ids are distinct under concurrency and consecutive: the range drawn has no gaps.
TEST(PublishIdTest, ConcurrentCallersGetDistinctIds)
{
    constexpr int THREADS = 4;
    constexpr int PER_THREAD = 20000;
    std::vector<std::vector<uint32_t>> drawn(THREADS);
    std::vector<std::thread> threads;
    for (int t = 0; t < THREADS; ++t) {
        threads.emplace_back([&drawn, t] {
            for (int i = 0; i < PER_THREAD; ++i) {
                drawn[t].push_back(ServicePublishInfo::GenerateNewPublishId());
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    std::vector<uint32_t> all;
    for (const auto& ids : drawn) {
        // Each thread sees its own ids rise.
        EXPECT_TRUE(std::is_sorted(ids.begin(), ids.end()));
        all.insert(all.end(), ids.begin(), ids.end());
    }
    std::sort(all.begin(), all.end());
    EXPECT_EQ(std::adjacent_find(all.begin(), all.end()), all.end()) << "an id was handed out twice";
    EXPECT_EQ(all.back() - all.front(), static_cast<uint32_t>(THREADS * PER_THREAD - 1));
}

}  // namespace
