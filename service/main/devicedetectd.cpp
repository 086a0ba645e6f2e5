// devicedetectd: the reference device-detect service. Serves system ability
// 70635 over the Unix-socket transport from a simulated world of devices
// until SIGTERM or SIGINT.
#include <pthread.h>

#include <csignal>
#include <cstdlib>
#include <iostream>

#include <CLI/CLI.hpp>

#include "device_detect_request_code.h"
#include "embedded_service.h"
#include "socket_transport.h"
#include "tralog.h"
#include "world_json.h"

namespace {

using namespace Tavik;
using namespace Tavik::Syntavo;

constexpr int EXIT_USAGE = 2;
constexpr int EXIT_PUBLISH_FAILED = 1;

size_t CountOnline(const Sim::World& world)
{
    size_t online = 0;
    for (const Sim::Device& device : world.devices) {
        online += device.IsOnline() ? 1 : 0;
    }
    return online;
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
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e);
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

    // Blocked before any IPC thread starts, so that every thread inherits
    // the mask and only sigwait below sees the two signals.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

    Sim::EmbeddedService service(world);
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

    int received = 0;
    sigwait(&stopSignals, &received);
    UnpublishSystemAbility(SYNTAVO_DEVICE_DETECT_SA_ID);
    std::cout << "devicedetectd: stopped (" << (received == SIGTERM ? "SIGTERM" : "SIGINT") << ")" << std::endl;
    return 0;
}
