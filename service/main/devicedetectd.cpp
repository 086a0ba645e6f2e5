// devicedetectd: the reference device-detect service. Serves system ability
// 70635 over the Unix-socket transport from a simulated world of devices
// until SIGTERM or SIGINT, on a socket of its own or on one its supervisor
// passed (socket activation), telling the supervisor when it is ready.
#include <malloc.h>
#include <pthread.h>
#include <sys/resource.h>

#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <mutex>
#include <thread>

#include <CLI/CLI.hpp>

#include "device_detect_request_code.h"
#include "embedded_service.h"
#include "memory_return.h"
#include "scenario.h"
#include "sim_status.h"
#include "socket_transport.h"
#include "supervisor.h"
#include "syntavo_devicedetect_version.h"
#include "tralog.h"
#include "world_json.h"

namespace {

using namespace Tavik;
using namespace Tavik::Syntavo;

constexpr int EXIT_USAGE = 2;
constexpr int EXIT_PUBLISH_FAILED = 1;
// A STEP request answers within this, whatever its step's "until" says.
constexpr uint32_t STEP_CONDITION_WAIT_MS = 5000;
// How often the supervisor's status line is brought up to date (it is sent
// only when it changed): often enough for `systemctl status`, rare enough
// to cost nothing.
constexpr std::chrono::seconds STATUS_INTERVAL{2};

size_t CountOnline(const Sim::World& world)
{
    size_t online = 0;
    for (const Sim::Device& device : world.devices) {
        online += device.IsOnline() ? 1 : 0;
    }
    return online;
}

void PrintStep(size_t index, const Sim::ControlResult& result)
{
    (void)index;
    std::cout << "devicedetectd: " << result.detail;
    if (result.status != Sim::SIM_OK) {
        const char* name = Sim::SimStatusToString(result.status);
        std::cout << " [" << (name != nullptr ? name : std::to_string(result.status)) << "]";
    }
    std::cout << std::endl;
}

// In step mode the STEP control request plays each step; otherwise a thread
// plays them on their schedule. Either way the service keeps serving after
// the last step.
void StartScenario(Sim::ScenarioPlayer& player, Sim::Simulator& simulator, const std::string& file, bool stepMode,
                   std::thread& playing)
{
    std::cout << "devicedetectd: scenario " << file << ": " << player.Size() << " steps"
              << (stepMode ? ", one per `devicedetect sim step`" : "") << std::endl;
    if (stepMode) {
        simulator.SetStepHandler([&player](std::string& detail) {
            Sim::ControlResult result = player.Step();
            PrintStep(0, result);
            if (result.status == Sim::SIM_OK && player.NextIndex() >= player.Size()) {
                std::cout << "devicedetectd: scenario done" << std::endl;
            }
            detail = result.detail;
            return result.status;
        });
        return;
    }
    playing = std::thread([&player] {
        Sim::ControlResult last = player.Play(
            [](size_t index, const Sim::ScenarioStep&, const Sim::ControlResult& result) { PrintStep(index, result); });
        if (last.status == Sim::SIM_OK) {
            std::cout << "devicedetectd: scenario done" << std::endl;
        }
    });
}

// A daemon told nothing about its folder (no --runtime-dir, TAVIK_RUNTIME_DIR
// or XDG_RUNTIME_DIR; systemd-socket-activate passes none of them on) serves
// in the folder of the socket its supervisor made, when that socket has the
// ability's name. Told something, it checks the socket against that.
void AdoptSupervisorFolder(int fd)
{
    auto isSet = [](const char* name) {
        const char* value = std::getenv(name);
        return value != nullptr && *value != '\0';
    };
    if (isSet("TAVIK_RUNTIME_DIR") || isSet("XDG_RUNTIME_DIR")) {
        return;
    }
    std::string path = DeviceDetectDaemon::BoundPath(fd);
    std::string name = "/sa-" + std::to_string(SYNTAVO_DEVICE_DETECT_SA_ID) + ".sock";
    if (path.size() > name.size() && path.compare(path.size() - name.size(), name.size(), name) == 0) {
        setenv("TAVIK_RUNTIME_DIR", path.substr(0, path.size() - name.size()).c_str(), 1);
    }
}

std::string StatusLine(Sim::Simulator& simulator)
{
    Sim::World world = simulator.Snapshot();
    size_t clients = 0;
    for (const ConnectionInfo& connection : GetConnections()) {
        clients += connection.incoming && connection.systemAbilityId == SYNTAVO_DEVICE_DETECT_SA_ID ? 1 : 0;
    }
    return "serving " + std::to_string(world.devices.size()) + " devices (" + std::to_string(CountOnline(world)) +
           " online), " + std::to_string(clients) + (clients == 1 ? " client" : " clients");
}

// Keeps the supervisor's STATUS= current until Stop(). Runs only when a
// supervisor listens; its thread talks to nobody but the supervisor.
class StatusReporter {
public:
    explicit StatusReporter(std::shared_ptr<Sim::Simulator> simulator) : simulator_(std::move(simulator)) {}
    ~StatusReporter() { Stop(); }
    StatusReporter(const StatusReporter&) = delete;
    StatusReporter& operator=(const StatusReporter&) = delete;

