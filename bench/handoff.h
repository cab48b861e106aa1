// (g) how long a value takes from a setter to a getter that waits for it: the store, beside the barest hand-off of the
// same shape.

#ifndef PARAMSET_BENCH_HANDOFF_H
#define PARAMSET_BENCH_HANDOFF_H

#include <cstdint>
#include <vector>

namespace bench {

struct HandOffs {
    std::vector<double> store;  // nanoseconds of each, from before the set to after the get
    std::vector<double> bare;
    uint32_t storeLost = 0;  // notified before the getter waited, as both designs accept; not among the figures
    uint32_t bareLost = 0;
};

HandOffs measureHandOffs(uint32_t count);

}  // namespace bench

#endif  // PARAMSET_BENCH_HANDOFF_H
