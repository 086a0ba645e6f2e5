// Intrusive reference counting: RefBase, sptr and wptr.
//
// A RefBase keeps its strong count in the object itself until the first wptr
// (or GetRefCounter) asks for a counter block: only then is a RefCounter
// allocated, the count moved into it, and the object switched over to it for
// good. The block outlives the object while any wptr still refers to it, so a
// wptr can always ask "is the object still alive?" without touching freed
// memory. Objects that are never weakly referenced (records held by value or
// by sptr alone) cost no allocation besides their own.
//
// The object is deleted when its strong count drops from 1 to 0.
//
// Thread-safety: the counts are atomics, and the switch to the block is one
// compare-and-swap on the same word that holds the embedded count, so a
// concurrent increment or decrement lands either before the switch (and is
// carried into the block) or after it (and goes to the block). sptr/wptr
// instances themselves are not synchronised (like std::shared_ptr, one
// instance must not be written and read by two threads at once).
//
// Weak promotion (wptr::promote) succeeds only while the strong count is
// above zero: it uses a compare-and-swap loop, so once the last strong
// reference is gone no promotion can revive the object.
#ifndef TAVIK_PLATFORM_REFBASE_H
#define TAVIK_PLATFORM_REFBASE_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <new>
#include <utility>

namespace Tavik {

class RefCounter {
public:
    RefCounter() = default;
    // A block taking over an object's embedded strong count.
    explicit RefCounter(int strong) : strong_(strong) {}
    RefCounter(const RefCounter&) = delete;
    RefCounter& operator=(const RefCounter&) = delete;

    int IncStrongRefCount();  // returns the count before the increment
    int DecStrongRefCount();  // returns the count before the decrement
    int GetStrongRefCount() const;
    int IncWeakRefCount();  // returns the count before the increment
    int DecWeakRefCount();  // returns the count before the decrement
    int GetWeakRefCount() const;
    // Increments the strong count only if it is above zero.
    bool AttemptIncStrongRef();

private:
    friend class RefBase;

    std::atomic<int> strong_{0};
    // One weak reference is held on behalf of the object itself until it is
    // destroyed; the block is freed when the weak count reaches zero.
    std::atomic<int> weak_{1};
};

class RefBase {
public:
    RefBase();
    // Copies share no counts: a copied object starts with its own count.
    RefBase(const RefBase&);
    RefBase& operator=(const RefBase&);
    RefBase(RefBase&&) = delete;
    RefBase& operator=(RefBase&&) = delete;
    virtual ~RefBase();

    void IncStrongRef(const void* objectId = nullptr);
    void DecStrongRef(const void* objectId = nullptr);
    bool AttemptIncStrongRef(const void* objectId = nullptr);
    int GetSptrRefCount() const;
    int GetWptrRefCount() const;
    // The counter block, allocated on first use; from then on it holds the
    // object's counts.
    RefCounter* GetRefCounter() const;

    // Hooks for subclasses; called on the thread that makes the transition.
    virtual void OnFirstStrongRef(const void* objectId);
    virtual void OnLastStrongRef(const void* objectId);

private:
    // Either the embedded strong count, tagged (count << 1 | EMBEDDED), or
    // the address of the RefCounter that holds the counts (never tagged: a
    // RefCounter is aligned).
    static constexpr uintptr_t EMBEDDED = 1;
    static constexpr uintptr_t ONE_STRONG = 2;
    static bool IsEmbedded(uintptr_t state) { return (state & EMBEDDED) != 0; }
    static RefCounter* Block(uintptr_t state) { return reinterpret_cast<RefCounter*>(state); }

    mutable std::atomic<uintptr_t> state_;
};

template <typename T>
class wptr;

// Strong pointer. Holding one keeps the object alive.
template <typename T>
class sptr {
public:
    sptr() = default;
    sptr(std::nullptr_t) {}       // NOLINT(google-explicit-constructor)
    sptr(T* other) : ptr_(other)  // NOLINT(google-explicit-constructor)
    {
        if (ptr_ != nullptr) {
            ptr_->IncStrongRef(this);
        }
    }
    sptr(const sptr& other) : ptr_(other.ptr_)
    {
        if (ptr_ != nullptr) {
            ptr_->IncStrongRef(this);
        }
    }
    sptr(sptr&& other) noexcept : ptr_(other.ptr_) { other.ptr_ = nullptr; }
    template <typename O>
    sptr(const sptr<O>& other) : ptr_(other.GetRefPtr())  // NOLINT(google-explicit-constructor)
    {
        if (ptr_ != nullptr) {
            ptr_->IncStrongRef(this);
        }
    }
    template <typename O>
    sptr(sptr<O>&& other) : ptr_(other.GetRefPtr())  // NOLINT(google-explicit-constructor)
    {
        other.ForceSetRefPtr(nullptr);
    }
    ~sptr() { Reset(); }

