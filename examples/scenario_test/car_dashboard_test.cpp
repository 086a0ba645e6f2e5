// How an application tests its reaction to devices coming and going: a
// small "car dashboard" that shows the car while it is connected, driven by
// the scenario examples/scenarios/car_arrives.json in the test's own
// process; and how it tests that it survives a restart of the service.
#include <chrono>
#include <mutex>
#include <string>

#include <gtest/gtest.h>

#include "device_detect_proxy.h"
#include "devicedetect_test_helper.h"
#include "system_ability_manager.h"

using namespace Tavik;
using namespace Tavik::Syntavo;
using Testing::DeviceDetectTestHelper;
using Testing::EventLog;

namespace {

constexpr std::chrono::seconds WAIT{5};

// The application under test: remembers whether the family car is there.
class CarDashboard : public DeviceChangedCallbackStub {
public:
    explicit CarDashboard(EventLog& log) : log_(log) {}

    int32_t OnDeviceOnline(DeviceInfo& device) override { return Note("online", device, true); }
    int32_t OnDeviceOffline(DeviceInfo& device) override { return Note("offline", device, false); }
    int32_t OnDeviceReady(DeviceInfo& device) override { return Note("ready", device, true); }

    bool CarConnected() const
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return carConnected_;
    }

private:
    int32_t Note(const char* what, const DeviceInfo& device, bool connected)
    {
        if (device.GetDeviceUdid() == "udid-car-0001") {
            std::lock_guard<std::mutex> lock(mutex_);
            carConnected_ = connected;
        }
        log_.Add(std::string(what) + " " + device.GetDeviceName());
        return 0;
    }

    EventLog& log_;
    mutable std::mutex mutex_;
    bool carConnected_ = false;
};

// The application's part in a restart: registers the dashboard whenever the
// service is available, the first time included. A restarted service knows
// nothing of the registrations its predecessor had.
class DashboardConnection : public SystemAbilityListener {
public:
    explicit DashboardConnection(sptr<CarDashboard> dashboard) : dashboard_(std::move(dashboard)) {}

    void OnSystemAbilityAvailable(int32_t /* systemAbilityId */) override
    {
        sptr<DeviceDetectProxy> proxy = DeviceDetectProxy::GetInstance();
        if (proxy != nullptr) {
            proxy->RegisterDevChangedCallback(sptr<AbilityFilter>::MakeSptr(""), "dashboard", dashboard_);
        }
    }
    void OnSystemAbilityGone(int32_t /* systemAbilityId */) override {}

private:
    sptr<CarDashboard> dashboard_;
};

class CarDashboardTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(sim_.StartWithScenarioFile(SCENARIO_DIR "/car_arrives.json")) << sim_.LastError();
        proxy_ = DeviceDetectProxy::GetInstance();
        ASSERT_NE(proxy_, nullptr);
        dashboard_ = sptr<CarDashboard>::MakeSptr(log_);
        auto registered =
            proxy_->RegisterDevChangedCallback(sptr<AbilityFilter>::MakeSptr(""), "dashboard", dashboard_);
        ASSERT_EQ(registered.first, 0);
        listenerId_ = registered.second;
    }

    void TearDown() override
    {
        if (proxy_ != nullptr) {
            proxy_->UnregisterDevChangedCallback(listenerId_);
        }
        sim_.Stop();
    }

    DeviceDetectTestHelper sim_;
    EventLog log_;
    sptr<DeviceDetectProxy> proxy_;
    sptr<CarDashboard> dashboard_;
    uint32_t listenerId_ = 0;
};

TEST_F(CarDashboardTest, ShowsTheCarWhileItIsConnected)
{
    EXPECT_FALSE(dashboard_->CarConnected());

    ASSERT_TRUE(sim_.Step()) << sim_.LastError();  // the car comes online
    ASSERT_TRUE(log_.WaitForCount(1, WAIT));
    EXPECT_TRUE(dashboard_->CarConnected());

    ASSERT_TRUE(sim_.PlayAll()) << sim_.LastError();  // ready, battery, services, offline
    ASSERT_TRUE(log_.WaitForCount(3, WAIT));
    EXPECT_FALSE(dashboard_->CarConnected());
    EXPECT_EQ(log_.Events(), (std::vector<std::string>{"online Family Car", "ready Family Car", "offline Family Car"}));
}

TEST_F(CarDashboardTest, ADeviceAddedByTheTestReachesTheApplication)
{
    ASSERT_TRUE(sim_.AddDevice(R"({"udid":"udid-bike","networkId":"net-bike","name":"E-Bike","type":"UNKNOWN",)"
                               R"("state":"online"})"))
        << sim_.LastError();
    ASSERT_TRUE(log_.WaitForCount(1, WAIT));
    EXPECT_EQ(log_.Events().front(), "online E-Bike");
    EXPECT_FALSE(sim_.SetOnline("no-such-device"));
    EXPECT_NE(sim_.LastError().find("SIM_ERR_NO_SUCH_DEVICE"), std::string::npos) << sim_.LastError();
}

TEST(CarDashboardRestartTest, RegistersAgainWhenTheServiceRestarts)
{
    DeviceDetectTestHelper sim;
    ASSERT_TRUE(sim.StartWithScenarioFile(SCENARIO_DIR "/car_arrives.json")) << sim.LastError();
    EventLog log;
    auto dashboard = sptr<CarDashboard>::MakeSptr(log);
    auto connection = sptr<DashboardConnection>::MakeSptr(dashboard);
    sptr<ISystemAbilityManager> manager = SystemAbilityManagerClient::GetInstance().GetSystemAbilityManager();
    ASSERT_EQ(manager->SubscribeSystemAbility(SYNTAVO_DEVICE_DETECT_SA_ID, connection), 0);
    ASSERT_TRUE(sim.WaitForListeners(1, WAIT)) << sim.LastError();

    // The restarted service plays the scenario from its start again: the
    // car arrives once more, and the dashboard, registered again, sees it.
    for (int round = 1; round <= 2; ++round) {
        ASSERT_TRUE(sim.Step()) << sim.LastError();
        ASSERT_TRUE(log.WaitForCount(static_cast<size_t>(round), WAIT));
        EXPECT_TRUE(dashboard->CarConnected());
        ASSERT_TRUE(sim.Restart()) << sim.LastError();
        ASSERT_TRUE(sim.WaitForListeners(1, WAIT)) << sim.LastError();
    }
    EXPECT_EQ(log.Events(), (std::vector<std::string>{"online Family Car", "online Family Car"}));
    EXPECT_EQ(manager->UnsubscribeSystemAbility(SYNTAVO_DEVICE_DETECT_SA_ID, connection), 0);
}

}  // namespace
