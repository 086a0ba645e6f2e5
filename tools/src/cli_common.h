// Shared pieces of the devicedetect CLI: options common to every
// subcommand, status names, the service lookup with its "not reachable"
// message, and output helpers (tables for people, JSON for scripts).
#ifndef DEVICEDETECT_CLI_COMMON_H
#define DEVICEDETECT_CLI_COMMON_H

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "device_detect_proxy.h"
#include "device_info.h"
#include "iremote_object.h"

namespace DeviceDetectCli {

using Tavik::sptr;
using Json = nlohmann::json;

// Exit codes: 0 success, 1 a request failed (the status name is printed),
// 2 bad usage (CLI11 prints it), 3 the service could not be reached.
constexpr int EXIT_OK = 0;
constexpr int EXIT_REQUEST_FAILED = 1;
constexpr int EXIT_UNREACHABLE = 3;

struct Context {
    bool json = false;
    std::string logLevel;
    std::string runtimeDir;
    // --wait: how long a command waits for the service to appear before it
    // reports it unreachable; 0 looks once.
    double waitSeconds = 0;
    // Set by the chosen subcommand's callback, run by main after parsing.
    std::function<int()> action;
};

// Adds --json to a subcommand (the parent's options fall through as well).
CLI::App* AddCommand(CLI::App& parent, Context& ctx, const std::string& name, const std::string& description);
// AddCommand for a command that talks to the service: also --wait SECONDS.
CLI::App* AddCommandWithWait(CLI::App& parent, Context& ctx, const std::string& name, const std::string& description);

// DeviceDetectStatusToString, then the service's and the platform's names;
// "status N" for a value none of them knows.
std::string StatusName(int32_t status);

// Prints "devicedetect: <what> failed: NAME (N)" (or its JSON form) and
// returns EXIT_REQUEST_FAILED.
int Fail(const Context& ctx, const std::string& what, int32_t status, const std::string& detail = "");
// Explains what was tried and what to start; returns EXIT_UNREACHABLE.
int Unreachable(const Context& ctx);

// The process-wide proxy, or null after printing the unreachable message.
// With --wait, waits that long for the service to appear first.
sptr<Tavik::Syntavo::DeviceDetectProxy> GetProxy(const Context& ctx);
// The service's remote object (for control requests), or null likewise.
sptr<Tavik::IRemoteObject> GetServiceObject(const Context& ctx);

// Text that came from the service (names, dynamic information,
// configuration, details), made safe to print for people: control
// characters become visible escapes ("\n", "\x1b"; tralog.h's
// EscapeControlCharacters), so a device name cannot break a line, forge
// one, or send the terminal an escape sequence. JSON output needs no such
// step; its encoder escapes them already.
std::string Printable(const std::string& text);

std::string TypeName(uint32_t type);
Json DeviceJson(const Tavik::Syntavo::DeviceInfo& device);
void PrintJson(const Json& value);

// Columns for people. Every cell goes through Printable, so the widths are
// those of what is printed.
class Table {
public:
    explicit Table(std::vector<std::string> headers) : headers_(std::move(headers)) {}
    void Add(std::vector<std::string> row);
    bool Empty() const { return rows_.empty(); }
    void Print(std::ostream& out, const std::string& indent = "") const;

private:
    std::vector<std::string> headers_;
    std::vector<std::vector<std::string>> rows_;
};

// NAME, TYPE, UDID, NETWORK ID; "(no devices)" for an empty list.
void PrintDevices(std::ostream& out, const std::vector<Tavik::Syntavo::DeviceInfo>& devices,
                  const std::string& indent = "");

void AddQueryCommands(CLI::App& app, Context& ctx);
void AddWatchCommand(CLI::App& app, Context& ctx);
void AddSimCommands(CLI::App& app, Context& ctx);
// `sim play` and `sim step`, under the `sim` command.
void AddScenarioCommands(CLI::App& sim, Context& ctx);
void AddDemoCommand(CLI::App& app, Context& ctx);
void AddDumpCommand(CLI::App& app, Context& ctx);

}  // namespace DeviceDetectCli

#endif  // DEVICEDETECT_CLI_COMMON_H
