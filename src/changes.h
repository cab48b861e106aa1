// Counts the changes to pipes and frames that were, or may have been, made by others than PipeStore. PipeStore compares
// the count at the beginning of each access, and forgets its remembered addresses if it differs. Thread-safe.

#ifndef PARAMSET_CHANGES_H
#define PARAMSET_CHANGES_H

#include <atomic>
#include <cstdint>

namespace zarn {

inline std::atomic<uint32_t> gChanges{0};

inline uint32_t changeCount() {
    return gChanges.load(std::memory_order_relaxed);
}

inline void announceChange() {
    gChanges.fetch_add(1, std::memory_order_relaxed);
}

}  // namespace zarn

#endif  // PARAMSET_CHANGES_H
