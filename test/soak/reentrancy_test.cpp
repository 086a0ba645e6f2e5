// Callback handlers that call the service back from inside the callback, and
// one that takes its time, while this process's other threads, another
// client process and the world changes all go on.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <map>
#include <mutex>
#include <thread>

#include "daemon_fixture.h"
#include "service_changed_callback_stub.h"
#include "sim_status.h"
#include "soak_util.h"

namespace DeviceDetectSoak {
namespace {

using namespace Tavik;
using namespace Tavik::Syntavo;

// Longer than any call takes here, shorter than the 3 s the service waits
// for a callback and the 8 s a client waits for a reply.
constexpr auto SLOW_HANDLER_TIME = std::chrono::seconds(2);
constexpr int SLOW_ROUNDS = 3;
const std::string SLOW_DEVICE = "udid-car-0001";
const std::string BUSY_DEVICE = "udid-laptop-0001";

bool Lists(const std::vector<DeviceInfo>& devices, const std::string& udid)
{
    return std::any_of(devices.begin(), devices.end(),
                       [&udid](const DeviceInfo& device) { return device.GetDeviceUdid() == udid; });
}

// What the world around the slow handler did while it slept.
struct Window {
    uint64_t otherProcessCalls = 0;
    uint64_t ownThreadCalls = 0;
    uint64_t busyDeviceEvents = 0;
};

// Counters the handlers read to see whether anything moved while they slept.
struct Activity {
    std::function<uint64_t()> otherProcessCalls;
    std::atomic<uint64_t> ownThreadCalls{0};
    std::atomic<uint64_t> busyDeviceEvents{0};
};

class Problems {
public:
    void Add(const std::string& problem)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        problems_.push_back(problem);
    }
    std::vector<std::string> Get() const
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return problems_;
    }

private:
    mutable std::mutex mutex_;
    std::vector<std::string> problems_;
};

// Online and ready: asks the service for the list and the device's switch
// from inside the callback. Offline of SLOW_DEVICE: sleeps, then asks for
// the list.
class ReentrantListener : public DeviceChangedCallbackStub {
public:
    ReentrantListener(std::map<std::string, int32_t> switches, Activity& activity, Problems& problems)
        : switches_(std::move(switches)), activity_(activity), problems_(problems)
    {
    }

    int32_t OnDeviceOnline(DeviceInfo& device) override
    {
        CountBusy(device);
        CallBack(device, true);
        ++reentrantCallbacks_;
        return 0;
    }
    int32_t OnDeviceReady(DeviceInfo& device) override { return OnDeviceOnline(device); }
    int32_t OnDeviceOffline(DeviceInfo& device) override
    {
        CountBusy(device);
        if (device.GetDeviceUdid() != SLOW_DEVICE) {
            return 0;
        }
        Window before = Now();
        std::this_thread::sleep_for(SLOW_HANDLER_TIME);
        Window after = Now();
        {
            std::lock_guard<std::mutex> lock(mutex_);
            windows_.push_back({after.otherProcessCalls - before.otherProcessCalls,
                                after.ownThreadCalls - before.ownThreadCalls,
                                after.busyDeviceEvents - before.busyDeviceEvents});
        }
        CallBack(device, false);
        return 0;
    }

    std::vector<Window> Windows()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return windows_;
    }
    uint64_t ReentrantCallbacks() const { return reentrantCallbacks_; }

private:
    void CountBusy(const DeviceInfo& device)
    {
        if (device.GetDeviceUdid() == BUSY_DEVICE) {
            ++activity_.busyDeviceEvents;
        }
    }
    Window Now() const
    {
        return {activity_.otherProcessCalls(), activity_.ownThreadCalls.load(), activity_.busyDeviceEvents.load()};
    }
    // The world changed before the callback was sent, so the list already
    // shows the change.
    void CallBack(const DeviceInfo& device, bool online)
    {
        const std::string& udid = device.GetDeviceUdid();
        sptr<DeviceDetectProxy> proxy = DeviceDetectProxy::GetInstance();
        if (proxy == nullptr) {
            problems_.Add("no proxy inside the callback for " + udid);
            return;
        }
        std::vector<DeviceInfo> devices;
        int32_t status = proxy->GetTrustedDeviceList("reentrant", devices);
        if (status != 0 || Lists(devices, udid) != online) {
            problems_.Add("list inside the callback for " + udid + ": status " + std::to_string(status) +
                          (online ? ", device missing" : ", device still listed"));
        }
        int32_t switchStatus = proxy->GetDeviceSwitch(udid);
        auto expected = switches_.find(udid);
        if (expected == switches_.end() || switchStatus != expected->second) {
            problems_.Add("switch inside the callback for " + udid + ": " + std::to_string(switchStatus));
        }
    }

    const std::map<std::string, int32_t> switches_;
    Activity& activity_;
    Problems& problems_;
    std::mutex mutex_;
    std::vector<Window> windows_;
    std::atomic<uint64_t> reentrantCallbacks_{0};
};

// Asks for the switch of every device of the event from inside the callback.
class ReentrantServiceCallback : public ServiceChangedCallbackStub {
public:
    ReentrantServiceCallback(std::map<std::string, int32_t> switches, Problems& problems)
        : switches_(std::move(switches)), problems_(problems)
    {
    }
    int32_t OnDeviceEvent(int32_t event, std::vector<DeviceServiceInfo> infos) override
    {
        sptr<DeviceDetectProxy> proxy = DeviceDetectProxy::GetInstance();
        for (const DeviceServiceInfo& info : infos) {
            int32_t status = proxy == nullptr ? -1 : proxy->GetDeviceSwitch(info.GetDeviceId());
            auto expected = switches_.find(info.GetDeviceId());
            if (expected == switches_.end() || status != expected->second) {
                problems_.Add("switch inside service event " + std::to_string(event) + " for " + info.GetDeviceId() +
                              ": " + std::to_string(status));
            }
        }
        ++events_;
        return 0;
    }
    uint64_t Events() const { return events_; }

private:
    const std::map<std::string, int32_t> switches_;
    Problems& problems_;
    std::atomic<uint64_t> events_{0};
};

