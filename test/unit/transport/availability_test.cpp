// Being told when a system ability appears and goes away: from the
// in-process table, from this process's publications, and from another
// process through the runtime directory.
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "ipc_status.h"
#include "socket_transport.h"
#include "system_ability_manager.h"
#include "transport/ipc_runtime.h"
#include "transport_test_util.h"

namespace Tavik {
namespace TransportTest {
namespace {

sptr<ISystemAbilityManager> Manager()
{
    return SystemAbilityManagerClient::GetInstance().GetSystemAbilityManager();
}

// Records "available <id>" / "gone <id>" and how many calls overlapped.
// Each call lingers a little, so that a second delivery running alongside
// would be caught.
class RecordingListener : public SystemAbilityListener {
public:
    explicit RecordingListener(bool unsubscribeWhenAvailable = false)
        : unsubscribeWhenAvailable_(unsubscribeWhenAvailable)
    {
    }

    void OnSystemAbilityAvailable(int32_t id) override
    {
        Note("available " + std::to_string(id));
        if (unsubscribeWhenAvailable_) {
            unsubscribeStatus_ = Manager()->UnsubscribeSystemAbility(id, this);
        }
    }
    void OnSystemAbilityGone(int32_t id) override { Note("gone " + std::to_string(id)); }

    std::vector<std::string> Lines() const
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return lines_;
    }
    // Until `count` lines have arrived; the limit only guards a broken build.
    bool WaitFor(size_t count) const
    {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(20), [&] { return lines_.size() >= count; });
    }
    int MaxOverlap() const { return maxOverlap_.load(); }
    // The first call waits in the listener until Release().
    void HoldFirstCall()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        holding_ = true;
    }
    void Release()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        holding_ = false;
        changed_.notify_all();
    }
    int UnsubscribeStatus() const { return unsubscribeStatus_.load(); }

private:
    void Note(std::string line)
    {
        int now = ++running_;
        int seen = maxOverlap_.load();
        while (now > seen && !maxOverlap_.compare_exchange_weak(seen, now)) {
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        {
            std::unique_lock<std::mutex> lock(mutex_);
            lines_.push_back(std::move(line));
            changed_.notify_all();
            changed_.wait(lock, [this] { return !holding_; });
        }
        --running_;
    }

    const bool unsubscribeWhenAvailable_;
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::vector<std::string> lines_;
    bool holding_ = false;
    std::atomic<int> running_{0};
    std::atomic<int> maxOverlap_{0};
    std::atomic<int> unsubscribeStatus_{1};
};

// Where an ability comes from, and how it appears and goes.
struct Source {
    const char* name;
    std::function<bool(int32_t id, HelperProcess& helper)> appear;
    std::function<void(int32_t id, HelperProcess& helper)> disappear;
};

const Source SOURCES[] = {
    {"the in-process table",
     [](int32_t id, HelperProcess&) { return Manager()->AddSystemAbility(id, new TestService()) == IPC_OK; },
     [](int32_t id, HelperProcess&) { Manager()->RemoveSystemAbility(id); }},
    {"a publication of this process",
     [](int32_t id, HelperProcess&) { return PublishSystemAbility(id, new TestService()) == PublishStatus::OK; },
     [](int32_t id, HelperProcess&) { UnpublishSystemAbility(id); }},
    {"another process", [](int32_t id, HelperProcess& helper) { return helper.Start("serve", id); },
     [](int32_t, HelperProcess& helper) { helper.Kill(); }},
};

