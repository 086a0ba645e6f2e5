#include "soak_client.h"

#include <unistd.h>

#include <atomic>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "ability_filter.h"
#include "device_config_info.h"
#include "device_detect_callback_stub.h"
#include "device_detect_proxy.h"
#include "device_dynamic_info.h"
#include "device_filter.h"
#include "dialog_event_callback_stub.h"
#include "service_changed_callback_stub.h"
#include "service_deliver_callback_stub.h"
#include "service_filter.h"
#include "service_publish_callback_stub.h"

namespace DeviceDetectSoak {
namespace {

using namespace Tavik;
using namespace Tavik::Syntavo;

// Failures beyond this many are counted, not described.
constexpr uint64_t DESCRIBED_FAILURES = 10;
constexpr uint32_t WATCH_TYPE = 109;
constexpr uint32_t SAME_ACCOUNT = 1;

struct Counters {
    std::atomic<uint64_t> calls{0};
    std::atomic<uint64_t> failures{0};
    std::atomic<uint64_t> deviceEvents{0};
    std::atomic<uint64_t> serviceEvents{0};
    std::atomic<uint64_t> dialogReplies{0};
    std::atomic<uint64_t> publishEvents{0};
};

Counters g_counters;
std::atomic<bool> g_stop{false};

class DeviceCounter : public DeviceChangedCallbackStub {
public:
    int32_t OnDeviceOnline(DeviceInfo&) override { return Count(); }
    int32_t OnDeviceOffline(DeviceInfo&) override { return Count(); }
    int32_t OnDeviceReady(DeviceInfo&) override { return Count(); }

private:
    static int32_t Count()
    {
        ++g_counters.deviceEvents;
        return 0;
    }
};

class ServiceCounter : public ServiceChangedCallbackStub {
public:
    int32_t OnDeviceEvent(int32_t, std::vector<DeviceServiceInfo>) override
    {
        ++g_counters.serviceEvents;
        return 0;
    }
};

class DialogCounter : public DialogEventCallbackStub {
public:
    int32_t OnDialogEventReply(const std::string&) override
    {
        ++g_counters.dialogReplies;
        return 0;
    }
};

class PublishCounter : public ServicePublishCallbackStub {
public:
    int32_t OnPublishEvent(sptr<RequestResultInfo>) override
    {
        ++g_counters.publishEvents;
        return 0;
    }
};

class DetectIgnorer : public DeviceDetectCallbackStub {
public:
    int32_t OnDeviceEvent(int32_t, sptr<DeviceInfo>) override { return 0; }
};

class DeliverIgnorer : public ServiceDeliverCallbackStub {
public:
    int32_t OnDeliver(const std::string&) override { return 0; }
};

// Objects one process registers once and keeps, as an application does.
struct ProcessCallbacks {
    sptr<ServiceCounter> service = sptr<ServiceCounter>::MakeSptr();
    sptr<DialogCounter> dialog = sptr<DialogCounter>::MakeSptr();
    sptr<DeviceCounter> listener = sptr<DeviceCounter>::MakeSptr();
    sptr<DeliverIgnorer> deliver = sptr<DeliverIgnorer>::MakeSptr();
};

std::mutex g_reportMutex;

void Fail(int id, int thread, const std::string& what)
{
    if (++g_counters.failures > DESCRIBED_FAILURES) {
        return;
    }
    std::lock_guard<std::mutex> lock(g_reportMutex);
    fprintf(stderr, "soak client %d thread %d: %s\n", id, thread, what.c_str());
}

// What one thread keeps between the calls of its cycle.
struct ThreadState {
    int process = 0;
    int thread = 0;
    const ProcessCallbacks* shared = nullptr;
    std::string pkgName;
    std::string callerId;
    sptr<DeviceCounter> listener = sptr<DeviceCounter>::MakeSptr();
    sptr<DetectIgnorer> detect = sptr<DetectIgnorer>::MakeSptr();
    sptr<PublishCounter> publish = sptr<PublishCounter>::MakeSptr();
    sptr<DialogCounter> keyMouse = sptr<DialogCounter>::MakeSptr();
    uint32_t abilityListener = 0;
    uint32_t serviceListener = 0;
};

// One step of the cycle: makes one call and returns what was wrong with its
// answer, empty when nothing. The driver changes only the car and the laptop
// of the built-in world, so every other answer is fixed.
using Step = std::function<std::string(DeviceDetectProxy&, ThreadState&)>;

std::string Expect(bool ok, const std::string& what, int64_t got)
{
    return ok ? std::string() : what + " (got " + std::to_string(got) + ")";
}

const std::vector<Step>& Cycle()
{
    static const std::vector<Step> steps = {
        [](DeviceDetectProxy& proxy, ThreadState&) {
            std::vector<DeviceInfo> devices;
            int32_t status = proxy.GetTrustedDeviceList("soak", devices);
            if (status != 0) {
                return Expect(false, "GetTrustedDeviceList failed", status);
            }
            return Expect(devices.size() >= 5 && devices.size() <= 7, "GetTrustedDeviceList: not 5 to 7 devices",
                          static_cast<int64_t>(devices.size()));
        },
        [](DeviceDetectProxy& proxy, ThreadState&) {
            std::vector<sptr<AbilityFilter>> filters{sptr<AbilityFilter>::MakeSptr("com.tavik.files")};
            std::list<std::tuple<DeviceInfo, std::list<sptr<AbilityFilter>>>> found;
            int32_t status = proxy.GetTrustedDeviceListWithAbilityFilter(filters, found);
            return status != 0 ? Expect(false, "GetTrustedDeviceListWithAbilityFilter failed", status)
                               : Expect(found.size() == 2, "ability filter: not the pad and the pc",
                                        static_cast<int64_t>(found.size()));
        },
        [](DeviceDetectProxy& proxy, ThreadState&) {
            std::vector<DeviceInfo> devices;
            int32_t status = proxy.GetTrustedDeviceListWithServiceFilter(
                sptr<ServiceFilter>::MakeSptr("castService", std::vector<std::string>{"TV"}), "soak", devices);
            if (status != 0) {
                return Expect(false, "GetTrustedDeviceListWithServiceFilter failed", status);
            }
            return Expect(devices.size() == 1 && devices[0].GetDeviceUdid() == "udid-tv-0001",
                          "service filter: not the TV alone", static_cast<int64_t>(devices.size()));
        },
        [](DeviceDetectProxy& proxy, ThreadState& state) {
            auto result = proxy.RegisterDevChangedCallback(sptr<AbilityFilter>::MakeSptr(), "soak", state.listener);
            state.abilityListener = result.second;
            return Expect(result.first == 0 && result.second > 0, "RegisterDevChangedCallback failed", result.first);
        },
        [](DeviceDetectProxy& proxy, ThreadState& state) {
            int32_t status = proxy.UnregisterDevChangedCallback(state.abilityListener);
            return Expect(status == 0, "UnregisterDevChangedCallback failed", status);
        },
        [](DeviceDetectProxy& proxy, ThreadState& state) {
            auto result =
                proxy.RegisterCallbackWithServiceFilter(sptr<ServiceFilter>::MakeSptr(), "soak", state.listener);
            state.serviceListener = result.second;
            return Expect(result.first == 0 && result.second > 0, "RegisterCallbackWithServiceFilter failed",
                          result.first);
        },
        [](DeviceDetectProxy& proxy, ThreadState& state) {
            int32_t status = proxy.UnregisterServiceFilterListener(state.serviceListener);
            return Expect(status == 0, "UnregisterServiceFilterListener failed", status);
        },
        [](DeviceDetectProxy& proxy, ThreadState& state) {
            int32_t status = proxy.RegisterServiceChangedCallback(state.shared->service);
            return Expect(status == 0, "RegisterServiceChangedCallback failed", status);
        },
        [](DeviceDetectProxy& proxy, ThreadState&) {
            DeviceInfo local;
            int32_t status = proxy.GetLocalDeviceInfo(local);
            return Expect(status == 0 && local.GetDeviceName() == "My Phone", "GetLocalDeviceInfo failed", status);
        },
        [](DeviceDetectProxy& proxy, ThreadState& state) {
            std::vector<DeviceInfo> devices;
            auto filter =
                sptr<DeviceFilter>::MakeSptr(std::vector<uint32_t>{WATCH_TYPE}, std::vector<uint32_t>{SAME_ACCOUNT});
            int32_t status = proxy.GetTrustedDeviceListWithDeviceFilter(filter, devices, state.detect);
            return status != 0 ? Expect(false, "GetTrustedDeviceListWithDeviceFilter failed", status)
                               : Expect(devices.size() == 1, "device filter: not the watch alone",
                                        static_cast<int64_t>(devices.size()));
        },
        [](DeviceDetectProxy& proxy, ThreadState&) {
            std::vector<DeviceDynamicInfo> infos;
            int32_t status = proxy.GetRemoteDeviceDynamicInfo("udid-watch-0001", {"heartRate"}, infos);
            return Expect(status == 0 && infos.size() == 1 && infos[0].GetValue() == "64",
                          "GetRemoteDeviceDynamicInfo failed", status);
        },
        [](DeviceDetectProxy& proxy, ThreadState&) {
            DeviceConfigInfo config;
            int32_t status = proxy.QueryDeviceConfigInfo("udid-watch-0001", config);
            return Expect(status == 0 && config.GetModelId() == "WATCH-3", "QueryDeviceConfigInfo failed", status);
        },
        [](DeviceDetectProxy& proxy, ThreadState& state) {
            int32_t status = proxy.SetDialogEventCallback(state.shared->dialog);
            return Expect(status == 0, "SetDialogEventCallback failed", status);
        },
        [](DeviceDetectProxy& proxy, ThreadState&) {
            int32_t status = proxy.NotifyAppDialogEvent("{\"soak\":1}");
            return Expect(status == 0, "NotifyAppDialogEvent failed", status);
        },
        [](DeviceDetectProxy& proxy, ThreadState& state) {
            int32_t status = proxy.RequestService(state.pkgName, state.publish);
            return Expect(status == 0, "RequestService failed", status);
        },
        [](DeviceDetectProxy& proxy, ThreadState& state) {
            int32_t status = proxy.UnRequestService(state.pkgName);
            return Expect(status == 0, "UnRequestService failed", status);
        },
        [](DeviceDetectProxy& proxy, ThreadState&) {
            int32_t status = proxy.GetDeviceSwitch("udid-pc-0001");
            return Expect(status == 1, "GetDeviceSwitch: not the pc's 1", status);
        },
        [](DeviceDetectProxy& proxy, ThreadState& state) {
            int32_t status = proxy.RegisterKeyMouseCallback(state.callerId, state.keyMouse->AsObject());
            return Expect(status == 0, "RegisterKeyMouseCallback failed", status);
        },
        [](DeviceDetectProxy& proxy, ThreadState& state) {
            int32_t status = proxy.UnregisterKeyMouseCallback(state.callerId);
            return Expect(status == 0, "UnregisterKeyMouseCallback failed", status);
        },
        [](DeviceDetectProxy& proxy, ThreadState&) {
            int32_t status = proxy.UpdateKeyMouseEdgeSwitch(true);
            return Expect(status == 0, "UpdateKeyMouseEdgeSwitch failed", status);
        },
        [](DeviceDetectProxy& proxy, ThreadState&) {
            std::string pc = "net-pc-0001";
            return Expect(proxy.GetIsSameDeviceAccount(pc), "GetIsSameDeviceAccount: not true", 0);
        },
        [](DeviceDetectProxy& proxy, ThreadState&) {
            // Its answer is not given to the caller; the call itself is what counts.
            proxy.GetBindKeymouseServiceReq(true);
            return std::string();
        },
        [](DeviceDetectProxy& proxy, ThreadState&) {
            std::string pc = "net-pc-0001";
            return Expect(proxy.GetIsNextTypeDevice(pc), "GetIsNextTypeDevice: not true", 0);
        },
        [](DeviceDetectProxy& proxy, ThreadState&) {
            // Removes this process's service-changed callback until the next
            // registration in some thread's cycle, as an application that
            // pauses does.
            int32_t status = proxy.UnregisterServiceChangedCallback();
            return Expect(status == 0, "UnregisterServiceChangedCallback failed", status);
        },
    };
    return steps;
}

void RunThread(int id, int thread, uint64_t calls, const ProcessCallbacks& shared)
{
    ThreadState state;
    state.process = id;
    state.thread = thread;
    state.shared = &shared;
    state.pkgName = "com.soak.p" + std::to_string(id) + ".t" + std::to_string(thread);
    state.callerId = "soak-" + std::to_string(id) + "-" + std::to_string(thread);
    const std::vector<Step>& cycle = Cycle();
    // Threads start at different places of the cycle, so that different
    // requests meet in the service.
    size_t next = static_cast<size_t>(thread * 7 + id * 3) % cycle.size();
    // A pair's second half must not run without its first.
    auto needsFirst = [](size_t step) { return step == 4 || step == 6 || step == 15 || step == 18; };
    while (needsFirst(next)) {
        next = (next + 1) % cycle.size();
    }
    for (uint64_t done = 0; calls == 0 ? !g_stop.load() : done < calls; ++done) {
        sptr<DeviceDetectProxy> proxy = DeviceDetectProxy::GetInstance();
        std::string problem = proxy == nullptr ? "no proxy" : cycle[next](*proxy, state);
        if (!problem.empty()) {
            Fail(id, thread, "step " + std::to_string(next) + ": " + problem);
        }
        next = (next + 1) % cycle.size();
        ++g_counters.calls;
        if ((done + 1) % PROGRESS_CALLS == 0 && write(STDOUT_FILENO, ".", 1) != 1) {
            Fail(id, thread, "cannot report progress");
        }
    }
}

void WaitForStdinClosed()
{
    char buffer[64];
    while (read(STDIN_FILENO, buffer, sizeof(buffer)) > 0) {
    }
}

}  // namespace

std::string FormatSummary(const ClientSummary& s)
{
    char line[256];
    snprintf(line, sizeof(line),
             "SUMMARY calls=%" PRIu64 " failures=%" PRIu64 " deviceEvents=%" PRIu64 " serviceEvents=%" PRIu64
             " dialogReplies=%" PRIu64 " publishEvents=%" PRIu64,
             s.calls, s.failures, s.deviceEvents, s.serviceEvents, s.dialogReplies, s.publishEvents);
    return line;
}

bool ParseSummary(const std::string& output, ClientSummary& s)
{
    size_t at = output.find("SUMMARY ");
    if (at == std::string::npos) {
        return false;
    }
    return sscanf(output.c_str() + at,
                  "SUMMARY calls=%" SCNu64 " failures=%" SCNu64 " deviceEvents=%" SCNu64 " serviceEvents=%" SCNu64
                  " dialogReplies=%" SCNu64 " publishEvents=%" SCNu64,
                  &s.calls, &s.failures, &s.deviceEvents, &s.serviceEvents, &s.dialogReplies, &s.publishEvents) == 6;
}

int RunClient(int argc, char** argv)
{
    if (argc != 5) {
        fprintf(stderr, "usage: %s %s ID THREADS CALLS\n", argv[0], CLIENT_ROLE_FLAG);
        return 2;
    }
    int id = atoi(argv[2]);
    int threads = atoi(argv[3]);
    uint64_t calls = strtoull(argv[4], nullptr, 10);
    ProcessCallbacks shared;
    sptr<DeviceDetectProxy> proxy = DeviceDetectProxy::GetInstance();
    if (proxy == nullptr) {
        fprintf(stderr, "soak client %d: no service\n", id);
        return 3;
    }
    // Registered once and kept: the listener that watches every device and
    // the deliver callback (the service keeps deliver callbacks until their
    // client goes, so registering one per cycle would fill its table).
    auto listener = proxy->RegisterDevChangedCallback(sptr<AbilityFilter>::MakeSptr(), "soak", shared.listener);
    if (listener.first != 0 || proxy->RegisterServiceDeliverCallback(id, shared.deliver) != 0 ||
        proxy->RegisterServiceChangedCallback(shared.service) != 0) {
        fprintf(stderr, "soak client %d: the first registrations failed\n", id);
        return 3;
    }
    std::thread stdinWatch;
    if (calls == 0) {
        stdinWatch = std::thread([] {
            WaitForStdinClosed();
            g_stop = true;
        });
    }
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) {
        workers.emplace_back(RunThread, id, t, calls, std::cref(shared));
    }
    for (std::thread& worker : workers) {
        worker.join();
    }
    ClientSummary summary;
    summary.calls = g_counters.calls;
    summary.failures = g_counters.failures;
    summary.deviceEvents = g_counters.deviceEvents;
    summary.serviceEvents = g_counters.serviceEvents;
    summary.dialogReplies = g_counters.dialogReplies;
    summary.publishEvents = g_counters.publishEvents;
    std::string line = "\n" + FormatSummary(summary) + "\n";
    if (write(STDOUT_FILENO, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
        return 1;
    }
    if (stdinWatch.joinable()) {
        stdinWatch.join();
    } else {
        WaitForStdinClosed();
    }
    // The service drops this process's registrations when its connection
    // closes; the process does not unregister first.
    return summary.failures == 0 ? 0 : 1;
}

}  // namespace DeviceDetectSoak
