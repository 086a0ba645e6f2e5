#include "refbase.h"

namespace Tavik {

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

RefBase::RefBase() : refs_(new RefCounter()) {}

RefBase::RefBase(const RefBase& /* other */) : refs_(new RefCounter()) {}

RefBase& RefBase::operator=(const RefBase& /* other */)
{
    // Counts belong to the object, not to its value.
    return *this;
}

RefBase::~RefBase()
{
    // Drop the weak reference the object held on its own counter; weak
    // pointers that are still around keep the block alive.
    if (refs_->DecWeakRefCount() == 1) {
        delete refs_;
    }
}

void RefBase::IncStrongRef(const void* objectId)
{
    if (refs_->IncStrongRefCount() == 0) {
        OnFirstStrongRef(objectId);
    }
}

void RefBase::DecStrongRef(const void* objectId)
{
    if (refs_->DecStrongRefCount() == 1) {
        OnLastStrongRef(objectId);
        delete this;
    }
}

bool RefBase::AttemptIncStrongRef(const void* /* objectId */)
{
    return refs_->AttemptIncStrongRef();
}

int RefBase::GetSptrRefCount() const
{
    return refs_->GetStrongRefCount();
}

int RefBase::GetWptrRefCount() const
{
    // One weak reference is the object's own.
    return refs_->GetWeakRefCount() - 1;
}

void RefBase::OnFirstStrongRef(const void* /* objectId */) {}

void RefBase::OnLastStrongRef(const void* /* objectId */) {}

}  // namespace Tavik
