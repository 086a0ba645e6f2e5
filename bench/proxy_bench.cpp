// The proxy against the service: in process (no transport) and across
// processes against devicedetectd over the socket transport.
#include <benchmark/benchmark.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <thread>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <string>

#include "bench_util.h"
#include "control_client.h"
#include "device_detect_descriptors.h"
#include "device_detect_request_code.h"
#include "embedded_service.h"
#include "message_option.h"
#include "message_parcel.h"
#include "simulator.h"
#include "socket_transport.h"
#include "tralog.h"

namespace Tavik {
namespace Syntavo {
namespace Bench {
namespace {

using Clock = std::chrono::steady_clock;

const std::string SWITCH_ID = "udid-bench-000000-7f3a9c2e41d05b86";

// Counts the lines that pass the threshold while it lives; reported as the
// counter log_lines (0 with the default threshold on the call paths).
class LineCounter {
public:
    LineCounter()
    {
        SetLogSink([this](const LogRecord& /* record */) { lines_.fetch_add(1, std::memory_order_relaxed); });
    }
    ~LineCounter() { ResetLogSink(); }
    LineCounter(const LineCounter&) = delete;
    LineCounter& operator=(const LineCounter&) = delete;
    double Lines() const { return static_cast<double>(lines_.load()); }

private:
    std::atomic<int64_t> lines_{0};
};

void InProcessSwitch(benchmark::State& state)
{
    Sim::EmbeddedService service(MakeWorld(1));
    sptr<DeviceDetectProxy> proxy = sptr<DeviceDetectProxy>::MakeSptr(service.Object());
    for (auto _ : state) {
        benchmark::DoNotOptimize(proxy->GetDeviceSwitch(SWITCH_ID));
    }
}
BENCHMARK(InProcessSwitch)->Name("proxy/inproc/GetDeviceSwitch");

void InProcessList(benchmark::State& state)
{
    size_t online = static_cast<size_t>(state.range(0));
    Sim::EmbeddedService service(MakeWorld(online));
    sptr<DeviceDetectProxy> proxy = sptr<DeviceDetectProxy>::MakeSptr(service.Object());
    for (auto _ : state) {
        std::vector<DeviceInfo> devices;
        if (proxy->GetTrustedDeviceList("", devices) != 0 || devices.size() != online) {
            state.SkipWithError("GetTrustedDeviceList failed");
            break;
        }
        benchmark::DoNotOptimize(devices.data());
    }
}
BENCHMARK(InProcessList)->Name("proxy/inproc/GetTrustedDeviceList")->Arg(0)->Arg(1)->Arg(1024);

// One GetTrustedDeviceList request straight to the service's stub; the
// reply is encoded and dropped.
bool CallStubList(const sptr<IRemoteObject>& stub, benchmark::State& state)
{
    MessageParcel data;
    MessageParcel reply;
    MessageOption option;
    data.WriteInterfaceToken(Descriptor::DEVICE_DETECT);
    data.WriteString("");
    if (stub->SendRequest(static_cast<uint32_t>(DeviceDetectRequestCode::GET_TRUSTED_DEVICE_LIST), data, reply,
                          option) != 0) {
        state.SkipWithError("SendRequest failed");
        return false;
    }
    benchmark::DoNotOptimize(reply.GetData());
    return true;
}

// The service's half of the list alone: the stub called directly, reply
// encoded and dropped.
void StubList(benchmark::State& state)
{
    Sim::EmbeddedService service(MakeWorld(static_cast<size_t>(state.range(0))));
    sptr<IRemoteObject> stub = service.Object();
    for (auto _ : state) {
        if (!CallStubList(stub, state)) {
            break;
        }
    }
}
BENCHMARK(StubList)->Name("service/stub/GetTrustedDeviceList")->Arg(1024);

// The same after every change of the world: the list is encoded afresh (the
// stub keeps the encoded reply only for as long as the world stays as it was).
void StubListAfterChange(benchmark::State& state)
{
    Sim::EmbeddedService service(MakeWorld(static_cast<size_t>(state.range(0))));
    sptr<IRemoteObject> stub = service.Object();
    std::string detail;
    bool on = false;
    for (auto _ : state) {
        on = !on;
        service.GetSimulator()->SetDynamicInfo(SWITCH_ID, "bench", on ? "1" : "0", detail);
        if (!CallStubList(stub, state)) {
            break;
        }
    }
}
BENCHMARK(StubListAfterChange)->Name("service/stub/GetTrustedDeviceList_after_change")->Arg(1024);

void RemoteSwitch(benchmark::State& state)
{
    sptr<DeviceDetectProxy> proxy = RemoteProxy();
    LineCounter lines;
    for (auto _ : state) {
        if (proxy->GetDeviceSwitch(SWITCH_ID) < 0) {
            state.SkipWithError("GetDeviceSwitch failed");
            break;
        }
    }
    state.counters["log_lines"] = lines.Lines();
}
BENCHMARK(RemoteSwitch)->Name("proxy/remote/GetDeviceSwitch");

// A client that floods the service with small calls and never reads an
// answer: whenever the service gives up on it (its unread answers pass the
// outgoing limit) it connects again and goes on.
class Flooder {
public:
    Flooder() : thread_([this] { Run(); }) {}
    ~Flooder()
    {
        stop_ = true;
        thread_.join();
    }
    Flooder(const Flooder&) = delete;
    Flooder& operator=(const Flooder&) = delete;
    int64_t Connections() const { return connections_.load(); }

private:
    void Run()
    {
        MessageParcel data;
        data.WriteInterfaceToken(Descriptor::DEVICE_DETECT);
        data.WriteString(SWITCH_ID);
        std::vector<uint8_t> frame(32 + data.GetDataSize());
        uint32_t header[8] = {static_cast<uint32_t>(data.GetDataSize()), 0x01015654u, 1, 0, 0,
                              static_cast<uint32_t>(DeviceDetectRequestCode::GET_DEVICE_SWITCH), 0, 0};
        std::memcpy(frame.data(), header, sizeof(header));
        std::memcpy(frame.data() + 32, data.GetData(), data.GetDataSize());
        std::string path = GetSystemAbilitySocketPath(SYNTAVO_DEVICE_DETECT_SA_ID);
        while (!stop_) {
            int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
            sockaddr_un address{};
            address.sun_family = AF_UNIX;
            std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
            timeval wait{0, 100 * 1000};
            setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &wait, sizeof(wait));
            if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0) {
                ++connections_;
                for (uint64_t id = 1; !stop_; ++id) {
                    std::memcpy(frame.data() + 8, &id, sizeof(id));
                    ssize_t sent = send(fd, frame.data(), frame.size(), MSG_NOSIGNAL);
                    if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
                        continue;  // held back; try again
                    }
                    if (sent != static_cast<ssize_t>(frame.size())) {
                        break;  // given up on (or half a frame sent): connect anew
                    }
                }
            }
            close(fd);
        }
    }

