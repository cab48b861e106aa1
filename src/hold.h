// How a call keeps the store alive until it returns.
//
// One pointer, sCurrent, decides whether there is a store: for calls, for getInstance and for createInstance alike. It
// points to a record that counts the users of one store: the store's own existence, and each running call. A call adds
// itself unless the count is 0. destroyInstance clears the pointer, then removes the user that stands for the store's
// existence. Whoever removes the last user destroys the store. Records are reused and never freed: a call that has read
// the pointer may look at its record late, and then finds no users, or those of another store.
// tests/protocol/hold.pml is a model of this.

#ifndef PARAMSET_HOLD_H
#define PARAMSET_HOLD_H

#include <atomic>

#include "include/paramset.h"

namespace zarn {

// Keeps the store alive during one call. Empty if there is no store.
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

    // The store that calls find now, null if there is none. Does not keep it alive.
    static ParamSet* current();
    // Makes sInstance own a store, and lets calls find it. The caller keeps other threads from publishing meanwhile.
    static void publish(const std::shared_ptr<ParamSet>& store);
    // From now on no call finds the store, and sInstance no longer owns it.
    static void retire();
    // From now on no store is found or built. Waits for threads that build or retire one; the wait is bounded, because
    // this very thread may be one of them. Returns whether calls still use a store.
    static bool end();

    // Lives while a store is being built. One at a time.
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
        std::shared_ptr<ParamSet> mOwner;        // changed only while there is no other user
        Record* mNext = nullptr;                 // in the list of all records
    };

    static bool addUser(Record& record);
    static void release(Record& record) {
        if (record.mUsers.fetch_sub(1, std::memory_order_acq_rel) == 1) destroyStore(record);
    }
    // Rare, so it is kept out of the code of every call.
    [[gnu::cold]] static void destroyStore(Record& record);
    static Record& unusedRecord();

    static std::atomic<Record*> sCurrent;
    static Record* sRecords;  // all that were ever made
    static AtUnload sAtUnload;

    Record* mRecord = nullptr;
    ParamSet* mStore = nullptr;
};

inline ParamSet::Hold::Hold() {
    mRecord = sCurrent.load(std::memory_order_acquire);
    // If the record has no user, its store was retired after sCurrent was read: read again.
    while (mRecord != nullptr && !addUser(*mRecord)) mRecord = sCurrent.load(std::memory_order_acquire);
    if (mRecord != nullptr) mStore = mRecord->mStore.load(std::memory_order_relaxed);
}

inline bool ParamSet::Hold::addUser(Record& record) {
    size_t users = record.mUsers.load(std::memory_order_acquire);
    while (users != 0 && !record.mUsers.compare_exchange_weak(users, users + 1, std::memory_order_acquire)) {
    }
    return users != 0;
}

}  // namespace zarn

#endif  // PARAMSET_HOLD_H
