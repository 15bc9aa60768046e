/* Strict lock and guard classes on POSIX mutexes. Misuse (leaving a lock
 * that is not held, destroying a held lock, re-entering a lock that is
 * marked as held) is a programming error and raises std::logic_error; it is
 * never turned into an error number. */
#ifndef PELAGON_SUPPORT_LOCKS_H
#define PELAGON_SUPPORT_LOCKS_H

#include <pthread.h>

#include <atomic>

#include <cstdint>

namespace quor::templates::patterns {

// Base of every lockable object. enter()/leave() add the held-state checks
// around the mutex operations that a concrete lock supplies.
class GenericLock {
public:
    GenericLock() = default;
    // Throws when the object dies while still marked as held.
    virtual ~GenericLock() noexcept(false);

    GenericLock(const GenericLock&) = delete;
    GenericLock& operator=(const GenericLock&) = delete;

    virtual void acquire() = 0;
    virtual bool try_acquire(unsigned int timeout) = 0;
    virtual void release() = 0;

    void enter();
    // One attempt through try_acquire; on success the same held-state check
    // as enter() applies. Returns whether the lock is now held.
    bool try_enter(unsigned int timeout);
    void leave();

protected:
    bool m_locked = false;

private:
    void markLocked();
};

// Holds a pointer-like handle to a lock; only an enabled guard releases the
// lock at its end.
template <typename T>
class Guard {
public:
    Guard(T guarded, bool enabled) : m_guarded_object(guarded), m_is_enabled(enabled) {}
    virtual ~Guard() noexcept(false) = default;

    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

    T getGuardedObject() const { return m_guarded_object; }
    bool isEnabled() const { return m_is_enabled; }
    void setEnabled(bool enabled) { m_is_enabled = enabled; }

protected:
    T m_guarded_object;
    bool m_is_enabled;
};

// Enters the lock on construction and leaves it at the end. With ownsLock the
// guard also destroys the lock object itself after leaving it. A null lock is
// tolerated and guards nothing.
class GenericLockGuard : public Guard<GenericLock*> {
public:
    explicit GenericLockGuard(GenericLock* lock);
    GenericLockGuard(GenericLock* lock, bool ownsLock);
    // Throws when the lock is no longer held at the guard's end.
    ~GenericLockGuard() noexcept(false) override;

protected:
    const bool m_ownsLock;
};

} // namespace quor::templates::patterns

namespace quor::templates::platform {

class CriticalSection : public patterns::GenericLock {
public:
    // Own, non-recursive, error-checking mutex.
    CriticalSection();
    // Works on a mutex that someone else initialised and will destroy.
    // A null mutex falls back to an own one.
    explicit CriticalSection(pthread_mutex_t* foreignLock);
    ~CriticalSection() noexcept(false) override;

    void acquire() override;
    // A single non-blocking attempt: timeout is ignored, there is no waiting.
    bool try_acquire(unsigned int timeout) override;
    void release() override;

protected:
    const bool m_foreignLock;
    pthread_mutex_t m_cs;
    pthread_mutex_t* m_lock;
};

class CriticalSectionGuard : public patterns::GenericLockGuard {
public:
    explicit CriticalSectionGuard(patterns::GenericLock* lock) : GenericLockGuard(lock) {}
    CriticalSectionGuard(patterns::GenericLock* lock, bool ownsLock) : GenericLockGuard(lock, ownsLock) {}
    ~CriticalSectionGuard() noexcept(false) override = default;
};

// Recursive mutex with a count of how deep the holder has locked it. The
// count is only meaningful to the thread that holds the mutex.
class RecursiveMutex {
public:
    RecursiveMutex();
    // Does not check the count: destroying a held mutex is the caller's bug.
    ~RecursiveMutex();

    RecursiveMutex(const RecursiveMutex&) = delete;
    RecursiveMutex& operator=(const RecursiveMutex&) = delete;

    void lock();
    bool trylock();
    void unlock();
    bool isLocked() const { return m_count.load(std::memory_order_relaxed) != 0; }

protected:
    // The count and the owner change only while the owner holds the mutex;
    // they are atomic because other threads may look at them (isLocked, an
    // unlock by a thread that does not hold the mutex).
    pthread_mutex_t m_mutex;
    pthread_mutexattr_t m_mutexattr;
    std::atomic<std::uint32_t> m_count{0};
    std::atomic<pthread_t> m_owner{};
};

class RecursiveMutexGuard : public patterns::Guard<RecursiveMutex*> {
public:
    // Locks at once unless lockNow is false. A null mutex guards nothing.
    explicit RecursiveMutexGuard(RecursiveMutex* mutex, bool lockNow = true);
    ~RecursiveMutexGuard() noexcept(false) override;

    void lockAndEnable();
    void unlockAndDisable();
};

} // namespace quor::templates::platform

#endif
