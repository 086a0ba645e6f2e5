// `devicedetect dump`: the state of the running service, read through the
// control interface (docs/dump.md lists the JSON fields).
#include <cstdlib>
#include <iostream>
#include <sstream>

#include "cli_common.h"
#include "control_client.h"
#include "sim_status.h"

namespace DeviceDetectCli {
namespace {

namespace Sim = Tavik::Syntavo::Sim;

// A field of an object; null when the answer lacks it or is not an object,
// so that a service of another version prints blanks, not a crash.
const Json& At(const Json& object, const char* key)
{
    static const Json none;
    if (!object.is_object()) {
        return none;
    }
    auto it = object.find(key);
    return it != object.end() ? *it : none;
}

// Every value the service chose goes through Printable; numbers print as
// they are.
std::string Text(const Json& value)
{
    if (value.is_string()) {
        return Printable(value.get<std::string>());
    }
    return value.is_null() ? "" : value.dump();
}

std::string Duration(int64_t millis)
{
    int64_t seconds = millis / 1000;
    std::ostringstream out;
    if (seconds >= 3600) {
        out << seconds / 3600 << "h " << (seconds % 3600) / 60 << "m";
    } else if (seconds >= 60) {
        out << seconds / 60 << "m " << seconds % 60 << "s";
    } else {
        out << millis / 1000.0 << "s";
    }
    return out.str();
}

// "kind id key field=value ..." for one registration.
std::string Registration(const Json& entry)
{
    std::string line = Text(At(entry, "kind"));
    if (!At(entry, "id").is_null()) {
        line += " " + Text(At(entry, "id"));
    }
    if (!At(entry, "key").is_null()) {
        line += " \"" + Text(At(entry, "key")) + "\"";
    }
    if (At(entry, "filter").is_object()) {
        for (const auto& field : At(entry, "filter").items()) {
            line += " " + Printable(field.key()) + "=\"" + Text(field.value()) + "\"";
        }
    }
    return line;
}

// "NAME=count, ..." or "none".
std::string Counts(const Json& object)
{
    std::string text;
    if (!object.is_object()) {
        return "none";
    }
    for (const auto& entry : object.items()) {
        text += (text.empty() ? "" : ", ") + Printable(entry.key()) + "=" + Text(entry.value());
    }
    return text.empty() ? "none" : text;
}

void PrintService(const Json& service)
{
    std::cout << "Service\n"
              << "  version " << Text(At(service, "version")) << ", pid " << Text(At(service, "pid")) << ", up "
              << Duration(At(service, "uptimeMs").is_number() ? At(service, "uptimeMs").get<int64_t>() : 0) << "\n"
              << "  runtime directory " << Text(At(service, "runtimeDirectory")) << "\n"
              << "  world: " << Text(At(service, "devices")) << " devices, " << Text(At(service, "online"))
              << " online; callback wait " << Text(At(service, "callbackWaitMs")) << " ms\n";
}

void PrintClients(const Json& dump)
{
    const Json& clients = At(dump, "clients");
    std::cout << "\nClients (" << clients.size() << ")\n";
    Table table({"PID", "UID", "PROGRAM", "CONNECTED SINCE", "RUNNING", "WAITING", "OUT BYTES", "CB QUEUED", "CB SENT",
                 "CB FAILED"});
    for (const Json& client : clients) {
        const Json& callbacks = At(client, "callbacks");
        table.Add({Text(At(client, "pid")), Text(At(client, "uid")), Text(At(client, "program")),
                   Text(At(client, "connectedSince")), Text(At(client, "transactionsRunning")),
                   Text(At(client, "transactionsWaiting")), Text(At(client, "outgoingBytes")),
                   Text(At(callbacks, "queued")), Text(At(callbacks, "sent")), Text(At(callbacks, "failed"))});
    }
    if (table.Empty()) {
        std::cout << "  (no clients connected)\n";
    } else {
        table.Print(std::cout, "  ");
    }

    std::cout << "\nRegistrations\n";
    bool any = false;
    auto print = [&any](const std::string& who, const Json& registrations) {
        for (const Json& entry : registrations) {
            std::cout << "  " << who << ": " << Registration(entry) << "\n";
            any = true;
        }
    };
    for (const Json& client : clients) {
        print("pid " + Text(At(client, "pid")) + " (" + Text(At(client, "program")) + ")", At(client, "registrations"));
    }
    if (!At(dump, "inProcess").is_null()) {
        print("in process", At(At(dump, "inProcess"), "registrations"));
    }
    if (!any) {
        std::cout << "  (none)\n";
    }

    const Json& closed = At(dump, "recentlyClosed");
    if (!closed.empty()) {
        std::cout << "\nRecently closed\n";
        Table left({"PID", "UID", "CONNECTED SINCE", "CLOSED AT", "REASON"});
        for (const Json& entry : closed) {
            left.Add({Text(At(entry, "pid")), Text(At(entry, "uid")), Text(At(entry, "connectedSince")),
                      Text(At(entry, "closedAt")), Text(At(entry, "reason"))});
        }
        left.Print(std::cout, "  ");
    }
}

void PrintRequests(const Json& requests)
{
    std::cout << "\nRequests\n";
    Table table({"REQUEST", "CALLS", "P50 US", "P99 US", "MAX US", "FAILURES"});
    for (const Json& request : requests) {
        table.Add({Text(At(request, "name")), Text(At(request, "calls")), Text(At(request, "p50Us")),
                   Text(At(request, "p99Us")), Text(At(request, "maxUs")), Counts(At(request, "failures"))});
    }
    if (table.Empty()) {
        std::cout << "  (no requests yet)\n";
    } else {
        table.Print(std::cout, "  ");
    }
}

void PrintTransport(const Json& dump)
{
    const Json& transport = At(dump, "transport");
    std::cout << "\nTransport\n"
              << "  connections accepted " << Text(At(transport, "accepted")) << ", closed "
              << Text(At(transport, "closed")) << ", refused " << Text(At(transport, "refused")) << "\n"
              << "  malformed frames: " << Counts(At(transport, "malformed")) << "\n"
              << "  closed at a limit: " << Counts(At(transport, "closedAtLimit")) << "\n";
    std::cout << "\nLimits\n";
    Table table({"LIMIT", "VALUE", "UNIT", "WHEN PASSED"});
    for (const Json& limit : At(dump, "limits")) {
        table.Add({Text(At(limit, "name")), Text(At(limit, "value")), Text(At(limit, "unit")),
                   Text(At(limit, "consequence"))});
    }
    table.Print(std::cout, "  ");
}

}  // namespace

void AddDumpCommand(CLI::App& app, Context& ctx)
{
    CLI::App* dump = AddCommandWithWait(
        app, ctx, "dump",
        "Show the service's state: clients, their registrations and callbacks, request statistics, transport");
    dump->callback([&ctx] {
        ctx.action = [&ctx] {
            sptr<Tavik::IRemoteObject> service = GetServiceObject(ctx);
            if (service == nullptr) {
                return EXIT_UNREACHABLE;
            }
            Sim::ControlClient client(service);
            Sim::ControlResult result = client.Dump();
            if (result.status != Sim::SIM_OK) {
                return Fail(ctx, "dump", result.status, result.detail);
            }
            Json value = Json::parse(result.json, nullptr, false);
            if (value.is_discarded() || !value.is_object()) {
                return Fail(ctx, "dump", Sim::SIM_ERR_BAD_WORLD, "the service's answer is not a JSON object");
            }
            if (ctx.json) {
                std::cout << result.json << std::endl;
                return EXIT_OK;
            }
            PrintService(At(value, "service"));
            PrintClients(value);
            PrintRequests(At(value, "requests"));
            PrintTransport(value);
            return EXIT_OK;
        };
    });
}

}  // namespace DeviceDetectCli
