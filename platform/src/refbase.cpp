#include "refbase.h"

namespace Tavik {

static_assert(alignof(RefCounter) >= 2, "a counter block's address must leave the embedded tag bit free");

namespace {

// The embedded count of a tagged state word; arithmetic shift, so an
// over-release still reads as a negative count.
int EmbeddedCount(uintptr_t state)
{
    return static_cast<int>(static_cast<intptr_t>(state) >> 1);
}

}  // namespace

int RefCounter::IncStrongRefCount()
{
    return strong_.fetch_add(1, std::memory_order_relaxed);
}

int RefCounter::DecStrongRefCount()
{
    // acq_rel: the thread that drops the last reference must see every write
    // made through the other references before it destroys the object.
    return strong_.fetch_sub(1, std::memory_order_acq_rel);
}

int RefCounter::GetStrongRefCount() const
{
    return strong_.load(std::memory_order_relaxed);
}

int RefCounter::IncWeakRefCount()
{
    return weak_.fetch_add(1, std::memory_order_relaxed);
}

int RefCounter::DecWeakRefCount()
{
    return weak_.fetch_sub(1, std::memory_order_acq_rel);
}

int RefCounter::GetWeakRefCount() const
{
    return weak_.load(std::memory_order_relaxed);
}

bool RefCounter::AttemptIncStrongRef()
{
    int current = strong_.load(std::memory_order_relaxed);
    while (current > 0) {
        if (strong_.compare_exchange_weak(current, current + 1, std::memory_order_acquire, std::memory_order_relaxed)) {
            return true;
        }
    }
    return false;
}

RefBase::RefBase() : state_(EMBEDDED) {}

RefBase::RefBase(const RefBase& /* other */) : state_(EMBEDDED) {}

RefBase& RefBase::operator=(const RefBase& /* other */)
{
    // Counts belong to the object, not to its value.
    return *this;
}

RefBase::~RefBase()
{
    // Drop the weak reference the object held on its block; weak pointers
    // that are still around keep the block alive.
    uintptr_t state = state_.load(std::memory_order_acquire);
    if (!IsEmbedded(state) && Block(state)->DecWeakRefCount() == 1) {
        delete Block(state);
    }
}

RefCounter* RefBase::GetRefCounter() const
{
    uintptr_t state = state_.load(std::memory_order_acquire);
    if (!IsEmbedded(state)) {
        return Block(state);
    }
    auto* block = new RefCounter(EmbeddedCount(state));
    // Publishing the block and retiring the embedded count is one step: an
    // increment or decrement that slipped in since the load fails this
    // exchange, and the block is brought up to date before the next try.
    while (!state_.compare_exchange_weak(state, reinterpret_cast<uintptr_t>(block), std::memory_order_acq_rel,
                                         std::memory_order_acquire)) {
        if (!IsEmbedded(state)) {
            // Another thread installed its block first.
            delete block;
            return Block(state);
        }
        block->strong_.store(EmbeddedCount(state), std::memory_order_relaxed);
    }
    return block;
}

void RefBase::IncStrongRef(const void* objectId)
{
    uintptr_t state = state_.load(std::memory_order_acquire);
    int before = 0;
    for (;;) {
        if (!IsEmbedded(state)) {
            before = Block(state)->IncStrongRefCount();
            break;
        }
        // acquire also on success: a failed exchange must see a block that
        // was just installed, and C++17 wants success at least as strong.
        if (state_.compare_exchange_weak(state, state + ONE_STRONG, std::memory_order_acquire,
                                         std::memory_order_acquire)) {
            before = EmbeddedCount(state);
            break;
        }
    }
    if (before == 0) {
        OnFirstStrongRef(objectId);
    }
}

void RefBase::DecStrongRef(const void* objectId)
{
    uintptr_t state = state_.load(std::memory_order_acquire);
    int before = 0;
    for (;;) {
        if (!IsEmbedded(state)) {
            before = Block(state)->DecStrongRefCount();
            break;
        }
        // acq_rel for the same reason as in RefCounter::DecStrongRefCount.
        if (state_.compare_exchange_weak(state, state - ONE_STRONG, std::memory_order_acq_rel,
                                         std::memory_order_acquire)) {
            before = EmbeddedCount(state);
            break;
        }
    }
    if (before == 1) {
        OnLastStrongRef(objectId);
        delete this;
    }
}

bool RefBase::AttemptIncStrongRef(const void* /* objectId */)
{
    uintptr_t state = state_.load(std::memory_order_acquire);
    for (;;) {
        if (!IsEmbedded(state)) {
            return Block(state)->AttemptIncStrongRef();
        }
        if (EmbeddedCount(state) <= 0) {
            return false;
        }
        if (state_.compare_exchange_weak(state, state + ONE_STRONG, std::memory_order_acquire,
                                         std::memory_order_acquire)) {
            return true;
        }
    }
}

int RefBase::GetSptrRefCount() const
{
    uintptr_t state = state_.load(std::memory_order_acquire);
    return IsEmbedded(state) ? EmbeddedCount(state) : Block(state)->GetStrongRefCount();
}

int RefBase::GetWptrRefCount() const
{
    uintptr_t state = state_.load(std::memory_order_acquire);
    // One weak reference of the block is the object's own.
    return IsEmbedded(state) ? 0 : Block(state)->GetWeakRefCount() - 1;
}

void RefBase::OnFirstStrongRef(const void* /* objectId */) {}

void RefBase::OnLastStrongRef(const void* /* objectId */) {}

}  // namespace Tavik
