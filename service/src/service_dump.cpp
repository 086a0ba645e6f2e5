#include "service_dump.h"

#include <unistd.h>

#include <cstdio>
#include <ctime>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>

#include "callback_dispatcher.h"
#include "device_detect_request_code.h"
#include "ipc_status.h"
#include "sim_status.h"
#include "simulator.h"
#include "socket_transport.h"
#include "syntavo_devicedetect_version.h"
#include "transport_limits.h"

namespace Tavik {
namespace Syntavo {
namespace Sim {
namespace {

using nlohmann::json;

// "2026-11-24T07:12:03.456Z"
std::string IsoTime(std::chrono::system_clock::time_point time)
{
    auto millis = std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
    std::time_t seconds = static_cast<std::time_t>(millis / 1000);
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    char text[40];
    size_t length = std::strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%S", &utc);
    std::snprintf(text + length, sizeof(text) - length, ".%03dZ", static_cast<int>(millis % 1000));
    return text;
}

// The process's name as the kernel knows it; empty when it cannot be read
// (the process is gone, or another user's /proc is hidden).
std::string ProgramName(pid_t pid)
{
    std::ifstream comm("/proc/" + std::to_string(pid) + "/comm");
    std::string name;
    std::getline(comm, name);
    return name;
}

std::string StatusName(int32_t status)
{
    const char* name = SimStatusToString(status);
    if (name == nullptr) {
        name = IpcStatusToString(status);
    }
    return name != nullptr ? name : std::to_string(status);
}

json Registration(const ClientRegistration& registration)
{
    json entry{{"kind", registration.kind}};
    if (registration.id >= 0) {
        entry["id"] = registration.id;
    }
    if (!registration.key.empty()) {
        entry["key"] = registration.key;
    }
    if (!registration.filter.empty()) {
        json filter = json::object();
        for (const auto& field : registration.filter) {
            filter[field.first] = field.second;
        }
        entry["filter"] = filter;
    }
    return entry;
}

json Callbacks(const CallbackClient* client)
{
    json callbacks{{"queued", 0}, {"queuedBytes", 0}, {"sent", 0}, {"failed", 0}};
    if (client != nullptr) {
        callbacks = {{"queued", client->queued},
                     {"queuedBytes", client->queuedBytes},
                     {"sent", client->sent},
                     {"failed", client->failed}};
        if (!client->inFlight.empty()) {
            callbacks["inFlight"] = client->inFlight;
            callbacks["inFlightMs"] = client->inFlightMillis;
        }
    }
    return callbacks;
}

json Clients(const Simulator& simulator, json& inProcess)
{
    std::map<uint64_t, CallbackClient> callbacks;
    for (CallbackClient& client : simulator.CallbackClients()) {
        callbacks[client.connectionId] = std::move(client);
    }
    std::map<uint64_t, json> registrations;
    for (const ClientRegistration& registration : simulator.RegistrationsByClient()) {
        auto& list = registrations[registration.connectionId];
        if (list.is_null()) {
            list = json::array();
        }
        list.push_back(Registration(registration));
    }
    auto lookup = [](auto& map, uint64_t id) { return map.count(id) != 0 ? &map[id] : nullptr; };

    json clients = json::array();
    for (const ConnectionInfo& connection : GetConnections()) {
        if (!connection.incoming || connection.systemAbilityId != SYNTAVO_DEVICE_DETECT_SA_ID) {
            continue;
        }
        json* own = lookup(registrations, connection.id);
        clients.push_back({{"connectionId", connection.id},
                           {"pid", connection.pid},
                           {"uid", connection.uid},
                           {"program", ProgramName(connection.pid)},
                           {"connectedSince", IsoTime(connection.since)},
                           {"transactionsRunning", connection.transactionsRunning},
                           {"transactionsWaiting", connection.transactionsWaiting},
                           {"outgoingBytes", connection.outgoingBytes},
                           {"callbacks", Callbacks(lookup(callbacks, connection.id))},
                           {"registrations", own != nullptr ? *own : json::array()}});
    }
    // Clients in the service's own process have no connection; they are
    // shown apart, with this process's pid.
    json* own = lookup(registrations, 0);
    CallbackClient* ownCallbacks = lookup(callbacks, 0);
    if (own != nullptr || ownCallbacks != nullptr) {
        inProcess = {{"pid", getpid()},
                     {"callbacks", Callbacks(ownCallbacks)},
                     {"registrations", own != nullptr ? *own : json::array()}};
    }
    return clients;
}

json RecentlyClosed()
{
    json closed = json::array();
    for (const ClosedConnectionInfo& info : GetRecentlyClosed()) {
        if (!info.connection.incoming || info.connection.systemAbilityId != SYNTAVO_DEVICE_DETECT_SA_ID) {
            continue;
        }
        closed.push_back({{"connectionId", info.connection.id},
                          {"pid", info.connection.pid},
                          {"uid", info.connection.uid},
                          {"connectedSince", IsoTime(info.connection.since)},
                          {"closedAt", IsoTime(info.closedAt)},
                          {"reason", info.reason}});
    }
    return closed;
}

json RequestsJson(const Simulator& simulator)
{
    json requests = json::array();
    for (const RequestCodeStats& stats : simulator.Requests().Snapshot()) {
        const char* name = stats.code != 0 ? DeviceDetectRequestCodeToString(stats.code) : nullptr;
        json failures = json::object();
        for (const auto& failure : stats.failures) {
            failures[StatusName(failure.first)] = failure.second;
        }
        requests.push_back({{"code", stats.code},
                            {"name", name != nullptr ? name : "UNKNOWN"},
                            {"calls", stats.calls},
                            {"failures", failures},
                            {"p50Us", stats.p50Micros},
                            {"p99Us", stats.p99Micros},
                            {"maxUs", stats.maxMicros}});
    }
    return requests;
}

json TransportJson()
{
    TransportCounters counters = GetTransportCounters();
    return {{"accepted", counters.accepted},
            {"closed", counters.closed},
            {"refused", counters.refused},
            {"malformed", counters.malformed},
            {"closedAtLimit", counters.closedAtLimit}};
}

json Limits()
{
    json limits = json::array();
    size_t count = 0;
    const Transport::LimitInfo* table = Transport::GetTransportLimits(count);
    for (size_t i = 0; i < count; ++i) {
        limits.push_back({{"name", table[i].name},
                          {"value", table[i].value},
                          {"unit", table[i].unit},
                          {"consequence", table[i].consequence}});
    }
    const char* overflow = "the client is disconnected and its registrations are dropped";
    limits.push_back({{"name", "MAX_QUEUED_CALLBACKS"},
                      {"value", MAX_QUEUED_CALLBACKS},
                      {"unit", "callbacks per client"},
                      {"consequence", overflow}});
    limits.push_back({{"name", "MAX_QUEUED_CALLBACK_BYTES"},
                      {"value", MAX_QUEUED_CALLBACK_BYTES},
                      {"unit", "bytes per client"},
                      {"consequence", overflow}});
    return limits;
}

}  // namespace

std::string ServiceDumpJson(const Simulator& simulator)
{
    World world = simulator.Snapshot();
    size_t online = 0;
    for (const Device& device : world.devices) {
        online += device.state != DeviceState::OFFLINE ? 1 : 0;
    }
    auto uptime = std::chrono::steady_clock::now() - simulator.Started();
    json inProcess;
    json clients = Clients(simulator, inProcess);
    json dump{{"service",
               {{"version", SYNTAVO_DEVICEDETECT_VERSION_STRING},
                {"pid", getpid()},
                {"uptimeMs", std::chrono::duration_cast<std::chrono::milliseconds>(uptime).count()},
                {"runtimeDirectory", GetRuntimeDirectory()},
                {"devices", world.devices.size()},
                {"online", online},
                {"callbackWaitMs", simulator.CallbackWait().count()}}},
              {"clients", clients},
              {"recentlyClosed", RecentlyClosed()},
              {"requests", RequestsJson(simulator)},
              {"transport", TransportJson()},
              {"limits", Limits()}};
    if (!inProcess.is_null()) {
        dump["inProcess"] = inProcess;
    }
    return dump.dump(2, ' ', false, json::error_handler_t::replace);
}

}  // namespace Sim
}  // namespace Syntavo
}  // namespace Tavik
