// The rare paths of holding the store: no slot is free, and the store is destroyed. No lock; every access to a slot and
// to sCurrent is sequentially consistent, since an announcement must not pass the look at sCurrent that follows it.

#include "src/hold.h"

namespace zarn {

ParamSet::Hold::SharedSlot ParamSet::Hold::sSlots[1 << kSlotBits];
std::atomic<ParamSet*> ParamSet::Hold::sCurrent{nullptr};

void ParamSet::Hold::publish(const std::shared_ptr<ParamSet>& store) {
    // In this order, so that nobody can destroy it between the two: what sInstance does not own stays.
    sCurrent.store(store.get());
    std::atomic_store(&sInstance, store);
}

void ParamSet::Hold::retire() {
    // Until the end of this function no other store can have its address.
    const std::shared_ptr<ParamSet> store = std::atomic_exchange(&sInstance, std::shared_ptr<ParamSet>());
    if (store == nullptr) return;
    ParamSet* current = store.get();
    sCurrent.compare_exchange_strong(current, nullptr);
    for (SharedSlot& shared : sSlots) {
        Slot& slot = shared.mSlot;
        void* use = store.get();
        if (slot.load() != use) continue;
        auto* reference = new Reference(store);
        // The call may have let go since.
        if (!slot.compare_exchange_strong(use, reference)) delete reference;
    }
}

void ParamSet::Hold::holdCounted() {
    auto* reference = new Reference(std::atomic_load(&sInstance));
    mStore = reference->get();
    std::atomic_init(&mOwn, static_cast<void*>(reference));
    mSlot = &mOwn;
}

void ParamSet::Hold::holdAgain() {
    letGo();
    holdCounted();
}

void ParamSet::Hold::deleteReference(void* reference) {
    delete static_cast<Reference*>(reference);
}

}  // namespace zarn
