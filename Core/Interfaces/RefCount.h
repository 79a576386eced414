/// @file
/// Intrusive reference counting for the library's interface objects, and the
/// lock that clients' ILockable implementations forward to.
#pragma once

#include <Core/Interfaces/Export.h>

#include <boost/thread/mutex.hpp>

#include <atomic>
#include <cstdint>

namespace Tarsel {

/// Counts its own references; shared through boost::intrusive_ptr. The count
/// is atomic, so references may be taken and dropped on any thread.
class TARSEL_API IRefCountable {
public:
    virtual ~IRefCountable();
    /// Adds one reference; returns the new count.
    virtual long AddRef() const = 0;
    /// A snapshot of the count.
    virtual long GetRefCount() const = 0;
    /// Drops one reference and returns the new count; the object destroys
    /// itself when the count reaches 0.
    virtual long Release() const = 0;
};

/// The counter an implementation holds as a member. It never destroys
/// anything: its owner does, when ReleaseImpl returns 0.
///
/// It keeps its owner copyable: a copy of a counted object is a new object,
/// which nothing references yet, so a copied counter starts at 0; assignment
/// copies an object's state, not the references to it, so an assigned counter
/// keeps its own count.
class TARSEL_API RefCountImpl {
public:
    /// A counter at 0.
    RefCountImpl() noexcept = default;
    /// A counter at 0: the copy is a new object.
    RefCountImpl(const RefCountImpl& /*other*/) noexcept {}
    /// Keeps this counter's count.
    RefCountImpl& operator=(const RefCountImpl& /*other*/) noexcept { return *this; }

    /// Atomic, sequentially consistent; returns the incremented count.
    long AddRefImpl() const noexcept { return m_count.fetch_add(1) + 1; }
    /// Atomic, sequentially consistent; returns the decremented count.
    /// Exactly one caller sees 0.
    long ReleaseImpl() const noexcept { return m_count.fetch_sub(1) - 1; }
    /// An unsynchronised snapshot.
    long GetRefCountImpl() const noexcept { return m_count.load(std::memory_order_relaxed); }

private:
    mutable std::atomic<std::int32_t> m_count{0};
};

/// The owner pattern for an interface derived from IRefCountable: holds the
/// counter and deletes the object on the last Release. Factories hand the
/// object out in a boost::intrusive_ptr, which takes the first reference.
/// The interface is a public virtual base, as interfaces are throughout the
/// library, so that an implementation that reaches it again through another
/// base still holds it once.
template <class Interface>
class TARSEL_API RefCounted : public virtual Interface {
public:
    /// Adds one reference; returns the new count. Never throws.
    long AddRef() const noexcept override { return m_refCount.AddRefImpl(); }
    /// A snapshot of the count.
    long GetRefCount() const noexcept override { return m_refCount.GetRefCountImpl(); }
    /// Drops one reference and returns the new count; deletes the object when
    /// it reaches 0. Never throws.
    long Release() const noexcept override {
        const long count = m_refCount.ReleaseImpl();
        if (count == 0) {
            delete this;
        }
        return count;
    }

protected:
    /// An object nothing references yet (count 0).
    RefCounted() = default;
    // What a factory hands out is shared, never copied: a copy of a file
    // stream, say, would close its file twice.
    RefCounted(const RefCounted&) = delete;
    RefCounted& operator=(const RefCounted&) = delete;

private:
    RefCountImpl m_refCount;
};

/// The hooks through which boost::intrusive_ptr reaches the count: AddRef
/// and Release of p.
///@{
TARSEL_API void intrusive_ptr_add_ref(const IRefCountable* p);
TARSEL_API void intrusive_ptr_release(const IRefCountable* p);
///@}

/// Something a client can lock, such as an object that forwards to a
/// LockImpl; AutoLock holds one for a scope.
class TARSEL_API ILockable {
public:
    virtual ~ILockable();
    /// Blocks until the lock is held.
    virtual void Lock() = 0;
    /// Takes the lock if it is free; true when it was taken.
    virtual bool TryLock() = 0;
    /// Releases the lock the caller holds.
    virtual void Unlock() = 0;
};

/// One non-recursive mutex. Calls interrupted by a signal are retried.
/// Failures throw boost::thread_resource_error (construction) or
/// boost::lock_error (Lock_Impl).
class TARSEL_API LockImpl {
public:
    /// An unlocked mutex.
    LockImpl();
    /// Must not be held.
    ~LockImpl();
    LockImpl(const LockImpl&) = delete;
    LockImpl& operator=(const LockImpl&) = delete;

    /// Blocks until the mutex is held by the calling thread; locking it again
    /// on that thread deadlocks.
    void Lock_Impl();
    /// Releases the mutex, which the calling thread holds.
    void Unlock_Impl();
    /// True when the lock was taken; false when busy or on any error. Never
    /// throws.
    bool TryLock_Impl() noexcept;

private:
    boost::mutex m_mutex;
};

/// Holds an ILockable locked for a scope; a null pointer makes it do nothing.
class TARSEL_API AutoLock {
public:
    /// Calls lockable->Lock(), unless lockable is null; what Lock throws
    /// passes through, and nothing is then held.
    explicit AutoLock(ILockable* lockable);
    /// An exception from Unlock here ends the process.
    ~AutoLock();
    AutoLock(const AutoLock&) = delete;
    AutoLock& operator=(const AutoLock&) = delete;

private:
    ILockable* m_lockable;
};

}  // namespace Tarsel
