// Shared pieces of the benchmarks: generated worlds, the daemon started as a
// child process, and the sizes of the parcels the proxy exchanges.
#ifndef SYNTAVO_BENCH_UTIL_H
#define SYNTAVO_BENCH_UTIL_H

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <vector>

#include "device_detect_proxy.h"
#include "world.h"

namespace Tavik {
namespace Syntavo {
namespace Bench {

// The udid of the last device of a generated world; callbacks are produced
// by switching it off and on again.
constexpr const char* TOGGLE_DEVICE = "udid-bench-toggle-7f3a9c2e41d05b86";

// `online` devices with realistic identifiers and names, all online (the
// service serves at most 1024).
Sim::World MakeWorld(size_t online);

// Starts argv[0] (a path) with its standard output on a pipe and waits for
// the first line it prints (the programs we start print one when ready).
// The child's pid, or -1 when there is none; `firstLine` is empty when the
// child exited without a line.
pid_t StartChild(const std::vector<std::string>& argv, std::string& firstLine);
// SIGTERM, then waits for it. Sets pid to -1.
void StopChild(pid_t& pid);

// devicedetectd serving a generated world from a private runtime directory,
// which this process (and the children it execs) then uses too.
class Daemon {
public:
    Daemon() = default;
    ~Daemon() { Stop(); }
    Daemon(const Daemon&) = delete;
    Daemon& operator=(const Daemon&) = delete;

    bool Start(size_t online);
    void Stop();
    const std::string& RuntimeDir() const { return dir_; }

private:
    pid_t pid_ = -1;
    std::string dir_;
};

// One daemon with 1024 online devices for the whole run, stopped at exit.
// Aborts the run when it cannot start.
Daemon& SharedDaemon();

// A proxy on a fresh connection to the daemon's ability.
sptr<DeviceDetectProxy> RemoteProxy();

// Bytes of the request and of the reply payloads of GetTrustedDeviceList
// with `online` devices, measured on the service stub itself.
struct ListSizes {
    size_t request = 0;
    size_t reply = 0;
};
ListSizes MeasureListSizes(size_t online);
// Same for GetDeviceSwitch.
ListSizes MeasureSwitchSizes();

}  // namespace Bench
}  // namespace Syntavo
}  // namespace Tavik

#endif  // SYNTAVO_BENCH_UTIL_H
