// This file implements the reference-counting hooks and the lock types.
#include <Core/Interfaces/RefCount.h>

namespace Tarsel {

IRefCountable::~IRefCountable() = default;

void intrusive_ptr_add_ref(const IRefCountable* p) {
    p->AddRef();
}

void intrusive_ptr_release(const IRefCountable* p) {
    p->Release();
}

ILockable::~ILockable() = default;

// boost::mutex retries pthread calls that fail with EINTR, in construction,
// locking, unlocking and destruction alike.
LockImpl::LockImpl() = default;
LockImpl::~LockImpl() = default;

void LockImpl::Lock_Impl() {
    m_mutex.lock();
}

void LockImpl::Unlock_Impl() {
    m_mutex.unlock();
}

bool LockImpl::TryLock_Impl() noexcept {
    try {
        return m_mutex.try_lock();
    } catch (...) {
        return false;
    }
}

AutoLock::AutoLock(ILockable* lockable) : m_lockable(lockable) {
    if (m_lockable != nullptr) {
        m_lockable->Lock();
    }
}

AutoLock::~AutoLock() {
    if (m_lockable != nullptr) {
        m_lockable->Unlock();
    }
}

}  // namespace Tarsel
