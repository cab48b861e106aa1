// Waiting, delivering and erasing: src/sync_access.cpp, src/waiters.h, and the erase in src/frame_lifetime.cpp and
// src/pipe_store.cpp. There is one tag in one pipe, with frame 0 and one frame id; the frame of that id may be erased
// and made again. Code that runs with mMutex held is one step if no other thread can observe it; code without the mutex
// is a step for each action. The names are those of the code.
//
// A notification is lost if it comes between a get's second look at the state and the beginning of its wait, or if
// another get marks the record as waited for again before that look. The get then ends by its time-out, with the value.
// No other get may end by its time-out after a delivery or an erase has found that it waits. To check this, time-outs
// come only when nothing else can happen any more. With ANY_TIME, time-outs and spurious wake-ups come at any time.
//
// GETTERS, SETTERS, PLAIN_SETTERS and ERASERS are the numbers of processes for the frame, GETTERS_0 and SETTERS_0 those
// for frame 0. With ERASE_ALL the erasers erase everything. Each getter makes TIMES gets. FAULT_... plants a fault that
// must be found.

#ifndef GETTERS
#define GETTERS 0
#endif
#ifndef GETTERS_0
#define GETTERS_0 0
#endif
#ifndef SETTERS
#define SETTERS 0
#endif
#ifndef SETTERS_0
#define SETTERS_0 0
#endif
#ifndef PLAIN_SETTERS
#define PLAIN_SETTERS 0
#endif
#ifndef ERASERS
#define ERASERS 0
#endif
#ifndef TIMES
#define TIMES 1
#endif
#ifdef ANY_TIME
#define TIME_IS_UP true
#else
#define TIME_IS_UP timeout
#endif

#define ALL_GETTERS (GETTERS + GETTERS_0)
#define FRAMES (1 + GETTERS * TIMES + SETTERS + PLAIN_SETTERS)
#define NO_FRAME 255

// A value: 0 is none.
#define TORN 100       // a copy into the buffer is not complete
#define STANDING 50    // frame 0's value at the beginning
#define EARLIER 51     // the value of the frame that exists at the beginning
#define IS_WHOLE(v) (v != 0 && v != TORN)

// FrameStatus::mState; 0: nothing yet.
#define kDelivered 1
#define kWaitedFor 2

#define PS_OK 0
#define PS_NOT_OF_FRAME 3
#define PS_TIMED_OUT 6

typedef Frame {
    byte shares;  // number of shared pointers to the frame
    bool isAlive;
    byte value;
    bool isDelivered;
    byte mState;  // of the tag's record
    bool mMutex
};
Frame frame[FRAMES + 1];  // 0: frame 0
byte framesMade = 0;
byte inPipe = NO_FRAME;
bool mMutex = false;
bool wasErased = false;

// The state of a getter's wait.
typedef Wait {
    byte record = NO_FRAME;  // the frame whose record it waits on; set and cleared with mMutex held
    bool isInWait;
    bool isNotified;
    bool isInGap;   // between its second look and its wait
    bool isEnded;   // a delivery or an erase has found the record waited for, so the wait should end
    bool isMissed   // its notification came, but could not wake this getter
};
Wait wait[ALL_GETTERS];

#define LOCK(m) atomic { !m -> m = true }

inline addFrame(f) {
    framesMade++;
    f = framesMade;
    assert(f <= FRAMES);
    frame[f].shares = 1;
    frame[f].isAlive = true;
    inPipe = f
}

inline dropShare(f) {
    assert(frame[f].shares > 0);
    frame[f].shares--;
    if
    :: frame[f].shares == 0 -> frame[f].isAlive = false; frame[f].value = 0; frame[f].mState = 0; frame[f].isDelivered = false
    :: else
    fi
}

// The waits on a record should end now.
inline endWaits(f) {
    w = 0;
    do
    :: w < ALL_GETTERS ->
        if
        :: wait[w].record == f -> wait[w].isEnded = true
        :: else
        fi;
        w++
    :: else -> break
    od;
    w = 0
}

inline notifyAll(f) {
    assert(frame[f].isAlive);
    w = 0;
    do
    :: w < ALL_GETTERS ->
        if
        :: wait[w].record == f && wait[w].isInWait -> wait[w].isNotified = true
        :: else
        fi;
        w++
    :: else -> break
    od;
    w = 0
}

