// Registrations that are published while operations look them up: src/tag_table.h, src/tag_table.cpp, and register_tag
// in src/paramset.cpp. Each change of what operations read without gRigisterMutex is a separate step; other code that
// runs with it held is part of the step before. The names are those of the code. All tags hash to the same slot. An
// entry of the map and the RegisteredTag that was made for it are one number; 0 is null.
//
// REGISTRARS is the number of registering processes (for the tags 1, 2, ... TAGS, and again from 1). STORES is the
// number of stores, each with OPERATIONS operations. REMOVER removes a tag from the map while nothing else runs. EXIT
// unloads the library meanwhile; it waits for as long as it must, because there is no time here.
// FAULT_... plants a fault that must be found.

#ifndef REGISTRARS
#define REGISTRARS 2
#endif
#ifndef STORES
#define STORES 1
#endif
#ifndef OPERATIONS
#define OPERATIONS 1
#endif
#ifndef TAGS
#define TAGS 2
#endif

// Entries of the map: from registrations, and from operations that add one.
#define ENTRIES (REGISTRARS + STORES * OPERATIONS * 2)
#define FEWEST_SLOTS 4
#define MOST_SLOTS 8
#define TABLES (2 + REGISTRARS + STORES * OPERATIONS)

typedef Entry {
    byte id;
    bool isWhole;  // all of its fields are written
    bool isAlive
};
Entry entry[ENTRIES + 1];
byte entriesMade = 0;
byte gTagInfo[TAGS + 1];  // the map: id to entry
bool gRigisterMutex = false;

typedef Slots {
    byte mask;
    byte count;
    byte slot[MOST_SLOTS];
    bool isAlive
};
Slots table[TABLES + 1];
byte tablesMade = 0;
byte sSlots = 0;
byte sReaders = 0;

byte callsRunning = 0;          // running registrations, and stores
bool isRegistered[TAGS + 1];    // a registration of the tag has returned

bool sHasEnded = false;
byte storesAlive = 0;           // including those that are destroyed, but still in use
byte sUses = 0;                 // of TagTable::MapUse
byte sReadings = 0;             // of TagTable::Reading
bool isMapAlive = true;         // not destroyed yet

#define LOCK atomic { !gRigisterMutex -> gRigisterMutex = true }
#define UNLOCK gRigisterMutex = false

// MapUse, and the look at hasEnded that follows it. The mutex is held; if the registry has ended, releases it.
inline beginUse() {
#ifdef FAULT_LOOK_BEFORE_USE
    isHeld = !sHasEnded;
    sUses++;
#else
    sUses++;
    isHeld = !sHasEnded;
#endif
    if
    :: !isHeld -> UNLOCK; sUses--
    :: else -> skip
    fi
}

inline endUse() {
    UNLOCK;
    sUses--
}

// RegistryTry. One try is enough here: several tries have the same effect as one that comes later.
inline tryLock() {
    atomic {
        if
        :: !gRigisterMutex && !sHasEnded -> gRigisterMutex = true; isHeld = true
        :: else -> isHeld = false
        fi
    };
    if
    :: isHeld -> beginUse()
    :: else -> skip
    fi
}

inline addEntry(id) {
    assert(isMapAlive);
    entriesMade++;
    assert(entriesMade <= ENTRIES);
    entry[entriesMade].id = id;
    entry[entriesMade].isAlive = true;
    gTagInfo[id] = entriesMade
}

// TagTable::find, without the mutex.
inline find(id) {
    s = sSlots;
    found = 0;
    i = 0;
    do
    :: s == 0 -> break
    :: s != 0 ->
        atomic {
            assert(table[s].isAlive);
            found = table[s].slot[i & table[s].mask];
            i++
        };
        if
        :: found == 0 || entry[found].id == id -> break
        :: else -> skip
        fi
    od;
    atomic { s = 0; i = 0 }
}

// TagTable::put into a table that is not published yet.
inline fill(into, which) {
    i = 0;
    do
    :: table[into].slot[i] == 0 || entry[table[into].slot[i]].id == entry[which].id -> break
    :: else -> i++
    od;
    if
    :: table[into].slot[i] == 0 -> table[into].count++
    :: else
    fi;
    table[into].slot[i] = which;
    i = 0
}

