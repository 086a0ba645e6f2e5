// dd_bench: the benchmarks, or with `--worker N` one client process of the
// two-process throughput benchmark, or with `--watcher` one watcher process
// of the fan-out benchmark.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>

namespace Tavik {
namespace Syntavo {
namespace Bench {
void RegisterBaselines();
int RunWorker(long long calls);
int RunWatcher();
}  // namespace Bench
}  // namespace Syntavo
}  // namespace Tavik

int main(int argc, char** argv)
{
    if (argc == 3 && std::strcmp(argv[1], "--worker") == 0) {
        return Tavik::Syntavo::Bench::RunWorker(std::atoll(argv[2]));
    }
    if (argc == 2 && std::strcmp(argv[1], "--watcher") == 0) {
        return Tavik::Syntavo::Bench::RunWatcher();
    }
    Tavik::Syntavo::Bench::RegisterBaselines();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
