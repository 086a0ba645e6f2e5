// devicedetectd: the reference device-detect service. Serves system ability
// 70635 over the Unix-socket transport from a simulated world of devices
// until SIGTERM or SIGINT.
#include <pthread.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <thread>

#include <CLI/CLI.hpp>

#include "device_detect_request_code.h"
#include "embedded_service.h"
#include "scenario.h"
#include "sim_status.h"
#include "socket_transport.h"
#include "tralog.h"
#include "world_json.h"

namespace {

using namespace Tavik;
using namespace Tavik::Syntavo;

constexpr int EXIT_USAGE = 2;
constexpr int EXIT_PUBLISH_FAILED = 1;
// A STEP request answers within this, whatever its step's "until" says.
constexpr uint32_t STEP_CONDITION_WAIT_MS = 5000;

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

    Sim::EmbeddedService service(world);
    service.GetSimulator()->SetCallbackWait(std::chrono::milliseconds(callbackWaitMs));
    std::string socketPath = GetSystemAbilitySocketPath(SYNTAVO_DEVICE_DETECT_SA_ID);
    PublishStatus published = PublishSystemAbility(SYNTAVO_DEVICE_DETECT_SA_ID, service.Object());
    if (published != PublishStatus::OK) {
        std::cerr << "devicedetectd: cannot serve system ability " << SYNTAVO_DEVICE_DETECT_SA_ID << " on "
                  << socketPath << ": " << PublishStatusToString(published);
        if (published == PublishStatus::ALREADY_PUBLISHED) {
            std::cerr << " (another devicedetectd is running; stop it or use another --runtime-dir)";
        }
        std::cerr << "\n";
        return EXIT_PUBLISH_FAILED;
    }
    std::cout << "devicedetectd: ready, serving system ability " << SYNTAVO_DEVICE_DETECT_SA_ID << " on " << socketPath
              << " (" << world.devices.size() << " devices, " << CountOnline(world) << " online)" << std::endl;

    std::unique_ptr<Sim::ScenarioPlayer> player;
    std::thread playing;
    if (!scenarioFile.empty()) {
        Sim::PlayOptions options{speed, stepMode ? STEP_CONDITION_WAIT_MS : 0};
        player = std::make_unique<Sim::ScenarioPlayer>(scenario, service.Object(), options);
        StartScenario(*player, *service.GetSimulator(), scenarioFile, stepMode, playing);
    }

    int received = 0;
    sigwait(&stopSignals, &received);
    if (player != nullptr) {
        service.GetSimulator()->SetStepHandler(nullptr);
        player->Stop();
        if (playing.joinable()) {
            playing.join();
        }
    }
    UnpublishSystemAbility(SYNTAVO_DEVICE_DETECT_SA_ID);
    std::cout << "devicedetectd: stopped (" << (received == SIGTERM ? "SIGTERM" : "SIGINT") << ")" << std::endl;
    return 0;
}
