// How calls keep the store alive, and how it is destroyed: src/hold.h, src/hold.cpp, and createInstance and
// destroyInstance in src/paramset.cpp. Each atomic access of the code is a separate step; code that only one thread can
// observe is part of the step before. Records and stores are numbers, 0 is null. The names are those of the code.
//
// CALLERS, CREATORS and DESTROYERS are the numbers of processes, TIMES is how often each one acts. UNLOAD adds the
// unloading of the library. FAULT_... plants a fault that must be found.

#ifndef CALLERS
#define CALLERS 1
#endif
#ifndef CREATORS
#define CREATORS 1
#endif
#ifndef DESTROYERS
#define DESTROYERS 1
#endif
#ifndef TIMES
#define TIMES 2
#endif

#define STORES (CREATORS * TIMES)
#define RECORDS STORES

typedef Record {
    byte mUsers;
    byte mStore;
    byte mOwner
};
Record record[RECORDS + 1];
byte recordsMade = 0;  // sRecords
byte sCurrent = 0;
byte sInstance = 0;
bool sInstanceMutex = false;
bool sIsRunning = false;
bool sIsRefused = false;
bool hasEnded = false;  // Hold::end has returned

byte storesMade = 0;
byte shares[STORES + 1];  // number of shared pointers to each store
bool isAlive[STORES + 1];

// A shared pointer is destroyed.
inline dropShare(store) {
    if
    :: store != 0 ->
        assert(shares[store] > 0);
        shares[store]--;
        if
        :: shares[store] == 0 -> isAlive[store] = false
        :: else
        fi
    :: else
    fi
}

inline destroyStore(r) {
#ifdef FAULT_UNUSED_TOO_EARLY
    record[r].mStore = 0;
    atomic { last = record[r].mOwner; record[r].mOwner = 0 };
#else
    atomic { last = record[r].mOwner; record[r].mOwner = 0 };
    record[r].mStore = 0;
#endif
    atomic { dropShare(last); last = 0 }
}

inline release(r) {
    atomic {
        assert(record[r].mUsers > 0);
        record[r].mUsers--;
        isLast = record[r].mUsers == 0
    };
    if
    :: isLast -> destroyStore(r)
    :: else
    fi
}

// If there is no store, `held` stays 0.
inline hold() {
    do
    :: atomic { held = sCurrent; users = 0; isAdded = false };
        if
        :: held == 0 -> break
        :: else -> skip
        fi;
#ifdef FAULT_COUNT_FROM_ZERO
        atomic { record[held].mUsers++; isAdded = true };
#else
        users = record[held].mUsers;
        do
        :: users == 0 -> break
        :: else ->
            atomic {
                if
                :: record[held].mUsers == users -> record[held].mUsers++; isAdded = true; break
                :: else -> users = record[held].mUsers
                fi
            }
        od;
#endif
        if
        :: isAdded -> break
        :: else -> skip
        fi
    od;
    users = 0
}

proctype Caller() {
    byte held, users, store, last, times;
    bool isAdded, isLast, isLate;
    do
    :: times < TIMES ->
        atomic { times++; isLate = hasEnded };
        hold();
        if
        :: held != 0 ->
            store = record[held].mStore;
            assert(!isLate);
            assert(store != 0 && isAlive[store]);  // the call begins to use it
            assert(isAlive[store]);                // and ends
            release(held);
            atomic { held = 0; store = 0 }
        :: else -> skip
        fi
    :: else -> break
    od
}

inline publish() {
    // unusedRecord
    r = 1;
    do
    :: r > recordsMade -> atomic { recordsMade++; r = recordsMade }; break
    :: r <= recordsMade && record[r].mStore == 0 -> break
    :: r <= recordsMade && record[r].mStore != 0 -> r++
    od;
    atomic {
        assert(record[r].mOwner == 0);
        record[r].mOwner = instance;
        shares[instance]++
    };
#ifdef FAULT_USER_BEFORE_STORE
    record[r].mUsers = 1;
    record[r].mStore = instance;
#else
    record[r].mStore = instance;
    record[r].mUsers = 1;
#endif
    atomic { last = sInstance; sInstance = instance; shares[instance]++; dropShare(last); last = 0 };
    sCurrent = r
}

