// A library to be preloaded: it makes a thread miss the wake-ups of its waits, as if each had come just before the wait
// began. Such a wait ends by its time-out.

#include <dlfcn.h>
#include <pthread.h>
#include <time.h>

#include <cerrno>

namespace {

thread_local bool tMissed = false;

}  // namespace

extern "C" __attribute__((visibility("default"))) void missWakeUps(int missed) {
    tMissed = missed != 0;
}

extern "C" __attribute__((visibility("default"))) int pthread_cond_clockwait(pthread_cond_t* cond,
                                                                             pthread_mutex_t* mutex, clockid_t clock,
                                                                             const timespec* time) {
    using Wait = decltype(&pthread_cond_clockwait);
    static const auto real = reinterpret_cast<Wait>(dlsym(RTLD_NEXT, "pthread_cond_clockwait"));
    if (!tMissed) return real(cond, mutex, clock, time);
    pthread_mutex_unlock(mutex);
    while (clock_nanosleep(clock, TIMER_ABSTIME, time, nullptr) == EINTR) {
    }
    pthread_mutex_lock(mutex);
    return ETIMEDOUT;
}
