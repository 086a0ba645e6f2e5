// The process-wide proxy: lookup, cache, death of the service, cleanup.
#include <atomic>
#include <chrono>
#include <thread>

#include <gtest/gtest.h>

#include "device_detect_proxy.h"
#include "fake_remote_object.h"
#include "log_lines.h"
#include "tralog.h"

namespace Tavik {
namespace Syntavo {
namespace {

using Tavik::Test::AllLines;
using Tavik::Test::CheckPrefixes;
using Tavik::Test::FakeRemoteObject;
using Tavik::Test::FakeSystemAbilityManager;
using Tavik::Test::LinesAt;
using Tavik::Test::ScopedSystemAbilityManager;

constexpr int32_t kSaId = 70635;
// Applications that publish or fake the service name the id through the
// proxy's header alone.
static_assert(SYNTAVO_DEVICE_DETECT_SA_ID == kSaId, "system ability id");

class LifecycleTest : public ::testing::Test {
protected:
    sptr<FakeSystemAbilityManager> manager_ = new FakeSystemAbilityManager();
    ScopedSystemAbilityManager installed_{manager_};
    sptr<FakeRemoteObject> remote_ = new FakeRemoteObject();
};

// One lookup, one proxy (one constructor line), one death recipient, however
// many threads ask at once.
TEST_F(LifecycleTest, ConcurrentFirstUseLooksUpOnceAndCaches)
{
    manager_->AddSystemAbility(kSaId, remote_);
    manager_->HoldLookups();
    LogCapture log;
    constexpr int kThreads = 4;
    std::vector<sptr<DeviceDetectProxy>> results(kThreads);
    std::vector<std::thread> threads;
    threads.emplace_back([&results] { results[0] = DeviceDetectProxy::GetInstance(); });
    manager_->WaitForLookup();
    // The first thread holds the lock inside the lookup; the pause only makes
    // it likelier that the others queue for it. The outcome must not differ.
    for (int i = 1; i < kThreads; ++i) {
        threads.emplace_back([&results, i] { results[i] = DeviceDetectProxy::GetInstance(); });
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    manager_->ReleaseLookups();
    for (auto& thread : threads) {
        thread.join();
    }

    EXPECT_EQ(manager_->LookedUpIds(), std::vector<int32_t>{kSaId});
    ASSERT_NE(results[0], nullptr);
    for (const auto& result : results) {
        EXPECT_EQ(result, results[0]);
    }
    EXPECT_EQ(results[0]->AsObject().GetRefPtr(), remote_.GetRefPtr());
    EXPECT_EQ(remote_->AddDeathRecipientCalls(), 1u);
    EXPECT_EQ(remote_->DeathRecipientCount(), 1u);
    EXPECT_EQ(DeviceDetectProxy::GetInstance(), results[0]);
    EXPECT_EQ(manager_->LookupCount(), 1);
    EXPECT_EQ(AllLines(log), std::vector<std::string>{"I DeviceDetectProxy# DeviceDetectProxy constructor"});
    EXPECT_EQ(CheckPrefixes(log, "device_detect_proxy"), "");
}

// Threads that all miss the cache at once queue for the exclusive lock; each
// must look again there before it looks the service up. Two threads (one
// per core) that spin until both have started get past the shared check
// together in most rounds.
TEST_F(LifecycleTest, ThreadsMissingTheCacheTogetherStillLookUpOnce)
{
    manager_->AddSystemAbility(kSaId, remote_);
    constexpr int kRounds = 200;
    constexpr int kThreads = 2;
    for (int round = 0; round < kRounds; ++round) {
        DeviceDetectProxy::CleanupInstance();
        std::atomic<int> ready{0};
        std::vector<sptr<DeviceDetectProxy>> results(kThreads);
        std::vector<std::thread> threads;
        for (int i = 0; i < kThreads; ++i) {
            threads.emplace_back([&ready, &results, i] {
                ++ready;
                while (ready.load() < kThreads) {
                }
                results[i] = DeviceDetectProxy::GetInstance();
            });
        }
        for (auto& thread : threads) {
            thread.join();
        }
        ASSERT_EQ(manager_->LookupCount(), round + 1) << "round " << round;
        for (const auto& result : results) {
            ASSERT_EQ(result, results[0]) << "round " << round;
        }
    }
}

// A failed lookup caches nothing: every call tries again and logs again.
TEST_F(LifecycleTest, FailedLookupsAreRetriedOnEveryCall)
{
    LogCapture log;
    EXPECT_EQ(DeviceDetectProxy::GetInstance(), nullptr);
    EXPECT_EQ(DeviceDetectProxy::GetInstance(), nullptr);
    manager_->AddSystemAbility(kSaId, remote_);
    EXPECT_NE(DeviceDetectProxy::GetInstance(), nullptr);
    EXPECT_EQ(manager_->LookupCount(), 3);

    ScopedSystemAbilityManager none(nullptr);
    EXPECT_EQ(DeviceDetectProxy::GetInstance(), nullptr);
    EXPECT_EQ(DeviceDetectProxy::GetInstance(), nullptr);
    EXPECT_EQ(LinesAt(log, LOG_ERROR), (std::vector<std::string>{
                                           "GetInstance# failed to get SYNTAVO_DEVICE_DETECT_SA_ID",
                                           "GetInstance# failed to get SYNTAVO_DEVICE_DETECT_SA_ID",
                                           "GetInstance# failed to get system manager",
                                           "GetInstance# failed to get system manager",
                                       }));
}

TEST_F(LifecycleTest, NoRegisteredCreatorGivesNull)
{
    manager_->AddSystemAbility(kSaId, remote_);
    BrokerRegistration::Get().Unregister(IDeviceDetect::GetDescriptor());
    LogCapture log;

    EXPECT_EQ(DeviceDetectProxy::GetInstance(), nullptr);
    EXPECT_EQ(LinesAt(log, LOG_ERROR), std::vector<std::string>{"GetInstance# iface_cast failed"});
    EXPECT_EQ(remote_->AddDeathRecipientCalls(), 0u);

    BrokerRegistration::Get().Register(
        IDeviceDetect::GetDescriptor(),
        [](const sptr<IRemoteObject>& object) -> sptr<IRemoteBroker> { return new DeviceDetectProxy(object); },
        nullptr);
    EXPECT_NE(DeviceDetectProxy::GetInstance(), nullptr);
}

TEST_F(LifecycleTest, RefusedDeathRecipientDestroysTheBuiltProxy)
{
    manager_->AddSystemAbility(kSaId, remote_);
    remote_->RefuseDeathRecipients(true);
    LogCapture log;

    EXPECT_EQ(DeviceDetectProxy::GetInstance(), nullptr);
    EXPECT_EQ(AllLines(log), (std::vector<std::string>{
                                 "I DeviceDetectProxy# DeviceDetectProxy constructor",
                                 "E GetInstance# AddDeathRecipient for DeviceDetectProxy failed",
                                 "I ~DeviceDetectProxy# DeviceDetectProxy destructor",
                             }));

    // Nothing was cached: the next call tries the whole lookup again.
    remote_->RefuseDeathRecipients(false);
    EXPECT_NE(DeviceDetectProxy::GetInstance(), nullptr);
    EXPECT_EQ(manager_->LookupCount(), 2);
}

TEST_F(LifecycleTest, DeathEmptiesTheCacheAndOldPointersFailAtSend)
{
    manager_->AddSystemAbility(kSaId, remote_);
    sptr<DeviceDetectProxy> old = DeviceDetectProxy::GetInstance();
    ASSERT_NE(old, nullptr);
    sptr<FakeRemoteObject> restarted = new FakeRemoteObject();
    manager_->AddSystemAbility(kSaId, restarted);
    LogCapture log;

    remote_->Die();
    EXPECT_EQ(AllLines(log), (std::vector<std::string>{"I OnRemoteDied# DeviceDetectProxy remote died",
                                                       "I CleanupInstance# Cleanup the instance"}));

    sptr<DeviceDetectProxy> renewed = DeviceDetectProxy::GetInstance();
    ASSERT_NE(renewed, nullptr);
    EXPECT_NE(renewed, old);
    EXPECT_EQ(manager_->LookupCount(), 2);
    EXPECT_EQ(renewed->AsObject().GetRefPtr(), restarted.GetRefPtr());
    EXPECT_EQ(restarted->DeathRecipientCount(), 1u);

    log.Clear();
    std::vector<DeviceInfo> devices;
    EXPECT_EQ(old->GetTrustedDeviceList("", devices), -1);
    EXPECT_EQ(LinesAt(log, LOG_ERROR),
              std::vector<std::string>{"GetTrustedDeviceList# GetTrustedDeviceList SendRequest failed"});
    EXPECT_EQ(restarted->RequestCount(), 0u);
}

TEST_F(LifecycleTest, CleanupDropsTheCacheAndDestroysAnUnheldProxy)
{
    manager_->AddSystemAbility(kSaId, remote_);
    ASSERT_NE(DeviceDetectProxy::GetInstance(), nullptr);
    LogCapture log;

    DeviceDetectProxy::CleanupInstance();
    EXPECT_EQ(AllLines(log), (std::vector<std::string>{"I CleanupInstance# Cleanup the instance",
                                                       "I ~DeviceDetectProxy# DeviceDetectProxy destructor"}));
    log.Clear();
    DeviceDetectProxy::CleanupInstance();
    EXPECT_EQ(AllLines(log), std::vector<std::string>{"I CleanupInstance# Cleanup the instance"});

    EXPECT_NE(DeviceDetectProxy::GetInstance(), nullptr);
    EXPECT_EQ(manager_->LookupCount(), 2);
}

}  // namespace
}  // namespace Syntavo
}  // namespace Tavik
