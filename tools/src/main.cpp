// devicedetect: the command-line client of the device-detect service.
#include <cstdlib>
#include <iostream>

#include "cli_common.h"
#include "syntavo_devicedetect_version.h"
#include "tralog.h"

int main(int argc, char** argv)
{
    using namespace DeviceDetectCli;
    Context ctx;
    CLI::App app{"devicedetect: query the device-detect service, watch its events and drive its simulator"};
    app.require_subcommand(1);
    app.set_version_flag("--version", std::string("devicedetect ") + SYNTAVO_DEVICEDETECT_VERSION_STRING,
                         "Print the program's name and version and exit");
    app.add_option("--log-level", ctx.logLevel,
                   "Show library log lines from this level on: DEBUG, INFO, WARN, ERROR, FATAL (default: none)");
    app.add_option("--runtime-dir", ctx.runtimeDir, "Where the service's socket is (sets TAVIK_RUNTIME_DIR)");
    AddQueryCommands(app, ctx);
    AddWatchCommand(app, ctx);
    AddSimCommands(app, ctx);
    AddDumpCommand(app, ctx);
    AddDemoCommand(app, ctx);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        // CLI11 has an exit code per kind of parse error; scripts get the
        // one documented code for bad usage (help and version stay 0).
        return app.exit(e) == 0 ? 0 : 2;
    }
    if (ctx.logLevel.empty() && std::getenv("TAVIK_LOG_LEVEL") == nullptr) {
        // The CLI reports every failure itself, with the status name; the
        // library's own lines are there on request.
        Tavik::SetLogLevel(Tavik::LOG_FATAL);
    } else if (!ctx.logLevel.empty()) {
        Tavik::LogLevel level;
        if (!Tavik::ParseLogLevel(ctx.logLevel, level)) {
            std::cerr << "devicedetect: unknown log level \"" << ctx.logLevel << "\"\n";
            return 2;
        }
        Tavik::SetLogLevel(level);
    }
    if (!ctx.runtimeDir.empty()) {
        setenv("TAVIK_RUNTIME_DIR", ctx.runtimeDir.c_str(), 1);
    }
    return ctx.action ? ctx.action() : 2;
}
