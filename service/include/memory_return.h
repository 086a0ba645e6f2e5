// MemoryReturner: gives the memory of clients that left back to the system.
//
// The allocator keeps freed memory for reuse, so a service that served a
// thousand clients would otherwise stay at its peak size for good. A thread
// looks once a second whether connections ended since its last look and,
// once they have stopped ending for that second, asks the allocator to
// return its free pages. Resource type: the thread runs from construction
// to destruction.
#ifndef SYNTAVO_SIM_MEMORY_RETURN_H
#define SYNTAVO_SIM_MEMORY_RETURN_H

#include <condition_variable>
#include <mutex>
#include <thread>

namespace Tavik {
namespace Syntavo {
namespace Sim {

class MemoryReturner {
public:
    MemoryReturner();
    ~MemoryReturner();
    MemoryReturner(const MemoryReturner&) = delete;
    MemoryReturner& operator=(const MemoryReturner&) = delete;

private:
    void Run();

    std::mutex mutex_;
    std::condition_variable stop_;
    bool stopping_ = false;
    std::thread thread_;
};

}  // namespace Sim
}  // namespace Syntavo
}  // namespace Tavik

#endif  // SYNTAVO_SIM_MEMORY_RETURN_H
