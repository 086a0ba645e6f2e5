// Baselines: the physical limit of a synchronous call of the same sizes.
// A raw ping-pong over a Unix stream socket between two processes (one
// write and one blocking read on each side, no framing, no threads in
// between), and memcpy of the reply.
#include <benchmark/benchmark.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "bench_util.h"

namespace Tavik {
namespace Syntavo {
namespace Bench {
namespace {

bool ReadFull(int fd, uint8_t* data, size_t size)
{
    size_t done = 0;
    while (done < size) {
        ssize_t got = read(fd, data + done, size - done);
        if (got <= 0) {
            return false;
        }
        done += static_cast<size_t>(got);
    }
    return true;
}

bool WriteFull(int fd, const uint8_t* data, size_t size)
{
    size_t done = 0;
    while (done < size) {
        ssize_t put = write(fd, data + done, size - done);
        if (put <= 0) {
            return false;
        }
        done += static_cast<size_t>(put);
    }
    return true;
}

void RawPingPong(benchmark::State& state, size_t request, size_t reply)
{
    int fds[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0) {
        state.SkipWithError("socketpair failed");
        return;
    }
    // Both buffers exist before the fork: the child only reads and writes.
    std::vector<uint8_t> in(std::max(request, reply), 0x5a);
    std::vector<uint8_t> out(std::max(request, reply), 0xa5);
    pid_t child = fork();
    if (child == 0) {
        close(fds[0]);
        while (ReadFull(fds[1], in.data(), request) && WriteFull(fds[1], out.data(), reply)) {
        }
        _exit(0);
    }
    close(fds[1]);
    for (auto _ : state) {
        if (!WriteFull(fds[0], out.data(), request) || !ReadFull(fds[0], in.data(), reply)) {
            state.SkipWithError("ping-pong failed");
            break;
        }
    }
    close(fds[0]);
    int status = 0;
    waitpid(child, &status, 0);
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(reply));
}

void Memcpy(benchmark::State& state, size_t size)
{
    std::vector<uint8_t> from(size, 0x5a);
    std::vector<uint8_t> to(size);
    for (auto _ : state) {
        std::memcpy(to.data(), from.data(), size);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(size));
}

}  // namespace

// Registered at start-up with the sizes the proxy really sends and receives.
void RegisterBaselines()
{
    ListSizes small = MeasureSwitchSizes();
    ListSizes list = MeasureListSizes(1024);
    benchmark::RegisterBenchmark("baseline/pingpong/GetDeviceSwitch_sizes", RawPingPong, small.request, small.reply);
    benchmark::RegisterBenchmark("baseline/pingpong/GetTrustedDeviceList_sizes/1024", RawPingPong, list.request,
                                 list.reply);
    benchmark::RegisterBenchmark("baseline/memcpy/GetTrustedDeviceList_reply/1024", Memcpy, list.reply);
    std::fprintf(stderr, "dd_bench: GetDeviceSwitch request %zu B, reply %zu B; GetTrustedDeviceList(1024) request %zu B, reply %zu B\n",
                 small.request, small.reply, list.request, list.reply);
}

}  // namespace Bench
}  // namespace Syntavo
}  // namespace Tavik
