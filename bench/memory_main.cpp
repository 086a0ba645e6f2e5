// dd_bench_memory: the client's peak heap for GetTrustedDeviceList of 1024
// devices across processes, against the size of the reply. Counts every
// operator new of the process (the libraries' included) above what was live
// before the call; the result vector is part of it.
#include <malloc.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <vector>

#include "bench_util.h"
#include "device_detect_request_code.h"
#include "socket_transport.h"

namespace {

std::atomic<size_t> g_live{0};
std::atomic<size_t> g_peak{0};

void* Allocate(size_t size)
{
    void* block = std::malloc(size == 0 ? 1 : size);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    size_t live = g_live.fetch_add(malloc_usable_size(block), std::memory_order_relaxed) + malloc_usable_size(block);
    size_t peak = g_peak.load(std::memory_order_relaxed);
    while (live > peak && !g_peak.compare_exchange_weak(peak, live, std::memory_order_relaxed)) {
    }
    return block;
}

void Release(void* block)
{
    if (block != nullptr) {
        g_live.fetch_sub(malloc_usable_size(block), std::memory_order_relaxed);
        std::free(block);
    }
}

}  // namespace

void* operator new(size_t size)
{
    return Allocate(size);
}
void* operator new[](size_t size)
{
    return Allocate(size);
}
void operator delete(void* block) noexcept
{
    Release(block);
}
void operator delete[](void* block) noexcept
{
    Release(block);
}
void operator delete(void* block, size_t) noexcept
{
    Release(block);
}
void operator delete[](void* block, size_t) noexcept
{
    Release(block);
}

int main()
{
    using namespace Tavik::Syntavo;
    size_t reply = Bench::MeasureListSizes(1024).reply;
    Tavik::sptr<DeviceDetectProxy> proxy = Bench::RemoteProxy();
    proxy->GetDeviceSwitch("warm-up");
    for (int round = 0; round < 2; ++round) {
        size_t before = g_live.load();
        g_peak.store(before);
        size_t count = 0;
        size_t output = 0;
        {
            std::vector<DeviceInfo> devices;
            if (proxy->GetTrustedDeviceList("", devices) != 0) {
                std::fprintf(stderr, "dd_bench_memory: GetTrustedDeviceList failed\n");
                return 1;
            }
            count = devices.size();
            // What the caller asked for, the vector and the strings of its
            // records: whatever goes when it goes.
            output = g_live.load();
        }
        output -= g_live.load();
        size_t peak = g_peak.load() - before;
        std::printf(
            "memory/remote/GetTrustedDeviceList/1024 %s call: %zu devices, peak heap %zu B = %.2fx the reply "
            "(%zu B); the result itself %zu B, peak above it %.2fx the reply; retained after the call %zd B\n",
            round == 0 ? "first" : "second", count, peak, static_cast<double>(peak) / reply, reply, output,
            static_cast<double>(peak - output) / reply,
            static_cast<ssize_t>(g_live.load()) - static_cast<ssize_t>(before));
    }
    return 0;
}
