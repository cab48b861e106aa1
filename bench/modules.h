// (m) four modules of a pipeline on one camera, each on a thread of its own: per frame each sets its tags, reads those
// of another module twice, and does a little work between the calls; one erases behind them. What counts is the slowest
// call in a thousand: it is the one that makes a frame late.

#ifndef PARAMSET_BENCH_MODULES_H
#define PARAMSET_BENCH_MODULES_H

#include <vector>

namespace bench {

// Nanoseconds of a call, over one block of frames.
struct Tail {
    double median;
    double percentile99;
    double permille999;
};

// The store, and the floor, whose lock sleeps at once. Blocks of the two in turn.
struct Tails {
    std::vector<Tail> store;
    std::vector<Tail> maps;
};

Tails measureTails();

}  // namespace bench

#endif  // PARAMSET_BENCH_MODULES_H