using ReentrancyTest = DaemonTest;

TEST_F(ReentrancyTest, HandlersThatCallBackOrSleepStallNothing)
{
    sptr<DeviceDetectProxy> proxy = DeviceDetectProxy::GetInstance();
    ASSERT_NE(proxy, nullptr);
    std::map<std::string, int32_t> switches;
    for (const std::string& udid : {SLOW_DEVICE, BUSY_DEVICE}) {
        switches[udid] = proxy->GetDeviceSwitch(udid);
        ASSERT_GE(switches[udid], 0);
        ASSERT_LT(switches[udid], 1000) << "a status, not a switch";
    }

    // Another application, calling all along.
    ClientProcess other;
    ASSERT_TRUE(other.Start(1, 2, 0));
    Activity activity;
    activity.otherProcessCalls = [&other] { return other.Progress(); };

    Problems problems;
    auto listener = sptr<ReentrantListener>::MakeSptr(switches, activity, problems);
    auto services = sptr<ReentrantServiceCallback>::MakeSptr(switches, problems);
    auto registered = proxy->RegisterDevChangedCallback(sptr<AbilityFilter>::MakeSptr(), "reentrancy", listener);
    ASSERT_EQ(registered.first, 0);
    ASSERT_EQ(proxy->RegisterServiceChangedCallback(services), 0);

    // This process's own callers, beside the handlers.
    std::atomic<bool> stop{false};
    std::atomic<uint64_t> callerFailures{0};
    std::vector<std::thread> callers;
    for (int i = 0; i < 2; ++i) {
        callers.emplace_back([&] {
            while (!stop) {
                std::vector<DeviceInfo> devices;
                bool ok = proxy->GetDeviceSwitch("udid-pc-0001") == 1 && proxy->GetTrustedDeviceList("", devices) == 0;
                callerFailures += ok ? 0 : 1;
                ++activity.ownThreadCalls;
            }
        });
    }
    // The laptop comes and goes all the time, so the service keeps sending
    // events while the car's handler sleeps.
    std::atomic<uint64_t> busyFailures{0};
    std::thread busy([&] {
        Sim::ControlClient control = Control();
        for (int i = 0; !stop; ++i) {
            auto state = i % 2 == 0 ? Sim::DeviceState::ONLINE : Sim::DeviceState::OFFLINE;
            busyFailures += control.SetDeviceState(BUSY_DEVICE, state).status == Sim::SIM_OK ? 0 : 1;
        }
    });

    Sim::ControlClient control = Control();
    for (int round = 0; round < SLOW_ROUNDS; ++round) {
        Sim::ControlResult online = control.SetDeviceState(SLOW_DEVICE, Sim::DeviceState::ONLINE);
        EXPECT_EQ(online.status, Sim::SIM_OK) << online.detail;
        // Returns once every callback is delivered, the slow one included.
        Sim::ControlResult offline = control.SetDeviceState(SLOW_DEVICE, Sim::DeviceState::OFFLINE);
        EXPECT_EQ(offline.status, Sim::SIM_OK) << offline.detail;
    }
    stop = true;
    busy.join();
    for (std::thread& caller : callers) {
        caller.join();
    }
    other.CloseInput();
    ASSERT_TRUE(other.WaitForSummary(60)) << other.Err();
    ClientSummary summary;
    ASSERT_TRUE(ParseSummary(other.Out(), summary)) << other.Out();
    EXPECT_EQ(other.Wait(), 0) << other.Err();
    EXPECT_EQ(summary.failures, 0u) << other.Err();

    EXPECT_EQ(problems.Get(), std::vector<std::string>{});
    EXPECT_EQ(callerFailures, 0u);
    EXPECT_EQ(busyFailures, 0u);
    std::vector<Window> windows = listener->Windows();
    ASSERT_EQ(windows.size(), static_cast<size_t>(SLOW_ROUNDS));
    for (const Window& window : windows) {
        printf(
            "[ figures  ] during a 2 s handler: %llu calls of the other process, %llu of this one's threads, "
            "%llu laptop events to the same listener\n",
            static_cast<unsigned long long>(window.otherProcessCalls),
            static_cast<unsigned long long>(window.ownThreadCalls),
            static_cast<unsigned long long>(window.busyDeviceEvents));
        // While one of this process's IPC threads slept in the handler, the
        // other client's calls were answered, this process's own calls were
        // answered, and further events were delivered to this very listener.
        EXPECT_GT(window.otherProcessCalls, 0u);
        EXPECT_GT(window.ownThreadCalls, 0u);
        EXPECT_GT(window.busyDeviceEvents, 0u);
    }
    EXPECT_GE(listener->ReentrantCallbacks(), static_cast<uint64_t>(SLOW_ROUNDS));
    EXPECT_GT(services->Events(), 0u);
    // No callback ran past the service's wait.
    std::string output = daemon_->Output();
    EXPECT_EQ(output.find(" WARN "), std::string::npos) << output;
    EXPECT_EQ(output.find(" ERROR "), std::string::npos) << output;
}

}  // namespace
}  // namespace DeviceDetectSoak
