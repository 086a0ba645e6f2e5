// The process's IPC threads (private to the transport).
//
// A bounded pool of threads waits on one epoll set. The set holds every
// listening socket, every connection whose socket nobody else is reading, and
// an eventfd that counts queued tasks. Sockets are registered one-shot: an
// event disarms the socket until its owner calls Arm again, so exactly one
// thread reacts to it, and that thread may then run the work it found itself
// (leader/followers: the other threads keep waiting in epoll_wait and take
// the next event). A thread that leaves epoll_wait while no other thread is
// left waiting starts one more thread, up to MAX_IPC_THREADS.
//
// The runtime is created on first use and never destroyed; its threads are
// detached and end with the process. Once exit begins they take no more
// work, and exit waits (a second at most) for the handlers and tasks already
// running, so that none of them runs while static objects are destroyed.
#ifndef TAVIK_PLATFORM_TRANSPORT_IPC_RUNTIME_H
#define TAVIK_PLATFORM_TRANSPORT_IPC_RUNTIME_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "transport_limits.h"

namespace Tavik {
namespace Transport {

// Something with a socket in the epoll set: a listener or a connection.
class Pollable {
public:
    Pollable() = default;
    virtual ~Pollable() = default;
    Pollable(const Pollable&) = delete;
    Pollable& operator=(const Pollable&) = delete;

    // Runs on an IPC thread once per armed event, with the events that
    // fired; the socket stays disarmed until Arm is called again.
    virtual void OnReady(uint32_t events) = 0;
};

class IpcRuntime {
public:
    static IpcRuntime& Get();

    // A key for Register; taken first so that the pollable knows its key
    // before its first event can arrive.
    uint64_t ReserveKey();
    // Adds fd to the set, armed for `events` (EPOLLIN, EPOLLOUT, ...), and
    // keeps `pollable` alive until Unregister.
    bool Register(uint64_t key, const std::shared_ptr<Pollable>& pollable, int fd, uint32_t events);
    // Arms a registered socket for `events`; 0 disarms it.
    bool Arm(uint64_t key, int fd, uint32_t events);
    // Removes fd from the set and drops the runtime's reference. Safe to
    // call from OnReady of the same pollable.
    void Unregister(uint64_t key, int fd);

    // Queues a task for an IPC thread; false when no thread could run it.
    bool Post(std::function<void()> task);

    // The registered pollables, for statistics.
    std::vector<std::shared_ptr<Pollable>> Snapshot();
    size_t ThreadCount() const { return threads_.load(); }

    // Stops the threads taking work and waits, bounded, for the work in
    // progress. Runs at exit.
    void Quiesce();

    IpcRuntime(const IpcRuntime&) = delete;
    IpcRuntime& operator=(const IpcRuntime&) = delete;

private:
    IpcRuntime();
    ~IpcRuntime() = default;

    static void* ThreadMain(void* arg);
    void Loop();
    void RunOneTask();
    bool StartThread();
    // False once the process is exiting; the thread must then stop.
    bool BeginWork();
    void EndWork();

    int epollFd_ = -1;
    int taskFd_ = -1;
    std::atomic<size_t> threads_{0};
    std::atomic<size_t> idle_{0};
    std::atomic<bool> exiting_{false};
    std::atomic<size_t> working_{0};

    std::atomic<uint64_t> nextKey_{1};
    std::mutex mutex_;
    std::unordered_map<uint64_t, std::shared_ptr<Pollable>> pollables_;
    std::deque<std::function<void()>> tasks_;
};

}  // namespace Transport
}  // namespace Tavik

#endif  // TAVIK_PLATFORM_TRANSPORT_IPC_RUNTIME_H
