// Callback handlers that call the service back from inside the callback, and
// one that takes its time, while this process's other threads, another
// client process and the world changes all go on. The service sends one
// process one callback at a time, so the events that come during the slow
// handler wait for it, and arrive, in order, once it returns.
#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <map>
#include <mutex>

#include "sim_status.h"
#include "soak_util.h"

namespace DeviceDetectSoak {
namespace {

// Longer than any call takes here, shorter than the 8 s a client waits for a
// reply.
constexpr auto SLOW_HANDLER_TIME = std::chrono::seconds(2);
// Between two changes of the busy device: about 40 changes, 80 callbacks
// queued for this process during one slow handler, well below the service's
// bound of 256 (past it, the service would give up on this process).
constexpr auto BUSY_PAUSE = std::chrono::milliseconds(50);
constexpr int SLOW_ROUNDS = 3;
const std::string SLOW_DEVICE = "udid-car-0001";
const std::string BUSY_DEVICE = "udid-laptop-0001";

// What went on around the handlers: calls of the other process, calls of
// this process's own threads, changes of the busy device, its events here.
using Activity = std::array<uint64_t, 4>;

// What the handlers found wrong, and the switch each device has.
struct Findings {
    std::map<std::string, int32_t> switches;
    std::mutex mutex;
    std::vector<std::string> problems;

    void CheckSwitch(const std::string& udid, const std::string& where)
    {
        sptr<DeviceDetectProxy> proxy = DeviceDetectProxy::GetInstance();
        int32_t status = proxy == nullptr ? -1 : proxy->GetDeviceSwitch(udid);
        if (switches.count(udid) == 0 || status != switches[udid]) {
            Add("switch inside " + where + " for " + udid + ": " + std::to_string(status));
        }
    }
    void Add(const std::string& problem)
    {
        std::lock_guard<std::mutex> lock(mutex);
        problems.push_back(problem);
    }
};

// Online and ready: asks the service for the list and the device's switch
// from inside the callback. Offline of SLOW_DEVICE: sleeps, noting what went
// on meanwhile, then asks for the list.
class ReentrantListener : public DeviceChangedCallbackStub {
public:
    explicit ReentrantListener(Findings& findings) : findings_(findings) {}

    int32_t OnDeviceOnline(DeviceInfo& device) override
    {
        CountBusy(device);
        CallBack(device, true);
        ++reentrantCallbacks;
        carOnline += device.GetDeviceUdid() == SLOW_DEVICE ? 1 : 0;
        return 0;
    }
    int32_t OnDeviceReady(DeviceInfo& device) override { return OnDeviceOnline(device); }
    int32_t OnDeviceOffline(DeviceInfo& device) override
    {
        CountBusy(device);
        if (device.GetDeviceUdid() != SLOW_DEVICE) {
            return 0;
        }
        Activity before = activity();
        std::this_thread::sleep_for(SLOW_HANDLER_TIME);
        Activity after = activity();
        {
            std::lock_guard<std::mutex> lock(findings_.mutex);
            windows.push_back({after[0] - before[0], after[1] - before[1], after[2] - before[2], after[3] - before[3]});
        }
        CallBack(device, false);
        return 0;
    }

