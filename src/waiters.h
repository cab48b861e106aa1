// Waking the synchronous gets that wait on a record. They are notified with ParamSet::mMutex held, and again after it
// was released: the first notification misses a get that has released mMutex but does not wait yet.
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
    FrameStatus* status = nullptr;      // null: no get waited
    int32_t state = 0;                  // after the first notification; if it has changed, there is no second one

    // mMutex not held.
    void wakeAgain() const {
        if (status != nullptr && loadRelaxed(status->mState) == state) status->mCond.notify_all();
    }
};

// mMutex held. Returns whether any get waited.
inline bool wakeWaiters(FrameStatus& status) {
    if (status.mState != kWaitedFor) return false;
    status.mCond.notify_all();
    return true;
}

}  // namespace zarn

#endif  // PARAMSET_WAITERS_H
