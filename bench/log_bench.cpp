// The cost of a log line: below the threshold (the default WARN drops INFO),
// and formatted into a sink that discards it.
#include <benchmark/benchmark.h>

#include "syntavo_log.h"
#include "tralog.h"

namespace Tavik {
namespace Syntavo {
namespace Bench {
namespace {

void LogFiltered(benchmark::State& state)
{
    LogLevel saved = GetLogLevel();
    SetLogLevel(LOG_WARN);
    int32_t count = 1024;
    for (auto _ : state) {
        SYNT_LOGI(DEVICE_DETECT_LABEL, "GetTrustedDeviceList deviceNum:%{public}d", count);
        benchmark::DoNotOptimize(count);
    }
    SetLogLevel(saved);
}
BENCHMARK(LogFiltered)->Name("log/info_below_threshold");

void LogNullSink(benchmark::State& state)
{
    LogLevel saved = GetLogLevel();
    SetLogLevel(LOG_INFO);
    SetLogSink([](const LogRecord& record) { benchmark::DoNotOptimize(record.message.data()); });
    int32_t count = 1024;
    for (auto _ : state) {
        SYNT_LOGI(DEVICE_DETECT_LABEL, "GetTrustedDeviceList deviceNum:%{public}d", count);
    }
    ResetLogSink();
    SetLogLevel(saved);
}
BENCHMARK(LogNullSink)->Name("log/info_to_null_sink");

}  // namespace
}  // namespace Bench
}  // namespace Syntavo
}  // namespace Tavik
