// Plain integers that threads share without a lock: the log switches, and FrameStatus::mState when a get looks at it
// just before its wait. Their declared types stay plain, so they are read and written by relaxed atomic builtins.

#ifndef PARAMSET_RELAXED_H
#define PARAMSET_RELAXED_H

namespace zarn {

inline int loadRelaxed(const int& value) {
    return __atomic_load_n(&value, __ATOMIC_RELAXED);
}

inline void storeRelaxed(int& target, int value) {
    __atomic_store_n(&target, value, __ATOMIC_RELAXED);
}

}  // namespace zarn

#endif  // PARAMSET_RELAXED_H