    std::atomic<bool> stop_{false};
    std::atomic<int64_t> connections_{0};
    std::thread thread_;
};

// The small call while another client floods the service; compare with
// proxy/remote/GetDeviceSwitch.
void RemoteSwitchBesideFlooder(benchmark::State& state)
{
    sptr<DeviceDetectProxy> proxy = RemoteProxy();
    Flooder flooder;
    for (auto _ : state) {
        if (proxy->GetDeviceSwitch(SWITCH_ID) < 0) {
            state.SkipWithError("GetDeviceSwitch failed");
            break;
        }
    }
    state.counters["flooder_connections"] = static_cast<double>(flooder.Connections());
}
BENCHMARK(RemoteSwitchBesideFlooder)->Name("proxy/remote/GetDeviceSwitch_beside_flooder")->UseRealTime();

void RemoteList(benchmark::State& state)
{
    sptr<DeviceDetectProxy> proxy = RemoteProxy();
    LineCounter lines;
    for (auto _ : state) {
        std::vector<DeviceInfo> devices;
        if (proxy->GetTrustedDeviceList("", devices) != 0 || devices.size() != 1024) {
            state.SkipWithError("GetTrustedDeviceList failed");
            break;
        }
        benchmark::DoNotOptimize(devices.data());
    }
    state.counters["log_lines"] = lines.Lines();
}
BENCHMARK(RemoteList)->Name("proxy/remote/GetTrustedDeviceList")->Arg(1024);

// Records when the handler ran; the benchmark waits for it.
class LatencyCallback : public DeviceChangedCallbackStub {
public:
    int32_t OnDeviceOnline(DeviceInfo& /* deviceInfo */) override { return Note(); }
    int32_t OnDeviceOffline(DeviceInfo& /* deviceInfo */) override { return Note(); }

    Clock::time_point Wait()
    {
        std::unique_lock<std::mutex> lock(mutex_);
        if (!done_.wait_for(lock, std::chrono::seconds(5), [this] { return seen_; })) {
            return Clock::time_point{};
        }
        seen_ = false;
        return at_;
    }

private:
    int32_t Note()
    {
        Clock::time_point now = Clock::now();
        std::lock_guard<std::mutex> lock(mutex_);
        at_ = now;
        seen_ = true;
        done_.notify_one();
        return 0;
    }

