// One subcommand per query of DeviceDetectProxy.
#include <chrono>
#include <iostream>
#include <list>
#include <memory>
#include <thread>
#include <tuple>

#include "cli_common.h"
#include "device_detect_status.h"
#include "ipc_object_stub.h"
#include "publish_event_info.h"
#include "service_filter.h"
#include "sim_status.h"
#include "world_json.h"

namespace DeviceDetectCli {

using namespace Tavik;
using namespace Tavik::Syntavo;

namespace {

// The simulator's account types (0 none, 1 same, 2 other): the default of
// a device filter, whose empty list would match nothing.
const std::vector<uint32_t> ALL_ACCOUNT_TYPES{0, 1, 2};

bool ParseTypes(const std::vector<std::string>& texts, std::vector<uint32_t>& codes)
{
    for (const std::string& text : texts) {
        uint32_t code = 0;
        if (!Sim::ParseDeviceType(text, code)) {
            std::cerr << "devicedetect: unknown device type \"" << text
                      << "\" (use a name such as PHONE, PAD, TV, CAR, WATCH, PC, 2IN1 or a number)\n";
            return false;
        }
        codes.push_back(code);
    }
    return true;
}

int PrintDeviceList(const Context& ctx, const std::vector<DeviceInfo>& devices)
{
    if (ctx.json) {
        Json list = Json::array();
        for (const DeviceInfo& device : devices) {
            list.push_back(DeviceJson(device));
        }
        PrintJson(Json{{"devices", list}});
    } else {
        PrintDevices(std::cout, devices);
    }
    return EXIT_OK;
}

// Collects detection events of `list-by-device --listen`.
class DetectPrinter : public DeviceDetectCallbackStub {
public:
    explicit DetectPrinter(bool json) : json_(json) {}
    int32_t OnDeviceEvent(int32_t event, sptr<DeviceInfo> device) override
    {
        if (json_) {
            std::cout << Json{{"event", "detect"}, {"code", event}, {"device", DeviceJson(*device)}}.dump()
                      << std::endl;
        } else {
            std::cout << "detect event " << event << ": " << Printable(device->GetDeviceName()) << " ("
                      << TypeName(device->GetDeviceType()) << ", " << Printable(device->GetDeviceUdid()) << ")"
                      << std::endl;
        }
        return 0;
    }

private:
    bool json_;
};

class PublishPrinter : public ServicePublishCallbackStub {
public:
    explicit PublishPrinter(bool json) : json_(json) {}
    int32_t OnPublishEvent(sptr<RequestResultInfo> info) override
    {
        if (json_) {
            std::cout << Json{{"event", "publish"},
                              {"eventCode", info->GetEventCode()},
                              {"resultCode", info->GetResultCode()}}
                             .dump()
                      << std::endl;
        } else {
            std::cout << "publish event " << info->GetEventCode() << ", result " << info->GetResultCode() << std::endl;
        }
        return 0;
    }

private:
    bool json_;
};

class DialogPrinter : public DialogEventCallbackStub {
public:
    explicit DialogPrinter(bool json) : json_(json) {}
    int32_t OnDialogEventReply(const std::string& info) override
    {
        if (json_) {
            std::cout << Json{{"event", "dialogReply"}, {"reply", info}}.dump(-1, ' ', false,
                                                                              Json::error_handler_t::replace)
                      << std::endl;
        } else {
            std::cout << "dialog reply: " << Printable(info) << std::endl;
        }
        return 0;
    }

private:
    bool json_;
};

// The key-mouse callback has no interface of its own: the service only keeps
// the object, so any stub serves.
class KeyMouseCallback : public IPCObjectStub {
public:
    KeyMouseCallback() : IPCObjectStub(u"Tavik.Syntavo.devicedetect.KeyMouseCallback") {}
};

void Pause(int seconds)
{
    if (seconds > 0) {
        std::cerr << "waiting " << seconds << " s for events (Ctrl-C to stop)\n";
        std::this_thread::sleep_for(std::chrono::seconds(seconds));
    }
}

int PrintBool(const Context& ctx, const char* key, bool value)
{
    if (ctx.json) {
        PrintJson(Json{{key, value}});
    } else {
        std::cout << (value ? "true" : "false") << "\n";
    }
    return EXIT_OK;
}

int PrintStatus(const Context& ctx, const std::string& what, int32_t status)
{
    if (status != 0) {
        return Fail(ctx, what, status);
    }
    if (ctx.json) {
        PrintJson(Json{{"ok", true}, {"status", 0}});
    } else {
        std::cout << "ok\n";
    }
    return EXIT_OK;
}

void AddListCommands(CLI::App& app, Context& ctx)
{
    auto extra = std::make_shared<std::string>();
    CLI::App* list = AddCommandWithWait(app, ctx, "list", "Trusted devices that are online (GetTrustedDeviceList)");
    list->add_option("--extra", *extra, "String argument passed to the service unchanged");
    list->callback([&ctx, extra] {
        ctx.action = [&ctx, extra] {
            sptr<DeviceDetectProxy> proxy = GetProxy(ctx);
            if (proxy == nullptr) {
                return EXIT_UNREACHABLE;
            }
            std::vector<DeviceInfo> devices;
            int32_t status = proxy->GetTrustedDeviceList(*extra, devices);
            return status != 0 ? Fail(ctx, "GetTrustedDeviceList", status) : PrintDeviceList(ctx, devices);
        };
    });

    struct AbilityOptions {
        std::string bundle, abilityType, description, action, deviceType;
        uint32_t accountType = 0;
    };
    auto ability = std::make_shared<AbilityOptions>();
    CLI::App* byAbility = AddCommandWithWait(app, ctx, "list-by-ability",
                                             "Devices with matching abilities (GetTrustedDeviceListWithAbilityFilter)");
    byAbility->add_option("--bundle", ability->bundle, "Bundle name the ability must have");
    byAbility->add_option("--ability-type", ability->abilityType, "Ability type, e.g. page or service");
    byAbility->add_option("--description", ability->description, "Ability description");
    byAbility->add_option("--action", ability->action, "Ability action");
    byAbility->add_option("--device-type", ability->deviceType, "Device type name or code (default: any)");
    byAbility->add_option("--account-type", ability->accountType, "Account type (default 0: any)");
    byAbility->callback([&ctx, ability] {
        ctx.action = [&ctx, ability] {
            std::vector<uint32_t> type{0};
            if (!ability->deviceType.empty() && !(type.clear(), ParseTypes({ability->deviceType}, type))) {
                return 2;
            }
            sptr<DeviceDetectProxy> proxy = GetProxy(ctx);
            if (proxy == nullptr) {
                return EXIT_UNREACHABLE;
            }
            sptr<AbilityFilter> filter = sptr<AbilityFilter>::MakeSptr(
                ability->bundle, ability->abilityType, ability->description, type[0], ability->accountType);
            filter->SetAction(ability->action);
            std::vector<sptr<AbilityFilter>> filters{filter};
            std::list<std::tuple<DeviceInfo, std::list<sptr<AbilityFilter>>>> result;
            int32_t status = proxy->GetTrustedDeviceListWithAbilityFilter(filters, result);
            if (status != 0) {
                return Fail(ctx, "GetTrustedDeviceListWithAbilityFilter", status);
            }
            Json list = Json::array();
            Table table({"NAME", "TYPE", "UDID", "BUNDLE", "ABILITY TYPE", "DESCRIPTION", "ACTION"});
            for (const auto& entry : result) {
                const DeviceInfo& device = std::get<0>(entry);
                Json abilities = Json::array();
                std::vector<std::string> head{device.GetDeviceName(), TypeName(device.GetDeviceType()),
                                              device.GetDeviceUdid()};
                if (std::get<1>(entry).empty()) {
                    table.Add({head[0], head[1], head[2], "-", "", "", ""});
                }
                for (const sptr<AbilityFilter>& found : std::get<1>(entry)) {
                    if (found == nullptr) {
                        continue;
                    }
                    abilities.push_back(Json{{"bundleName", found->GetBundleName()},
                                             {"abilityType", found->GetAbilityType()},
                                             {"description", found->GetAbilityDescription()},
                                             {"action", found->GetAction()},
                                             {"deviceType", found->GetDeviceType()},
                                             {"accountType", found->GetAccountType()}});
                    table.Add({head[0], head[1], head[2], found->GetBundleName(), found->GetAbilityType(),
                               found->GetAbilityDescription(), found->GetAction()});
                }
                Json item = DeviceJson(device);
                item["abilities"] = abilities;
                list.push_back(item);
            }
            if (ctx.json) {
                PrintJson(Json{{"devices", list}});
            } else if (table.Empty()) {
                std::cout << "(no devices)\n";
            } else {
                table.Print(std::cout);
            }
            return EXIT_OK;
        };
    });

    struct ServiceOptions {
        std::string service, extra;
        std::vector<std::string> types;
    };
    auto service = std::make_shared<ServiceOptions>();
    CLI::App* byService = AddCommandWithWait(app, ctx, "list-by-service",
                                             "Devices offering a service (GetTrustedDeviceListWithServiceFilter)");
    byService->add_option("--service", service->service, "Service name the device must offer (default: any)");
    byService->add_option("--type", service->types, "Accepted device type, repeatable (default: any)");
    byService->add_option("--extra", service->extra, "String argument passed to the service unchanged");
    byService->callback([&ctx, service] {
        ctx.action = [&ctx, service] {
            std::vector<uint32_t> codes;
            if (!ParseTypes(service->types, codes)) {
                return 2;
            }
            std::vector<std::string> names;
            for (uint32_t code : codes) {
                names.push_back(ServiceFilter::ConvertDeviceType(code));
            }
            sptr<DeviceDetectProxy> proxy = GetProxy(ctx);
            if (proxy == nullptr) {
                return EXIT_UNREACHABLE;
            }
            std::vector<DeviceInfo> devices;
            int32_t status = proxy->GetTrustedDeviceListWithServiceFilter(
                sptr<ServiceFilter>::MakeSptr(service->service, names), service->extra, devices);
            return status != 0 ? Fail(ctx, "GetTrustedDeviceListWithServiceFilter", status)
                               : PrintDeviceList(ctx, devices);
        };
    });

    struct DeviceOptions {
        std::vector<std::string> types;
        std::vector<uint32_t> accounts;
        int listen = 0;
    };
    auto device = std::make_shared<DeviceOptions>();
    CLI::App* byDevice =
        AddCommandWithWait(app, ctx, "list-by-device", "Devices of given types (GetTrustedDeviceListWithDeviceFilter)");
    byDevice->add_option("--type", device->types, "Device type name or code, repeatable")->required();
    byDevice->add_option("--account", device->accounts, "Account type, repeatable (default: 0, 1 and 2)");
    byDevice->add_option("--listen", device->listen, "Seconds to stay and print detection events (default 0)");
    byDevice->callback([&ctx, device] {
        ctx.action = [&ctx, device] {
            std::vector<uint32_t> codes;
            if (!ParseTypes(device->types, codes)) {
                return 2;
            }
            sptr<DeviceDetectProxy> proxy = GetProxy(ctx);
            if (proxy == nullptr) {
                return EXIT_UNREACHABLE;
            }
            std::vector<uint32_t> accounts = device->accounts.empty() ? ALL_ACCOUNT_TYPES : device->accounts;
            std::vector<DeviceInfo> devices;
            sptr<DetectPrinter> printer = sptr<DetectPrinter>::MakeSptr(ctx.json);
            int32_t status = proxy->GetTrustedDeviceListWithDeviceFilter(sptr<DeviceFilter>::MakeSptr(codes, accounts),
                                                                         devices, printer);
            if (status != 0) {
                return Fail(ctx, "GetTrustedDeviceListWithDeviceFilter", status);
            }
            PrintDeviceList(ctx, devices);
            Pause(device->listen);
            return EXIT_OK;
        };
    });
}

void AddDeviceInfoCommands(CLI::App& app, Context& ctx)
{
    CLI::App* local = AddCommandWithWait(app, ctx, "local", "The local device (GetLocalDeviceInfo)");
    local->callback([&ctx] {
        ctx.action = [&ctx] {
            sptr<DeviceDetectProxy> proxy = GetProxy(ctx);
            if (proxy == nullptr) {
                return EXIT_UNREACHABLE;
            }
            DeviceInfo device;
            int32_t status = proxy->GetLocalDeviceInfo(device);
            if (status != 0) {
                return Fail(ctx, "GetLocalDeviceInfo", status);
            }
            if (ctx.json) {
                PrintJson(DeviceJson(device));
            } else {
                PrintDevices(std::cout, {device});
            }
            return EXIT_OK;
        };
    });

    struct DynamicOptions {
        std::string device;
        std::vector<std::string> keys;
    };
    auto dynamic = std::make_shared<DynamicOptions>();
    CLI::App* dyn = AddCommandWithWait(app, ctx, "dynamic", "Dynamic information by keys (GetRemoteDeviceDynamicInfo)");
    dyn->add_option("device", dynamic->device, "Udid or network id")->required();
    dyn->add_option("keys", dynamic->keys, "Keys to ask for, e.g. battery")->required();
    dyn->callback([&ctx, dynamic] {
        ctx.action = [&ctx, dynamic] {
            sptr<DeviceDetectProxy> proxy = GetProxy(ctx);
            if (proxy == nullptr) {
                return EXIT_UNREACHABLE;
            }
            std::vector<DeviceDynamicInfo> infos;
            int32_t status = proxy->GetRemoteDeviceDynamicInfo(dynamic->device, dynamic->keys, infos);
            if (status != 0) {
                return Fail(
                    ctx, "GetRemoteDeviceDynamicInfo", status,
                    status == DD_ERR_SEND_REQUEST_FAILED ? "is \"" + dynamic->device + "\" a known device?" : "");
            }
            Json object = Json::object();
            Table table({"KEY", "VALUE"});
            for (const DeviceDynamicInfo& info : infos) {
                object[info.GetKey()] = info.GetValue();
                table.Add({info.GetKey(), info.GetValue().empty() ? "(none)" : info.GetValue()});
            }
            if (ctx.json) {
                PrintJson(Json{{"device", dynamic->device}, {"values", object}});
            } else {
                table.Print(std::cout);
            }
            return EXIT_OK;
        };
    });

    auto configDevice = std::make_shared<std::string>();
    CLI::App* config = AddCommandWithWait(app, ctx, "config", "Device configuration (QueryDeviceConfigInfo)");
    config->add_option("device", *configDevice, "Udid or network id")->required();
    config->callback([&ctx, configDevice] {
        ctx.action = [&ctx, configDevice] {
            sptr<DeviceDetectProxy> proxy = GetProxy(ctx);
            if (proxy == nullptr) {
                return EXIT_UNREACHABLE;
            }
            DeviceConfigInfo info;
            int32_t status = proxy->QueryDeviceConfigInfo(*configDevice, info);
            if (status != 0) {
                return Fail(ctx, "QueryDeviceConfigInfo", status,
                            status == DD_ERR_READ_FAILED ? "no configuration for \"" + *configDevice + "\"" : "");
            }
            if (ctx.json) {
                PrintJson(Json{{"modelId", info.GetModelId()},
                               {"originJson", info.GetOriginJson()},
                               {"deviceName", info.GetDeviceName()},
                               {"deviceType", info.GetDeviceType()},
                               {"typeName", TypeName(info.GetDeviceType())},
                               {"supportFoldScreen", info.GetSupportFoldScreen()}});
            } else {
                Table table({"FIELD", "VALUE"});
                table.Add({"model id", info.GetModelId()});
                table.Add({"name", info.GetDeviceName()});
                table.Add({"type", TypeName(info.GetDeviceType())});
                table.Add({"fold screen", std::to_string(info.GetSupportFoldScreen())});
                table.Add({"json", info.GetOriginJson()});
                table.Print(std::cout);
            }
            return EXIT_OK;
        };
    });

    auto switchDevice = std::make_shared<std::string>();
    CLI::App* sw = AddCommandWithWait(app, ctx, "switch", "Switch status of a device (GetDeviceSwitch)");
    sw->add_option("device", *switchDevice, "Udid or network id")->required();
    sw->callback([&ctx, switchDevice] {
        ctx.action = [&ctx, switchDevice] {
            sptr<DeviceDetectProxy> proxy = GetProxy(ctx);
            if (proxy == nullptr) {
                return EXIT_UNREACHABLE;
            }
            int32_t status = proxy->GetDeviceSwitch(*switchDevice);
            // Status values and switch states share the one int32; the
            // named failure values are far above any switch state.
            if (DeviceDetectStatusToString(status) != nullptr && status != 0) {
                return Fail(ctx, "GetDeviceSwitch", status);
            }
            if (Sim::SimStatusToString(status) != nullptr && status != 0) {
                return Fail(ctx, "GetDeviceSwitch", status);
            }
            if (ctx.json) {
                PrintJson(Json{{"device", *switchDevice}, {"switchStatus", status}});
            } else {
                std::cout << status << "\n";
            }
            return EXIT_OK;
        };
    });

    struct BoolQuery {
        const char* name;
        const char* description;
        const char* key;
        bool (DeviceDetectProxy::*method)(std::string&);
    };
    for (const BoolQuery& query :
         {BoolQuery{"same-account", "Whether a device has this device's account (GetIsSameDeviceAccount)",
                    "sameAccount", &DeviceDetectProxy::GetIsSameDeviceAccount},
          BoolQuery{"next-type", "Whether a device is a next-type device (GetIsNextTypeDevice)", "nextType",
                    &DeviceDetectProxy::GetIsNextTypeDevice}}) {
        auto networkId = std::make_shared<std::string>();
        CLI::App* command = AddCommandWithWait(app, ctx, query.name, query.description);
        command->add_option("network-id", *networkId, "Network id (or udid)")->required();
        command->callback([&ctx, networkId, query] {
            ctx.action = [&ctx, networkId, query] {
                sptr<DeviceDetectProxy> proxy = GetProxy(ctx);
                if (proxy == nullptr) {
                    return EXIT_UNREACHABLE;
                }
                // False is also what every failure gives: there is nothing more to tell.
                return PrintBool(ctx, query.key, ((*proxy).*(query.method))(*networkId));
            };
        });
    }
}

void AddServiceCommands(CLI::App& app, Context& ctx)
{
    struct RequestOptions {
        std::string pkg;
        int listen = 0;
    };
    auto request = std::make_shared<RequestOptions>();
    CLI::App* req = AddCommandWithWait(app, ctx, "request-service", "Request a service for a package (RequestService)");
    req->add_option("package", request->pkg, "Package name")->required();
    req->add_option("--listen", request->listen, "Seconds to stay and print publish results (default 0)");
    req->callback([&ctx, request] {
        ctx.action = [&ctx, request] {
            sptr<DeviceDetectProxy> proxy = GetProxy(ctx);
            if (proxy == nullptr) {
                return EXIT_UNREACHABLE;
            }
            sptr<PublishPrinter> printer = sptr<PublishPrinter>::MakeSptr(ctx.json);
            int32_t status = proxy->RequestService(request->pkg, printer);
            if (status != 0) {
                return Fail(ctx, "RequestService", status);
            }
            Pause(request->listen);
            return EXIT_OK;
        };
    });

    auto unrequestPkg = std::make_shared<std::string>();
    CLI::App* unreq =
        AddCommandWithWait(app, ctx, "unrequest-service", "Withdraw a package's request (UnRequestService)");
    unreq->add_option("package", *unrequestPkg, "Package name")->required();
    unreq->callback([&ctx, unrequestPkg] {
        ctx.action = [&ctx, unrequestPkg] {
            sptr<DeviceDetectProxy> proxy = GetProxy(ctx);
            return proxy == nullptr ? EXIT_UNREACHABLE
                                    : PrintStatus(ctx, "UnRequestService", proxy->UnRequestService(*unrequestPkg));
        };
    });

    auto dialogEvent = std::make_shared<std::string>();
    CLI::App* dialog = AddCommandWithWait(app, ctx, "dialog",
                                          "Send a dialog event and print the reply (SetDialogEventCallback, "
                                          "NotifyAppDialogEvent)");
    dialog->add_option("event", *dialogEvent, "Dialog event text")->required();
    dialog->callback([&ctx, dialogEvent] {
        ctx.action = [&ctx, dialogEvent] {
            sptr<DeviceDetectProxy> proxy = GetProxy(ctx);
            if (proxy == nullptr) {
                return EXIT_UNREACHABLE;
            }
            sptr<DialogPrinter> printer = sptr<DialogPrinter>::MakeSptr(ctx.json);
            int32_t status = proxy->SetDialogEventCallback(printer);
            if (status != 0) {
                return Fail(ctx, "SetDialogEventCallback", status);
            }
            // The service answers through the callback before this returns.
            status = proxy->NotifyAppDialogEvent(*dialogEvent);
            return status != 0 ? Fail(ctx, "NotifyAppDialogEvent", status) : EXIT_OK;
        };
    });

    CLI::App* keyMouse = AddCommand(app, ctx, "key-mouse", "Key-mouse sharing requests");
    keyMouse->require_subcommand(1);
    auto callerId = std::make_shared<std::string>();
    CLI::App* reg =
        AddCommandWithWait(*keyMouse, ctx, "register",
                           "Register a key-mouse callback until this process exits (RegisterKeyMouseCallback)");
    reg->add_option("caller-id", *callerId, "Caller id")->required();
    reg->callback([&ctx, callerId] {
        ctx.action = [&ctx, callerId] {
            sptr<DeviceDetectProxy> proxy = GetProxy(ctx);
            if (proxy == nullptr) {
                return EXIT_UNREACHABLE;
            }
            sptr<IRemoteObject> callback(new KeyMouseCallback());
            return PrintStatus(ctx, "RegisterKeyMouseCallback", proxy->RegisterKeyMouseCallback(*callerId, callback));
        };
    });
    auto unregCaller = std::make_shared<std::string>();
    CLI::App* unreg =
        AddCommandWithWait(*keyMouse, ctx, "unregister", "Remove a key-mouse callback (UnregisterKeyMouseCallback)");
    unreg->add_option("caller-id", *unregCaller, "Caller id")->required();
    unreg->callback([&ctx, unregCaller] {
        ctx.action = [&ctx, unregCaller] {
            sptr<DeviceDetectProxy> proxy = GetProxy(ctx);
            return proxy == nullptr ? EXIT_UNREACHABLE
                                    : PrintStatus(ctx, "UnregisterKeyMouseCallback",
                                                  proxy->UnregisterKeyMouseCallback(*unregCaller));
        };
    });
    auto edge = std::make_shared<std::string>();
    CLI::App* edgeCmd = AddCommandWithWait(*keyMouse, ctx, "edge",
                                           "Turn the key-mouse edge switch on or off (UpdateKeyMouseEdgeSwitch)");
    edgeCmd->add_option("state", *edge, "on or off")->required()->check(CLI::IsMember({"on", "off"}));
    edgeCmd->callback([&ctx, edge] {
        ctx.action = [&ctx, edge] {
            sptr<DeviceDetectProxy> proxy = GetProxy(ctx);
            return proxy == nullptr
                       ? EXIT_UNREACHABLE
                       : PrintStatus(ctx, "UpdateKeyMouseEdgeSwitch", proxy->UpdateKeyMouseEdgeSwitch(*edge == "on"));
        };
    });
    auto bind = std::make_shared<std::string>();
    CLI::App* bindCmd =
        AddCommandWithWait(*keyMouse, ctx, "bind", "Pass the key-mouse binding flag (GetBindKeymouseServiceReq)");
    bindCmd->add_option("state", *bind, "on or off")->required()->check(CLI::IsMember({"on", "off"}));
    bindCmd->callback([&ctx, bind] {
        ctx.action = [&ctx, bind] {
            sptr<DeviceDetectProxy> proxy = GetProxy(ctx);
            if (proxy == nullptr) {
                return EXIT_UNREACHABLE;
            }
            // The request has no answer: the proxy reports nothing back.
            proxy->GetBindKeymouseServiceReq(*bind == "on");
            return PrintStatus(ctx, "GetBindKeymouseServiceReq", 0);
        };
    });
}

}  // namespace

void AddQueryCommands(CLI::App& app, Context& ctx)
{
    AddListCommands(app, ctx);
    AddDeviceInfoCommands(app, ctx);
    AddServiceCommands(app, ctx);
}

}  // namespace DeviceDetectCli
