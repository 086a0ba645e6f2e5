// The counting allocator: this binary replaces the global operator new and
// delete so that a test can prove a hostile read never asks for a large block.
// Only the largest single request is kept, in one atomic, so the replacement
// stays thread-safe and cheap.
#include "platform_test_util.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<size_t> g_largestRequest{0};

void Record(size_t size)
{
    size_t seen = g_largestRequest.load(std::memory_order_relaxed);
    while (size > seen && !g_largestRequest.compare_exchange_weak(seen, size, std::memory_order_relaxed)) {
    }
}

void* Allocate(size_t size)
{
    Record(size);
    return std::malloc(size == 0 ? 1 : size);
}

}  // namespace

void* operator new(size_t size)
{
    void* p = Allocate(size);
    if (p == nullptr) {
        throw std::bad_alloc();
    }
    return p;
}
// clang-format off
void* operator new[](size_t size) { return operator new(size); }
void* operator new(size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void* operator new[](size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, size_t) noexcept { std::free(p); }
void operator delete[](void* p, size_t) noexcept { std::free(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { std::free(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { std::free(p); }
// clang-format on

namespace Tavik {
namespace Test {

void AllocationWatch::Reset()
{
    g_largestRequest.store(0);
}

size_t AllocationWatch::Largest()
{
    return g_largestRequest.load();
}

bool ParseWords(Parcel& parcel, const std::vector<uint32_t>& words)
{
    std::string bytes;
    for (uint32_t word : words) {
        for (int shift = 0; shift < 32; shift += 8) {
            bytes.push_back(static_cast<char>((word >> shift) & 0xff));
        }
    }
    return parcel.ParseFrom(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
}

}  // namespace Test
}  // namespace Tavik
