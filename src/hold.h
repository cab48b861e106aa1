// How a call holds the store alive until it returns. sInstance owns the store, and the standard's atomic operations on
// it lock: they cost as much as the rest of a small get. So the same pointer stands beside it bare (sCurrent), and a
// call announces in a slot which store it uses. destroyInstance hands a counted reference to every call that announced
// the store, in its slot, and the last one to let go destroys the store. A call whose slot is taken brings a slot of
// its own, with a reference that it counted by the standard's means.

#ifndef PARAMSET_HOLD_H
#define PARAMSET_HOLD_H

#include <pthread.h>

#include <atomic>

#include "include/paramset.h"

namespace zarn {

// The store for the length of one call; none if there is none. Made and let go on the same thread.
class ParamSet::Hold {
public:
    Hold();
    ~Hold();
    Hold(const Hold&) = delete;
    Hold& operator=(const Hold&) = delete;

    explicit operator bool() const { return mStore != nullptr; }
    ParamSet* operator->() const { return mStore; }

    // Makes sInstance own a store, and lets calls find it.
    static void publish(const std::shared_ptr<ParamSet>& store);
    // Takes the store from sInstance, if there is one, and hands it over to the calls that have found it.
    static void retire();

    // Retires the store when the library is unloaded.
    struct AtUnload {
        ~AtUnload() { retire(); }
    };

private:
    using Reference = std::shared_ptr<ParamSet>;

    // Null: free. Else taken by one call, and either the ParamSet that it uses, or a Reference that it is to delete.
    using Slot = std::atomic<void*>;
    struct alignas(64) SharedSlot {
        Slot mSlot;
    };
    static constexpr int kSlotBits = 5;

    // Slots of threads may coincide. A thread-local object would not do: not every platform has cheap ones.
    static Slot& slotOfThread() {
        constexpr uint64_t kSpread = 0x9E3779B97F4A7C15u;  // 2^64 by the golden ratio
        return sSlots[(static_cast<uint64_t>(pthread_self()) * kSpread) >> (64 - kSlotBits)].mSlot;
    }
    void letGo();
    // Rare, and kept out of the calls' way.
    [[gnu::cold]] void holdAgain();
    [[gnu::cold]] void holdCounted();
    [[gnu::cold]] void deleteReference(void* reference);

    static SharedSlot sSlots[1 << kSlotBits];
    static std::atomic<ParamSet*> sCurrent;
    static AtUnload sAtUnload;

    ParamSet* mStore;
    Slot* mSlot = nullptr;  // taken by this call; null if there is no store
    Slot mOwn;              // used if the shared one is taken
};

inline ParamSet::Hold::Hold() : mStore(sCurrent.load()) {
    if (mStore == nullptr) return;
    mSlot = &slotOfThread();
    void* use = nullptr;
    if (!mSlot->compare_exchange_strong(use, mStore)) {
        holdCounted();
    } else if (sCurrent.load() != mStore) {
        // Retired while it was announced, perhaps before its announcement could be seen.
        holdAgain();
    }
}

inline ParamSet::Hold::~Hold() {
    if (mSlot != nullptr) letGo();
}

inline void ParamSet::Hold::letGo() {
    void* use = mSlot->exchange(nullptr);
    if (use != mStore) deleteReference(use);
}

}  // namespace zarn

#endif  // PARAMSET_HOLD_H
