// `devicedetect sim play FILE` and `devicedetect sim step`: scenarios
// played against devicedetectd (or the embedded service) through its
// control interface.
#include <iostream>
#include <memory>
#include <string>

#include "cli_common.h"
#include "control_client.h"
#include "scenario.h"
#include "sim_status.h"

namespace DeviceDetectCli {

using namespace Tavik;
using namespace Tavik::Syntavo;

namespace {

struct PlayCommandOptions {
    std::string file;
    double speed = 1.0;
    bool step = false;
};

void PrintStep(const Context& ctx, const Sim::ControlResult& result)
{
    if (ctx.json) {
        PrintJson(Json{{"ok", result.status == Sim::SIM_OK},
                       {"status", result.status},
                       {"statusName", StatusName(result.status)},
                       {"detail", result.detail}});
    } else {
        std::cout << Printable(result.detail) << std::endl;
    }
}

int RunPlay(const Context& ctx, const PlayCommandOptions& options)
{
    Sim::Scenario scenario;
    std::string error;
    if (!Sim::LoadScenarioFile(options.file, scenario, error)) {
        std::cerr << "devicedetect: bad scenario file: " << error << "\n";
        return 2;
    }
    sptr<IRemoteObject> service = GetServiceObject(ctx);
    if (service == nullptr) {
        return EXIT_UNREACHABLE;
    }
    Sim::ScenarioPlayer player(scenario, service, Sim::PlayOptions{options.speed});
    Sim::ControlResult loaded = player.LoadWorld();
    if (loaded.status != Sim::SIM_OK) {
        return Fail(ctx, "sim play", loaded.status, loaded.detail);
    }
    if (!ctx.json) {
        std::cout << "scenario " << options.file << ": " << player.Size() << " steps"
                  << (options.step ? "; Enter plays the next one" : "") << std::endl;
    }
    if (options.step) {
        while (player.NextIndex() < player.Size()) {
            std::string line;
            if (!std::getline(std::cin, line)) {
                break;
            }
            Sim::ControlResult result = player.Step();
            PrintStep(ctx, result);
            if (result.status != Sim::SIM_OK) {
                return Fail(ctx, "sim play", result.status, result.detail);
            }
        }
        return EXIT_OK;
    }
    Sim::ControlResult last = player.Play(
        [&ctx](size_t, const Sim::ScenarioStep&, const Sim::ControlResult& result) { PrintStep(ctx, result); });
    if (last.status != Sim::SIM_OK) {
        return Fail(ctx, "sim play", last.status, last.detail);
    }
    return EXIT_OK;
}

}  // namespace

void AddScenarioCommands(CLI::App& sim, Context& ctx)
{
    auto options = std::make_shared<PlayCommandOptions>();
    CLI::App* play =
        AddCommandWithWait(sim, ctx, "play", "Load a scenario's world and play its steps on their schedule");
    play->add_option("file", options->file, "Scenario JSON file")->required();
    play->add_option("--speed", options->speed, "Time scale: 2 plays twice as fast")->check(CLI::PositiveNumber);
    play->add_flag("--step", options->step, "Play one step each time Enter is pressed");
    play->callback([&ctx, options] { ctx.action = [&ctx, options] { return RunPlay(ctx, *options); }; });

    CLI::App* step =
        AddCommandWithWait(sim, ctx, "step", "Play the next step of the scenario devicedetectd runs with --step");
    step->callback([&ctx] {
        ctx.action = [&ctx] {
            sptr<IRemoteObject> service = GetServiceObject(ctx);
            if (service == nullptr) {
                return EXIT_UNREACHABLE;
            }
            Sim::ControlClient client(service);
            Sim::ControlResult result = client.Step();
            if (result.status != Sim::SIM_OK) {
                return Fail(ctx, "sim step", result.status, result.detail);
            }
            PrintStep(ctx, result);
            return EXIT_OK;
        };
    });
}

}  // namespace DeviceDetectCli