// TagTable::rebuild. The mutex is held.
inline rebuild() {
    atomic {
        tablesMade++;
        assert(tablesMade <= TABLES);
        s = tablesMade;
        table[s].isAlive = true;
        table[s].mask = FEWEST_SLOTS - 1;
        j = 1;
        do
        :: j <= TAGS && gTagInfo[j] != 0 -> mapSize++; j++
        :: j <= TAGS && gTagInfo[j] == 0 -> j++
        :: else -> break
        od;
        if
        :: mapSize > 1 -> table[s].mask = MOST_SLOTS - 1
        :: else
        fi;
        j = 1;
        mapSize = 0
    };
#ifdef FAULT_TABLE_PUBLISHED_EMPTY
    sSlots = s;
#endif
    atomic {
        do
        :: j <= TAGS && gTagInfo[j] != 0 -> fill(s, gTagInfo[j]); j++
        :: j <= TAGS && gTagInfo[j] == 0 -> j++
        :: else -> break
        od;
        j = 0
    };
#ifdef FAULT_OLD_TABLE_FREED
    atomic { table[sSlots].isAlive = false; sSlots = s; s = 0 }
#else
    atomic { sSlots = s; s = 0 }
#endif
}

// TagTable::publish. The mutex is held.
inline publish(which) {
    if
    :: sSlots == 0 -> rebuild()
    :: else -> skip
    fi;
    atomic { fill(sSlots, which) };
    if
    :: 2 * table[sSlots].count > table[sSlots].mask -> rebuild()
    :: else -> skip
    fi
}

// TagReader::readMap. The mutex is held.
inline readMap() {
    atomic {
        assert(isMapAlive);
        // Finds an entry of the map that is not in the table.
        missing = 0;
        j = 1;
        do
        :: j <= TAGS && gTagInfo[j] != 0 ->
            isThere = false;
            i = 0;
            do
            :: sSlots != 0 && i <= table[sSlots].mask ->
                isThere = isThere || table[sSlots].slot[i] == gTagInfo[j];
                i++
            :: else -> break
            od;
            if
            :: !isThere -> missing = j
            :: else
            fi;
            mapSize++;
            j++
        :: j <= TAGS && gTagInfo[j] == 0 -> j++
        :: else -> break
        od;
        isThere = sSlots != 0 && missing == 0 && table[sSlots].count == mapSize;
        i = 0;
        j = 0;
        mapSize = 0
    };
    if
    :: sReaders != 0 && missing != 0 -> publish(gTagInfo[missing])  // publishMissing: one at most here
    :: sReaders == 0 && !isThere -> rebuild()
    :: else -> skip
    fi;
    atomic {
        missing = 0;
        isThere = false;
        if
        :: !hasRead -> sReaders++; hasRead = true
        :: else
        fi
    }
}

// TagReader::find.
inline findInStore(id) {
    find(id);
#ifndef FAULT_TABLE_NOT_CHECKED
    if
    :: found != 0 && sReaders != 0 -> skip
    :: else ->
        // lookUp
        found = 0;
#ifdef FAULT_OPERATION_WAITS
        LOCK;
        beginUse();
#else
        tryLock();
#endif
        if
        :: isHeld -> readMap(); endUse()
        :: else -> skip
        fi;
        if
        :: sReaders != 0 -> find(id)
        :: else -> skip
        fi
    fi
#endif
}

// An operation reads the entry that it found.
inline use() {
    if
    :: found != 0 -> assert(entry[found].isAlive && entry[found].isWhole)
    :: else -> skip
    fi
}