    sptr& operator=(const sptr& other)
    {
        sptr(other).Swap(*this);
        return *this;
    }
    sptr& operator=(sptr&& other) noexcept
    {
        sptr(std::move(other)).Swap(*this);
        return *this;
    }
    sptr& operator=(T* other)
    {
        sptr(other).Swap(*this);
        return *this;
    }
    sptr& operator=(std::nullptr_t)
    {
        Reset();
        return *this;
    }
    template <typename O>
    sptr& operator=(const sptr<O>& other)
    {
        sptr(other).Swap(*this);
        return *this;
    }

    // Builds a new T with a non-throwing allocation; null when it fails.
    template <typename... Args>
    static sptr<T> MakeSptr(Args&&... args)
    {
        return sptr<T>(new (std::nothrow) T(std::forward<Args>(args)...));
    }

    void Reset()
    {
        T* old = ptr_;
        ptr_ = nullptr;
        if (old != nullptr) {
            old->DecStrongRef(this);
        }
    }
    void Swap(sptr& other) noexcept { std::swap(ptr_, other.ptr_); }

    T* GetRefPtr() const { return ptr_; }
    T* operator->() const { return ptr_; }
    T& operator*() const { return *ptr_; }
    explicit operator bool() const { return ptr_ != nullptr; }
    operator T*() const { return ptr_; }  // NOLINT(google-explicit-constructor)

    // Replaces the raw pointer without touching counts; used by conversions
    // that transfer a reference.
    void ForceSetRefPtr(T* other) { ptr_ = other; }

private:
    T* ptr_ = nullptr;
};

template <typename T, typename O>
bool operator==(const sptr<T>& a, const sptr<O>& b)
{
    return a.GetRefPtr() == b.GetRefPtr();
}
template <typename T, typename O>
bool operator!=(const sptr<T>& a, const sptr<O>& b)
{
    return a.GetRefPtr() != b.GetRefPtr();
}
template <typename T>
bool operator==(const sptr<T>& a, std::nullptr_t)
{
    return a.GetRefPtr() == nullptr;
}
template <typename T>
bool operator!=(const sptr<T>& a, std::nullptr_t)
{
    return a.GetRefPtr() != nullptr;
}

// Weak pointer. Does not keep the object alive; promote() yields a strong
// pointer or null once the object's last strong reference is gone. The
// counter block stays valid for as long as the wptr exists.
template <typename T>
class wptr {
public:
    wptr() = default;
    wptr(T* other) { Assign(other); }                          // NOLINT(google-explicit-constructor)
    wptr(const sptr<T>& other) { Assign(other.GetRefPtr()); }  // NOLINT(google-explicit-constructor)
    template <typename O>
    wptr(const sptr<O>& other)
    {
        Assign(other.GetRefPtr());
    }  // NOLINT(google-explicit-constructor)
    wptr(const wptr& other) : ptr_(other.ptr_), refs_(other.refs_)
    {
        if (refs_ != nullptr) {
            refs_->IncWeakRefCount();
        }
    }
    wptr(wptr&& other) noexcept : ptr_(other.ptr_), refs_(other.refs_)
    {
        other.ptr_ = nullptr;
        other.refs_ = nullptr;
    }
    ~wptr() { Release(); }

    wptr& operator=(const wptr& other)
    {
        wptr(other).Swap(*this);
        return *this;
    }
    wptr& operator=(wptr&& other) noexcept
    {
        wptr(std::move(other)).Swap(*this);
        return *this;
    }
    wptr& operator=(const sptr<T>& other)
    {
        wptr(other).Swap(*this);
        return *this;
    }

    sptr<T> promote() const
    {
        sptr<T> result;
        if (ptr_ != nullptr && refs_ != nullptr && refs_->AttemptIncStrongRef()) {
            // The increment above is the reference that result now owns.
            result.ForceSetRefPtr(ptr_);
        }
        return result;
    }

    // The raw pointer, valid only while someone else holds a strong reference.
    T* GetRefPtr() const { return ptr_; }
    bool operator==(const wptr& other) const { return ptr_ == other.ptr_; }
    bool operator!=(const wptr& other) const { return ptr_ != other.ptr_; }
    void Swap(wptr& other) noexcept
    {
        std::swap(ptr_, other.ptr_);
        std::swap(refs_, other.refs_);
    }

private:
    void Assign(T* other)
    {
        ptr_ = other;
        if (other != nullptr) {
            refs_ = other->GetRefCounter();
            refs_->IncWeakRefCount();
        }
    }
    void Release()
    {
        if (refs_ != nullptr && refs_->DecWeakRefCount() == 1) {
            delete refs_;
        }
        refs_ = nullptr;
        ptr_ = nullptr;
    }

    T* ptr_ = nullptr;
    RefCounter* refs_ = nullptr;
};

}  // namespace Tavik

#endif  // TAVIK_PLATFORM_REFBASE_H