    void Start(const std::string& first)
    {
        thread_ = std::thread([this, first] {
            std::string last = first;
            std::unique_lock<std::mutex> lock(mutex_);
            while (!cv_.wait_for(lock, STATUS_INTERVAL, [this] { return stopping_; })) {
                std::string now = StatusLine(*simulator_);
                if (now != last) {
                    DeviceDetectDaemon::NotifySupervisor("STATUS=" + now);
                    last = now;
                }
            }
        });
    }

    void Stop()
    {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            stopping_ = true;
        }
        cv_.notify_all();
        if (thread_.joinable()) {
            thread_.join();
        }
    }

private:
    std::shared_ptr<Sim::Simulator> simulator_;
    std::mutex mutex_;
    std::condition_variable cv_;
    bool stopping_ = false;
    std::thread thread_;
};

// Every client holds a descriptor of ours: serve as many as the system lets
// this process have, not the shell's default soft limit.
void RaiseDescriptorLimit()
{
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < limit.rlim_max) {
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
    }
}

}  // namespace

int main(int argc, char** argv)
{
    std::string worldFile;
    std::string runtimeDir;
    std::string logLevel;
    CLI::App app{
        "devicedetectd: the reference device-detect service (system ability 70635), simulating a world of "
        "devices"};
    app.add_option("--world", worldFile, "World JSON file (default: the built-in world of eight devices)");
    app.add_option("--runtime-dir", runtimeDir, "Directory of the service socket (sets TAVIK_RUNTIME_DIR)");
    app.add_option("--log-level", logLevel, "Log threshold: DEBUG, INFO, WARN (default), ERROR, FATAL");
    std::string scenarioFile;
    double speed = 1.0;
    bool stepMode = false;
    app.add_option("--scenario", scenarioFile, "Play a scenario file (its world replaces --world)")
        ->excludes("--world");
    app.add_option("--speed", speed, "Scenario time scale: 2 plays twice as fast")->check(CLI::PositiveNumber);
    app.add_flag("--step", stepMode, "Play one scenario step per control request STEP (`devicedetect sim step`)");
    app.set_version_flag("--version", std::string("devicedetectd ") + SYNTAVO_DEVICEDETECT_VERSION_STRING,
                         "Print the program's name and version and exit");
    unsigned callbackWaitMs = static_cast<unsigned>(Sim::DEFAULT_CALLBACK_WAIT.count());
    app.add_option("--callback-wait-ms", callbackWaitMs,
                   "How long a world change waits for a client to answer its callbacks before it counts the client "
                   "as not keeping up and returns (default 50; raise it on slow machines and sanitizer builds)")
        ->check(CLI::Range(1u, 60000u));
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        // One exit code for bad usage, not CLI11's code per kind of error.
        return app.exit(e) == 0 ? 0 : EXIT_USAGE;
    }
    SetStderrTimestamps(true);
    if (!logLevel.empty()) {
        LogLevel level;
        if (!ParseLogLevel(logLevel, level)) {
            std::cerr << "devicedetectd: unknown log level \"" << logLevel << "\"\n";
            return EXIT_USAGE;
        }
        SetLogLevel(level);
    }
    if (!runtimeDir.empty()) {
        setenv("TAVIK_RUNTIME_DIR", runtimeDir.c_str(), 1);
    }
    Sim::World world = Sim::DefaultWorld();
    if (!worldFile.empty()) {
        std::string error;
        if (!Sim::LoadWorldFile(worldFile, world, error)) {
            std::cerr << "devicedetectd: bad world file: " << error << "\n";
            return EXIT_USAGE;
        }
    }
    Sim::Scenario scenario;
    if (!scenarioFile.empty()) {
        std::string error;
        if (!Sim::LoadScenarioFile(scenarioFile, scenario, error)) {
            std::cerr << "devicedetectd: bad scenario file: " << error << "\n";
            return EXIT_USAGE;
        }
        world = scenario.world;
    }

    // Blocked before any IPC thread starts, so that every thread inherits
    // the mask and only sigwait below sees the two signals.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

    // Before any other thread runs: both change the environment.
    std::string passError;
    int passed = DeviceDetectDaemon::TakePassedSocket(passError);
    if (passed == DeviceDetectDaemon::BAD_PASSED_SOCKETS) {
        std::cerr << "devicedetectd: " << passError << "\n";
        return EXIT_PUBLISH_FAILED;
    }
    if (passed >= 0) {
        AdoptSupervisorFolder(passed);
    }
    RaiseDescriptorLimit();
    // One allocator arena per IPC thread would keep a heap per thread that
    // is never given back in full; the service's threads allocate little.
    mallopt(M_ARENA_MAX, 2);
    Sim::EmbeddedService service(world);
    Sim::MemoryReturner memoryReturner;
    service.GetSimulator()->SetCallbackWait(std::chrono::milliseconds(callbackWaitMs));
    std::string socketPath = GetSystemAbilitySocketPath(SYNTAVO_DEVICE_DETECT_SA_ID);
    PublishStatus published = passed >= 0
                                  ? PublishSystemAbilityOnSocket(SYNTAVO_DEVICE_DETECT_SA_ID, service.Object(), passed)
                                  : PublishSystemAbility(SYNTAVO_DEVICE_DETECT_SA_ID, service.Object());
    if (published != PublishStatus::OK) {
        std::cerr << "devicedetectd: cannot serve system ability " << SYNTAVO_DEVICE_DETECT_SA_ID << " on "
                  << (passed >= 0 ? "the socket passed by the supervisor (fd " + std::to_string(passed) + ")"
                                  : socketPath)
                  << ": " << PublishStatusToString(published);
        if (published == PublishStatus::ALREADY_PUBLISHED) {
            std::cerr << " (another devicedetectd is running; stop it or use another --runtime-dir)";
        } else if (published == PublishStatus::SOCKET_MISMATCH) {
            std::cerr << " (it must be a listening Unix stream socket at " << socketPath
                      << ": check ListenStream= of devicedetectd.socket, or the -l of systemd-socket-activate)";
        }
        std::cerr << "\n";
        DeviceDetectDaemon::NotifySupervisor("STATUS=cannot serve: " + std::string(PublishStatusToString(published)));
        return EXIT_PUBLISH_FAILED;
    }
    std::cout << "devicedetectd: ready, serving system ability " << SYNTAVO_DEVICE_DETECT_SA_ID << " on " << socketPath
              << " (" << world.devices.size() << " devices, " << CountOnline(world) << " online)"
              << (passed >= 0 ? "; socket passed by the supervisor" : "") << std::endl;
    StatusReporter status(service.GetSimulator());
    if (DeviceDetectDaemon::SupervisorListens()) {
        std::string first = StatusLine(*service.GetSimulator());
        DeviceDetectDaemon::NotifySupervisor("READY=1\nSTATUS=" + first);
        status.Start(first);
    }

    std::unique_ptr<Sim::ScenarioPlayer> player;
    std::thread playing;
    if (!scenarioFile.empty()) {
        Sim::PlayOptions options{speed, stepMode ? STEP_CONDITION_WAIT_MS : 0};
        player = std::make_unique<Sim::ScenarioPlayer>(scenario, service.Object(), options);
        StartScenario(*player, *service.GetSimulator(), scenarioFile, stepMode, playing);
    }

    int received = 0;
    sigwait(&stopSignals, &received);
    const char* signalName = received == SIGTERM ? "SIGTERM" : "SIGINT";
    status.Stop();
    DeviceDetectDaemon::NotifySupervisor(std::string("STOPPING=1\nSTATUS=stopping (") + signalName + ")");
    if (player != nullptr) {
        service.GetSimulator()->SetStepHandler(nullptr);
        player->Stop();
        if (playing.joinable()) {
            playing.join();
        }
    }
    UnpublishSystemAbility(SYNTAVO_DEVICE_DETECT_SA_ID);
    std::cout << "devicedetectd: stopped (" << signalName << ")" << std::endl;
    return 0;
}
