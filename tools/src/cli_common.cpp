#include "cli_common.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <iostream>

#include "device_detect_request_code.h"
#include "device_detect_status.h"
#include "ipc_status.h"
#include "sim_status.h"
#include "socket_transport.h"
#include "system_ability_manager.h"
#include "tralog.h"
#include "world_json.h"

namespace DeviceDetectCli {

using namespace Tavik;
using namespace Tavik::Syntavo;

CLI::App* AddCommand(CLI::App& parent, Context& ctx, const std::string& name, const std::string& description)
{
    CLI::App* command = parent.add_subcommand(name, description);
    command->fallthrough();
    command->add_flag("--json", ctx.json, "Print JSON for scripts instead of tables");
    return command;
}

CLI::App* AddCommandWithWait(CLI::App& parent, Context& ctx, const std::string& name, const std::string& description)
{
    CLI::App* command = AddCommand(parent, ctx, name, description);
    command
        ->add_option("--wait", ctx.waitSeconds,
                     "Seconds to wait for the service to start when it is not running (default 0: fail at once)")
        ->check(CLI::NonNegativeNumber);
    return command;
}

std::string StatusName(int32_t status)
{
    if (const char* name = DeviceDetectStatusToString(status)) {
        return name;
    }
    if (const char* name = Sim::SimStatusToString(status)) {
        return name;
    }
    std::string ipc = IpcStatusToString(status);
    if (ipc != "UNKNOWN") {
        return ipc;
    }
    return "status " + std::to_string(status);
}

int Fail(const Context& ctx, const std::string& what, int32_t status, const std::string& detail)
{
    if (ctx.json) {
        PrintJson(Json{{"ok", false},
                       {"request", what},
                       {"status", status},
                       {"statusName", StatusName(status)},
                       {"detail", detail}});
    }
    std::cerr << "devicedetect: " << what << " failed: " << StatusName(status) << " (" << status << ")";
    if (!detail.empty()) {
        std::cerr << ": " << Printable(detail);
    }
    std::cerr << "\n";
    return EXIT_REQUEST_FAILED;
}

namespace {

// The socket the transport tried, and which setting chose its folder.
std::string SocketHint()
{
    std::string path = GetSystemAbilitySocketPath(SYNTAVO_DEVICE_DETECT_SA_ID);
    const char* runtime = std::getenv("TAVIK_RUNTIME_DIR");
    const char* xdg = std::getenv("XDG_RUNTIME_DIR");
    if (runtime != nullptr && *runtime != '\0') {
        return path + " (folder from TAVIK_RUNTIME_DIR or --runtime-dir)";
    }
    if (xdg != nullptr && *xdg != '\0') {
        return path + " (folder from XDG_RUNTIME_DIR)";
    }
    return path;
}

}  // namespace

int Unreachable(const Context& ctx)
{
    if (ctx.json) {
        PrintJson(Json{{"ok", false}, {"status", "unreachable"}, {"systemAbility", SYNTAVO_DEVICE_DETECT_SA_ID}});
    }
    std::cerr << "devicedetect: cannot reach the device-detect service (system ability " << SYNTAVO_DEVICE_DETECT_SA_ID
              << ")";
    if (ctx.waitSeconds > 0) {
        std::cerr << " within " << ctx.waitSeconds << " s";
    }
    std::cerr << ".\n"
              << "  tried: the in-process system ability manager, then the socket " << SocketHint() << "\n"
              << "  start the service first:  devicedetectd &\n"
              << "  (with the same --runtime-dir on both programs), or run `devicedetect demo`,\n"
              << "  which embeds the service in its own process.\n";
    return EXIT_UNREACHABLE;
}

namespace {

// --wait: until the service's object can be looked up, or the time is up.
void WaitForService(const Context& ctx)
{
    sptr<ISystemAbilityManager> manager = SystemAbilityManagerClient::GetInstance().GetSystemAbilityManager();
    if (ctx.waitSeconds <= 0 || manager == nullptr ||
        manager->GetSystemAbility(SYNTAVO_DEVICE_DETECT_SA_ID) != nullptr) {
        return;
    }
    std::cerr << "devicedetect: waiting up to " << ctx.waitSeconds << " s for the device-detect service" << std::endl;
    manager->WaitForSystemAbility(SYNTAVO_DEVICE_DETECT_SA_ID,
                                  std::chrono::milliseconds(static_cast<int64_t>(ctx.waitSeconds * 1000)));
}

}  // namespace

sptr<DeviceDetectProxy> GetProxy(const Context& ctx)
{
    WaitForService(ctx);
    sptr<DeviceDetectProxy> proxy = DeviceDetectProxy::GetInstance();
    if (proxy == nullptr) {
        Unreachable(ctx);
    }
    return proxy;
}

sptr<IRemoteObject> GetServiceObject(const Context& ctx)
{
    WaitForService(ctx);
    sptr<ISystemAbilityManager> manager = SystemAbilityManagerClient::GetInstance().GetSystemAbilityManager();
    sptr<IRemoteObject> object = manager != nullptr ? manager->GetSystemAbility(SYNTAVO_DEVICE_DETECT_SA_ID) : nullptr;
    if (object == nullptr) {
        Unreachable(ctx);
    }
    return object;
}

std::string Printable(const std::string& text)
{
    return EscapeControlCharacters(text);
}

std::string TypeName(uint32_t type)
{
    return Sim::DeviceTypeName(type);
}

Json DeviceJson(const DeviceInfo& device)
{
    return Json{{"name", device.GetDeviceName()},
                {"type", device.GetDeviceType()},
                {"typeName", TypeName(device.GetDeviceType())},
                {"udid", device.GetDeviceUdid()},
                {"networkId", device.GetDeviceNetworkId()}};
}

void PrintJson(const Json& value)
{
    std::cout << value.dump(2, ' ', false, Json::error_handler_t::replace) << std::endl;
}

void Table::Add(std::vector<std::string> row)
{
    for (std::string& cell : row) {
        cell = Printable(cell);
    }
    rows_.push_back(std::move(row));
}

void Table::Print(std::ostream& out, const std::string& indent) const
{
    std::vector<size_t> widths;
    for (const std::string& header : headers_) {
        widths.push_back(header.size());
    }
    for (const auto& row : rows_) {
        for (size_t i = 0; i < row.size() && i < widths.size(); ++i) {
            widths[i] = std::max(widths[i], row[i].size());
        }
    }
    auto line = [&](const std::vector<std::string>& cells) {
        std::string text = indent;
        for (size_t i = 0; i < cells.size() && i < widths.size(); ++i) {
            text += cells[i];
            if (i + 1 < cells.size()) {
                text += std::string(widths[i] - cells[i].size() + 2, ' ');
            }
        }
        out << text << "\n";
    };
    line(headers_);
    for (const auto& row : rows_) {
        line(row);
    }
}

void PrintDevices(std::ostream& out, const std::vector<DeviceInfo>& devices, const std::string& indent)
{
    if (devices.empty()) {
        out << indent << "(no devices)\n";
        return;
    }
    Table table({"NAME", "TYPE", "UDID", "NETWORK ID"});
    for (const DeviceInfo& device : devices) {
        table.Add({device.GetDeviceName(), TypeName(device.GetDeviceType()), device.GetDeviceUdid(),
                   device.GetDeviceNetworkId()});
    }
    table.Print(out, indent);
}

}  // namespace DeviceDetectCli
