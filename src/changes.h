// Counts the changes that others than PipeStore may have made to what pipes and frames hold. PipeStore compares the
// count at the begin of each access, and forgets where things were if it differs. Thread-safe.

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
