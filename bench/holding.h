// What it costs to keep the store alive for the length of a call, in the ways that keep the declared type of its owner.
// The library's own is measured by a call that does nothing else: it is refused for its camera.

#ifndef PARAMSET_BENCH_HOLDING_H
#define PARAMSET_BENCH_HOLDING_H

#include <benchmark/benchmark.h>

#include <memory>
#include <mutex>

#include "bench/contenders/store.h"

namespace bench {

inline void holdAsTheLibrary(benchmark::State& state) {
    const Store store(1, 16);
    char value[16] = {};
    for (auto _ : state) benchmark::DoNotOptimize(getPsParam(MAX_CAM_NUM, kPipe, 1, 0, value));
}

inline void holdByAtomicLoad(benchmark::State& state) {
    std::shared_ptr<int> owner = std::make_shared<int>();
    for (auto _ : state) benchmark::DoNotOptimize(std::atomic_load(&owner));
}

inline void holdByMutexAndCopy(benchmark::State& state) {
    std::shared_ptr<int> owner = std::make_shared<int>();
    std::mutex mutex;
    const auto copy = [&] {
        const std::lock_guard<std::mutex> lock(mutex);
        return owner;
    };
    for (auto _ : state) benchmark::DoNotOptimize(copy());
}

inline void addHolding() {
    benchmark::RegisterBenchmark("hold/store/0/0", holdAsTheLibrary);
    benchmark::RegisterBenchmark("hold/atomic load/0/0", holdByAtomicLoad);
    benchmark::RegisterBenchmark("hold/mutex and copy/0/0", holdByMutexAndCopy);
}

}  // namespace bench

#endif  // PARAMSET_BENCH_HOLDING_H