TEST(AbilityAvailabilityTest, AbsentAtSubscriptionThenEachAppearanceAndDisappearanceOnceInOrder)
{
    ScopedRuntimeDir dir;
    for (const Source& source : SOURCES) {
        SCOPED_TRACE(source.name);
        const int32_t id = NextSystemAbilityId();
        const std::string available = "available " + std::to_string(id);
        const std::string gone = "gone " + std::to_string(id);
        HelperProcess helper;
        auto first = sptr<RecordingListener>::MakeSptr();
        ASSERT_EQ(Manager()->SubscribeSystemAbility(id, first), IPC_OK);
        EXPECT_EQ(Manager()->SubscribeSystemAbility(id, first), IPC_OK);  // once is enough

        ASSERT_TRUE(source.appear(id, helper));
        ASSERT_TRUE(first->WaitFor(1));
        EXPECT_NE(Manager()->GetSystemAbility(id), nullptr);
        source.disappear(id, helper);
        ASSERT_TRUE(first->WaitFor(2));
        ASSERT_TRUE(source.appear(id, helper));
        ASSERT_TRUE(first->WaitFor(3));

        // A listener that comes while the ability is there hears so at once.
        auto second = sptr<RecordingListener>::MakeSptr();
        ASSERT_EQ(Manager()->SubscribeSystemAbility(id, second), IPC_OK);
        ASSERT_TRUE(second->WaitFor(1));
        source.disappear(id, helper);
        ASSERT_TRUE(second->WaitFor(2));
        ASSERT_TRUE(first->WaitFor(4));

        EXPECT_EQ(Manager()->UnsubscribeSystemAbility(id, first), IPC_OK);
        EXPECT_EQ(Manager()->UnsubscribeSystemAbility(id, first), IPC_ERR_INVALID_DATA);
        ASSERT_TRUE(source.appear(id, helper));
        ASSERT_TRUE(second->WaitFor(3));
        EXPECT_EQ(Manager()->UnsubscribeSystemAbility(id, second), IPC_OK);
        source.disappear(id, helper);

        EXPECT_EQ(first->Lines(), (std::vector<std::string>{available, gone, available, gone}));
        EXPECT_EQ(second->Lines(), (std::vector<std::string>{available, gone, available}));
    }
}

TEST(AbilityAvailabilityTest, AnotherObjectTakingTheIdsPlaceIsGoneAndBack)
{
    ScopedRuntimeDir dir;
    const int32_t id = NextSystemAbilityId();
    auto listener = sptr<RecordingListener>::MakeSptr();
    ASSERT_EQ(Manager()->SubscribeSystemAbility(id, listener), IPC_OK);
    HelperProcess helper;
    // Each step, and what GetSystemAbility returns after it.
    const std::pair<std::function<void()>, const char*> steps[] = {
        {[&] { Manager()->AddSystemAbility(id, new TestService()); }, "first object"},
        {[&] { Manager()->AddSystemAbility(id, new TestService()); }, "second object"},
        {[&] { ASSERT_TRUE(helper.Start("serve", id)); }, "second object, the server hidden behind it"},
        {[&] { Manager()->RemoveSystemAbility(id); }, "the server"},
        {[&] { helper.Kill(); }, "nothing"},
    };
    const size_t heardAfter[] = {1, 3, 3, 5, 6};
    for (size_t i = 0; i < std::size(steps); ++i) {
        SCOPED_TRACE(steps[i].second);
        steps[i].first();
        ASSERT_TRUE(listener->WaitFor(heardAfter[i]));
    }
    EXPECT_EQ(Manager()->UnsubscribeSystemAbility(id, listener), IPC_OK);
    std::vector<std::string> expected;
    for (int i = 0; i < 3; ++i) {
        expected.push_back("available " + std::to_string(id));
        expected.push_back("gone " + std::to_string(id));
    }
    EXPECT_EQ(listener->Lines(), expected);
}