proctype Store() {
    byte id, found, s, i, j, mapSize, missing, operations;
    bool hasRead, isHeld, isThere, mustFind, isProgram;
    callsRunning++;
    tryLock();
    if
    :: isHeld -> readMap(); endUse()
    :: else -> skip
    fi;
    do
    :: operations < OPERATIONS ->
        atomic {
            operations++;
            select(id : 1 .. TAGS);
            if
#ifndef EXIT
            :: isProgram = true   // the program holds the mutex during the operation, and has added the tag
#endif
            :: isProgram = false
            fi
        };
        if
        :: isProgram ->
            LOCK;
            atomic {
                if
                :: gTagInfo[id] == 0 -> addEntry(id); entry[gTagInfo[id]].isWhole = true
                :: else
                fi
            }
        :: else -> skip
        fi;
        mustFind = isRegistered[id] && hasRead;
        findInStore(id);
        assert(!mustFind || found != 0);
        use();
        // findOrInsert
        if
        :: found == 0 ->
            tryLock();
            if
            :: isHeld ->
                atomic {
                    if
                    :: gTagInfo[id] == 0 -> addEntry(id); entry[gTagInfo[id]].isWhole = true
                    :: else
                    fi
                };
                readMap();
                found = gTagInfo[id];
                endUse()
            :: else -> skip
            fi
        :: else -> skip
        fi;
        use();
        if
        :: isProgram -> UNLOCK
        :: else -> skip
        fi;
        atomic { isProgram = false; found = 0; id = 0; mustFind = false; isHeld = false }
    :: else -> break
    od;
    if
    :: hasRead -> sReaders--
    :: else -> skip
    fi;
    storesAlive--;
    callsRunning--
}

// register_tag.
proctype Registrar(byte id) {
    byte found, s, i, j, mapSize;
    bool isHeld, isKnown, isThere;
    callsRunning++;
    // TagTable::isRegistered
    if
    :: sReaders != 0 -> find(id)
    :: else -> skip
    fi;
    if
    :: found != 0 -> skip
    :: else ->
        tryLock();
        if
        :: isHeld -> atomic { assert(isMapAlive); isKnown = true; isThere = gTagInfo[id] != 0 }; endUse()
        :: else -> skip
        fi;
        if
        :: isKnown && isThere -> skip
        :: else ->
            LOCK;
            // TagTable::add
            beginUse();
            if
            :: !isHeld -> skip
            :: isHeld && !isKnown && gTagInfo[id] != 0 -> endUse()
            :: else ->
                atomic {
#ifdef FAULT_REPLACED_ENTRY_FREED
                    entry[gTagInfo[id]].isAlive = false;
#endif
                    addEntry(id)  // TagTable::newEntry
                };
#ifdef FAULT_PUBLISHED_TOO_EARLY
                publish(gTagInfo[id]);
                entry[gTagInfo[id]].isWhole = true;
#else
                entry[gTagInfo[id]].isWhole = true;
                publish(gTagInfo[id]);
#endif
                isRegistered[id] = true;
                endUse()
            fi
        fi
    fi;
    callsRunning--
}

// A program removes a tag from the map, which is allowed while there is no store and no call.
proctype Remover() {
    byte id;
    atomic {
        select(id : 1 .. TAGS);
        if
        :: callsRunning == 0 && gTagInfo[id] != 0 ->
            entry[gTagInfo[id]].isAlive = false;
            gTagInfo[id] = 0;
            isRegistered[id] = false
        :: timeout
        fi
    }
}

// TagTable::creatorOf: reads an entry without the mutex.
proctype Reader() {
    byte id, found, s, i;
    sReadings++;
    if
    :: sReaders != 0 && !sHasEnded -> select(id : 1 .. TAGS); find(id); use()
    :: else -> skip
    fi;
    sReadings--
}

// TagTable::end, and the destruction of the map. A store that is still in use lives on.
proctype Exit() {
    byte k;
    bool isKept;
    isKept = storesAlive != 0;
#ifndef FAULT_ENDED_TOO_LATE
    sHasEnded = true;
#endif
#ifndef FAULT_USES_IGNORED
    sUses == 0;
#endif
    sHasEnded = true;
#ifndef FAULT_READINGS_IGNORED
    isKept = isKept || sReadings != 0;
#endif
    atomic {
        isMapAlive = false;
        do
        :: k < entriesMade && !isKept -> k++; entry[k].isAlive = false
        :: else -> break
        od
    }
}

init {
    byte k;
    atomic {
        do
        :: k < REGISTRARS -> run Registrar(k % TAGS + 1); k++
        :: else -> break
        od;
        k = 0;
        do
        :: k < STORES -> storesAlive++; run Store(); k++
        :: else -> break
        od;
#ifdef REMOVER
        run Remover();
#endif
#ifdef EXIT
        run Reader();
        run Exit();
#endif
        k = 0
    };
    _nr_pr == 1;
    atomic {
        assert(!gRigisterMutex);
        assert(sReaders == 0)
    }
}