inline createInstance() {
    if
    :: sCurrent != 0 -> skip
    :: else ->
#ifndef FAULT_CREATION_UNLOCKED
        atomic { !sInstanceMutex -> sInstanceMutex = true };
#endif
        if
        :: sCurrent != 0 -> skip
        :: else ->
            sIsRunning = true;
            if
            :: sIsRefused -> skip
            :: else ->
                atomic {
                    storesMade++;
                    instance = storesMade;
                    isAlive[instance] = true;
                    shares[instance] = 1
                };
                publish();
                atomic { dropShare(instance); instance = 0; r = 0 }
            fi;
            sIsRunning = false
        fi;
        sInstanceMutex = false
    fi
}

proctype Creator() {
    byte instance, r, last, times;
    do
    :: times < TIMES -> times++; createInstance()
    :: else -> break
    od
}

inline retire() {
#ifdef FAULT_RETIRE_IN_TWO_STEPS
    r = sCurrent;
    sCurrent = 0;
#else
    atomic { r = sCurrent; sCurrent = 0 };
#endif
    if
    :: r == 0 -> skip
    :: else ->
        atomic { store = record[r].mOwner; shares[store]++ };
        atomic {
            if
#ifdef FAULT_RETIRE_ANY_INSTANCE
            :: sInstance != 0 -> dropShare(sInstance); sInstance = 0
#else
            :: sInstance == store -> dropShare(sInstance); sInstance = 0
#endif
            :: else
            fi
        };
        atomic { dropShare(store); store = 0 };
#ifndef FAULT_RETIRE_WITHOUT_RELEASE
        release(r);
#endif
        r = 0
    fi
}

proctype Destroyer() {
    byte r, store, last, times;
    bool isLast;
    do
    :: times < TIMES -> times++; retire()
    :: else -> break
    od
}

// Hold::end. In the code its waits are bounded, because a thread might wait for itself. Here the waits are not bounded.
proctype Unload() {
    byte r, store, last;
    bool isLast, callsStillRun;
#ifdef FAULT_REFUSE_TOO_LATE
    !sIsRunning;
    sIsRefused = true;
#else
    sIsRefused = true;
    !sIsRunning;
#endif
    retire();
    sInstance == 0;
    r = 1;
    do
    :: r <= recordsMade && record[r].mStore != 0 -> callsStillRun = true; break
    :: r <= recordsMade && record[r].mStore == 0 -> r++
    :: r > recordsMade -> break
    od;
    atomic {
        hasEnded = true;
        assert(sCurrent == 0 && sInstance == 0);
        // If no call runs, only the thread that destroys a store may still have a shared pointer to it.
        r = 1;
        do
        :: r <= STORES -> assert(callsStillRun || shares[r] <= 1); r++
        :: else -> break
        od
    }
}

inline checkNothingIsLeft() {
    i = 1;
    do
    :: i <= STORES -> assert(!isAlive[i] && shares[i] == 0); i++
    :: else -> break
    od;
    i = 1;
    do
    :: i <= RECORDS -> assert(record[i].mUsers == 0 && record[i].mStore == 0 && record[i].mOwner == 0); i++
    :: else -> break
    od;
    i = 0
}

init {
    byte i, r, store, last;
    bool isLast;
    atomic {
        do
        :: i < CALLERS -> run Caller(); i++
        :: else -> break
        od;
        i = 0;
        do
        :: i < CREATORS -> run Creator(); i++
        :: else -> break
        od;
        i = 0;
        do
        :: i < DESTROYERS -> run Destroyer(); i++
        :: else -> break
        od;
#ifdef UNLOAD
        run Unload();
#endif
        i = 0
    };
    // All processes have ended. sCurrent and sInstance are for the same store, or both null.
    _nr_pr == 1;
    atomic {
        assert((sCurrent == 0) == (sInstance == 0));
        assert(sCurrent == 0 || record[sCurrent].mStore == sInstance && isAlive[sInstance]);
#ifdef UNLOAD
        assert(sCurrent == 0);
#endif
        retire();
        checkNothingIsLeft()
    }
}
