#include "memory_return.h"

#include <malloc.h>

#include <chrono>
#include <cstdint>

#include "socket_transport.h"

namespace Tavik {
namespace Syntavo {
namespace Sim {

MemoryReturner::MemoryReturner() : thread_([this] { Run(); }) {}

MemoryReturner::~MemoryReturner()
{
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    stop_.notify_all();
    thread_.join();
}

void MemoryReturner::Run()
{
    uint64_t seen = GetTransportCounters().closed;
    bool ending = false;
    std::unique_lock<std::mutex> lock(mutex_);
    while (!stop_.wait_for(lock, std::chrono::seconds(1), [this] { return stopping_; })) {
        uint64_t closed = GetTransportCounters().closed;
        if (closed != seen) {
            seen = closed;
            ending = true;
        } else if (ending) {
            ending = false;
            malloc_trim(0);
        }
    }
}

}  // namespace Sim
}  // namespace Syntavo
}  // namespace Tavik
