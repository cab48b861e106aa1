// (k) several threads that share one camera, or use one camera each: three gets for each set in place, at random frames
// and tags.

#ifndef PARAMSET_BENCH_THREADS_H
#define PARAMSET_BENCH_THREADS_H

#include <benchmark/benchmark.h>

#include <memory>

#include "bench/workloads.h"

namespace bench {

template <class C>
void runThreads(benchmark::State& state, Shape shape, bool oneCamera) {
    static std::unique_ptr<C> shared;
    const auto thread = static_cast<uint32_t>(state.thread_index());
    if (thread == 0) {
        shared = std::make_unique<C>(shape.tags, shape.size);
        Value value(shape.size);
        for (uint32_t cam = 0; cam < kCameras; ++cam) {
            for (uint32_t frame = 1; frame <= kLiveFrames; ++frame) {
                for (uint32_t tag = 0; tag < shape.tags; ++tag) shared->set(cam, frame, tag, value.of(frame, tag));
            }
        }
    }
    const uint32_t cam = oneCamera ? 0 : thread;
    RandomAccesses order(shape.tags, 1, kLiveFrames, thread + 1);
    Value value(shape.size);
    uint32_t step = 0;
    for (auto _ : state) {
        const Access& at = order.next();
        if (++step % 4 == 0) {
            shared->set(cam, at.frame, at.tag, value.out());
        } else {
            shared->get(cam, at.frame, at.tag, value.out());
        }
    }
    if (thread == 0) shared.reset();
}

}  // namespace bench

#endif  // PARAMSET_BENCH_THREADS_H
