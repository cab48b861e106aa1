// Runs the workloads on the store and on Maps under callgrind, which counts the instructions of the steps only. Each
// workload ends with a dump that is named workload/contender/tags/size/steps.

#include <valgrind/callgrind.h>

#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>

#include "bench/contenders/maps.h"
#include "bench/contenders/store.h"
#include "bench/workloads.h"
#include "platform/host/host_platform.h"

namespace bench {

namespace {

template <class Run>
void count(const char* workload, const char* contender, Shape shape, int steps) {
    Run run(shape);
    if (!run.isCorrect()) std::abort();
    // The first steps bind symbols and warm up the allocator.
    for (int i = 0; i < 2; ++i) {
        run.prepare();
        run.step();
    }
    CALLGRIND_ZERO_STATS;
    for (int i = 0; i < steps; ++i) {
        run.prepare();
        CALLGRIND_TOGGLE_COLLECT;
        run.step();
        CALLGRIND_TOGGLE_COLLECT;
    }
    const std::string name = std::string(workload) + "/" + contender + "/" + std::to_string(shape.tags) + "/" +
                             std::to_string(shape.size) + "/" + std::to_string(steps);
    CALLGRIND_DUMP_STATS_AT(name.c_str());
}

template <class C>
void countAll(Shape shape) {
    constexpr int kCalls = 2000;
    constexpr int kFrames = 20;
    count<GetOwn<C>>("a", C::kName, shape, kCalls);
    count<GetAhead<C>>("b", C::kName, shape, kCalls);
    count<GetDeep<C>>("c", C::kName, shape, kCalls);
    count<SetInPlace<C>>("d", C::kName, shape, kCalls);
    count<Stream<C>>("e", C::kName, shape, kFrames);
    count<Deliver<C>>("f", C::kName, shape, kCalls);
    count<EraseMany<C>>("h-16", C::kName, shape, kFrames);
    count<EraseOne<C, 16>>("h-1of16", C::kName, shape, kFrames);
    count<EraseOne<C, 200>>("h-1of200", C::kName, shape, kFrames);
    count<EraseOne<C, 300>>("h-1of300", C::kName, shape, kFrames);
}

}  // namespace

}  // namespace bench

int main() {
    host::setLogLevel(0);
    // With a second thread reference counts are atomic, as in any camera process.
    std::mutex mutex;
    std::unique_lock<std::mutex> lock(mutex);
    std::thread idle([&] { const std::lock_guard<std::mutex> wait(mutex); });
    for (const uint32_t tags : {32u, 128u}) {
        bench::countAll<bench::Store>({tags, 16});
        bench::countAll<bench::Maps>({tags, 16});
    }
    lock.unlock();
    idle.join();
}
