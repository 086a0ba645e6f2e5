// Baselines: the physical limit of a synchronous call of the same sizes.
// A raw ping-pong over a Unix stream socket between two processes (one
// write and one blocking read on each side, no framing, no threads in
// between), and memcpy of the reply.
#include <benchmark/benchmark.h>
#include <poll.h>
#include <signal.h>
#include <sys/epoll.h>
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

// How each side waits for its input: a blocking read (the floor), or the
// transport's way: poll() with a timeout on the caller's side, a one-shot
// epoll set re-armed after every request on the serving side.
enum class Wait { BLOCKING_READ, POLL_AND_EPOLL };

bool AwaitInput(int fd, Wait wait, int epollFd)
{
    if (wait == Wait::BLOCKING_READ) {
        return true;
    }
    if (epollFd >= 0) {
        epoll_event event{};
        event.events = EPOLLIN | EPOLLONESHOT;
        event.data.fd = fd;
        if (epoll_ctl(epollFd, EPOLL_CTL_MOD, fd, &event) != 0) {
            return false;
        }
        return epoll_wait(epollFd, &event, 1, -1) == 1;
    }
    pollfd pfd{fd, POLLIN, 0};
    return poll(&pfd, 1, 5000) == 1;
}

void RawPingPong(benchmark::State& state, size_t request, size_t reply, Wait wait)
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
        int epollFd = -1;
        if (wait == Wait::POLL_AND_EPOLL) {
            epollFd = epoll_create1(EPOLL_CLOEXEC);
            epoll_event event{};
            event.events = EPOLLIN | EPOLLONESHOT;
            event.data.fd = fds[1];
            epoll_ctl(epollFd, EPOLL_CTL_ADD, fds[1], &event);
        }
        while (AwaitInput(fds[1], wait, epollFd) && ReadFull(fds[1], in.data(), request) &&
               WriteFull(fds[1], out.data(), reply)) {
        }
        _exit(0);
    }
    close(fds[1]);
    for (auto _ : state) {
        if (!WriteFull(fds[0], out.data(), request) || !AwaitInput(fds[0], wait, -1) ||
            !ReadFull(fds[0], in.data(), reply)) {
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
    benchmark::RegisterBenchmark("baseline/pingpong/GetDeviceSwitch_sizes", RawPingPong, small.request, small.reply,
                                 Wait::BLOCKING_READ);
    benchmark::RegisterBenchmark("baseline/pingpong/GetTrustedDeviceList_sizes/1024", RawPingPong, list.request,
                                 list.reply, Wait::BLOCKING_READ);
    benchmark::RegisterBenchmark("baseline/pingpong_poll_epoll/GetDeviceSwitch_sizes", RawPingPong, small.request,
                                 small.reply, Wait::POLL_AND_EPOLL);
    benchmark::RegisterBenchmark("baseline/pingpong_poll_epoll/GetTrustedDeviceList_sizes/1024", RawPingPong,
                                 list.request, list.reply, Wait::POLL_AND_EPOLL);
    benchmark::RegisterBenchmark("baseline/memcpy/GetTrustedDeviceList_reply/1024", Memcpy, list.reply);
    std::fprintf(
        stderr,
        "dd_bench: GetDeviceSwitch request %zu B, reply %zu B; GetTrustedDeviceList(1024) request %zu B, reply %zu B\n",
        small.request, small.reply, list.request, list.reply);
}

}  // namespace Bench
}  // namespace Syntavo
}  // namespace Tavik
