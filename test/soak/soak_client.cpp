// soak_tests: the tests, or, started with --soak-client, one client process
// of theirs (soak_util.h): threads calling devicedetectd through
// DeviceDetectProxy, every answer checked against the built-in world.
#include <unistd.h>

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "ability_filter.h"
#include "device_config_info.h"
#include "device_detect_callback_stub.h"
#include "device_dynamic_info.h"
#include "device_filter.h"
#include "service_deliver_callback_stub.h"
#include "service_filter.h"
#include "service_publish_callback_stub.h"
#include "soak_util.h"

namespace DeviceDetectSoak {
namespace {

// Failures beyond this many are counted, not described.
constexpr uint64_t DESCRIBED_FAILURES = 10;
constexpr uint32_t WATCH_TYPE = 109;
constexpr uint32_t SAME_ACCOUNT = 1;

Counter g_counts[COUNTS];
std::atomic<bool> g_stop{false};

class DialogCounter : public DialogEventCallbackStub {
public:
    int32_t OnDialogEventReply(const std::string&) override
    {
        ++g_counts[DIALOG_REPLIES];
        return 0;
    }
};

class PublishCounter : public ServicePublishCallbackStub {
public:
    int32_t OnPublishEvent(sptr<RequestResultInfo>) override
    {
        ++g_counts[PUBLISH_EVENTS];
        return 0;
    }
};

// Made once by RunClient and kept, as an application keeps them.
sptr<ServiceCounter> g_serviceCallback;
sptr<DialogCounter> g_dialogCallback;

struct Caller {
    std::string pkgName;
    std::string callerId;
    sptr<DeviceCounter> listener = sptr<DeviceCounter>::MakeSptr(g_counts[DEVICE_EVENTS]);
    sptr<PublishCounter> publish = sptr<PublishCounter>::MakeSptr();
};

// One step of the cycle: one call, or a registration and its removal; true
// when every answer is right. The tests change only the car and the laptop
// of the built-in world, so every other answer is fixed.
struct Step {
    const char* name;
    bool (*call)(DeviceDetectProxy&, Caller&);
};

const Step CYCLE[] = {
    {"GetTrustedDeviceList: 5 to 7 devices",
     [](DeviceDetectProxy& p, Caller&) {
         std::vector<DeviceInfo> devices;
         return p.GetTrustedDeviceList("soak", devices) == 0 && devices.size() >= 5 && devices.size() <= 7;
     }},
    {"GetTrustedDeviceListWithAbilityFilter: the pad and the pc",
     [](DeviceDetectProxy& p, Caller&) {
         std::vector<sptr<AbilityFilter>> filters{sptr<AbilityFilter>::MakeSptr("com.tavik.files")};
         std::list<std::tuple<DeviceInfo, std::list<sptr<AbilityFilter>>>> found;
         return p.GetTrustedDeviceListWithAbilityFilter(filters, found) == 0 && found.size() == 2;
     }},
    {"GetTrustedDeviceListWithServiceFilter: the TV alone",
     [](DeviceDetectProxy& p, Caller&) {
         std::vector<DeviceInfo> devices;
         auto filter = sptr<ServiceFilter>::MakeSptr("castService", std::vector<std::string>{"TV"});
         return p.GetTrustedDeviceListWithServiceFilter(filter, "soak", devices) == 0 && devices.size() == 1 &&
                devices[0].GetDeviceUdid() == "udid-tv-0001";
     }},
    {"RegisterDevChangedCallback, UnregisterDevChangedCallback",
     [](DeviceDetectProxy& p, Caller& c) {
         auto result = p.RegisterDevChangedCallback(sptr<AbilityFilter>::MakeSptr(), "soak", c.listener);
         return result.first == 0 && result.second > 0 && p.UnregisterDevChangedCallback(result.second) == 0;
     }},
    {"RegisterCallbackWithServiceFilter, UnregisterServiceFilterListener",
     [](DeviceDetectProxy& p, Caller& c) {
         auto result = p.RegisterCallbackWithServiceFilter(sptr<ServiceFilter>::MakeSptr(), "soak", c.listener);
         return result.first == 0 && result.second > 0 && p.UnregisterServiceFilterListener(result.second) == 0;
     }},
    {"RegisterServiceChangedCallback",
     [](DeviceDetectProxy& p, Caller&) { return p.RegisterServiceChangedCallback(g_serviceCallback) == 0; }},
    {"GetLocalDeviceInfo",
     [](DeviceDetectProxy& p, Caller&) {
         DeviceInfo local;
         return p.GetLocalDeviceInfo(local) == 0 && local.GetDeviceName() == "My Phone";
     }},
    {"GetTrustedDeviceListWithDeviceFilter: the watch alone",
     [](DeviceDetectProxy& p, Caller&) {
         std::vector<DeviceInfo> devices;
         auto filter =
             sptr<DeviceFilter>::MakeSptr(std::vector<uint32_t>{WATCH_TYPE}, std::vector<uint32_t>{SAME_ACCOUNT});
         auto detect = sptr<DeviceDetectCallbackStub>::MakeSptr();
         return p.GetTrustedDeviceListWithDeviceFilter(filter, devices, detect) == 0 && devices.size() == 1;
     }},
    {"GetRemoteDeviceDynamicInfo",
     [](DeviceDetectProxy& p, Caller&) {
         std::vector<DeviceDynamicInfo> infos;
         return p.GetRemoteDeviceDynamicInfo("udid-watch-0001", {"heartRate"}, infos) == 0 && infos.size() == 1 &&
                infos[0].GetValue() == "64";
     }},
    {"QueryDeviceConfigInfo",
     [](DeviceDetectProxy& p, Caller&) {
         DeviceConfigInfo config;
         return p.QueryDeviceConfigInfo("udid-watch-0001", config) == 0 && config.GetModelId() == "WATCH-3";
     }},
    {"SetDialogEventCallback",
     [](DeviceDetectProxy& p, Caller&) { return p.SetDialogEventCallback(g_dialogCallback) == 0; }},
    {"NotifyAppDialogEvent", [](DeviceDetectProxy& p, Caller&) { return p.NotifyAppDialogEvent("{\"soak\":1}") == 0; }},
    {"RequestService, UnRequestService",
     [](DeviceDetectProxy& p, Caller& c) {
         return p.RequestService(c.pkgName, c.publish) == 0 && p.UnRequestService(c.pkgName) == 0;
     }},
    {"GetDeviceSwitch: the pc's 1",
     [](DeviceDetectProxy& p, Caller&) { return p.GetDeviceSwitch("udid-pc-0001") == 1; }},
    {"RegisterKeyMouseCallback, UnregisterKeyMouseCallback",
     [](DeviceDetectProxy& p, Caller& c) {
         return p.RegisterKeyMouseCallback(c.callerId, c.publish->AsObject()) == 0 &&
                p.UnregisterKeyMouseCallback(c.callerId) == 0;
     }},
    {"UpdateKeyMouseEdgeSwitch", [](DeviceDetectProxy& p, Caller&) { return p.UpdateKeyMouseEdgeSwitch(true) == 0; }},
    {"GetIsSameDeviceAccount",
     [](DeviceDetectProxy& p, Caller&) {
         std::string pc = "net-pc-0001";
         return p.GetIsSameDeviceAccount(pc);
     }},
    // Its answer is not given to the caller; the call itself is what counts.
    {"GetBindKeymouseServiceReq",
     [](DeviceDetectProxy& p, Caller&) {
         p.GetBindKeymouseServiceReq(true);
         return true;
     }},
    {"GetIsNextTypeDevice",
     [](DeviceDetectProxy& p, Caller&) {
         std::string pc = "net-pc-0001";
         return p.GetIsNextTypeDevice(pc);
     }},
    // Removes this process's service-changed callback until some thread
    // registers it again, as an application that pauses does.
    {"UnregisterServiceChangedCallback",
     [](DeviceDetectProxy& p, Caller&) { return p.UnregisterServiceChangedCallback() == 0; }},
};
constexpr size_t CYCLE_SIZE = sizeof(CYCLE) / sizeof(CYCLE[0]);

void RunThread(int id, int thread, uint64_t calls)
{
    static std::mutex reportMutex;
    Caller caller;
    caller.pkgName = "com.soak.p" + std::to_string(id) + ".t" + std::to_string(thread);
    caller.callerId = "soak-" + std::to_string(id) + "-" + std::to_string(thread);
    // Threads start at different places of the cycle, so that different
    // requests meet in the service.
    size_t next = static_cast<size_t>(thread * 7 + id * 3) % CYCLE_SIZE;
    for (uint64_t done = 0; calls == 0 ? !g_stop.load() : done < calls; ++done, next = (next + 1) % CYCLE_SIZE) {
        sptr<DeviceDetectProxy> proxy = DeviceDetectProxy::GetInstance();
        bool ok = proxy != nullptr && CYCLE[next].call(*proxy, caller);
        if (!ok && ++g_counts[FAILURES] <= DESCRIBED_FAILURES) {
            std::lock_guard<std::mutex> lock(reportMutex);
            fprintf(stderr, "soak client %d thread %d: %s failed\n", id, thread, CYCLE[next].name);
        }
        ++g_counts[CALLS];
        if ((done + 1) % PROGRESS_CALLS == 0 && write(STDOUT_FILENO, ".", 1) != 1) {
            ++g_counts[FAILURES];
        }
    }
}

}  // namespace

int RunClient(int argc, char** argv)
{
    if (argc != 5) {
        fprintf(stderr, "usage: %s %s ID THREADS CALLS\n", argv[0], CLIENT_ROLE_FLAG);
        return 2;
    }
    int id = atoi(argv[2]);
    int threads = atoi(argv[3]);
    uint64_t calls = strtoull(argv[4], nullptr, 10);
    g_serviceCallback = sptr<ServiceCounter>::MakeSptr(g_counts[SERVICE_RECORDS]);
    g_dialogCallback = sptr<DialogCounter>::MakeSptr();
    sptr<DeviceDetectProxy> proxy = DeviceDetectProxy::GetInstance();
    // Registered once and kept: a listener for every device and the deliver
    // callback (the service keeps deliver callbacks until their client goes,
    // so one per cycle would fill its table).
    auto listener = sptr<DeviceCounter>::MakeSptr(g_counts[DEVICE_EVENTS]);
    if (proxy == nullptr ||
        proxy->RegisterDevChangedCallback(sptr<AbilityFilter>::MakeSptr(), "soak", listener).first != 0 ||
        proxy->RegisterServiceDeliverCallback(id, sptr<ServiceDeliverCallbackStub>::MakeSptr()) != 0 ||
        proxy->RegisterServiceChangedCallback(g_serviceCallback) != 0) {
        fprintf(stderr, "soak client %d: the first registrations failed\n", id);
        return 3;
    }
    std::thread stdinWatch([] {
        char buffer[64];
        while (read(STDIN_FILENO, buffer, sizeof(buffer)) > 0) {
        }
        g_stop = true;
    });
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) {
        workers.emplace_back(RunThread, id, t, calls);
    }
    for (std::thread& worker : workers) {
        worker.join();
    }
    std::string line = "\nSUMMARY";
    for (int i = 0; i < COUNTS; ++i) {
        line += std::string(" ") + COUNT_NAMES[i] + "=" + std::to_string(g_counts[i].load());
    }
    line += "\n";
    bool written = write(STDOUT_FILENO, line.data(), line.size()) == static_cast<ssize_t>(line.size());
    // The service drops this process's registrations when its connection
    // closes; the process does not unregister first.
    stdinWatch.join();
    return written && g_counts[FAILURES] == 0 ? 0 : 1;
}

}  // namespace DeviceDetectSoak

int main(int argc, char** argv)
{
    if (argc > 1 && strcmp(argv[1], DeviceDetectSoak::CLIENT_ROLE_FLAG) == 0) {
        int code = DeviceDetectSoak::RunClient(argc, argv);
        fflush(nullptr);
        // The IPC threads are still running: skip the static destructors.
        _exit(code);
    }
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
