// `devicedetect sim ...`: changes the simulator's world through the control
// interface of devicedetectd (or of the embedded service).
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>

#include "cli_common.h"
#include "control_client.h"
#include "sim_status.h"
#include "world_json.h"

namespace DeviceDetectCli {

using namespace Tavik;
using namespace Tavik::Syntavo;

namespace {

using Request = std::function<Sim::ControlResult(Sim::ControlClient&)>;

int Report(const Context& ctx, const std::string& what, const Sim::ControlResult& result)
{
    if (result.status != Sim::SIM_OK) {
        return Fail(ctx, what, result.status, result.detail);
    }
    if (ctx.json) {
        PrintJson(Json{{"ok", true}, {"status", 0}, {"detail", result.detail}});
    } else {
        std::cout << Printable(result.detail) << "\n";
    }
    return EXIT_OK;
}

int RunControl(const Context& ctx, const std::string& what, const Request& request)
{
    sptr<IRemoteObject> service = GetServiceObject(ctx);
    if (service == nullptr) {
        return EXIT_UNREACHABLE;
    }
    Sim::ControlClient client(service);
    return Report(ctx, what, request(client));
}

bool ReadFile(const std::string& path, std::string& text)
{
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        std::cerr << "devicedetect: cannot open \"" << path << "\"\n";
        return false;
    }
    std::ostringstream out;
    out << in.rdbuf();
    text = out.str();
    return true;
}

void AddStateCommands(CLI::App& sim, Context& ctx)
{
    for (Sim::DeviceState state : {Sim::DeviceState::ONLINE, Sim::DeviceState::OFFLINE, Sim::DeviceState::READY}) {
        auto device = std::make_shared<std::string>();
        std::string name = Sim::DeviceStateToString(state);
        CLI::App* command =
            AddCommandWithWait(sim, ctx, name, "Set a device " + name + " (listeners get their events)");
        command->add_option("device", *device, "Udid or network id")->required();
        command->callback([&ctx, device, state] {
            ctx.action = [&ctx, device, state] {
                return RunControl(ctx, "sim " + std::string(Sim::DeviceStateToString(state)),
                                  [&](Sim::ControlClient& client) { return client.SetDeviceState(*device, state); });
            };
        });
    }
}

void AddDeviceCommands(CLI::App& sim, Context& ctx)
{
    struct AddOptions {
        std::string json;
        std::string file;
    };
    auto add = std::make_shared<AddOptions>();
    CLI::App* addCmd =
        AddCommandWithWait(sim, ctx, "add", "Add a device given as JSON (one entry of a world's \"devices\")");
    addCmd->add_option("device-json", add->json, "The device as JSON text");
    addCmd->add_option("--file", add->file, "Read the device JSON from a file");
    addCmd->callback([&ctx, add] {
        ctx.action = [&ctx, add] {
            std::string text = add->json;
            if (!add->file.empty() && !ReadFile(add->file, text)) {
                return 2;
            }
            if (text.empty()) {
                std::cerr << "devicedetect: give the device as JSON text or with --file\n";
                return 2;
            }
            return RunControl(ctx, "sim add", [&](Sim::ControlClient& client) { return client.AddDevice(text); });
        };
    });

    auto removeId = std::make_shared<std::string>();
    CLI::App* remove =
        AddCommandWithWait(sim, ctx, "remove", "Remove a device (offline events first when it is online)");
    remove->add_option("device", *removeId, "Udid or network id")->required();
    remove->callback([&ctx, removeId] {
        ctx.action = [&ctx, removeId] {
            return RunControl(ctx, "sim remove",
                              [&](Sim::ControlClient& client) { return client.RemoveDevice(*removeId); });
        };
    });

    struct DynamicOptions {
        std::string device, key, value;
    };
    auto dynamic = std::make_shared<DynamicOptions>();
    CLI::App* setDynamic = AddCommandWithWait(sim, ctx, "set-dynamic", "Set one dynamic information value of a device");
    setDynamic->add_option("device", dynamic->device, "Udid or network id")->required();
    setDynamic->add_option("key", dynamic->key, "Key, e.g. battery")->required();
    setDynamic->add_option("value", dynamic->value, "Value")->required();
    setDynamic->callback([&ctx, dynamic] {
        ctx.action = [&ctx, dynamic] {
            return RunControl(ctx, "sim set-dynamic", [&](Sim::ControlClient& client) {
                return client.SetDynamicInfo(dynamic->device, dynamic->key, dynamic->value);
            });
        };
    });

    CLI::App* show = AddCommandWithWait(sim, ctx, "show", "Show every device of the world, online or not");
    show->callback([&ctx] {
        ctx.action = [&ctx] {
            sptr<IRemoteObject> service = GetServiceObject(ctx);
            if (service == nullptr) {
                return EXIT_UNREACHABLE;
            }
            Sim::ControlClient client(service);
            Sim::ControlResult result = client.GetWorld();
            if (result.status != Sim::SIM_OK) {
                return Fail(ctx, "sim show", result.status, result.detail);
            }
            if (ctx.json) {
                std::cout << result.json << std::endl;
                return EXIT_OK;
            }
            Sim::World world;
            std::string error;
            if (!Sim::ParseWorld(result.json, world, error)) {
                return Fail(ctx, "sim show", Sim::SIM_ERR_BAD_WORLD, error);
            }
            std::cout << "local: " << Printable(world.local.name) << " (" << TypeName(world.local.type) << ", "
                      << Printable(world.local.udid) << ")\n";
            Table table({"NAME", "TYPE", "STATE", "UDID", "NETWORK ID", "SERVICES"});
            for (const Sim::Device& device : world.devices) {
                std::string services;
                for (const std::string& service : device.services) {
                    services += (services.empty() ? "" : ",") + service;
                }
                table.Add({device.name, TypeName(device.type), Sim::DeviceStateToString(device.state), device.udid,
                           device.networkId, services});
            }
            table.Print(std::cout);
            return EXIT_OK;
        };
    });

    auto loadFile = std::make_shared<std::string>();
    CLI::App* load = AddCommandWithWait(sim, ctx, "load", "Replace the world's devices with a world file (no events)");
    load->add_option("file", *loadFile, "World JSON file")->required();
    load->callback([&ctx, loadFile] {
        ctx.action = [&ctx, loadFile] {
            std::string text;
            if (!ReadFile(*loadFile, text)) {
                return 2;
            }
            return RunControl(ctx, "sim load", [&](Sim::ControlClient& client) { return client.LoadWorld(text); });
        };
    });

    CLI::App* registrations = AddCommandWithWait(sim, ctx, "registrations", "Show the service's registrations as JSON");
    registrations->callback([&ctx] {
        ctx.action = [&ctx] {
            sptr<IRemoteObject> service = GetServiceObject(ctx);
            if (service == nullptr) {
                return EXIT_UNREACHABLE;
            }
            Sim::ControlClient client(service);
            Sim::ControlResult result = client.GetRegistrations();
            if (result.status != Sim::SIM_OK) {
                return Fail(ctx, "sim registrations", result.status, result.detail);
            }
            std::cout << result.json << std::endl;
            return EXIT_OK;
        };
    });
}

void AddEventCommands(CLI::App& sim, Context& ctx)
{
    struct ServiceChangeOptions {
        int event = static_cast<int>(Sim::ServiceChangeEvent::SERVICES_CHANGED);
        std::vector<std::string> devices;
    };
    auto change = std::make_shared<ServiceChangeOptions>();
    CLI::App* serviceChange =
        AddCommandWithWait(sim, ctx, "service-change", "Send a service change to service-changed callbacks");
    serviceChange->add_option("devices", change->devices, "Devices to list (default: every online device)");
    serviceChange->add_option("--event", change->event, "Event number (default 3, services changed)");
    serviceChange->callback([&ctx, change] {
        ctx.action = [&ctx, change] {
            return RunControl(ctx, "sim service-change", [&](Sim::ControlClient& client) {
                return client.NotifyServiceChange(change->event, change->devices);
            });
        };
    });

    struct DeliverOptions {
        std::string info;
        int code = 0;
        bool codeGiven = false;
    };
    auto deliver = std::make_shared<DeliverOptions>();
    CLI::App* deliverCmd = AddCommandWithWait(sim, ctx, "deliver", "Send a delivery to deliver callbacks");
    deliverCmd->add_option("info", deliver->info, "Text to deliver")->required();
    CLI::Option* codeOption =
        deliverCmd->add_option("--code", deliver->code, "Only callbacks registered with this code (default: all)");
    deliverCmd->callback([&ctx, deliver, codeOption] {
        deliver->codeGiven = codeOption->count() > 0;
        ctx.action = [&ctx, deliver] {
            return RunControl(ctx, "sim deliver", [&](Sim::ControlClient& client) {
                return client.Deliver(!deliver->codeGiven, deliver->code, deliver->info);
            });
        };
    });

    struct PublishOptions {
        std::string pkg;
        uint32_t event = 0;
        uint32_t result = 0;
    };
    auto publish = std::make_shared<PublishOptions>();
    CLI::App* publishCmd = AddCommandWithWait(sim, ctx, "publish", "Send a publish result to service requests");
    publishCmd->add_option("--pkg", publish->pkg, "Only this package's request (default: all)");
    publishCmd->add_option("--event", publish->event, "Event code")->required();
    publishCmd->add_option("--result", publish->result, "Result code (default 0)");
    publishCmd->callback([&ctx, publish] {
        ctx.action = [&ctx, publish] {
            return RunControl(ctx, "sim publish", [&](Sim::ControlClient& client) {
                return client.PublishResult(publish->pkg, publish->event, publish->result);
            });
        };
    });

    auto reply = std::make_shared<std::string>();
    CLI::App* dialogReply = AddCommandWithWait(sim, ctx, "dialog-reply", "Send a reply to dialog callbacks");
    dialogReply->add_option("text", *reply, "Reply text")->required();
    dialogReply->callback([&ctx, reply] {
        ctx.action = [&ctx, reply] {
            return RunControl(ctx, "sim dialog-reply",
                              [&](Sim::ControlClient& client) { return client.DialogReply(*reply); });
        };
    });

    struct DetectOptions {
        std::string device;
        int event = static_cast<int>(Sim::DetectEvent::FOUND);
    };
    auto detect = std::make_shared<DetectOptions>();
    CLI::App* detectCmd = AddCommandWithWait(sim, ctx, "detect", "Send a detection event to device-filter sessions");
    detectCmd->add_option("device", detect->device, "Udid or network id")->required();
    detectCmd->add_option("--event", detect->event, "Event number (default 1, found)");
    detectCmd->callback([&ctx, detect] {
        ctx.action = [&ctx, detect] {
            return RunControl(ctx, "sim detect", [&](Sim::ControlClient& client) {
                return client.DetectEvent(detect->device, detect->event);
            });
        };
    });
}

}  // namespace

void AddSimCommands(CLI::App& app, Context& ctx)
{
    CLI::App* sim = AddCommand(app, ctx, "sim", "Change the simulated world of devicedetectd");
    sim->require_subcommand(1);
    AddStateCommands(*sim, ctx);
    AddDeviceCommands(*sim, ctx);
    AddEventCommands(*sim, ctx);
    AddScenarioCommands(*sim, ctx);
}

}  // namespace DeviceDetectCli
