// (m) four modules of a pipeline on one camera, each on its own thread. In each frame a module sets its tags, reads
// those of another module twice, and does a little work between the calls; one module also erases old frames. The
// figure that matters is the 99.9th percentile of a call's time, because the slowest calls make a frame late.

#ifndef PARAMSET_BENCH_MODULES_H
#define PARAMSET_BENCH_MODULES_H

#include <vector>

namespace bench {

// Nanoseconds of a call, over one block of frames.
struct Tail {
    double median;
    double p99;
    double p999;  // the 99.9th percentile
};

// The times of the store and of Maps. Maps' lock does not spin before it sleeps. The blocks of the two are interleaved.
struct Tails {
    std::vector<Tail> store;
    std::vector<Tail> maps;
};

Tails measureTails();

}  // namespace bench

#endif  // PARAMSET_BENCH_MODULES_H
