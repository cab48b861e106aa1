// How a store is published, retired and destroyed. Takes no lock; createInstance lets one thread at a time publish.

#include "src/hold.h"

#include "src/attempts.h"

namespace zarn {

std::atomic<ParamSet::Hold::Record*> ParamSet::Hold::sCurrent{nullptr};
ParamSet::Hold::Record* ParamSet::Hold::sRecords = nullptr;
std::atomic<bool> ParamSet::Hold::Creation::sIsRunning{false};
std::atomic<bool> ParamSet::Hold::Creation::sIsRefused{false};

ParamSet* ParamSet::Hold::current() {
    const Record* record = sCurrent.load(std::memory_order_acquire);
    return record != nullptr ? record->mStore.load(std::memory_order_relaxed) : nullptr;
}

void ParamSet::Hold::publish(const std::shared_ptr<ParamSet>& store) {
    Record& record = unusedRecord();
    record.mOwner = store;
    record.mStore.store(store.get(), std::memory_order_relaxed);
    record.mUsers.store(1, std::memory_order_release);
    // sCurrent is what calls look at. It is set last here and cleared first in retire, so a call that finds it null
    // finds no store anywhere.
    std::atomic_store(&sInstance, store);
    sCurrent.store(&record, std::memory_order_release);
}

void ParamSet::Hold::retire() {
    Record* record = sCurrent.exchange(nullptr, std::memory_order_acq_rel);
    if (record == nullptr) return;
    // If another store was published meanwhile, sInstance keeps that one.
    std::shared_ptr<ParamSet> store = record->mOwner;
    std::atomic_compare_exchange_strong(&sInstance, &store, std::shared_ptr<ParamSet>());
    store.reset();
    release(*record);
}

bool ParamSet::Hold::end() {
    const Attempts attempts(std::chrono::seconds(1));  // longer than the building of a store takes
    Creation::refuse();
    while (Creation::isRunning() && attempts.another()) {
    }
    retire();
    while (std::atomic_load(&sInstance) != nullptr && attempts.another()) {
    }
    for (const Record* record = sRecords; record != nullptr; record = record->mNext) {
        if (record->mStore.load(std::memory_order_acquire) != nullptr) return true;
    }
    return false;
}

void ParamSet::Hold::destroyStore(Record& record) {
    const std::shared_ptr<ParamSet> last = std::move(record.mOwner);
    record.mStore.store(nullptr, std::memory_order_release);
}

ParamSet::Hold::Record& ParamSet::Hold::unusedRecord() {
    for (Record* record = sRecords; record != nullptr; record = record->mNext) {
        if (record->mStore.load(std::memory_order_acquire) == nullptr) return *record;
    }
    auto* record = new Record;
    record->mNext = sRecords;
    return *(sRecords = record);
}

}  // namespace zarn