    std::mutex mutex_;
    std::condition_variable done_;
    bool seen_ = false;
    Clock::time_point at_;
};

// From the control request that changes a device's state to the handler
// running in this process: the control call's request leg, the service's
// event, and the callback's delivery.
void RemoteCallback(benchmark::State& state)
{
    sptr<DeviceDetectProxy> proxy = RemoteProxy();
    auto callback = sptr<LatencyCallback>::MakeSptr();
    auto registered = proxy->RegisterDevChangedCallback(sptr<AbilityFilter>::MakeSptr(), "bench", callback);
    if (registered.first != 0) {
        state.SkipWithError("RegisterDevChangedCallback failed");
        return;
    }
    Sim::ControlClient control(ConnectSystemAbility(SYNTAVO_DEVICE_DETECT_SA_ID));
    bool online = true;
    for (auto _ : state) {
        online = !online;
        Clock::time_point start = Clock::now();
        if (control.SetDeviceState(TOGGLE_DEVICE, online ? Sim::DeviceState::ONLINE : Sim::DeviceState::OFFLINE)
                .status != 0) {
            state.SkipWithError("SetDeviceState failed");
            break;
        }
        Clock::time_point handled = callback->Wait();
        if (handled == Clock::time_point{}) {
            state.SkipWithError("no callback within 5 s");
            break;
        }
        state.SetIterationTime(std::chrono::duration<double>(handled - start).count());
    }
    if (!online) {
        control.SetDeviceState(TOGGLE_DEVICE, Sim::DeviceState::ONLINE);
        callback->Wait();
    }
    proxy->UnregisterDevChangedCallback(registered.second);
}
BENCHMARK(RemoteCallback)->Name("proxy/remote/callback_latency")->UseManualTime();

// Four threads of one client process share one proxy (one connection).
void RemoteThreads(benchmark::State& state)
{
    static sptr<DeviceDetectProxy> shared;
    static std::once_flag once;
    std::call_once(once, [] { shared = RemoteProxy(); });
    int64_t errors = 0;
    for (auto _ : state) {
        errors += shared->GetDeviceSwitch(SWITCH_ID) < 0 ? 1 : 0;
    }
    state.SetItemsProcessed(state.iterations());
    state.counters["errors"] = static_cast<double>(errors);
}
BENCHMARK(RemoteThreads)->Name("proxy/remote/GetDeviceSwitch_throughput")->Threads(4)->UseRealTime();

// Two client processes (this program re-executed with --worker) each make
// `calls` small calls; the time is the slower worker's loop.
void RemoteProcesses(benchmark::State& state)
{
    SharedDaemon();
    const int64_t calls = state.range(0);
    char self[4096];
    ssize_t length = readlink("/proc/self/exe", self, sizeof(self) - 1);
    if (length <= 0) {
        state.SkipWithError("cannot find this program");
        return;
    }
    self[length] = '\0';
    int64_t errors = 0;
    // Made before fork: the child only execs.
    const std::string count = std::to_string(calls);
    for (auto _ : state) {
        double slowest = 0;
        int pipes[2][2];
        pid_t pids[2];
        for (int i = 0; i < 2; ++i) {
            if (pipe(pipes[i]) != 0) {
                state.SkipWithError("pipe failed");
                return;
            }
            pids[i] = fork();
            if (pids[i] == 0) {
                dup2(pipes[i][1], STDOUT_FILENO);
                execl(self, self, "--worker", count.c_str(), static_cast<char*>(nullptr));
                _exit(127);
            }
            close(pipes[i][1]);
        }
        for (int i = 0; i < 2; ++i) {
            char text[128] = {};
            ssize_t got = read(pipes[i][0], text, sizeof(text) - 1);
            close(pipes[i][0]);
            int status = 0;
            waitpid(pids[i], &status, 0);
            double seconds = 0;
            long long failed = 0;
            if (got <= 0 || std::sscanf(text, "%lf %lld", &seconds, &failed) != 2 || !WIFEXITED(status) ||
                WEXITSTATUS(status) != 0) {
                state.SkipWithError("worker failed");
                return;
            }
            errors += failed;
            slowest = std::max(slowest, seconds);
        }
        state.SetIterationTime(slowest);
    }
    state.SetItemsProcessed(state.iterations() * calls * 2);
    state.counters["errors"] = static_cast<double>(errors);
}
BENCHMARK(RemoteProcesses)
    ->Name("proxy/remote/GetDeviceSwitch_2processes")
    ->Arg(20000)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace

// The body of a --worker process: connects, warms up, then times `calls`
// small calls and prints "<seconds> <errors>".
int RunWorker(long long calls)
{
    sptr<IRemoteObject> remote = ConnectSystemAbility(SYNTAVO_DEVICE_DETECT_SA_ID);
    if (remote == nullptr) {
        return 1;
    }
    auto proxy = sptr<DeviceDetectProxy>::MakeSptr(remote);
    proxy->GetDeviceSwitch(SWITCH_ID);
    long long errors = 0;
    Clock::time_point start = Clock::now();
    for (long long i = 0; i < calls; ++i) {
        errors += proxy->GetDeviceSwitch(SWITCH_ID) < 0 ? 1 : 0;
    }
    double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    std::printf("%.9f %lld\n", seconds, errors);
    std::fflush(stdout);
    return 0;
}

}  // namespace Bench
}  // namespace Syntavo
}  // namespace Tavik
