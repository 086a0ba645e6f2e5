// Fan-out: the time from a world change to the last of N healthy watcher
// processes receiving it, with and without frozen watchers beside them.
// Watchers are this program re-executed with --watcher: the transport keeps
// one connection per process and ability, so each is a client of its own.
#include <benchmark/benchmark.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "bench_util.h"
#include "control_client.h"
#include "device_changed_callback_stub.h"
#include "socket_transport.h"

namespace Tavik {
namespace Syntavo {
namespace Bench {
namespace {

using Clock = std::chrono::steady_clock;

// Frozen watchers are thawed after this many changes (outside the timed
// part) so that they stay below the service's queue bound (512), which
// would otherwise disconnect them.
constexpr int THAW_EVERY = 200;

int64_t NowNs()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch()).count();
}

// Writes the steady-clock time (shared by all processes of the machine) of
// each event it receives to standard output, one line each.
class StampingCallback : public DeviceChangedCallbackStub {
public:
    int32_t OnDeviceOnline(DeviceInfo& /* deviceInfo */) override { return Stamp(); }
    int32_t OnDeviceOffline(DeviceInfo& /* deviceInfo */) override { return Stamp(); }

private:
    static int32_t Stamp()
    {
        std::string line = std::to_string(NowNs()) + "\n";
        return write(STDOUT_FILENO, line.data(), line.size()) == static_cast<ssize_t>(line.size()) ? 0 : 1;
    }
};

// One watcher process and the read end of its standard output.
struct Watcher {
    pid_t pid = -1;
    int out = -1;
    std::string buffer;

    // The next line's number; -1 when the watcher is gone or silent for 5 s.
    int64_t NextStamp()
    {
        size_t end;
        while ((end = buffer.find('\n')) == std::string::npos) {
            struct pollfd ready {
                out, POLLIN, 0
            };
            if (poll(&ready, 1, 5000) != 1) {
                return -1;
            }
            char chunk[256];
            ssize_t got = read(out, chunk, sizeof(chunk));
            if (got <= 0) {
                return -1;
            }
            buffer.append(chunk, static_cast<size_t>(got));
        }
        std::string line = buffer.substr(0, end);
        buffer.erase(0, end + 1);
        return std::strtoll(line.c_str(), nullptr, 10);
    }
};

// The watchers of one benchmark configuration; kept across the calls of the
// benchmark function (Google Benchmark calls it several times while it finds
// the iteration count), replaced when the configuration changes.
class WatcherSet {
public:
    WatcherSet(int healthy, int frozen) : healthy_(healthy), frozen_(frozen) {}
    ~WatcherSet()
    {
        for (Watcher& watcher : watchers_) {
            kill(watcher.pid, SIGKILL);
            waitpid(watcher.pid, nullptr, 0);
            close(watcher.out);
        }
    }
    WatcherSet(const WatcherSet&) = delete;
    WatcherSet& operator=(const WatcherSet&) = delete;

    bool Start()
    {
        char self[4096];
        ssize_t length = readlink("/proc/self/exe", self, sizeof(self) - 1);
        if (length <= 0) {
            return false;
        }
        self[length] = '\0';
        // The healthy ones register first, so that a change reaches them
        // before the frozen ones in the service's listener order (the
        // frozen ones must not get ahead by position).
        return Spawn(self, healthy_) && Spawn(self, frozen_);
    }

    // The latest time a healthy watcher received the change; -1 when one
    // did not.
    int64_t LastHealthyStamp()
    {
        int64_t last = 0;
        for (int i = 0; i < healthy_; ++i) {
            int64_t stamp = watchers_[static_cast<size_t>(i)].NextStamp();
            if (stamp < 0) {
                return -1;
            }
            last = std::max(last, stamp);
        }
        return last;
    }

    // After THAW_EVERY changes the frozen ones catch up and stop again.
    bool CountChange()
    {
        if (frozen_ == 0 || ++sinceThaw_ < THAW_EVERY) {
            return true;
        }
        for (int i = healthy_; i < healthy_ + frozen_; ++i) {
            Watcher& watcher = watchers_[static_cast<size_t>(i)];
            kill(watcher.pid, SIGCONT);
            for (int event = 0; event < sinceThaw_; ++event) {
                if (watcher.NextStamp() < 0) {
                    return false;
                }
            }
            Stop(watcher.pid);
        }
        sinceThaw_ = 0;
        return true;
    }

private:
    // Starts `count` watchers and waits until each has registered (it
    // prints one line then); those after the healthy ones are stopped.
    bool Spawn(const char* self, int count)
    {
        size_t first = watchers_.size();
        for (int i = 0; i < count; ++i) {
            int pipes[2];
            if (pipe(pipes) != 0) {
                return false;
            }
            pid_t pid = fork();
            if (pid == 0) {
                dup2(pipes[1], STDOUT_FILENO);
                execl(self, self, "--watcher", static_cast<char*>(nullptr));
                _exit(127);
            }
            close(pipes[1]);
            watchers_.push_back({pid, pipes[0], ""});
        }
        for (size_t i = first; i < watchers_.size(); ++i) {
            if (watchers_[i].NextStamp() != 0) {
                return false;
            }
            if (i >= static_cast<size_t>(healthy_)) {
                Stop(watchers_[i].pid);
            }
        }
        return true;
    }