// Woken::wakeAgain.
inline wakeAgain(f, state) {
#ifndef FAULT_NO_SECOND_NOTIFICATION
    atomic {
        assert(frame[f].isAlive);
        isSame = frame[f].mState == state;
        w = 0;
        do
        :: w < ALL_GETTERS ->
            if
            :: wait[w].record == f && wait[w].isEnded && !isSame -> wait[w].isMissed = true
            :: else
            fi;
            w++
        :: else -> break
        od;
        w = 0
    };
    if
    :: isSame ->
        atomic {
            notifyAll(f);
            do
            :: w < ALL_GETTERS ->
                if
                :: wait[w].record == f && wait[w].isInGap -> wait[w].isMissed = true
                :: else
                fi;
                w++
            :: else -> break
            od;
            w = 0;
            isSame = false
        }
    :: else -> skip
    fi
#else
    skip
#endif
}

// TimedWait. mMutex is held at the beginning and at the end.
inline timedWait() {
    atomic { wait[me].record = f; mMutex = false };
    assert(frame[f].isAlive);
    LOCK(frame[f].mMutex);
    atomic {
        assert(frame[f].isAlive);
#ifdef FAULT_NO_SECOND_LOOK
        isWaiting = true;
#else
        isWaiting = frame[f].mState == state;
#endif
        if
        :: isWaiting ->
            wait[me].isInGap = true;
#if !defined(FAULT_NO_SECOND_LOOK) && !defined(FAULT_GAP_ALONE)
            wait[me].isMissed = wait[me].isEnded  // another get has marked the record as waited for again
#endif
        :: else
        fi
    };
    if
    :: isWaiting ->
        atomic { wait[me].isInGap = false; wait[me].isInWait = true; frame[f].mMutex = false };
        if
        :: wait[me].isNotified -> skip
#ifndef FAULT_UNLIMITED_WAIT
        :: TIME_IS_UP -> timedOut = true
#endif
#ifdef ANY_TIME
        :: true -> skip
#endif
        fi;
        atomic { wait[me].isInWait = false; wait[me].isNotified = false };
        assert(frame[f].isAlive);
        LOCK(frame[f].mMutex)
    :: else -> skip
    fi;
#ifdef FAULT_READ_BEFORE_LOCK
    value = frame[f].value;
#endif
    LOCK(mMutex);
    assert(frame[f].isAlive);
    frame[f].mMutex = false
}

// _getParamSyn with awaitFrame, or awaitF0.
proctype Getter(byte me; bool isOf0) {
    byte f, state, value, result, times;
    bool isWaiting, timedOut;
    do
    :: times < TIMES ->
        LOCK(mMutex);
        atomic {
            times++;
            timedOut = false;
            value = 0;
            if
            :: isOf0 -> f = 0
            :: !isOf0 && inPipe == NO_FRAME -> addFrame(f)
            :: !isOf0 && inPipe != NO_FRAME -> f = inPipe
            fi
        };
        if
        :: frame[f].mState == kDelivered && (isOf0 || frame[f].value != 0) ->
            atomic { value = frame[f].value; result = PS_OK }
        :: else ->
            atomic {
                assert(!frame[f].isDelivered);
                if
                :: isOf0 || frame[f].value == 0 -> frame[f].mState = kWaitedFor
                :: else
                fi;
                if
#ifndef FAULT_FRAME_NOT_KEPT
                :: !isOf0 -> frame[f].shares++
#endif
                :: else
                fi;
                state = frame[f].mState
            };
            timedWait();
            atomic {
#ifndef ANY_TIME
                assert(!timedOut || !wait[me].isEnded || wait[me].isMissed);
#endif
                wait[me].record = NO_FRAME;
                wait[me].isEnded = false;
                wait[me].isMissed = false;
                result = (timedOut -> PS_TIMED_OUT : PS_OK);
                if
                :: !isOf0 && (inPipe == NO_FRAME || frame[inPipe].value == 0) ->
                    result = PS_NOT_OF_FRAME;
                    value = frame[0].value
                :: else ->
#ifndef FAULT_READ_BEFORE_LOCK
                    value = frame[f].value
#endif
                fi;
                // The get has no value to copy only if the frame was erased and made again.
                assert(value != 0 || !isOf0 && inPipe != f && wasErased);
                if
#ifndef FAULT_FRAME_NOT_KEPT
                :: !isOf0 -> dropShare(f)
#endif
                :: else
                fi
            }
        fi;
        assert(value != TORN);
        atomic { mMutex = false; f = 0; state = 0; isWaiting = false }
    :: else -> break
    od
}