    std::function<Activity()> activity;
    std::vector<Activity> windows;
    Counter carOnline{0};
    Counter busyEvents{0};
    Counter reentrantCallbacks{0};

private:
    void CountBusy(const DeviceInfo& device) { busyEvents += device.GetDeviceUdid() == BUSY_DEVICE ? 1 : 0; }
    // The world changed before the callback was sent, so the list already
    // shows the change. (The laptop may have changed again since: its events
    // queue behind the slow handler, so only the car, which the test changes
    // after each of its events, is checked.)
    void CallBack(const DeviceInfo& device, bool online)
    {
        const std::string& udid = device.GetDeviceUdid();
        sptr<DeviceDetectProxy> proxy = DeviceDetectProxy::GetInstance();
        std::vector<DeviceInfo> devices;
        int32_t status = proxy == nullptr ? -1 : proxy->GetTrustedDeviceList("reentrant", devices);
        bool listed = std::any_of(devices.begin(), devices.end(),
                                  [&udid](const DeviceInfo& listed) { return listed.GetDeviceUdid() == udid; });
        if (status != 0 || (udid == SLOW_DEVICE && listed != online)) {
            findings_.Add("list inside the callback for " + udid + ": status " + std::to_string(status) +
                          (online ? ", device missing" : ", device still listed"));
        }
        findings_.CheckSwitch(udid, "the callback");
    }
    Findings& findings_;
};

// Asks for the switch of every device of the event from inside the callback.
class ReentrantServiceCallback : public ServiceChangedCallbackStub {
public:
    explicit ReentrantServiceCallback(Findings& findings) : findings_(findings) {}
    int32_t OnDeviceEvent(int32_t event, std::vector<DeviceServiceInfo> infos) override
    {
        for (const DeviceServiceInfo& info : infos) {
            findings_.CheckSwitch(info.GetDeviceId(), "service event " + std::to_string(event));
        }
        ++events;
        return 0;
    }
    Counter events{0};

private:
    Findings& findings_;
};

using ReentrancyTest = DaemonTest;

TEST_F(ReentrancyTest, HandlersThatCallBackOrSleepStallNothing)
{
    sptr<DeviceDetectProxy> proxy = DeviceDetectProxy::GetInstance();
    ASSERT_NE(proxy, nullptr);
    Findings findings;
    for (const std::string& udid : {SLOW_DEVICE, BUSY_DEVICE}) {
        findings.switches[udid] = proxy->GetDeviceSwitch(udid);
        ASSERT_GE(findings.switches[udid], 0);
        ASSERT_LT(findings.switches[udid], 1000) << "a status, not a switch";
    }
    auto listener = sptr<ReentrantListener>::MakeSptr(findings);
    auto services = sptr<ReentrantServiceCallback>::MakeSptr(findings);
    ASSERT_EQ(proxy->RegisterDevChangedCallback(sptr<AbilityFilter>::MakeSptr(), "reentrancy", listener).first, 0);
    ASSERT_EQ(proxy->RegisterServiceChangedCallback(services), 0);

    // Another application, calling all along.
    ClientProcess other(1, 2, 0);
    ASSERT_TRUE(other.Started());
    // This process's own callers, beside the handlers.
    Repeat callers(2, [&proxy] {
        std::vector<DeviceInfo> devices;
        return proxy->GetDeviceSwitch("udid-pc-0001") == 1 && proxy->GetTrustedDeviceList("", devices) == 0;
    });
    // The laptop comes and goes all the time, so the service has events for
    // this process while the car's handler sleeps.
    Sim::ControlClient busyControl = Control();
    Repeat busy(1, [&busyControl, online = false]() mutable {
        online = !online;
        auto state = online ? Sim::DeviceState::ONLINE : Sim::DeviceState::OFFLINE;
        bool changed = busyControl.SetDeviceState(BUSY_DEVICE, state).status == Sim::SIM_OK;
        std::this_thread::sleep_for(BUSY_PAUSE);
        return changed;
    });
    listener->activity = [&] {
        return Activity{other.Progress(), callers.steps.load(), busy.steps.load(), listener->busyEvents.load()};
    };

    // This process is seldom idle here, so a change does not wait for its
    // handlers; the test waits for each of the car's events itself.
    Sim::ControlClient control = Control();
    for (size_t round = 0; round < static_cast<size_t>(SLOW_ROUNDS); ++round) {
        EXPECT_EQ(control.SetDeviceState(SLOW_DEVICE, Sim::DeviceState::ONLINE).status, Sim::SIM_OK);
        EXPECT_TRUE(Tavik::Test::WaitUntil([&] { return listener->carOnline.load() == round + 1; }));
        EXPECT_EQ(control.SetDeviceState(SLOW_DEVICE, Sim::DeviceState::OFFLINE).status, Sim::SIM_OK);
        EXPECT_TRUE(Tavik::Test::WaitUntil([&] {
            std::lock_guard<std::mutex> lock(findings.mutex);
            return listener->windows.size() == round + 1;
        }));
    }
    busy.Stop();
    callers.Stop();
    // Every change of the laptop reaches the listener once the queue drains.
    EXPECT_TRUE(Tavik::Test::WaitUntil([&] { return listener->busyEvents.load() == busy.steps.load(); }))
        << listener->busyEvents.load() << " laptop events for " << busy.steps.load() << " changes";
    EXPECT_EQ(other.Finish(0), "");
    EXPECT_EQ(findings.problems, std::vector<std::string>{});
    EXPECT_EQ(callers.failures, 0u);
    EXPECT_EQ(busy.failures, 0u);
    ASSERT_EQ(listener->windows.size(), static_cast<size_t>(SLOW_ROUNDS));
    for (const Activity& window : listener->windows) {
        printf(
            "[ figures  ] during a 2 s handler: %llu calls of the other process, %llu of this one's threads, "
            "%llu laptop changes, %llu laptop events to this process\n",
            static_cast<unsigned long long>(window[0]), static_cast<unsigned long long>(window[1]),
            static_cast<unsigned long long>(window[2]), static_cast<unsigned long long>(window[3]));
        // While one of this process's IPC threads slept in the handler, the
        // other client's calls were answered, this process's own calls were
        // answered, and the world went on changing; the laptop's events for
        // this process waited behind the sleeping handler.
        EXPECT_GT(window[0], 0u);
        EXPECT_GT(window[1], 0u);
        EXPECT_GT(window[2], 0u);
        EXPECT_EQ(window[3], 0u);
    }
    EXPECT_GE(listener->reentrantCallbacks, static_cast<uint64_t>(SLOW_ROUNDS));
    EXPECT_GT(services->events, 0u);
    // Nobody was given up on, nothing failed.
    ExpectCleanStop();
}

}  // namespace
}  // namespace DeviceDetectSoak
