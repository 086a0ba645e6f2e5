#include "transport/ipc_runtime.h"

#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "transport/transport_log.h"

namespace Tavik {
namespace Transport {

namespace {

constexpr uint64_t TASK_KEY = ~static_cast<uint64_t>(0);

// How long exit waits for handlers and tasks already running. A handler that
// takes longer is left running; the process ends around it.
constexpr auto EXIT_DRAIN_LIMIT = std::chrono::seconds(1);

// Whether this thread is running a handler or a task of the runtime; exit
// called from inside one must not wait for itself.
thread_local bool t_working = false;

void QuiesceAtExit()
{
    IpcRuntime::Get().Quiesce();
}

}  // namespace

IpcRuntime& IpcRuntime::Get()
{
    // Immortal: IPC threads may still be running while static destructors
    // of the process run.
    static auto* runtime = new IpcRuntime();
    return *runtime;
}

IpcRuntime::IpcRuntime()
{
    epollFd_ = epoll_create1(EPOLL_CLOEXEC);
    taskFd_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK | EFD_SEMAPHORE);
    if (epollFd_ < 0 || taskFd_ < 0) {
        TRANSPORT_LOGE("epoll or eventfd failed: %{public}s", std::strerror(errno));
        return;
    }
    // Level-triggered: every queued task keeps the eventfd readable until
    // some thread has taken it.
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u64 = TASK_KEY;
    if (epoll_ctl(epollFd_, EPOLL_CTL_ADD, taskFd_, &event) != 0) {
        TRANSPORT_LOGE("epoll_ctl for tasks failed: %{public}s", std::strerror(errno));
    }
    // The runtime comes into being after the libraries above it have set up
    // their static objects, so this runs before any of them is destroyed: a
    // death notification must not empty a cache that exit is destroying.
    std::atexit(QuiesceAtExit);
}

void IpcRuntime::Quiesce()
{
    exiting_.store(true);
    const size_t own = t_working ? 1 : 0;
    const auto deadline = std::chrono::steady_clock::now() + EXIT_DRAIN_LIMIT;
    while (working_.load() > own && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

bool IpcRuntime::BeginWork()
{
    // Counted before the flag is read, and the flag is set before the count is
    // read: either exit sees this thread working, or this thread sees exit.
    working_.fetch_add(1);
    if (exiting_.load()) {
        working_.fetch_sub(1);
        return false;
    }
    t_working = true;
    return true;
}

void IpcRuntime::EndWork()
{
    t_working = false;
    working_.fetch_sub(1);
}

uint64_t IpcRuntime::ReserveKey()
{
    return nextKey_.fetch_add(1);
}

bool IpcRuntime::Register(uint64_t key, const std::shared_ptr<Pollable>& pollable, int fd, uint32_t events)
{
    if (epollFd_ < 0 || pollable == nullptr) {
        return false;
    }
    {
        std::lock_guard<std::mutex> lock(mutex_);
        pollables_[key] = pollable;
    }
    epoll_event event{};
    event.events = events | EPOLLONESHOT;
    event.data.u64 = key;
    if (epoll_ctl(epollFd_, EPOLL_CTL_ADD, fd, &event) != 0) {
        TRANSPORT_LOGE("epoll_ctl add failed: %{public}s", std::strerror(errno));
        std::shared_ptr<Pollable> dropped;
        std::lock_guard<std::mutex> lock(mutex_);
        auto it = pollables_.find(key);
        dropped = std::move(it->second);
        pollables_.erase(it);
        return false;
    }
    if (threads_.load() == 0) {
        StartThread();
    }
    return true;
}

bool IpcRuntime::Arm(uint64_t key, int fd, uint32_t events)
{
    epoll_event event{};
    event.events = events | EPOLLONESHOT;
    event.data.u64 = key;
    return epoll_ctl(epollFd_, EPOLL_CTL_MOD, fd, &event) == 0;
}

void IpcRuntime::Unregister(uint64_t key, int fd)
{
    epoll_ctl(epollFd_, EPOLL_CTL_DEL, fd, nullptr);
    std::shared_ptr<Pollable> dropped;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto it = pollables_.find(key);
        if (it == pollables_.end()) {
            return;
        }
        dropped = std::move(it->second);
        pollables_.erase(it);
    }
    // `dropped` may be the last reference; it goes outside the lock.
}

bool IpcRuntime::Post(std::function<void()> task)
{
    if (taskFd_ < 0) {
        return false;
    }
    {
        std::lock_guard<std::mutex> lock(mutex_);
        tasks_.push_back(std::move(task));
    }
    if (threads_.load() == 0 && !StartThread()) {
        return false;
    }
    uint64_t one = 1;
    while (write(taskFd_, &one, sizeof(one)) < 0 && errno == EINTR) {
    }
    return true;
}

std::vector<std::shared_ptr<Pollable>> IpcRuntime::Snapshot()
{
    std::vector<std::shared_ptr<Pollable>> result;
    std::lock_guard<std::mutex> lock(mutex_);
    result.reserve(pollables_.size());
    for (const auto& entry : pollables_) {
        result.push_back(entry.second);
    }
    return result;
}

bool IpcRuntime::StartThread()
{
    size_t current = threads_.load();
    do {
        if (current >= MAX_IPC_THREADS) {
            return false;
        }
    } while (!threads_.compare_exchange_weak(current, current + 1));

    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
    pthread_t thread;
    int error = pthread_create(&thread, &attr, &IpcRuntime::ThreadMain, this);
    pthread_attr_destroy(&attr);
    if (error != 0) {
        threads_.fetch_sub(1);
        TRANSPORT_LOGE("pthread_create failed: %{public}s", std::strerror(error));
        return false;
    }
    return true;
}

void* IpcRuntime::ThreadMain(void* arg)
{
    pthread_setname_np(pthread_self(), "tavik-ipc");
    static_cast<IpcRuntime*>(arg)->Loop();
    return nullptr;
}

void IpcRuntime::Loop()
{
    for (;;) {
        idle_.fetch_add(1);
        epoll_event event{};
        int count = epoll_wait(epollFd_, &event, 1, -1);
        size_t idleAfter = idle_.fetch_sub(1) - 1;
        if (count <= 0) {
            if (count < 0 && errno != EINTR) {
                TRANSPORT_LOGE("epoll_wait failed: %{public}s", std::strerror(errno));
                return;
            }
            continue;
        }
        // This thread may now run a handler for a long time; keep one thread
        // waiting so that the other sockets and the tasks stay served.
        if (idleAfter == 0) {
            StartThread();
        }
        // epoll_event is packed: copy the key out rather than bind a
        // reference to a misaligned field.
        const uint64_t key = event.data.u64;
        if (!BeginWork()) {
            // The process is exiting: take no more work, and never return,
            // so that nothing of this thread touches what exit destroys.
            for (;;) {
                pause();
            }
        }
        if (key == TASK_KEY) {
            RunOneTask();
            EndWork();
            continue;
        }
        std::shared_ptr<Pollable> pollable;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            auto it = pollables_.find(key);
            if (it != pollables_.end()) {
                pollable = it->second;
            }
        }
        if (pollable != nullptr) {
            pollable->OnReady(event.events);
        }
        pollable.reset();
        EndWork();
    }
}

void IpcRuntime::RunOneTask()
{
    uint64_t value = 0;
    // Semaphore mode: a successful read takes exactly one task; another
    // thread woken for the same task finds the counter at zero.
    if (read(taskFd_, &value, sizeof(value)) != static_cast<ssize_t>(sizeof(value))) {
        return;
    }
    std::function<void()> task;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (tasks_.empty()) {
            return;
        }
        task = std::move(tasks_.front());
        tasks_.pop_front();
    }
    task();
}

}  // namespace Transport
}  // namespace Tavik
