// Ways to keep the store alive during a call, and what they cost. None of them changes the declared type of the store's
// owner. The library's own way is measured by a call that does nothing else, because its camera is out of limit.

#ifndef PARAMSET_BENCH_HOLDING_H
#define PARAMSET_BENCH_HOLDING_H

#include <benchmark/benchmark.h>

#include <chrono>
#include <memory>
#include <mutex>
#include <thread>

#include "bench/contenders/store.h"
#include "bench/workloads.h"

namespace bench {

inline void holdAsTheLibrary(benchmark::State& state) {
    const Store store(1, 16);
    char value[16] = {};
    for (auto _ : state) benchmark::DoNotOptimize(getPsParam(MAX_CAM_NUM, kPipe, 1, 0, value));
}

// The same while another call waits in the store, as is usual in a pipeline.
inline void holdBesideAWaiter(benchmark::State& state) {
    Store store(1, 16);
    std::thread waiter([&store] { store.await(kCam, 1, 0, Value(16).out()); });
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    char value[16] = {};
    for (auto _ : state) benchmark::DoNotOptimize(getPsParam(MAX_CAM_NUM, kPipe, 1, 0, value));
    waiter.join();
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
    benchmark::RegisterBenchmark("hold/store beside a waiter/0/0", holdBesideAWaiter)->Iterations(200000);
    benchmark::RegisterBenchmark("hold/atomic load/0/0", holdByAtomicLoad);
    benchmark::RegisterBenchmark("hold/mutex and copy/0/0", holdByMutexAndCopy);
}

}  // namespace bench

#endif  // PARAMSET_BENCH_HOLDING_H