TEST(AbilityAvailabilityTest, RuntimeDirectoryCreatedAfterSubscriptionAndReplacedLater)
{
    Tavik::Test::TempDir root;
    const std::string parent = root.Path() + "/run";
    const std::string runtime = parent + "/tavik";
    setenv("TAVIK_RUNTIME_DIR", runtime.c_str(), 1);
    const int32_t id = NextSystemAbilityId();
    auto listener = sptr<RecordingListener>::MakeSptr();
    ASSERT_EQ(Manager()->SubscribeSystemAbility(id, listener), IPC_OK);

    // What happens to the folders while no server runs. The server creates
    // the last folder itself.
    struct Change {
        const char* what;
        std::function<void()> apply;
    };
    namespace fs = std::filesystem;
    const Change changes[] = {
        {"the parent created after the subscription", [&] { fs::create_directory(parent); }},
        {"the directory renamed away", [&] { fs::rename(runtime, parent + "/old"); }},
        {"the directory removed with its parent, the parent made again",
         [&] {
             fs::remove_all(parent);
             fs::create_directory(parent);
         }},
        {"the directory replaced by another one",
         [&] {
             fs::create_directory(parent + "/new");
             fs::remove_all(runtime);
             fs::rename(parent + "/new", runtime);
         }},
    };
    size_t expected = 0;
    HelperProcess helper;
    for (const Change& change : changes) {
        SCOPED_TRACE(change.what);
        if (helper.Started()) {
            helper.Kill();
            ASSERT_TRUE(listener->WaitFor(++expected));
        }
        change.apply();
        ASSERT_TRUE(helper.Start("serve", id));
        ASSERT_TRUE(listener->WaitFor(++expected));
        EXPECT_EQ(listener->Lines().back(), "available " + std::to_string(id));
    }
    EXPECT_EQ(Manager()->UnsubscribeSystemAbility(id, listener), IPC_OK);
    unsetenv("TAVIK_RUNTIME_DIR");
}

TEST(AbilityAvailabilityTest, ListenersMayUnsubscribeInsideANotificationAndAreNeverCalledTwiceAtOnce)
{
    ScopedRuntimeDir dir;
    const int32_t ids[] = {NextSystemAbilityId(), NextSystemAbilityId()};
    // Added once after all the others: its notice comes behind theirs in
    // the listener's one queue.
    const int32_t marker = NextSystemAbilityId();
    auto leaving = sptr<RecordingListener>::MakeSptr(true);
    auto staying = sptr<RecordingListener>::MakeSptr();
    for (int32_t id : {ids[0], ids[1], marker}) {
        ASSERT_EQ(Manager()->SubscribeSystemAbility(id, staying), IPC_OK);
    }
    // It leaves each id at its first notification; the marker's comes last.
    for (int32_t id : {ids[0], marker}) {
        ASSERT_EQ(Manager()->SubscribeSystemAbility(id, leaving), IPC_OK);
    }

    // Changes come while the listener is busy with the first: what it hears
    // of each id still alternates and ends where the id ended, and no more
    // than "gone, available" waited per id.
    staying->HoldFirstCall();
    constexpr int ROUNDS = 40;
    for (int round = 0; round < ROUNDS; ++round) {
        for (int32_t id : ids) {
            ASSERT_EQ(Manager()->AddSystemAbility(id, new TestService()), IPC_OK);
        }
        if (round + 1 < ROUNDS) {
            for (int32_t id : ids) {
                ASSERT_EQ(Manager()->RemoveSystemAbility(id), IPC_OK);
            }
        }
    }
    ASSERT_EQ(Manager()->AddSystemAbility(marker, new TestService()), IPC_OK);
    staying->Release();
    ASSERT_TRUE(WaitUntil([&] {
        std::vector<std::string> lines = staying->Lines();
        return !lines.empty() && lines.back() == "available " + std::to_string(marker);
    }));
    std::map<int32_t, std::vector<std::string>> perId;
    for (const std::string& line : staying->Lines()) {
        int32_t id = std::stoi(line.substr(line.find(' ') + 1));
        perId[id].push_back(line.substr(0, line.find(' ')));
    }
    for (int32_t id : ids) {
        const std::vector<std::string>& heard = perId[id];
        ASSERT_FALSE(heard.empty()) << id;
        for (size_t i = 0; i < heard.size(); ++i) {
            EXPECT_EQ(heard[i], i % 2 == 0 ? "available" : "gone") << id << " #" << i;
        }
        EXPECT_EQ(heard.back(), "available") << id;
        EXPECT_LE(heard.size(), 3u) << id;
    }
    EXPECT_EQ(staying->MaxOverlap(), 1);
    ASSERT_TRUE(leaving->WaitFor(2));
    EXPECT_EQ(leaving->Lines(),
              (std::vector<std::string>{"available " + std::to_string(ids[0]), "available " + std::to_string(marker)}));
    EXPECT_EQ(leaving->UnsubscribeStatus(), IPC_OK);
    for (int32_t id : {ids[0], ids[1], marker}) {
        EXPECT_EQ(Manager()->UnsubscribeSystemAbility(id, staying), IPC_OK);
        EXPECT_EQ(Manager()->RemoveSystemAbility(id), IPC_OK);
    }
}

