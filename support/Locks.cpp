#include "Locks.h"

#include <stdexcept>

namespace quor::templates::patterns {

GenericLock::~GenericLock() noexcept(false)
{
    if (m_locked) {
        throw std::logic_error("GenericLock object destroyed with lock still held");
    }
}

void GenericLock::markLocked()
{
    if (m_locked) {
        // We own the mutex now, so give it back before reporting the misuse;
        // otherwise the caller would unwind with the mutex still taken.
        release();
        throw std::logic_error("GenericLock object got lock but is already marked as locked");
    }
    m_locked = true;
}

void GenericLock::enter()
{
    acquire();
    markLocked();
}

bool GenericLock::try_enter(unsigned int timeout)
{
    if (!try_acquire(timeout)) {
        return false;
    }
    markLocked();
    return true;
}

void GenericLock::leave()
{
    if (!m_locked) {
        throw std::logic_error("GenericLock::leave() called with lock not held");
    }
    m_locked = false;
    release();
}

GenericLockGuard::GenericLockGuard(GenericLock* lock) : GenericLockGuard(lock, false) {}

GenericLockGuard::GenericLockGuard(GenericLock* lock, bool ownsLock)
    : Guard<GenericLock*>(lock, true), m_ownsLock(ownsLock)
{
    if (m_guarded_object != nullptr) {
        m_guarded_object->enter();
    }
}

GenericLockGuard::~GenericLockGuard() noexcept(false)
{
    if (m_guarded_object == nullptr) {
        return;
    }
    if (m_is_enabled) {
        try {
            m_guarded_object->leave();
        } catch (...) {
            // The misuse is still reported, but an owned lock is not leaked
            // on the way out (a lock that was not held destroys quietly).
            if (m_ownsLock) {
                delete m_guarded_object;
            }
            throw;
        }
    }
    if (m_ownsLock) {
        delete m_guarded_object;
    }
}

} // namespace quor::templates::patterns

namespace quor::templates::platform {

CriticalSection::CriticalSection() : CriticalSection(nullptr) {}

CriticalSection::CriticalSection(pthread_mutex_t* foreignLock)
    : m_foreignLock(foreignLock != nullptr), m_cs(), m_lock(foreignLock)
{
    if (!m_foreignLock) {
        // Error-checking: a thread that tries to take the section twice gets
        // an error back instead of deadlocking, and enter() then reports it.
        pthread_mutexattr_t attr;
        pthread_mutexattr_init(&attr);
        pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_ERRORCHECK);
        pthread_mutex_init(&m_cs, &attr);
        pthread_mutexattr_destroy(&attr);
        m_lock = &m_cs;
    }
}

CriticalSection::~CriticalSection() noexcept(false)
{
    if (!m_foreignLock) {
        pthread_mutex_destroy(&m_cs);
    }
}

void CriticalSection::acquire()
{
    pthread_mutex_lock(m_lock);
}

bool CriticalSection::try_acquire(unsigned int /*timeout*/)
{
    return pthread_mutex_trylock(m_lock) == 0;
}

void CriticalSection::release()
{
    pthread_mutex_unlock(m_lock);
}

RecursiveMutex::RecursiveMutex() : m_mutex(), m_mutexattr()
{
    pthread_mutexattr_init(&m_mutexattr);
    pthread_mutexattr_settype(&m_mutexattr, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&m_mutex, &m_mutexattr);
}

RecursiveMutex::~RecursiveMutex()
{
    pthread_mutex_destroy(&m_mutex);
    pthread_mutexattr_destroy(&m_mutexattr);
}

// The count follows only calls that succeeded: an unlock by a thread that does
// not hold the mutex must not corrupt the holder's count (or wrap it).
void RecursiveMutex::lock()
{
    if (pthread_mutex_lock(&m_mutex) == 0) {
        m_owner.store(pthread_self(), std::memory_order_relaxed);
        ++m_count;
    }
}

bool RecursiveMutex::trylock()
{
    if (pthread_mutex_trylock(&m_mutex) != 0) {
        return false;
    }
    m_owner.store(pthread_self(), std::memory_order_relaxed);
    ++m_count;
    return true;
}

// The holder takes its level off the count before it gives the mutex away,
// so the next holder never sees a stale count; anyone else's unlock is
// refused by the mutex and leaves the count alone.
void RecursiveMutex::unlock()
{
    if (m_count.load(std::memory_order_relaxed) != 0 &&
        pthread_equal(m_owner.load(std::memory_order_relaxed), pthread_self())) {
        if (--m_count == 0) {
            m_owner.store(pthread_t{}, std::memory_order_relaxed);
        }
    }
    pthread_mutex_unlock(&m_mutex);
}

RecursiveMutexGuard::RecursiveMutexGuard(RecursiveMutex* mutex, bool lockNow) : Guard<RecursiveMutex*>(mutex, false)
{
    if (lockNow) {
        lockAndEnable();
    }
}

RecursiveMutexGuard::~RecursiveMutexGuard() noexcept(false)
{
    if (m_is_enabled && m_guarded_object != nullptr) {
        m_guarded_object->unlock();
    }
}

// Both are idempotent so that the guard never holds more levels than it will
// give back at its end.
void RecursiveMutexGuard::lockAndEnable()
{
    if (m_guarded_object != nullptr && !m_is_enabled) {
        m_guarded_object->lock();
        m_is_enabled = true;
    }
}

void RecursiveMutexGuard::unlockAndDisable()
{
    if (m_guarded_object != nullptr && m_is_enabled) {
        m_guarded_object->unlock();
        m_is_enabled = false;
    }
}

} // namespace quor::templates::platform
