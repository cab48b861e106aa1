// (g) how long a value takes from a setter to a getter that waits for it: in the store, and in the simplest code that
// does the same.

#ifndef PARAMSET_BENCH_HANDOFF_H
#define PARAMSET_BENCH_HANDOFF_H

#include <cstdint>
#include <vector>

namespace bench {

struct HandOffs {
    std::vector<double> store;  // nanoseconds of each, from before the set to after the get
    std::vector<double> bare;
    // Hand-offs whose notification came before the getter waited. Both designs accept this. Not in the times.
    uint32_t storeLost = 0;
    uint32_t bareLost = 0;
};

HandOffs measureHandOffs(uint32_t count);

}  // namespace bench

#endif  // PARAMSET_BENCH_HANDOFF_H