// --- what a subscription costs once it is gone ---------------------------

std::string ReadLink(const std::string& path)
{
    char target[256];
    ssize_t size = readlink(path.c_str(), target, sizeof(target) - 1);
    return size > 0 ? std::string(target, static_cast<size_t>(size)) : std::string();
}

struct ProcessCounts {
    size_t descriptors = 0;
    size_t inotifyDescriptors = 0;
    size_t inotifyWatches = 0;
    size_t ipcThreads = 0;
    size_t otherThreads = 0;
};

ProcessCounts Count()
{
    ProcessCounts counts;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        ++counts.descriptors;
        if (ReadLink(entry.path()) == "anon_inode:inotify") {
            ++counts.inotifyDescriptors;
            std::ifstream info("/proc/self/fdinfo/" + entry.path().filename().string());
            for (std::string line; std::getline(info, line);) {
                counts.inotifyWatches += line.rfind("inotify wd:", 0) == 0 ? 1 : 0;
            }
        }
    }
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream comm(entry.path() / "comm");
        std::string name;
        std::getline(comm, name);
        ++(name == "tavik-ipc" ? counts.ipcThreads : counts.otherThreads);
    }
    return counts;
}

TEST(AbilityAvailabilityTest, LeavesNoThreadDescriptorOrInotifyWatchBehind)
{
    ScopedRuntimeDir dir;
    const int32_t served = NextSystemAbilityId();
    HelperProcess helper;
    ASSERT_TRUE(helper.Start("serve", served));
    const int32_t missing = NextSystemAbilityId();
    const std::string missingDir = dir.Path() + "/not-yet";

    // One round: two ids in two directories, the second not there yet, so
    // it watches its parent, the first one's directory.
    auto round = [&](ProcessCounts& during) {
        auto listener = sptr<RecordingListener>::MakeSptr();
        ASSERT_EQ(Manager()->SubscribeSystemAbility(served, listener), IPC_OK);
        setenv("TAVIK_RUNTIME_DIR", missingDir.c_str(), 1);
        ASSERT_EQ(Manager()->SubscribeSystemAbility(missing, listener), IPC_OK);
        setenv("TAVIK_RUNTIME_DIR", dir.Path().c_str(), 1);
        ASSERT_TRUE(listener->WaitFor(1));
        during = Count();
        ASSERT_EQ(Manager()->UnsubscribeSystemAbility(missing, listener), IPC_OK);
        ASSERT_EQ(Manager()->UnsubscribeSystemAbility(served, listener), IPC_OK);
        // Removing the watch wakes an IPC thread (IN_IGNORED); the
        // descriptor closes when that thread lets go of it.
        ASSERT_TRUE(WaitUntil([] { return Count().inotifyDescriptors == 0; }));
    };
    ProcessCounts during;
    round(during);  // starts the IPC threads and the connection to the server
    ProcessCounts before = Count();
    for (int i = 0; i < 20; ++i) {
        round(during);
        // One shared watch: both paths lead to the served id's directory.
        EXPECT_EQ(during.inotifyDescriptors, 1u);
        EXPECT_EQ(during.inotifyWatches, 1u);
    }
    ASSERT_TRUE(WaitUntil([&] { return Count().descriptors == before.descriptors; }));
    ProcessCounts after = Count();
    EXPECT_EQ(after.inotifyDescriptors, 0u);
    EXPECT_EQ(after.otherThreads, before.otherThreads);
    EXPECT_LE(after.ipcThreads, Transport::MAX_IPC_THREADS);
}

}  // namespace
}  // namespace TransportTest
}  // namespace Tavik
