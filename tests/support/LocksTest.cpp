// The locks: critical sections, the recursive mutex and their guards, and
// each misuse they report.
#include "Locks.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <stdexcept>
#include <thread>
#include <type_traits>
#include <vector>

using quor::templates::patterns::GenericLockGuard;
using quor::templates::platform::CriticalSection;
using quor::templates::platform::CriticalSectionGuard;
using quor::templates::platform::RecursiveMutex;
using quor::templates::platform::RecursiveMutexGuard;

namespace {

const char* const kNotHeld = "GenericLock::leave() called with lock not held";
const char* const kDestroyedHeld = "GenericLock object destroyed with lock still held";

// Every misuse is reported as a std::logic_error with this message.
template <typename F>
void expectMisuse(const char* message, F&& f) {
    EXPECT_THAT(f, ::testing::ThrowsMessage<std::logic_error>(message));
}

struct ProbedSection : CriticalSection {
    using CriticalSection::CriticalSection;
    bool marked() const { return m_locked; }
};

struct ProbedMutex : RecursiveMutex {
    std::uint32_t count() const { return m_count; }
};

// Whether a thread other than the caller could take the lock right now.
template <typename Lock>
bool freeForOtherThread(Lock& lock) {
    bool got = false;
    std::thread([&] {
        if constexpr (std::is_base_of_v<RecursiveMutex, Lock>) {
            if ((got = lock.trylock())) lock.unlock();
        } else if ((got = lock.try_acquire(0))) {
            lock.release();
        }
    }).join();
    return got;
}

}  // namespace

TEST(SupportCriticalSection, GuardsInSequenceAndNestedGuard) {
    ProbedSection cs;
    for (int round = 0; round < 2; ++round) {
        CriticalSectionGuard guard(&cs);
        EXPECT_FALSE(freeForOtherThread(cs));
    }
    EXPECT_TRUE(freeForOtherThread(cs));
    {
        CriticalSectionGuard outer(&cs);
        expectMisuse("GenericLock object got lock but is already marked as locked",
                     [&] { CriticalSectionGuard inner(&cs); });
        EXPECT_TRUE(cs.marked()) << "the failed entry must not clear the outer hold";
    }
    // After the misuse the section is unmarked, unlocked and usable again.
    EXPECT_FALSE(cs.marked());
    EXPECT_TRUE(freeForOtherThread(cs));
}

TEST(SupportCriticalSection, TryOnLockHeldByAnotherThreadFailsAtOnce) {
    ProbedSection cs;
    {
        CriticalSectionGuard guard(&cs);
        bool acquired = true, entered = true;
        std::thread([&] {
            acquired = cs.try_acquire(1000);
            entered = cs.try_enter(1000);
        }).join();
        EXPECT_FALSE(acquired);
        EXPECT_FALSE(entered);
    }
    ASSERT_TRUE(cs.try_enter(0));
    EXPECT_TRUE(cs.marked());
    cs.leave();
}

TEST(SupportCriticalSection, DestroyedWhileHeldThrowsAndAForeignMutexIsNeverDestroyed) {
    auto* cs = new ProbedSection();
    CriticalSectionGuard guard(cs);
    guard.setEnabled(false);  // a disabled guard must not touch the lock at its end
    // Give the mutex itself back so that it is destroyed unlocked; the check
    // is about the section still being marked as held.
    cs->release();
    expectMisuse(kDestroyedHeld, [&] { delete cs; });

    // A foreign mutex is used but never destroyed: it is left exactly as it
    // was (held), for its owner to deal with.
    pthread_mutex_t foreign = PTHREAD_MUTEX_INITIALIZER;
    auto* section = new CriticalSection(&foreign);
    {
        CriticalSectionGuard held(section);
        EXPECT_EQ(pthread_mutex_trylock(&foreign), EBUSY);
        held.setEnabled(false);
        expectMisuse(kDestroyedHeld, [&] { delete section; });
    }
    EXPECT_EQ(pthread_mutex_trylock(&foreign), EBUSY);
    EXPECT_EQ(pthread_mutex_unlock(&foreign), 0);
    EXPECT_EQ(pthread_mutex_destroy(&foreign), 0);
}

TEST(SupportGuard, LeavingALockNotHeldThrowsAndOwningGuardsFreeTheirLock) {
    ProbedSection cs;
    expectMisuse(kNotHeld, [&] { cs.leave(); });
    // The guard's own end reports it when someone left the lock under it.
    expectMisuse(kNotHeld, [&] {
        CriticalSectionGuard guard(&cs);
        cs.leave();
    });
    EXPECT_TRUE(freeForOtherThread(cs));

    // An owning guard destroys its lock at its end, also when that end
    // reports misuse (the leak checker confirms it); null is tolerated.
    { GenericLockGuard guard(new CriticalSection(), true); }
    auto* other = new CriticalSection();
    expectMisuse(kNotHeld, [&] {
        GenericLockGuard guard(other, true);
        other->leave();
    });
    { GenericLockGuard guard(nullptr, true); }
    RecursiveMutexGuard guard(nullptr);
    guard.lockAndEnable();
    guard.unlockAndDisable();
}

TEST(SupportRecursiveMutex, CountsNestedLocksAndGuardsReleaseExactlyTheirOwnLevel) {
    ProbedMutex mutex;
    mutex.lock();
    mutex.lock();
    EXPECT_EQ(mutex.count(), 2u);
    mutex.unlock();
    EXPECT_TRUE(mutex.isLocked());
    EXPECT_FALSE(freeForOtherThread(mutex));
    // An unlock from a thread that does not hold it changes nothing.
    std::thread([&] { mutex.unlock(); }).join();
    EXPECT_EQ(mutex.count(), 1u);
    mutex.unlock();
    EXPECT_FALSE(mutex.isLocked());
    EXPECT_TRUE(freeForOtherThread(mutex));

    // Guards release exactly their own level.
    {
        RecursiveMutexGuard outer(&mutex);
        {
            RecursiveMutexGuard inner(&mutex);
            EXPECT_EQ(mutex.count(), 2u);
            inner.unlockAndDisable();
            inner.unlockAndDisable();  // already given back: no second unlock
            EXPECT_EQ(mutex.count(), 1u);
        }
        outer.lockAndEnable();  // already held: no extra level
        EXPECT_EQ(mutex.count(), 1u);
    }
    EXPECT_FALSE(mutex.isLocked());
}

// Many threads on one lock: every increment made under it survives, and the
// nested levels of the recursive mutex come off exactly. (A holder that takes
// its own section again is refused by giving the mutex back, which is only
// safe while no other thread waits; that rule is tested on one thread.)
TEST(SupportLocksUnderLoad, SectionsAndNestedMutexesKeepEveryUpdate) {
    constexpr int kThreads = 4, kRounds = 20000;
    CriticalSection section;
    ProbedMutex mutex;
    long underSection = 0, underMutex = 0;
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < kRounds; ++i) {
                {
                    CriticalSectionGuard guard(&section);
                    ++underSection;
                }
                RecursiveMutexGuard outer(&mutex);
                {
                    RecursiveMutexGuard inner(&mutex);
                    if (mutex.count() != 2) ++wrong;
                    ++underMutex;
                }
                if (mutex.count() != 1) ++wrong;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_EQ(underSection, long{kThreads} * kRounds);
    EXPECT_EQ(underMutex, long{kThreads} * kRounds);
    EXPECT_EQ(mutex.count(), 0u);
    EXPECT_TRUE(freeForOtherThread(section));
}