// _setParamSyn.
proctype Setter(byte newValue; bool isOf0) {
    byte f, w;
    bool isWaitedFor, isSame;
    LOCK(mMutex);
    atomic {
        if
        :: isOf0 -> f = 0
        :: !isOf0 && inPipe == NO_FRAME -> addFrame(f)
        :: !isOf0 && inPipe != NO_FRAME -> f = inPipe
        fi
    };
#ifdef FAULT_SET_LOCKS_THE_RECORD
    LOCK(frame[f].mMutex);
#endif
    frame[f].value = TORN;
    isWaitedFor = frame[f].mState == kWaitedFor;
    if
    :: isWaitedFor ->
        atomic {
            endWaits(f);
            notifyAll(f);
#ifndef FAULT_WOKEN_NOT_KEPT
            if
            :: !isOf0 -> frame[f].shares++
            :: else
            fi
#endif
        }
    :: else -> skip
    fi;
#ifdef FAULT_SET_LOCKS_THE_RECORD
    frame[f].mMutex = false;
#endif
#ifndef FAULT_DELIVERED_TOO_LATE
    frame[f].mState = kDelivered;
#endif
    frame[f].value = newValue;
    atomic { frame[f].isDelivered = true; mMutex = false };
#ifdef FAULT_DELIVERED_TOO_LATE
    frame[f].mState = kDelivered;
#endif
    if
    :: isWaitedFor ->
        wakeAgain(f, kDelivered);
#ifndef FAULT_WOKEN_NOT_KEPT
        atomic {
            if
            :: !isOf0 -> dropShare(f)
            :: else
            fi
        }
#endif
    :: else -> skip
    fi
}

// _setParam: wakes nobody.
proctype PlainSetter(byte newValue) {
    byte f;
    LOCK(mMutex);
    atomic {
        if
        :: inPipe == NO_FRAME -> addFrame(f)
        :: else -> f = inPipe
        fi
    };
    frame[f].value = TORN;
    frame[f].value = newValue;
    mMutex = false
}

// _erase of the tag in the frame; with ERASE_ALL, of everything.
proctype Eraser() {
    byte f = NO_FRAME;
    byte w;
    bool isWaitedFor, isWaitedFor0, isSame;
    LOCK(mMutex);
    if
    :: inPipe != NO_FRAME ->
        f = inPipe;
#ifdef ERASE_ALL
        // PipeStore::resetFrame0
        isWaitedFor0 = frame[0].mState == kWaitedFor;
        if
        :: isWaitedFor0 -> atomic { endWaits(0); notifyAll(0) }
        :: else -> skip
        fi;
        atomic { frame[0].mState = 0; frame[0].isDelivered = false };
#endif
        // saveToF0
        if
        :: frame[f].value != 0 -> frame[0].value = TORN; frame[0].value = frame[f].value
        :: else -> skip
        fi;
        // PipeStore::drop
        isWaitedFor = frame[f].mState == kWaitedFor;
        if
        :: isWaitedFor ->
            atomic {
                endWaits(f);
#ifndef FAULT_ERASE_WAKES_NOBODY
                notifyAll(f)
#endif
            }
        :: else -> skip
        fi;
        atomic {
            frame[f].value = 0;
            frame[f].isDelivered = false;
            isWaitedFor = isWaitedFor && frame[f].shares > 1;
            if
            :: isWaitedFor -> frame[f].shares++
            :: else
            fi;
            wasErased = true;
            inPipe = NO_FRAME;
            dropShare(f)
        }
    :: else -> skip
    fi;
    mMutex = false;
    if
    :: isWaitedFor0 -> wakeAgain(0, 0)
    :: else -> skip
    fi;
    if
    :: isWaitedFor ->
#ifndef FAULT_ERASE_WAKES_NOBODY
        wakeAgain(f, kWaitedFor);
#endif
        atomic { dropShare(f) }
    :: else -> skip
    fi
}

init {
    byte i;
    atomic {
        frame[0].isAlive = true;
        frame[0].shares = 1;
        frame[0].value = STANDING;
#ifdef ERASE_ALL
        addFrame(i);  // an erase of everything does nothing if the pipe has no frame
        frame[i].value = EARLIER;
        i = 0;
#endif
        do
        :: i < ALL_GETTERS -> run Getter(i, i >= GETTERS); i++
        :: else -> break
        od;
        i = 0;
        do
        :: i < SETTERS + SETTERS_0 -> run Setter(i + 1, i >= SETTERS); i++
        :: else -> break
        od;
        i = 0;
        do
        :: i < PLAIN_SETTERS -> run PlainSetter(i + 11); i++
        :: else -> break
        od;
        i = 0;
        do
        :: i < ERASERS -> run Eraser(); i++
        :: else -> break
        od;
        i = 0
    };
    // All processes have ended: no lock is held, no frame is leaked, no value is lost.
    _nr_pr == 1;
    atomic {
        assert(!mMutex);
        assert(IS_WHOLE(frame[0].value));
        assert(SETTERS == 0 || wasErased || IS_WHOLE(frame[inPipe].value));
        assert(SETTERS == 0 || wasErased || frame[inPipe].mState == kDelivered);
        do
        :: i <= FRAMES ->
            assert(!frame[i].mMutex);
            assert(frame[i].shares == (i == 0 || i == inPipe -> 1 : 0));
            i++
        :: else -> break
        od
    }
}
