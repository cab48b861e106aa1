// Waking the synchronous gets that wait on a record. Under ParamSet::mMutex, and a second time after it was released:
// the first notification misses a get that is still on its way into its wait.
// tests/protocol/wait.pml is a model of this, of sync_access.cpp and of the erase.

#ifndef PARAMSET_WAITERS_H
#define PARAMSET_WAITERS_H

#include <vector>

#include "include/paramset.h"
#include "src/relaxed.h"

namespace zarn {

constexpr int32_t kDelivered = 1;  // FrameStatus::mState
constexpr int32_t kWaitedFor = 2;

// A record whose waiters were notified under mMutex.
struct Woken {
    std::shared_ptr<ParamFrame> frame;  // keeps the record alive; null for frame 0's, which lives as long as its store
    FrameStatus* status = nullptr;      // null: nobody waited
    int32_t state = 0;                  // that the waiters were woken to; in another one there are others

    // mMutex not held.
    void wakeAgain() const {
        if (status != nullptr && loadRelaxed(status->mState) == state) status->mCond.notify_all();
    }
};

// mMutex held. Tells whether anybody waited.
inline bool wakeWaiters(FrameStatus& status) {
    if (status.mState != kWaitedFor) return false;
    status.mCond.notify_all();
    return true;
}

}  // namespace zarn

#endif  // PARAMSET_WAITERS_H
