// Holds ParamSet::mMutex for a scope. The mutex is mostly held for less than a microsecond, and waking a thread takes
// many, so the lock spins a bounded number of times before it sleeps. The macros tell clang which functions take and
// release a mutex, see PARAMSET_REQUIRES.

#ifndef PARAMSET_STORE_LOCK_H
#define PARAMSET_STORE_LOCK_H

#include <mutex>

#include "include/paramset.h"

#define PARAMSET_SCOPED_LOCK PARAMSET_LOCK_ATTRIBUTE(scoped_lockable)
#define PARAMSET_ACQUIRES(...) PARAMSET_LOCK_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define PARAMSET_RELEASES(...) PARAMSET_LOCK_ATTRIBUTE(release_capability(__VA_ARGS__))
// Turns the check off for a function that it cannot follow; a comment there says why.
#define PARAMSET_LOCKS_UNCHECKED PARAMSET_LOCK_ATTRIBUTE(no_thread_safety_analysis)

namespace zarn {

// Declared const, unless it is released before the end of its scope.
class PARAMSET_SCOPED_LOCK StoreLock {
public:
    explicit StoreLock(std::mutex& mutex) PARAMSET_ACQUIRES(mutex) : mMutex(mutex) { lock(); }
    ~StoreLock() PARAMSET_RELEASES() {
        if (mIsHeld) mMutex.unlock();
    }
    StoreLock(const StoreLock&) = delete;
    StoreLock& operator=(const StoreLock&) = delete;

    // Unchecked: clang does not know that mMutex is the mutex that the constructor was given.
    void lock() PARAMSET_ACQUIRES() PARAMSET_LOCKS_UNCHECKED {
        if (!mMutex.try_lock()) lockContended();
        mIsHeld = true;
    }
    void unlock() PARAMSET_RELEASES() PARAMSET_LOCKS_UNCHECKED {
        mMutex.unlock();
        mIsHeld = false;
    }

private:
    // Few: a longer spin delays the holder if both share a processor, and a hypervisor may take the processor away.
    static constexpr int kTries = 20;

    [[gnu::cold, gnu::noinline]] void lockContended() PARAMSET_LOCKS_UNCHECKED {
        for (int tries = kTries; tries > 0; --tries) {
            pause();
            if (mMutex.try_lock()) return;
        }
        mMutex.lock();
    }

    // Tells the processor that this thread is spinning.
    static void pause() {
#if defined(__x86_64__) || defined(__i386__)
        __builtin_ia32_pause();
#elif defined(__aarch64__)
        asm volatile("isb" : : : "memory");  // "yield" does nothing on most aarch64 processors
#endif
    }

    std::mutex& mMutex;
    bool mIsHeld = false;
};

}  // namespace zarn

#endif  // PARAMSET_STORE_LOCK_H