    // Returns once the process has stopped.
    static void Stop(pid_t pid)
    {
        kill(pid, SIGSTOP);
        int status = 0;
        waitpid(pid, &status, WUNTRACED);
    }

    int healthy_;
    int frozen_;
    int sinceThaw_ = 0;
    std::vector<Watcher> watchers_;
};

// Listeners the service holds now (-1 when it cannot tell).
int AbilityListeners(Sim::ControlClient& control)
{
    Sim::ControlResult result = control.GetRegistrations();
    const std::string key = "\"abilityListeners\": ";
    size_t at = result.json.find(key);
    return result.status != 0 || at == std::string::npos ? -1 : std::atoi(result.json.c_str() + at + key.size());
}

void FanOut(benchmark::State& state)
{
    SharedDaemon();
    Sim::ControlClient control(ConnectSystemAbility(SYNTAVO_DEVICE_DETECT_SA_ID));
    const int before = AbilityListeners(control);
    // The watchers live for one call of this function (one repetition,
    // with its fixed iteration count), so that they do not receive the
    // other benchmarks' changes.
    auto set = std::make_unique<WatcherSet>(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
    if (!set->Start()) {
        state.SkipWithError("the watchers did not start");
        return;
    }
    // The device is online in the generated world; each change toggles it,
    // and the benchmark ends where it started.
    bool online = true;
    auto toggle = [&]() {
        online = !online;
        int64_t start = NowNs();
        if (control.SetDeviceState(TOGGLE_DEVICE, online ? Sim::DeviceState::ONLINE : Sim::DeviceState::OFFLINE)
                .status != 0) {
            return -1.0;
        }
        int64_t last = set->LastHealthyStamp();
        if (last < 0 || !set->CountChange()) {
            return -1.0;
        }
        return static_cast<double>(last - start) / 1e9;
    };
    for (auto _ : state) {
        double seconds = toggle();
        if (seconds < 0) {
            state.SkipWithError("a watcher missed a change");
            break;
        }
        state.SetIterationTime(seconds);
    }
    if (!online) {
        toggle();
    }
    set.reset();
    // The service has dropped the watchers before the next benchmark runs.
    Clock::time_point limit = Clock::now() + std::chrono::seconds(5);
    while (AbilityListeners(control) != before && Clock::now() < limit) {
        usleep(1000);
    }
}

// Changes per repetition: enough for a stable mean, few enough that a
// repetition of 100 watchers stays under a second on a quiet machine.
void FanOutSizes(benchmark::internal::Benchmark* benchmark)
{
    for (int healthy : {1, 10, 100}) {
        for (int frozen : {0, 10}) {
            benchmark->Args({healthy, frozen});
        }
    }
}

BENCHMARK(FanOut)
    ->Name("service/fanout")
    ->ArgNames({"healthy", "frozen"})
    ->Apply(FanOutSizes)
    ->Iterations(300)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);

}  // namespace

// The body of a --watcher process: registers a listener for every device,
// prints "0" once registered, then a stamp per event until it is killed.
int RunWatcher()
{
    sptr<IRemoteObject> remote = ConnectSystemAbility(SYNTAVO_DEVICE_DETECT_SA_ID);
    if (remote == nullptr) {
        return 1;
    }
    auto proxy = sptr<DeviceDetectProxy>::MakeSptr(remote);
    auto callback = sptr<StampingCallback>::MakeSptr();
    if (proxy->RegisterDevChangedCallback(sptr<AbilityFilter>::MakeSptr(), "bench", callback).first != 0) {
        return 1;
    }
    if (write(STDOUT_FILENO, "0\n", 2) != 2) {
        return 1;
    }
    for (;;) {
        pause();
    }
}

}  // namespace Bench
}  // namespace Syntavo
}  // namespace Tavik
