// How a call keeps the store alive until it returns.
//
// One pointer, sCurrent, decides whether there is a store: for calls, for getInstance and for createInstance alike. It
// points to a record that counts the users of one store: the store's own existence, and each running call. A call adds
// itself unless the count is 0. destroyInstance takes the pointer away, and then the user that stands for the store's
// existence; whoever takes the last user away destroys the store. Records are reused and never freed, so that a call
// may look at one late: it then finds no users, or those of another store.
// tests/protocol/hold.pml is a model of this.

#ifndef PARAMSET_HOLD_H
#define PARAMSET_HOLD_H

#include <atomic>

#include "include/paramset.h"

namespace zarn {

// The store for the length of one call; none if there is none.
class ParamSet::Hold {
public:
    Hold();
    ~Hold() {
        if (mRecord != nullptr) release(*mRecord);
    }
    Hold(const Hold&) = delete;
    Hold& operator=(const Hold&) = delete;

    explicit operator bool() const { return mStore != nullptr; }
    ParamSet* operator->() const { return mStore; }
    ParamSet& operator*() const { return *mStore; }

    // The store that calls find now, not held; null if there is none.
    static ParamSet* current();
    // Makes sInstance own a store, and lets calls find it. Calls to this exclude one another.
    static void publish(const std::shared_ptr<ParamSet>& store);
    // Lets no further call find the store, and takes it from sInstance.
    static void retire();
    // Lets no store be found or built any more. Waits for threads that build or retire one, but not for long: it may be
    // this very thread. Tells whether calls still use a store.
    static bool end();

    // The building of a store, for as long as this lives. One at a time.
    class Creation {
    public:
        Creation() { sIsRunning = true; }
        ~Creation() { sIsRunning = false; }
        bool isRefused() const { return sIsRefused; }
        static void refuse() { sIsRefused = true; }
        static bool isRunning() { return sIsRunning; }

    private:
        static std::atomic<bool> sIsRunning;
        static std::atomic<bool> sIsRefused;
    };

    // Ends the store and the registrations when the library is unloaded.
    struct AtUnload {
        ~AtUnload();
    };

private:
    struct Record {
        std::atomic<size_t> mUsers{0};           // 0: unused, or its store is being destroyed
        std::atomic<ParamSet*> mStore{nullptr};  // null: unused
        std::shared_ptr<ParamSet> mOwner;        // changed only while nobody else is a user
        Record* mNext = nullptr;                 // of all records
    };

    static bool addUser(Record& record);
    static void release(Record& record) {
        if (record.mUsers.fetch_sub(1, std::memory_order_acq_rel) == 1) destroyStore(record);
    }
    // Rare, and kept out of the calls' way.
    [[gnu::cold]] static void destroyStore(Record& record);
    static Record& unusedRecord();

    static std::atomic<Record*> sCurrent;
    static Record* sRecords;  // all that were ever made
    static AtUnload sAtUnload;

    Record* mRecord = nullptr;
    ParamSet* mStore = nullptr;
};

inline ParamSet::Hold::Hold() {
    // Without a user the record has lost its store since it was read here: look again.
    while (Record* record = sCurrent.load(std::memory_order_acquire)) {
        if (!addUser(*record)) continue;
        mRecord = record;
        mStore = record->mStore.load(std::memory_order_relaxed);
        return;
    }
}

inline bool ParamSet::Hold::addUser(Record& record) {
    size_t users = record.mUsers.load(std::memory_order_acquire);
    while (users != 0) {
        if (record.mUsers.compare_exchange_weak(users, users + 1, std::memory_order_acquire)) return true;
    }
    return false;
}

}  // namespace zarn

#endif  // PARAMSET_HOLD_H
